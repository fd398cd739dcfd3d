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
from typing import ClassVar

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
    """One per machine, since what the kernel and the daemon have been through stays. Its programs run until
    the machine ends: Linux 6.1 can crash when the daemon closes what it holds."""

    _all: ClassVar[list[Stack]] = []

    def __init__(self, *devices: str) -> None:
        self._devices = devices
        self._readers = LOGS / "kestrin-vreader.log"
        self._orders = LOGS / "orders"
        self._forget_lines()
        self._programs: dict[str, subprocess.Popen[bytes]] = {}
        self._all.append(self)

    def start(self) -> None:
        LOGS.mkdir(parents=True, exist_ok=True)
        self.start_bus()
        self.start_readers()
        self.start_daemon()

    def start_bus(self) -> None:
        Path("/run/dbus").mkdir(parents=True, exist_ok=True)
        self._run("bus", LOGS / "dbus-daemon.log", "dbus-daemon", "--system", "--nofork", "--nopidfile")
        wait_for(20, "the message bus", lambda: succeeds("busctl", "--no-pager", "list"))

    def start_readers(self, *devices: str) -> None:
        """The virtual readers, by default those of the start. The adapter is theirs, and comes and goes
        with them; so do their lines."""
        self._orders.unlink(missing_ok=True)
        self._readers.write_bytes(b"")
        self._forget_lines()
        command = [str(BUILD / "bin/kestrin-vreader"), "--orders", str(self._orders)]
        self._run("readers", self._readers, *command, *(devices or self._devices))
        wait_for(20, "the virtual readers", lambda: self.has_line(0, "READY hci[0-9]+"))

    def start_daemon(self) -> None:
        settings = LOGS / "main.conf"
        settings.write_text("[General]\nControllerMode = le\n")
        log = LOGS / "bluetoothd.log"
        self._run("daemon", log, "/usr/libexec/bluetooth/bluetoothd", "-n", "-f", str(settings))
        wait_for(30, "the daemon's adapter to be powered", self._adapter_is_powered)

    def send_signal(self, program: str, number: signal.Signals) -> None:
        """To "bus", "readers" or "daemon"."""
        self._programs[program].send_signal(number)

    def end(self, program: str, how: signal.Signals = signal.SIGTERM) -> int:
        """Ends "bus", "readers" or "daemon" with a signal and waits for it; returns its exit status."""
        self._programs[program].send_signal(how)
        return self._programs[program].wait(20)

    def pause_daemon(self) -> None:
        self._programs["daemon"].send_signal(signal.SIGSTOP)

    def resume_daemon(self) -> None:
        self._programs["daemon"].send_signal(signal.SIGCONT)

    def stop_daemon(self) -> None:
        status = self.end("daemon")
        assert status == 0, f"the daemon ended with status {status}"

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
        return daemon_property(device, "Device1", "Connected") == "b true"

    def _reader_is_linked(self, reader: str) -> bool:
        changes = [line for line in self._lines() if re.match(f"(DIS)?CONNECTED {reader}( |$)", line)]
        return changes[-1:] != [] and changes[-1].startswith("CONNECTED")

    def has_line(self, mark: int, pattern: str) -> bool:
        """Whether the virtual readers have said a line that matches as a whole since then."""
        return any(re.fullmatch(pattern, line) for line in self._lines()[mark:])

    def mark_after(self, mark: int, pattern: str) -> int:
        """Where the first such line since then is behind."""
        lines = enumerate(self._lines()[mark:], mark + 1)
        return next(behind for behind, line in lines if re.fullmatch(pattern, line))

    def power(self) -> str:
        """The adapter's, "b true" or "b false"; empty while the daemon does not say it."""
        return daemon_property("/org/bluez/hci0", "Adapter1", "Powered")

    @property
    def orders(self) -> Path:
        """The virtual readers' pipe for orders."""
        return self._orders

    @property
    def readers_log(self) -> Path:
        """The virtual readers' lines."""
        return self._readers

    def lines(self, mark: int = 0) -> list[str]:
        """The virtual readers' lines since then."""
        return self._lines()[mark:]

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
        return self.events(mark, "WRITE", reader, characteristic)

    def events(self, mark: int, *words: str) -> list[str]:
        """What the virtual readers have said since then after these words."""
        start = " ".join(words) + " "
        lines = (f"{line} " for line in self._lines()[mark:])
        return [line.removeprefix(start).rstrip() for line in lines if line.startswith(start)]

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

    def _forget_lines(self) -> None:
        self._seen: list[str] = []
        self._seen_bytes = 0

    def _lines(self) -> list[str]:
        """What has been read once is not read again: in an hour there is much of it."""
        with self._readers.open("rb") as file:
            file.seek(self._seen_bytes)
            more = file.read()
        more = more[: more.rfind(b"\n") + 1]
        self._seen += more.decode().splitlines()
        self._seen_bytes += len(more)
        return self._seen

    def _run(self, name: str, log: Path, *command: str) -> None:
        with log.open("ab") as output:
            self._programs[name] = subprocess.Popen(command, stdout=output, stderr=subprocess.STDOUT)

    def _adapter_is_powered(self) -> bool:
        return daemon_property("/org/bluez/hci0", "Adapter1", "Powered") == "b true"


def slices(*commands: bytes) -> list[str]:
    """How commands are written: 20 bytes at a time and a shorter last one each, as `Stack.writes` has it."""
    parts = [
        command[at : at + SLICE] for command in commands for at in range(0, len(command) + 1, SLICE)
    ]
    return [f"{len(part)} {part.hex()}".rstrip() for part in parts]


def kestrin(*arguments: str) -> subprocess.CompletedProcess[str]:
    """Runs the application; what it says besides its output is among the logs."""
    with (LOGS / "kestrin.log").open("ab") as log:
        command = [str(BUILD / "bin/kestrin"), *arguments]
        return subprocess.run(command, stdout=subprocess.PIPE, stderr=log, text=True, check=False)


def daemon_property(path: str, interface: str, name: str) -> str:
    """What the daemon says of one of its objects, as busctl prints it; empty where there is no such thing."""
    asked = ["busctl", "--auto-start=no", "get-property", "org.bluez", path, f"org.bluez.{interface}", name]
    return subprocess.run(asked, capture_output=True, text=True, check=False).stdout.strip()


def daemon_objects() -> list[str]:
    """The paths of what the daemon has, in their order."""
    asked = ["busctl", "--auto-start=no", "--list", "tree", "org.bluez"]
    return sorted(subprocess.run(asked, capture_output=True, text=True, check=False).stdout.split())


def daemon_device(number: int) -> str:
    """Where the daemon has the device that is at that place of DEVICES, counted from 1."""
    return f"/org/bluez/hci0/dev_C0_DE_00_00_00_{number:02X}"


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
