"""What the fault runs share: an application that works one reader and notes what it hears, a line each,
and what a case is made of."""

from __future__ import annotations

import re
import threading
import time
from abc import ABC, abstractmethod
from collections.abc import Callable, Iterator

import kestrinblesdk as kestrin
import pytest
from stack import Stack, wait_for

READER = "KVR-0001"
SECOND = "KVR-0002"
# A reader's own name is that of its advertisement, as readers' names are.
DEVICES = [
    *("--reader", f"{READER},id=reader,gap-name={READER}"),
    *("--reader", f"{SECOND},id=second,gap-name={SECOND}"),
]
# The first virtual device's.
ADDRESS = "C0:DE:00:00:00:01"
LIMIT = 60.0
NOTIFICATION = 0x02
GET_READER_INFO = bytes.fromhex("bb00030001b17e6597")

CONNECTED = "LOG BLE Connected"
DISCONNECTED = "LOG BLE Disconnected"
POWERED_ON = "LOG  CBManager is powered on"
POWERED_OFF = "LOG  CBManager is powered off"
RESETTING = "LOG  CBManager hardware is resetting"
UNSUPPORTED = "LOG  CBManager hardware is unsupported"
# How the log's lines about radio and link begin.
ABOUT_THE_LINK = ("BLE ", " CBManager ", "DiscoverPeripheral", "Error ", "[ERROR", " [ERROR")


def found(name: str) -> str:
    return f"FOUND {name}"


def discovered(name: str) -> str:
    return f"LOG DiscoverPeripheral  {name}"


class Application(ABC):
    """Its lines are FOUND, PLUG and LOG, as it hears them. They are counted from `begin` on."""

    def __init__(self, stack: Stack) -> None:
        self.stack = stack
        self.lines: list[str] = []
        self._mark = 0

    @abstractmethod
    def scan(self) -> None: ...

    @abstractmethod
    def connect(self) -> None:
        """To the reader that was accepted last."""

    @abstractmethod
    def close(self) -> None: ...

    @abstractmethod
    def has_values(self, count: int) -> bool:
        """Whether the last burst has come so far, in order."""

    @abstractmethod
    def is_alive(self) -> bool: ...

    def begin(self) -> None:
        self._mark = len(self.lines)

    def times(self, pattern: str) -> int:
        """How many lines match as a whole."""
        return sum(1 for line in self.lines[self._mark :] if re.fullmatch(pattern, line))

    def expect(self, pattern: str, times: int = 1, limit: float = LIMIT) -> None:
        try:
            wait_for(limit, f"'{pattern}' from the application", lambda: self.times(pattern) >= times)
        except AssertionError as error:
            raise AssertionError(f"{error}\n{self._heard()}") from None

    def expect_exactly(self, times: int, pattern: str) -> None:
        came = self.times(pattern)
        assert came == times, f"'{pattern}' came {came} times, not {times}\n{self._heard()}"

    def expect_values(self, count: int) -> None:
        wait_for(LIMIT, f"{count} values in order", lambda: self.has_values(count))

    def _heard(self) -> str:
        return "\n".join(["The application has heard:", *self.lines[self._mark :]])

    def wait_until_unlinked(self) -> None:
        wait_for(LIMIT, "the end of the link", lambda: not self.is_linked())

    def is_linked(self) -> bool:
        return self.stack.is_linked("reader", ADDRESS)

    def first_link(self) -> None:
        self.scan()
        self.expect(found(READER))
        self.connect()
        self.expect("PLUG 1")

    def rescan(self) -> None:
        """A scan that really runs. The link that it drops is not reported: the central manager that had
        it is replaced."""
        before = self.times(POWERED_ON)
        self.scan()
        self.expect(POWERED_ON, before + 1)

    def scan_without_a_link(self) -> None:
        self.rescan()
        self.wait_until_unlinked()
        self.begin()

    def link_up(self) -> None:
        """A new scan that sees the reader, then a connection to the one that was accepted last. A lone
        reader is not accepted a second time."""
        self.see_again(READER)
        wait_for(LIMIT, "the reader to be accepted", lambda: self._last_found() == READER)
        self.connect_again()

    def link_up_to(self, name: str) -> None:
        """To the one reader there is, which may have another name now and is not accepted again."""
        self.see_again(name)
        self.connect_again()

    def see_again(self, name: str) -> None:
        before = self.times(discovered(name))
        self.rescan()
        self.expect(discovered(name), before + 1)

    def connect_again(self) -> None:
        connected, plugged = self.times(CONNECTED), self.times("PLUG 1")
        self.connect()
        self.expect(CONNECTED, connected + 1)
        self.expect("PLUG 1", plugged + 1)

    def _last_found(self) -> str | None:
        names = [line.removeprefix("FOUND ") for line in self.lines if line.startswith("FOUND ")]
        return names[-1] if names else None

    def expect_one_loss(self) -> None:
        """One disconnection report, one unplugged report, and everything works again."""
        self.expect(DISCONNECTED)
        self.link_up()
        self.expect_exactly(1, DISCONNECTED)
        self.expect_exactly(1, "PLUG 0")
        assert self.is_alive()

    def expect_a_living_scan(self) -> None:
        """It finds a reader that was not there before."""
        self.stack.order("return second")
        self.expect(found(SECOND))
        self.stack.order("vanish second")

    def close_and_begin(self) -> None:
        """The end of the link, asked for by the application."""
        self.close()
        self.expect(DISCONNECTED)
        self.wait_until_unlinked()
        self.begin()

    def link_up_if_need_be(self) -> None:
        """Whatever became of the case before."""
        self.stack.keep_daemon_up()
        self.begin()
        if not self.stack.daemon_is_linked(ADDRESS):
            self.stack.order("return reader")
            self.stack.order("silent reader off")
            self.link_up()
        self.begin()


