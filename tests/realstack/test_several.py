"""Several readers at once: four behind one adapter, worked by four managers in one process and by kestrin
processes beside it, and a fifth for which the adapter has no link left. The process is a program, since
its managers send on threads of their own. In this order: each test goes on with the links that the one
before it has left."""

from __future__ import annotations

import re
import subprocess
import time
from collections.abc import Callable, Iterator
from typing import NamedTuple

import pytest
from frames import GET_READER_INFO, Q62T_TX, STANDARD_TX, exchange, pieces
from stack import BUILD, LOGS, SLICE, Stack, slices, wait_for

VALUES = 120


class Place(NamedTuple):
    """A reader, and the manager that works it."""

    number: int
    manager: str
    id: str
    name: str
    tx: str

    @property
    def is_q62t(self) -> bool:
        return self.name.startswith("KVR-Q62T")


A = Place(0, "a", "ra", "KVR-0001", STANDARD_TX)
B = Place(1, "b", "rb", "KVR-0002", STANDARD_TX)
C = Place(2, "c", "rc", "KVR-Q62T 0003", Q62T_TX)
D = Place(3, "d", "rd", "KVR-Q62T 0004", Q62T_TX)
FOUR = [A, B, C, D]
# As many links as there are readers of the managers, and one reader more.
DEVICES = [
    *("--tell-notifications", "--most-links", "4"),
    *(word for place in FOUR for word in ("--reader", f"{place.name},id={place.id}")),
    *("--reader", "KVR-0005,id=re"),
]


class Exchanges:
    """Commands of different lengths for a reader, and what is handed over for its answers. No two readers
    and no two rounds have a frame in common."""

    def __init__(self, round: int, place: Place, count: int) -> None:
        code = 16 * round + place.number
        self.commands: list[bytes] = []
        self.answers: list[str] = []
        for number in range(count):
            length = 30 + 7 * number + place.number
            command, answer = exchange(code, length, 50 * place.number + number)
            self.commands.append(command)
            self.answers += pieces(SLICE, answer) if place.is_q62t else [answer]


class Work:
    """What the four managers' process and the readers say, from a moment on."""

    def __init__(self, stack: Stack) -> None:
        self.stack = stack
        self._log = LOGS / "probe.log"
        with self._log.open("wb") as output:
            self._program = subprocess.Popen(
                [str(BUILD / "tests/family_probe")],
                stdin=subprocess.PIPE,
                stdout=output,
                stderr=subprocess.STDOUT,
                text=True,
                bufsize=1,
            )
        self.begin()

    def begin(self) -> None:
        self._mark = len(self._log.read_text().splitlines())
        self.readers_mark = self.stack.mark()

    def ask(self, *words: str) -> None:
        assert self._program.stdin
        self._program.stdin.write(" ".join(words) + "\n")

    def said(self, pattern: str) -> list[str]:
        """The whole lines that match."""
        lines = self._log.read_text().splitlines()[self._mark :]
        return [line for line in lines if re.fullmatch(pattern, line)]

    def wait(self, limit: float, pattern: str, times: int = 1) -> None:
        wait_for(limit, f"'{pattern}' from the application", lambda: len(self.said(pattern)) >= times)

    def wait_for_reader(self, start: str) -> None:
        lines = self.stack.lines
        wait_for(
            40,
            f"'{start}' from the readers",
            lambda: any(line.startswith(start) for line in lines(self.readers_mark)),
        )

    def wait_for_end(self, reader: str) -> None:
        self.stack.wait_for_disconnection(self.readers_mark, reader)

    def link_up(self) -> None:
        for place in FOUR:
            self.ask("new", place.manager)
            self.ask("scan", place.manager)
        for place in FOUR:
            self.wait(30, f"{place.manager} FOUND {place.name}")
            self.ask("connect", place.manager, place.name)
        for place in FOUR:
            self.wait(60, f"{place.manager} PLUG 1")

    def at_once(self, round: int, count: int, *places: Place) -> None:
        """These managers send at the same time; each reader gets its own commands and each manager its own
        answers, in order, and nothing else."""
        self.begin()
        work = [(place, Exchanges(round, place, count)) for place in places]
        for place, exchanges in work:
            for command in exchanges.commands:
                self.ask("send", place.manager, command.hex())
        for place, exchanges in work:
            self.wait(60, f"{place.manager} SENT 1", count)
            self.check_frames(place, exchanges.answers)
            self.check_writes(place, *exchanges.commands)

    def burst(self, together: int, *places: Place) -> None:
        """Values of a length of its own from each of these readers."""
        for place in places:
            self.stack.order(f"burst {place.id} {VALUES} {20 + place.number} {together}")

    def check_bursts(self, *places: Place) -> None:
        """All came, each to the manager of its reader."""
        for place in places:
            self.wait(60, f"{place.manager} FRAME .*", VALUES)
            notified = re.compile(rf"NOTIFY {place.id} [^ ]* [0-9]* *(.*)")
            matches = map(notified.fullmatch, self.stack.lines(self.readers_mark))
            self.check_frames(place, [match[1] for match in matches if match])

    def check_frames(self, place: Place, expected: list[str]) -> None:
        self.wait(30, f"{place.manager} FRAME .*", len(expected))
        start = f"{place.manager} FRAME "
        assert [line.removeprefix(start) for line in self.said(f"{start}.*")] == expected

    def check_writes(self, place: Place, *commands: bytes) -> None:
        """And nothing else was written to that reader."""
        start = f"WRITE {place.id} "
        lines = [line for line in self.stack.lines(self.readers_mark) if line.startswith(start)]
        assert lines == [f"{start}{place.tx} {part}" for part in slices(*commands)]

    def quit(self) -> int:
        self.ask("quit")
        return self._program.wait(60)

    def last_line(self) -> str:
        return self._log.read_text().splitlines()[-1]

    def stop(self) -> None:
        self._program.kill()
        self._program.communicate()


