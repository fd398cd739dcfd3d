"""The page as programs ask it, and `kestrin-gateway status`."""

from __future__ import annotations

import base64
import json
import os
import pty
import socket
import ssl
import subprocess
from pathlib import Path

import pytest
from certificates import Authority, machine_that_trusts
from frames import build_frame
from machines import LIMIT, PROGRAM, Broker, Gateway, Room, wait_for
from pages import Page, plugged_in, ran_status, script_of, started_broker, with_a_page

TOKEN = "0123456789abcdef0123456789abcdef"

# A name without "KVR" in it is not a reader's.
HOSTILE = [
    b"KVR-<b>bold</b>",
    b"KVR-\x1b[2J\x1b]0;owned\x07",
    b"KVR-bad\xff\xfe",
    "KVR-turned \u202e".encode(),
    b"KVR-cut\x85\x9b31m",
]


def secret(room: Room, name: str = "token", text: str = TOKEN) -> Path:
    file = room / name
    file.write_text(text + "\n")
    file.chmod(0o600)
    return file


def checked(gateway: Gateway) -> subprocess.CompletedProcess[str]:
    gateway.configure()
    command = [PROGRAM, "check-config", str(gateway.file)]
    return subprocess.run(command, capture_output=True, text=True, check=False)


def test_the_status_is_true(room: Room) -> None:
    broker = started_broker(room)
    gateway, page = with_a_page(room, broker)
    gateway.settings.readers = ["KVR-0001", "KVR-Q62T 0004"]
    gateway.start()
    page.wait()
    plugged_in(page, 2)
    status = page.wait_for_status("frames", lambda status: len(status["frames"]) >= 20)
    assert status["broker"]["up"] is True
    assert status["broker"]["address"] == f"127.0.0.1:{broker.port}"
    for reader in status["readers"]:
        assert reader["frames"] == sum(reader["minutes"]) > 0
        assert len(reader["minutes"]) == 60
        assert -100 <= reader["signal"] <= 0
    kept = {each["n"]: each for each in gateway.exported()}
    for frame in status["frames"]:
        assert kept[frame["n"]]["bytes"] == frame["bytes"]
        assert kept[frame["n"]]["at"] == frame["at"]
    broker.kill()
    lost = page.wait_for_status("the broker's loss", lambda status: not status["broker"]["up"])
    assert lost["broker"]["since"] > status["broker"]["since"]
    page.wait_for_status("the trouble", lambda status: any("no broker" in line for line in status["trouble"]))


def test_status_prints_the_same_in_the_terminal_and_for_programs(room: Room) -> None:
    broker = started_broker(room)
    gateway, page = with_a_page(room, broker)
    gateway.settings.readers = ["KVR-0001"]
    gateway.start()
    page.wait()
    plugged_in(page, 1)
    page.wait_for_status("no trouble", lambda status: status["broker"]["up"] and not status["trouble"])
    done = ran_status(gateway.file)
    assert done.returncode == 0, done
    assert "trouble   none" in done.stdout.splitlines()
    assert any(line.startswith("reader    KVR-0001 (C0:00:00:00:00:01): pluggedIn") for line in done.stdout.splitlines())
    read = json.loads(ran_status("--json", "--url", page.url).stdout)
    assert read["gateway"] == "gw" and read["readers"][0]["key"] == "KVR-0001"
    broker.kill()
    page.wait_for_status("the trouble", lambda status: status["trouble"])
    done = ran_status(gateway.file)
    assert done.returncode == 3, done
    assert any(line.startswith("trouble   no broker") for line in done.stdout.splitlines())