class PackageApplication(Application):
    """Over the package, with its run loop turned by a thread of its own, whatever the test waits for."""

    def __init__(self, stack: Stack) -> None:
        super().__init__(stack)
        self.connects_from_inside = False
        self.busy = 0.0  # Seconds for which the next delivery keeps the run loop busy.
        self._values: list[int] = []
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

    def scan(self) -> None:
        self._ask(lambda: self._manager.scanBLE())

    def connect(self) -> None:
        def connect() -> None:
            reader = self._manager.pripheral
            assert reader, "no reader was accepted"
            self._manager.connectBLE(reader)

        self._ask(connect)

    def close(self) -> None:
        self._ask(lambda: self._manager.close())

    def send(self, frame: bytes) -> None:
        self._ask(lambda: self._manager.send(frame))

    def has_values(self, count: int) -> bool:
        return self._values == list(range(count))

    def _ask(self, task: Callable[[], object]) -> None:
        self._platform.post(task)

    def _hear_log(self, line: str) -> None:
        if line.startswith(ABOUT_THE_LINK):
            self.lines.append(f"LOG {line}")

    def _hear_found(self, reader: kestrin.CBPeripheral) -> None:
        self.lines.append(found(reader.name or "(no name)"))
        if self.connects_from_inside:
            self._manager.connectBLE(reader)

    def _hear_frame(self, frame: kestrin.NSData | None) -> None:
        number = number_of_value(frame)
        if number == 0:
            self._values = []
        if number is not None:
            self._values.append(number)
        pause, self.busy = self.busy, 0.0
        time.sleep(pause)


def number_of_value(data: bytes | None) -> int | None:
    """A burst's values are frames whose payload begins with their number. From the other family raw
    values come, which are none."""
    try:
        frame = kestrin.Frame.parse(data or b"")
    except kestrin.FrameError:
        return None
    is_value = frame.type == NOTIFICATION and len(frame.payload) >= 4
    return int.from_bytes(frame.payload[:4], "big") if is_value else None


@pytest.fixture(scope="module")
def started(stack: Stack) -> Iterator[PackageApplication]:
    stack.order("vanish second")
    application = PackageApplication(stack)
    try:
        application.first_link()
        yield application
    finally:
        application.quit()


@pytest.fixture
def application(started: PackageApplication) -> PackageApplication:
    """Linked to the reader, with nothing counted so far."""
    started.link_up_if_need_be()
    return started
