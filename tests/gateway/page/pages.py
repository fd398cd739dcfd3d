"""A gateway with a page, and what it answers."""

from __future__ import annotations

import http.client
import json
import ssl
import subprocess
from pathlib import Path
from typing import Any

from machines import PROGRAM, Broker, Gateway, Json, Room, free_port, wait_for

READY = "the page is at "


class Page:
    """Of a gateway on this machine."""

    def __init__(self, gateway: Gateway, **settings: Any) -> None:
        self.gateway = gateway
        self.port = free_port()
        gateway.settings.page = {"port": self.port, **settings}

    @property
    def url(self) -> str:
        return f"http://127.0.0.1:{self.port}/"

    def wait(self, mark: int = 0) -> None:
        self.gateway.wait_for_line(READY, mark)

    def ask(
        self,
        path: str,
        headers: dict[str, str] | None = None,
        method: str = "GET",
        body: str | None = None,
        tls: ssl.SSLContext | None = None,
    ) -> tuple[int, str, dict[str, str]]:
        """Status, body and headers of an answer."""
        link = (
            http.client.HTTPSConnection("localhost", self.port, timeout=60, context=tls)
            if tls
            else http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        )
        try:
            link.request(method, path, body=body, headers=headers or {})
            answer = link.getresponse()
            return answer.status, answer.read().decode(), {key.lower(): value for key, value in answer.getheaders()}
        finally:
            link.close()

    def status(self) -> Json:
        code, body, _ = self.ask("/status.json")
        assert code == 200, body
        read: Json = json.loads(body)
        return read

    def wait_for_status(self, what: str, holds: Any) -> Json:
        def look() -> Json:
            status = self.status()
            return status if holds(status) else {}

        return wait_for(what, look)


def with_a_page(room: Room, broker: Broker, pause: float = 0.2, **settings: Any) -> tuple[Gateway, Page]:
    gateway = Gateway(room, broker.port, pause=pause)
    return gateway, Page(gateway, **settings)


def started_broker(room: Room) -> Broker:
    broker = Broker(room)
    broker.start()
    return broker


def script_of(room: Room, gateway: Gateway, readers: list[tuple[float, bytes]]) -> None:
    """The simulated readers, whose names may be any bytes; they are held by their addresses."""
    file = room / "page.readers"
    file.write_bytes(b"".join(f"{pause:g} ".encode() + name + b"\n" for pause, name in readers))
    gateway.settings.radio = {"kind": "simulated", "script": str(file)}
    gateway.settings.readers = [f"C0:00:00:00:00:{number:02X}" for number in range(1, len(readers) + 1)]


def ran_status(*arguments: str | Path) -> subprocess.CompletedProcess[str]:
    """`kestrin-gateway status`."""
    return subprocess.run([PROGRAM, "status", *map(str, arguments)], capture_output=True, text=True, check=False)


def plugged_in(page: Page, count: int) -> None:
    def holds(status: dict[str, list[dict[str, str]]]) -> bool:
        return [each["phase"] for each in status["readers"]] == ["pluggedIn"] * count

    page.wait_for_status(f"{count} readers to be plugged in", holds)