def test_status_says_why_it_cannot_be_had(room: Room) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    gateway.configure()
    done = ran_status(gateway.file)
    assert done.returncode == 1 and done.stdout == ""
    assert done.stderr.startswith(f"kestrin-gateway: http://127.0.0.1:{page.port}: "), done.stderr
    assert ran_status("--url", "ftp://127.0.0.1").returncode == 2
    assert ran_status().returncode == 2
    assert ran_status(gateway.file, "--url", page.url).returncode == 2
    token = secret(room)
    done = ran_status("--url", "http://192.0.2.1:80", "--token-file", token)
    assert done.returncode == 2 and "could read the token" in done.stderr
    # What stands before the sign is a user's name and password.
    for disguised in ("http://127.0.0.1:80@192.0.2.1", "http://[::1]@192.0.2.1", "http://0127.0.0.1"):
        assert ran_status("--url", disguised, "--token-file", token).returncode == 2, disguised
    gateway.settings.page = None
    gateway.configure()
    done = ran_status(gateway.file)
    assert done.returncode == 2 and "has no page" in done.stderr


def test_status_gives_the_token_of_this_machine_to_no_proxy(room: Room, monkeypatch: pytest.MonkeyPatch) -> None:
    gateway, page = with_a_page(room, started_broker(room), token_file=str(secret(room)))
    gateway.start()
    page.wait()
    with socket.create_server(("127.0.0.1", 0)) as proxy:
        monkeypatch.setenv("http_proxy", f"http://127.0.0.1:{proxy.getsockname()[1]}")
        done = ran_status("--url", page.url, "--token-file", room / "token")
        assert done.returncode in (0, 3), done.stderr
        assert ran_status(gateway.file).returncode in (0, 3)
        proxy.setblocking(False)
        with pytest.raises(BlockingIOError):
            proxy.accept()


def test_status_trusts_nobody_but_the_authority_that_it_is_given(room: Room) -> None:
    authority = Authority(room / "ca")
    signed = authority.sign("localhost", "localhost")
    gateway, page = with_a_page(room, started_broker(room), token_file=str(secret(room)))
    gateway.settings.page_tls = {"certificate": str(signed.certificate), "key": str(signed.key)}
    gateway.start()
    page.wait()
    system = machine_that_trusts(authority, room / "system")
    asked = [PROGRAM, "status", "--url", f"https://localhost:{page.port}", "--token-file", str(room / "token")]

    def status(*more: str | Path) -> int:
        return subprocess.run([*system, *asked, *map(str, more)], capture_output=True, check=False).returncode

    assert status() in (0, 3), "the system's authorities are not used"
    other = Authority(room / "other").sign("somebody")
    assert status("--ca", other.certificate) == 1
    assert status("--ca", authority.certificate) in (0, 3)


def test_status_leaves_the_credentials_to_the_service(room: Room) -> None:
    gateway, page = with_a_page(room, started_broker(room), token_file="credential:page.token")
    done = checked(gateway)
    assert done.returncode == 0 and "credential:page.token is looked at when the service starts" in done.stderr
    done = ran_status(gateway.file)
    assert done.returncode == 2 and f"--url http://127.0.0.1:{page.port} with --token-file" in done.stderr, done


def test_nothing_from_the_air_steers_the_terminal(room: Room) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    script_of(room, gateway, [(0.2, name) for name in HOSTILE])
    gateway.start()
    page.wait()
    plugged_in(page, len(HOSTILE))
    page.wait_for_status("frames of all", lambda status: len({each["reader"] for each in status["frames"]}) == len(HOSTILE))
    for arguments in ([str(gateway.file)], ["--json", str(gateway.file)]):
        shown = in_a_terminal([PROGRAM, "status", *arguments])
        assert all(0x20 <= byte < 0x7F or byte in b"\r\n" for byte in shown), shown
    shown = in_a_terminal([PROGRAM, "status", str(gateway.file)])
    assert b"KVR-\\x1b[2J\\x1b]0;owned\\x07" in shown and b"bad\\xff\\xfe" in shown


def in_a_terminal(command: list[str]) -> bytes:
    """What a program prints where its output is a terminal."""
    child, terminal = pty.fork()
    if child == 0:
        os.execv(command[0], command)
    shown = b""
    while True:
        try:
            piece = os.read(terminal, 65536)
        except OSError:
            break
        if not piece:
            break
        shown += piece
    os.close(terminal)
    os.waitpid(child, 0)
    return shown


