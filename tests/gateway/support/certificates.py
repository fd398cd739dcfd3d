"""Certificates of a test's own, by the command openssl."""

from __future__ import annotations

import subprocess
from dataclasses import dataclass
from pathlib import Path

AUTHORITY = """
[ca]
default_ca = own
[own]
dir = {folder}
new_certs_dir = {folder}
database = {folder}/index.txt
serial = {folder}/serial
default_md = sha256
policy = any
unique_subject = no
copy_extensions = copy
[any]
commonName = supplied
"""


@dataclass
class Certificate:
    certificate: Path
    key: Path


class Authority:
    def __init__(self, folder: Path) -> None:
        self.folder = folder
        folder.mkdir()
        self.certificate = folder / "ca.pem"
        self._key = folder / "ca.key"
        (folder / "index.txt").touch()
        (folder / "serial").write_text("1000\n")
        self._settings = folder / "openssl.conf"
        self._settings.write_text(AUTHORITY.format(folder=folder))
        subject = ["-subj", "/CN=Tests", "-days", "2"]
        new_key(self._key)
        openssl("req", "-x509", "-new", "-key", self._key, "-out", self.certificate, *subject)

    def sign(self, name: str, host: str | None = None, *, expired: bool = False) -> Certificate:
        """For a host by its name or address, or for a client."""
        made = Certificate(self.folder / f"{name}.pem", self.folder / f"{name}.key")
        request = self.folder / f"{name}.csr"
        kind = "IP" if host and host[0].isdigit() else "DNS"
        names = ["-addext", f"subjectAltName={kind}:{host}"] if host else []
        new_key(made.key)
        openssl("req", "-new", "-key", made.key, "-out", request, "-subj", f"/CN={name}", *names)
        span = ["-startdate", "20200101000000Z", "-enddate", "20200102000000Z"] if expired else ["-days", "2"]
        place = ["-in", request, "-out", made.certificate, "-cert", self.certificate, "-keyfile", self._key]
        openssl("ca", "-batch", "-notext", "-config", self._settings, *place, *span)
        return made


def new_key(file: Path) -> None:
    openssl("ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", file)
    file.chmod(0o600)


def openssl(*arguments: object) -> None:
    done = subprocess.run(["openssl", *map(str, arguments)], capture_output=True, text=True, check=False)
    assert done.returncode == 0, f"openssl {arguments}: {done.stderr}"
