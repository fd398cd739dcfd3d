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
        self._devices = devices
        self._readers = LOGS / "kestrin-vreader.log"
        self._orders = LOGS / "orders"
        self._programs: dict[str, subprocess.Popen[bytes]] = {}

    def start(self) -> None:
        LOGS.mkdir(parents=True, exist_ok=True)
        self.start_bus()
        self.start_readers()
        self.start_daemon()

    def stop(self) -> None:
        for name in reversed(list(self._programs)):
            self.end(name)

    def start_bus(self) -> None:
        Path("/run/dbus").mkdir(parents=True, exist_ok=True)
        self._run("bus", LOGS / "dbus-daemon.log", "dbus-daemon", "--system", "--nofork", "--nopidfile")
        wait_for(20, "the message bus", lambda: succeeds("busctl", "--no-pager", "list"))

    def start_readers(self, *devices: str) -> None:
        """The virtual readers, by default those of the start. The adapter is theirs, and comes and goes
        with them; so do their lines."""
        self._orders.unlink(missing_ok=True)
        self._readers.write_bytes(b"")
        command = [str(BUILD / "bin/kestrin-vreader"), "--orders", str(self._orders)]
        self._run("readers", self._readers, *command, *(devices or self._devices))
        self.wait_for_line(0, "READY hci[0-9]+")

    def start_daemon(self) -> None:
        settings = LOGS / "main.conf"
        settings.write_text("[General]\nControllerMode = le\n")
        log = LOGS / "bluetoothd.log"
        self._run("daemon", log, "/usr/libexec/bluetooth/bluetoothd", "-n", "-f", str(settings))
        wait_for(30, "the daemon's adapter to be powered", self._adapter_is_powered)

    def send_signal(self, program: str, number: signal.Signals) -> None:
        """To "bus", "readers" or "daemon"."""
        self._programs[program].send_signal(number)

    def end(self, program: str, how: signal.Signals = signal.SIGTERM) -> None:
        self.send_signal(program, how)
        self._programs[program].wait(20)

    def daemon_runs(self) -> bool:
        return self._programs["daemon"].poll() is None

    def keep_daemon_up(self) -> None:
        """As a service manager does: the daemon of this system can end with a fault of its own."""
        if not self.daemon_runs():
            self.start_daemon()

    def set_power(self, powered: bool) -> None:
        command = ["busctl", "--auto-start=no", "set-property", "org.bluez", "/org/bluez/hci0"]
        subprocess.run([*command, "org.bluez.Adapter1", "Powered", "b", str(powered).lower()], check=True)

    def is_linked(self, reader: str, address: str) -> bool:
        """Whether that reader or the daemon has a link. The reader is looked at first: that costs less."""
        return self._reader_is_linked(reader) or self.daemon_is_linked(address)

    def daemon_is_linked(self, address: str) -> bool:
        device = f"/org/bluez/hci0/dev_{address.replace(':', '_')}"
        return self._property(device, "Device1", "Connected") == "b true"

    def _reader_is_linked(self, reader: str) -> bool:
        changes = [line for line in self._lines() if re.match(f"(DIS)?CONNECTED {reader}( |$)", line)]
        return changes[-1:] != [] and changes[-1].startswith("CONNECTED")

    def mark(self) -> int:
        """Where the virtual readers' lines are now."""
        return len(self._lines())

    def wait_for_line(self, mark: int, pattern: str, limit: float = 60) -> int:
        """Waits for a line since then that matches as a whole; returns where the next one is."""

        def behind() -> list[int]:
            lines = enumerate(self._lines()[mark:], mark + 1)
            return [after for after, line in lines if re.fullmatch(pattern, line)]

        wait_for(limit, f"the virtual readers' line '{pattern}'", lambda: behind() != [])
        return behind()[0]

    def writes(self, mark: int, reader: str, characteristic: str) -> list[str]:
        """What was written since then, each with its length: `2 abcd`."""
        start = f"WRITE {reader} {characteristic} "
        return [line.removeprefix(start) for line in self._lines()[mark:] if line.startswith(start)]

    def wait_for_disconnection(self, mark: int, reader: str) -> None:
        """Since then, by the host."""
        ended = f"DISCONNECTED {reader} reason=0x16"
        wait_for(20, "the end of the link", lambda: any(line.startswith(ended) for line in self._lines()[mark:]))

    def order(self, words: str) -> None:
        """Gives the virtual readers an order and waits until it is carried out."""
        before = len(self._orders_answered())
        self._orders.write_text(words + "\n")
        wait_for(10, f"the order '{words}'", lambda: len(self._orders_answered()) > before)
        answer = self._orders_answered()[before]
        assert not answer.startswith("ORDER-REFUSED"), answer

    def _orders_answered(self) -> list[str]:
        return [line for line in self._lines() if re.match("ORDER(-REFUSED)? ", line)]

    def _lines(self) -> list[str]:
        return self._readers.read_text().splitlines()

    def _run(self, name: str, log: Path, *command: str) -> None:
        with log.open("ab") as output:
            self._programs[name] = subprocess.Popen(command, stdout=output, stderr=subprocess.STDOUT)

    def _adapter_is_powered(self) -> bool:
        return self._property("/org/bluez/hci0", "Adapter1", "Powered") == "b true"

    @staticmethod
    def _property(path: str, interface: str, name: str) -> str:
        asked = ["busctl", "--auto-start=no", "get-property", "org.bluez", path, f"org.bluez.{interface}"]
        answer = subprocess.run([*asked, name], capture_output=True, text=True, check=False)
        return answer.stdout.strip()


def slices(*commands: bytes) -> list[str]:
    """How commands are written: 20 bytes at a time and a shorter last one each, as `Stack.writes` has it."""
    parts = [
        command[at : at + SLICE] for command in commands for at in range(0, len(command) + 1, SLICE)
    ]
    return [f"{len(part)} {part.hex()}" for part in parts]


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