def test_the_page_only_reads_unless_commands_are_switched_on(room: Room) -> None:
    gateway, page = with_a_page(room, started_broker(room), token_file=str(secret(room)))
    gateway.start()
    page.wait()
    path, body = "/reader/C0:00:00:00:00:01/command", '{"bytes":"bb00030000037e"}'
    bearer = {"Authorization": f"Bearer {TOKEN}", "Content-Type": "application/json"}
    assert page.ask(path, bearer, "POST", body)[0] == 403
    assert page.ask(path, {}, "POST", body)[0] == 401


def test_a_command_is_carried_out_and_answered(room: Room) -> None:
    gateway, page = with_a_page(room, started_broker(room), token_file=str(secret(room)), commands=True)
    gateway.settings.readers = ["KVR-0001"]
    gateway.start()
    page.wait()
    bearer = {"Authorization": f"Bearer {TOKEN}", "Content-Type": "application/json"}

    def is_plugged_in() -> bool:
        status = json.loads(page.ask("/status.json", bearer)[1])
        return bool(status["readers"][0]["phase"] == "pluggedIn")

    wait_for("the reader to be plugged in", is_plugged_in)
    frame = build_frame(0x00, 0x03, b"").hex()
    code, answer, headers = page.ask("/reader/KVR-0001/command", bearer, "POST", json.dumps({"bytes": frame}))
    assert (code, json.loads(answer)) == (200, {"v": 1, "handed": True})
    assert headers["content-type"] == "application/json"
    code, answer, _ = page.ask("/reader/KVR-0001/command", bearer, "POST", '{"bytes":"00"}')
    assert code == 200 and json.loads(answer)["handed"] is False
    code, answer, _ = page.ask("/reader/nobody/command", bearer, "POST", json.dumps({"bytes": frame}))
    assert "has no reader" in json.loads(answer)["why"]


def test_a_token_is_asked_for(room: Room) -> None:
    gateway, page = with_a_page(room, started_broker(room), token_file=str(secret(room)))
    gateway.start()
    page.wait()
    for path in ("/", "/status.json", "/metrics", "/events", "/page.js", "/nothing"):
        code, _, headers = page.ask(path)
        assert code == 401 and headers["www-authenticate"].startswith("Basic "), path
    password = base64.b64encode(f"anyone:{TOKEN}".encode()).decode()
    assert page.ask("/", {"Authorization": f"Basic {password}"})[0] == 200
    assert page.ask("/", {"Authorization": f"Bearer {TOKEN}x"})[0] == 401
    assert ran_status(gateway.file).returncode in (0, 3)
    assert TOKEN not in "\n".join(gateway.lines())


def test_a_page_for_other_machines_needs_tls_and_a_token(room: Room) -> None:
    gateway, page = with_a_page(room, Broker(room), address="0.0.0.0")
    done = checked(gateway)
    assert done.returncode == 2
    assert "page.address: 0.0.0.0 can be reached by other machines; [page.tls] with certificate and key, and " in done.stdout
    gateway.settings.page = {"address": "0.0.0.0", "token_file": str(secret(room))}
    assert checked(gateway).returncode == 2
    gateway.start()
    assert gateway.wait() == 2
    signed = Authority(room / "ca").sign("localhost", "localhost")
    gateway.settings.page_tls = {"certificate": str(signed.certificate), "key": str(signed.key)}
    assert checked(gateway).returncode == 0, checked(gateway).stdout
    secret(room, text="short")
    done = checked(gateway)
    assert done.returncode == 2 and "has no token; one line of 16 to 256 characters" in done.stdout


def can_talk_to(page: Page, version: str) -> bool:
    """Whether the page takes somebody who knows no other version of TLS."""
    command = ["openssl", "s_client", version, "-cipher", "ALL:@SECLEVEL=0", "-connect", f"127.0.0.1:{page.port}"]
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    return "Cipher is (NONE)" not in done.stdout and "BEGIN CERTIFICATE" in done.stdout


