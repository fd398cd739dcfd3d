"""The web server of webhooks as a process, like the others of `machines`."""

from __future__ import annotations

import json
import socket
import sys
from pathlib import Path

from certificates import Certificate
from machines import Json, Process, Room, free_port, wait_for


class WebServer(Process):
    """What each of its lives takes is in a file of its own."""

    def __init__(self, room: Room, name: str = "web", own: Certificate | None = None) -> None:
        self.port = free_port()
        self.lives = 0
        self.faults_file = room / f"{name}.faults"
        self.own = own
        self.faults()
        super().__init__(room, name, [])

    @property
    def url(self) -> str:
        return f"{'https' if self.own else 'http'}://127.0.0.1:{self.port}/frames"

    def faults(self, **percent: int) -> None:
        """How many of a hundred posts from now on meet which end."""
        new = self.faults_file.with_suffix(".new")
        new.write_text(json.dumps(percent))
        new.rename(self.faults_file)

    def start(self) -> None:
        self.lives += 1
        self.life(self.lives).touch()
        program = str(Path(__file__).with_name("web_server.py"))
        certificate = [str(self.own.certificate), str(self.own.key)] if self.own else []
        self.command = [
            sys.executable, program, str(self.port), str(self.life(self.lives)), str(self.faults_file), *certificate
        ]  # fmt: skip
        super().start()
        wait_for(f"{self.name} to listen", self._listens)

    def _listens(self) -> bool:
        assert self.is_running(), f"{self.name} has ended: {self.lines()[-3:]}"
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0

    def life(self, number: int) -> Path:
        return self.room / f"{self.name}-{number}.jsonl"

    def posts(self) -> list[Json]:
        """Every record that its lives have taken, each with its post. A kill may have cut the last one off, and
        then there was no answer."""
        taken = []
        for number in range(1, self.lives + 1):
            text = self.life(number).read_bytes()
            taken += [json.loads(line) for line in text[: text.rfind(b"\n") + 1].splitlines()]
        return taken

    def records(self) -> list[Json]:
        return [each["record"] for each in self.posts()]

    def last_number(self) -> int:
        return max((int(each["n"]) for each in self.records()), default=0)