class Sending:
    """A kestrin process for one reader."""

    COUNT = 4

    def __init__(self, place: Place) -> None:
        self.place = place
        self.exchanges = Exchanges(7, place, self.COUNT)
        frames = [command.hex() for command in self.exchanges.commands]
        self._output = LOGS / f"{place.id}-kestrin.log"
        kestrin = str(BUILD / "bin/kestrin")
        with self._output.open("wb") as output:
            self._program = subprocess.Popen(
                [kestrin, "send", place.name, *frames, "--for", "3", "--timeout", "30"],
                stdout=output,
                stderr=subprocess.STDOUT,
            )

    def wait(self) -> None:
        status = self._program.wait(60)
        assert status == 0, self._output.read_text()

    def check(self, work: Work) -> None:
        """Exactly the answers that its reader gave after the first command was sent, and the reader exactly
        its commands."""
        lines = self._output.read_text().splitlines()
        sent = [line.startswith("SENT ") for line in lines].index(True)
        frames = [line.removeprefix("FRAME ") for line in lines[sent:] if line.startswith("FRAME ")]
        assert frames == self.exchanges.answers
        first = [] if self.place.is_q62t else [GET_READER_INFO]
        work.check_writes(self.place, *first, *self.exchanges.commands)


@pytest.fixture(scope="module")
def unlinked(stack: Stack) -> Iterator[Work]:
    begun = Work(stack)
    yield begun
    begun.stop()


@pytest.fixture(scope="module")
def linked_after(unlinked: Work) -> float:
    """Seconds from the first scan to the last plugged-in report."""
    start = time.monotonic()
    unlinked.link_up()
    return time.monotonic() - start


@pytest.fixture
def work(unlinked: Work, linked_after: float) -> Work:
    unlinked.begin()
    return unlinked


def test_four_managers_in_one_process_link_up_with_a_reader_each(
    unlinked: Work, linked_after: float, record_property: Callable[[str, object], None]
) -> None:
    span = "from the first scan to the last plugged-in report"
    record_property("linked after", f"after {linked_after * 1000:.0f} ms, {span}")
    assert sorted(unlinked.said(". PLUG .*")) == [f"{place.manager} PLUG 1" for place in FOUR]


def test_four_at_once_each_reader_gets_its_own_commands_and_each_manager_its_own_answers(
    work: Work,
) -> None:
    work.at_once(5, 8, *FOUR)


def test_four_at_once_every_value_of_four_bursts_comes_to_its_own_manager_in_order(work: Work) -> None:
    work.burst(20, *FOUR)
    work.check_bursts(*FOUR)


def test_one_readers_loss_is_reported_to_its_manager_alone_and_the_others_lose_no_value(
    work: Work,
) -> None:
    work.burst(2, A, C, D)
    work.stack.order("drop rb")
    work.wait(20, "b LOG BLE Disconnected")
    work.check_bursts(A, C, D)
    assert len(work.said("b LOG BLE Disconnected")) == 1
    assert len(work.said("b PLUG 0")) == 1
    assert work.said("[acd] PLUG .*") == []
    assert work.said("[acd] LOG BLE .*") == []
    assert work.said("b FRAME .*") == []


def test_the_reader_that_was_lost_is_connected_to_again_and_all_four_work(work: Work) -> None:
    work.ask("connect", "b", B.name)
    work.wait(60, "b PLUG 1")
    work.at_once(6, 3, *FOUR)
    assert work.said(". PLUG .*") == []


def test_a_fifth_waits_while_the_adapter_keeps_no_more_links_and_gets_the_first_that_is_free(
    work: Work,
) -> None:
    work.ask("new", "e")
    work.ask("scan", "e")
    work.wait(30, "e FOUND KVR-0005")
    work.ask("connect", "e", "KVR-0005")
    work.wait_for_reader("NO-MORE-LINKS")
    work.at_once(4, 3, *FOUR)
    assert work.said("e (PLUG|LOG BLE) .*") == []
    work.ask("close", "a")
    # The daemon takes its time to give up an attempt that its controller has refused.
    work.wait(150, "e PLUG 1")
    assert len(work.said("e LOG BLE .*")) == 1
    assert work.said("[bcd] PLUG .*") == []
    work.ask("close", "e")
    work.wait_for_end("re")


def test_two_kestrin_processes_and_two_managers_of_a_third_process_work_a_reader_each(
    work: Work,
) -> None:
    work.ask("close", "c")
    work.wait_for_end("rc")
    work.begin()
    mark = work.readers_mark
    sendings = [Sending(A), Sending(C)]
    # Not before both links are there: the work is to be at the same time.
    for sending in sendings:
        work.wait_for_reader(f"SUBSCRIBED {sending.place.id}")
    work.at_once(8, 6, B, D)
    for sending in sendings:
        sending.wait()
    work.readers_mark = mark
    for sending in sendings:
        sending.check(work)
    assert work.said("[bd] PLUG .*") == []


def test_closing_one_managers_link_leaves_the_others(work: Work) -> None:
    work.ask("close", "b")
    work.wait_for_end("rb")
    work.wait(20, "b LOG BLE Disconnected")
    work.at_once(9, 3, D)
    assert work.said("d PLUG .*") == []


def test_the_application_ends_cleanly_and_with_it_its_links(work: Work) -> None:
    assert work.quit() == 0
    assert work.last_line() == "END"
    work.wait_for_end("rd")
