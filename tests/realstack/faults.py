"""What the fault runs share: an application that works one reader and notes what it hears, a line each,
and what a case is made of."""

from __future__ import annotations

import re
import threading
import time
from abc import ABC, abstractmethod
from collections.abc import Iterator

import kestrinblesdk as kestrin
import pytest
from stack import Stack, wait_for

READER, SECOND = "KVR-0001", "KVR-0002"
# A reader's own name is that of its advertisement, as readers' names are.
DEVICES = [
    *("--reader", f"{READER},id=reader,gap-name={READER}"),
    *("--reader", f"{SECOND},id=second,gap-name={SECOND}"),
]
# The first virtual device's.
ADDRESS = "C0:DE:00:00:00:01"
LIMIT = 60.0
NOTIFICATION = 0x02
# How the log's lines about radio and link begin.
ABOUT_THE_LINK = ("BLE ", " CBManager ", "DiscoverPeripheral", "Error ", "[ERROR", " [ERROR")


class Heard:
    """Lines, as patterns."""

    connected = "LOG BLE Connected"
    disconnected = "LOG BLE Disconnected"
    powered_on = "LOG  CBManager is powered on"
    powered_off = "LOG  CBManager is powered off"
    resetting = "LOG  CBManager hardware is resetting"
    unsupported = "LOG  CBManager hardware is unsupported"
    plugged, unplugged = "PLUG 1", "PLUG 0"

    @staticmethod
    def found(name: str) -> str:
        return f"FOUND {name}"

    @staticmethod
    def discovered(name: str) -> str:
        return f"LOG DiscoverPeripheral  {name}"


class App(ABC):
    """Its lines are counted from `begin` on."""

    def __init__(self, stack: Stack) -> None:
        self.stack = stack
        self.lines: list[str] = []
        self._mark = 0
        self._values: list[int] = []

    @abstractmethod
    def ask(self, what: str) -> None:
        """To "scan", to "connect" to the reader that was accepted last, or to "close"."""

    @abstractmethod
    def is_alive(self) -> bool: ...

    def begin(self) -> None:
        self._mark = len(self.lines)

    def times(self, pattern: str) -> int:
        """How many lines match as a whole."""
        return sum(1 for line in self.lines[self._mark :] if re.fullmatch(pattern, line))

    def expect(self, *patterns: str, times: int = 1, limit: float = LIMIT) -> None:
        for pattern in patterns:
            try:
                wait_for(limit, f"'{pattern}', {times} times", lambda: self.times(pattern) >= times)
            except AssertionError as error:
                raise AssertionError(f"{error}\n{self._heard()}") from None

    def expect_exactly(self, times: int, *patterns: str) -> None:
        for pattern in patterns:
            came = self.times(pattern)
            assert came == times, f"'{pattern}' came {came} times, not {times}\n{self._heard()}"

    def _heard(self) -> str:
        return "\n".join(["The application has heard:", *self.lines[self._mark :]])

    def hear_frame(self, data: bytes) -> None:
        """A burst's values are frames whose payload begins with their number. From the other family raw
        values come, which are none."""
        try:
            frame = kestrin.Frame.parse(data)
        except kestrin.FrameError:
            return
        if frame.type == NOTIFICATION and len(frame.payload) >= 4:
            number = int.from_bytes(frame.payload[:4], "big")
            if number == 0:
                self._values = []
            self._values.append(number)

    def expect_values(self, count: int) -> None:
        """Of the last burst, all of them and in order."""
        wait_for(LIMIT, f"{count} values in order", lambda: self._values == list(range(count)))

    def expect_burst(self, count: int) -> None:
        self.stack.order(f"burst reader {count} 20")
        self.expect_values(count)

    def is_linked(self) -> bool:
        return self.stack.is_linked("reader", ADDRESS)

    def wait_until_unlinked(self) -> None:
        wait_for(LIMIT, "the end of the link", lambda: not self.is_linked())

    def link_first(self) -> None:
        self.ask("scan")
        self.expect(Heard.found(READER))
        self.ask("connect")
        self.expect(Heard.plugged)

    def rescan(self, *expected: str) -> None:
        """A scan that really runs. The link that it drops is not reported: the central manager that had
        it is replaced."""
        before = {pattern: self.times(pattern) for pattern in (Heard.powered_on, *expected)}
        self.ask("scan")
        for pattern, times in before.items():
            self.expect(pattern, times=times + 1)

    def scan_without_a_link(self) -> None:
        self.rescan()
        self.wait_until_unlinked()
        self.begin()

    def link_up(self) -> None:
        """A new scan that sees the reader, then a connection to the one that was accepted last."""
        self.rescan(Heard.discovered(READER))
        wait_for(LIMIT, "the reader to be accepted", lambda: self._last_found() == [Heard.found(READER)])
        self._connect()

    def link_up_to(self, name: str) -> None:
        """To the only reader there is; it may have another name now, and is not accepted a second time."""
        self.rescan(Heard.discovered(name))
        self._connect()

    def _last_found(self) -> list[str]:
        return [line for line in self.lines if line.startswith("FOUND ")][-1:]

    def _connect(self) -> None:
        before = {pattern: self.times(pattern) for pattern in (Heard.connected, Heard.plugged)}
        self.ask("connect")
        for pattern, times in before.items():
            self.expect(pattern, times=times + 1)

    def link_up_if_need_be(self) -> None:
        """Whatever became of the case before."""
        self.stack.keep_daemon_up()
        self.begin()
        if not self.stack.daemon_is_linked(ADDRESS):
            self.stack.order("return reader")
            self.stack.order("silent reader off")
            self.link_up()
        self.begin()

    def start_daemon(self) -> None:
        self.stack.start_daemon()
        self.expect(Heard.powered_on)

    def close(self) -> None:
        """The end of the link, after which nothing is counted so far."""
        self.ask("close")
        self.expect(Heard.disconnected)
        self.wait_until_unlinked()
        self.begin()

    def expect_one_loss(self) -> None:
        """One disconnection report, one unplugged report, and everything works again."""
        self.expect(Heard.disconnected)
        self.link_up()
        self.expect_exactly(1, Heard.disconnected, Heard.unplugged)
        assert self.is_alive(), "the application has ended"

    def expect_no_loss(self) -> None:
        self.link_up()
        self.expect_exactly(0, Heard.disconnected)

    def expect_a_living_scan(self) -> None:
        """It finds a reader that was not there before."""
        self.stack.order("return second")
        self.expect(Heard.found(SECOND))
        self.stack.order("vanish second")


