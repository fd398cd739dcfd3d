"""The Bluetooth stack in the virtual machine: the message bus, the virtual readers, the daemon.

Everything is waited for by looking, never by sleeping a fixed time."""

from __future__ import annotations

import os
import re
import signal
import subprocess
import time
from collections.abc import Callable
from pathlib import Path

BUILD = Path(os.environ["KESTRIN_BUILD"])
LOGS = Path("/run/kestrin")
SLICE = 20
ADAPTER = ("org.bluez", "/org/bluez/hci0", "org.bluez.Adapter1")


def wait_for(limit: float, what: str, holds: Callable[[], bool]) -> None:
    end = time.monotonic() + limit
    # Looking costs the emulated processor more than waiting, so it becomes rarer.
    pause = 0.05
    while not holds():
        assert time.monotonic() < end, f"waited {limit:g} s in vain for {what}"
        time.sleep(pause)
        pause = min(pause * 1.1, 0.3)


def succeeds(*command: str) -> bool:
    return subprocess.run(command, capture_output=True, check=False).returncode == 0


class Stack:
    """One per machine, since what the kernel and the daemon have been through stays."""

    def __init__(self, *devices: str) -> None:
        self.orders = LOGS / "orders"
        self.readers_log = LOGS / "kestrin-vreader.log"
        self._devices = devices
        self._programs: list[subprocess.Popen[bytes]] = []
        self._daemon: subprocess.Popen[bytes] | None = None
        self._bus = 0

    def start(self) -> None:
        self.start_bus()
        self.start_readers()
        self.start_daemon()

    def stop(self) -> None:
        for program in reversed(self._programs):
            program.terminate()
            program.wait(20)

    def start_bus(self) -> None:
        LOGS.mkdir(parents=True, exist_ok=True)
        Path("/run/dbus").mkdir(parents=True, exist_ok=True)
        command = ["dbus-daemon", "--system", "--fork", "--nopidfile", "--print-pid"]
        self._bus = int(subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout)
        wait_for(20, "the message bus", lambda: succeeds("busctl", "--no-pager", "list"))

    def kill_bus(self) -> None:
        os.kill(self._bus, signal.SIGKILL)

    def start_readers(self) -> None:
        vreader = str(BUILD / "bin/kestrin-vreader")
        self._run(self.readers_log, vreader, "--orders", str(self.orders), *self._devices)
        wait_for(20, "the virtual readers", lambda: self.lines()[-1:] == ["READY hci0"])

    def start_daemon(self) -> None:
        settings = LOGS / "main.conf"
        settings.write_text("[General]\nControllerMode = le\n")
        daemon = ("/usr/libexec/bluetooth/bluetoothd", "-n", "-f", str(settings))
        self._daemon = self._run(LOGS / "bluetoothd.log", *daemon)
        wait_for(30, "the daemon's adapter to be powered", lambda: self.power() is True)

    def stop_daemon(self) -> None:
        assert self._daemon
        self._daemon.terminate()
        status = self._daemon.wait(20)
        assert status == 0, f"the daemon ended with status {status}"

    @staticmethod
    def power() -> bool | None:
        """Whether the adapter is powered; None while the daemon does not say so."""
        asked = ["busctl", "--auto-start=no", "get-property", *ADAPTER, "Powered"]
        answer = subprocess.run(asked, capture_output=True, text=True, check=False)
        return {"b true\n": True, "b false\n": False}.get(answer.stdout)

    @staticmethod
    def set_power(on: bool) -> None:
        value = "true" if on else "false"
        command = ["busctl", "--auto-start=no", "set-property", *ADAPTER, "Powered", "b", value]
        subprocess.run(command, check=True)

    def lines(self, mark: int = 0) -> list[str]:
        """The virtual readers' lines since then."""
        return self.readers_log.read_text().splitlines()[mark:]

    def mark(self) -> int:
        """Where the virtual readers' lines are now."""
        return len(self.lines())

    def writes(self, mark: int, reader: str, characteristic: str) -> list[str]:
        """What was written since then, each with its length: `2 abcd`."""
        start = f"WRITE {reader} {characteristic} "
        return [line.removeprefix(start) for line in self.lines(mark) if line.startswith(start)]

    def wait_for_disconnection(self, mark: int, reader: str) -> None:
        """Since then, by the host."""
        ended = f"DISCONNECTED {reader} reason=0x16"
        wait_for(20, "the end of the link", lambda: any(line.startswith(ended) for line in self.lines(mark)))

    def order(self, words: str) -> None:
        """Gives the virtual readers an order and waits until it is carried out."""
        before = len(self._orders_answered())
        self.orders.write_text(words + "\n")
        wait_for(10, f"the order '{words}'", lambda: len(self._orders_answered()) > before)
        answer = self._orders_answered()[before]
        assert not answer.startswith("ORDER-REFUSED"), answer

    def _orders_answered(self) -> list[str]:
        return [line for line in self.lines() if re.match("ORDER(-REFUSED)? ", line)]

    def _run(self, log: Path, *command: str) -> subprocess.Popen[bytes]:
        with log.open("ab") as output:
            program = subprocess.Popen(command, stdout=output, stderr=subprocess.STDOUT)
        self._programs.append(program)
        return program


def slices(*commands: bytes) -> list[str]:
    """How commands are written: 20 bytes at a time and a shorter last one each, as `Stack.writes` has it."""
    parts = [
        command[at : at + SLICE] for command in commands for at in range(0, len(command) + 1, SLICE)
    ]
    return [f"{len(part)} {part.hex()}".rstrip() for part in parts]


def logs() -> str:
    """What the programs of the stack and the kernel have said."""
    said = [f"---- {log.name}\n{log.read_text(errors='replace')}" for log in sorted(LOGS.glob("*.log"))]
    kernel = [line for line in _kernel_lines() if re.search("bluetooth|hci|segfault", line, re.IGNORECASE)]
    return "\n".join([*said, "---- kernel", *kernel[-30:]])


def crashes() -> list[str]:
    """The evidence that the kernel's own code or the daemon's has crashed."""
    faults = r"Oops|invalid opcode|general protection|kernel BUG|bluetoothd\[[0-9]+\]: segfault"
    return [line for line in _kernel_lines() if re.search(faults, line)]


def _kernel_lines() -> list[str]:
    return subprocess.run(["dmesg"], capture_output=True, text=True, check=False).stdout.splitlines()