def test_with_tls_the_page_is_asked_in_confidence_and_its_certificate_can_be_renewed(room: Room) -> None:
    authority = Authority(room / "ca")
    signed = authority.sign("localhost", "localhost")
    gateway, page = with_a_page(room, started_broker(room), address="0.0.0.0", token_file=str(secret(room)))
    gateway.settings.page_tls = {"certificate": str(signed.certificate), "key": str(signed.key)}
    gateway.start()
    page.wait()
    trusted = ssl.create_default_context(cafile=str(authority.certificate))
    bearer = {"Authorization": f"Bearer {TOKEN}"}
    assert page.ask("/status.json", bearer, tls=trusted)[0] == 200
    assert page.ask("/status.json", tls=trusted)[0] == 401
    for version in ("-tls1", "-tls1_1"):
        assert not can_talk_to(page, version), version
    assert can_talk_to(page, "-tls1_2")
    assert ran_status(gateway.file).returncode in (0, 3), ran_status(gateway.file).stderr
    url = f"https://localhost:{page.port}"
    named = ran_status("--url", url, "--ca", authority.certificate, "--token-file", room / "token")
    assert named.returncode in (0, 3), named.stderr
    assert ran_status("--url", url, "--token-file", room / "token").returncode == 1
    # Another authority's, in the files' place.
    other = Authority(room / "other")
    renewed = other.sign("localhost", "localhost")
    signed.certificate.write_bytes(renewed.certificate.read_bytes())
    signed.key.write_bytes(renewed.key.read_bytes())
    mark = gateway.mark()
    gateway.reload()
    page.wait(mark)
    trusted = ssl.create_default_context(cafile=str(other.certificate))
    assert page.ask("/status.json", bearer, tls=trusted)[0] == 200


def test_the_gateway_works_though_its_page_has_no_port_and_serves_it_later(room: Room) -> None:
    broker = started_broker(room)
    other, taken = with_a_page(room, broker)
    other.start()
    taken.wait()
    gateway = Gateway(room, broker.port, "second")
    gateway.settings.name = "second"
    page = Page(gateway)
    page.port = taken.port
    gateway.settings.page = {"port": taken.port}
    gateway.start()
    gateway.wait_for_line("the page cannot be served, and is tried again: 127.0.0.1, port ")
    wait_for("frames", lambda: gateway.sent_count() > 20)
    other.end()
    page.wait()
    assert page.status()["gateway"] == "second"


def test_open_pages_do_not_slow_the_gateway_and_end_with_it(room: Room) -> None:
    gateway, page = with_a_page(room, started_broker(room), pause=0.005)
    gateway.start()
    page.wait()
    lazy = [socket.create_connection(("127.0.0.1", page.port)) for _ in range(20)]
    for each in lazy:
        each.sendall(b"GET /events HTTP/1.1\r\nHost: localhost\r\n\r\n")
    metrics = "kestrin_gateway_page_viewers 20"
    wait_for("the pages to be open", lambda: metrics in page.ask("/metrics")[1].splitlines())
    before = gateway.sent_count()
    wait_for("frames", lambda: gateway.sent_count() > before + 2000)
    log = {each["n"] for each in gateway.exported()}
    assert len(log) > 0
    assert gateway.end(LIMIT) == 0
    for each in lazy:
        each.close()


def test_what_is_not_asked_for_the_page_itself_is_refused(room: Room) -> None:
    gateway, page = with_a_page(room, started_broker(room), names=["hall.example"])
    gateway.start()
    page.wait()
    assert page.ask("/status.json", {"Host": "evil.example"})[0] == 421
    assert page.ask("/status.json", {"Host": "hall.example"})[0] == 200
    assert page.ask("/status.json", {"Sec-Fetch-Site": "cross-site", "Sec-Fetch-Mode": "cors"})[0] == 403
    assert page.ask("/status.json", {}, "POST", "x")[0] == 405
    for path in ("/", "/status.json", "/metrics", "/nothing"):
        headers = page.ask(path, {"Origin": "https://evil.example"})[2]
        assert not any(name.startswith("access-control") for name in headers), path


def test_the_port_is_free_again_at_once_when_the_gateway_starts_again(room: Room) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    for _ in range(3):
        mark = gateway.mark()
        gateway.start()
        page.wait(mark)
        assert page.ask("/")[0] == 200
        gateway.kill()