class PackageApp(App):
    """Over the package, with its run loop turned by a thread of its own, whatever the test waits for."""

    def __init__(self, stack: Stack) -> None:
        super().__init__(stack)
        self.connects_from_inside = False
        self.busy = 0.0  # Seconds for which the next delivery keeps the run loop busy.
        self._is_made = threading.Event()
        self._thread = threading.Thread(target=self._work, daemon=True)
        self._thread.start()
        assert self._is_made.wait(LIMIT), "the application was not made"

    def _work(self) -> None:
        with kestrin.BluezPlatform() as self._platform:
            self._platform.log = self._hear_log
            with kestrin.KestrinBleMgr(self._platform) as self._manager:
                self._manager.on_found = self._hear_found
                self._manager.on_plugged = lambda plugged: self.lines.append(f"PLUG {plugged:d}")
                self._manager.on_frame = self._hear_frame
                self._is_made.set()
                self._platform.run()

    def quit(self) -> None:
        self._platform.stop()
        self._thread.join(LIMIT)
        assert not self.is_alive(), "the application has not ended"

    def is_alive(self) -> bool:
        return self._thread.is_alive()

    def ask(self, what: str) -> None:
        work = {"scan": self._manager.scanBLE, "connect": self._connect_last, "close": self._manager.close}
        self._platform.post(work[what])

    def send(self, frame: bytes) -> None:
        self._platform.post(lambda: self._manager.send(frame))

    def _connect_last(self) -> None:
        reader = self._manager.pripheral
        assert reader, "no reader was accepted"
        self._manager.connectBLE(reader)

    def _hear_log(self, line: str) -> None:
        if line.startswith(ABOUT_THE_LINK):
            self.lines.append(f"LOG {line}")

    def _hear_found(self, reader: kestrin.CBPeripheral) -> None:
        self.lines.append(Heard.found(reader.name or "(no name)"))
        if self.connects_from_inside:
            self._manager.connectBLE(reader)

    def _hear_frame(self, frame: kestrin.NSData | None) -> None:
        self.hear_frame(frame or b"")
        pause, self.busy = self.busy, 0.0
        time.sleep(pause)


@pytest.fixture(scope="module")
def started(stack: Stack) -> Iterator[PackageApp]:
    stack.order("vanish second")
    app = PackageApp(stack)
    try:
        app.link_first()
        yield app
    finally:
        app.quit()


@pytest.fixture
def app(started: PackageApp) -> PackageApp:
    """Linked to the reader, with nothing counted so far."""
    started.link_up_if_need_be()
    return started
