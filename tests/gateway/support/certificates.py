"""Certificates of a test's own, by the command openssl."""

from __future__ import annotations

import os
import subprocess
from dataclasses import dataclass
from pathlib import Path

from privileges import skip_unless_root

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
x509_extensions = signed
[any]
commonName = supplied
[signed]
basicConstraints = CA:FALSE
authorityKeyIdentifier = keyid
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
        # Clients in Python take only certificates that have all that a standard asks for, from 3.13 on.
        usage = ["-addext", "keyUsage=critical,keyCertSign,cRLSign"]
        openssl("req", "-x509", "-new", "-key", self._key, "-out", self.certificate, *subject, *usage)

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
        if not expired:
            openssl("verify", "-x509_strict", "-CAfile", self.certificate, made.certificate)
        return made


def machine_that_trusts(authority: Authority, folder: Path) -> list[str]:
    """What stands before a command whose system trusts this authority and no other."""
    folder.mkdir()
    content = authority.certificate.read_bytes()
    (folder / "authority.pem").write_bytes(content)
    (folder / "ca-certificates.crt").write_bytes(content)
    openssl("rehash", folder)
    mount = 'mount --bind "$0" /etc/ssl/certs && exec "$@"'
    command = ["unshare", *own_mounts(), "sh", "-c", mount, str(folder)]
    done = subprocess.run([*command, "true"], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        skip_unless_root(f"the system's authorities cannot be others here: {done.stderr.strip()}")
    return command


def own_mounts() -> list[str]:
    """What has unshare give a command mounts of its own."""
    if os.geteuid() != 0:
        return ["--user", "--map-root-user", "--mount"]
    # Where nothing is shared, a mount shows nowhere else as it is, and in a root that is not a mount itself unshare
    # cannot see to that.
    shares = "shared:" in Path("/proc/self/mountinfo").read_text()
    return ["--mount"] if shares else ["--mount", "--propagation", "unchanged"]


def new_key(file: Path) -> None:
    openssl("ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", file)
    file.chmod(0o600)


def openssl(*arguments: object) -> None:
    done = subprocess.run(["openssl", *map(str, arguments)], capture_output=True, text=True, check=False)
    assert done.returncode == 0, f"openssl {arguments}: {done.stderr}"
