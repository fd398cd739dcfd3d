"""The main job from Python: readers of both families with asyncio, with callbacks, with a program that
ends while its link is up, and twelve at once that are held."""

from __future__ import annotations

import asyncio
import re
import subprocess
import sys
from collections.abc import Callable
from dataclasses import dataclass, field
from functools import partial
from pathlib import Path

import kestrinblesdk as kestrin
import pytest
from frames import (
    GET_READER_INFO,
    Q62T_ANSWER,
    Q62T_COMMAND,
    STANDARD_ANSWER,
    STANDARD_COMMAND,
    STANDARD_TX,
)
from stack import Stack, slices

from kestrinblesdk import Frame, NSError, Reader, ReaderPhase

MANY = [f"KVR-{number}" for number in range(1001, 1013)]
DEVICES = [
    *(word for name in MANY for word in ("--reader", f"{name},id={name.lower()}")),
    *("--reader", "KVR-0001,id=standard"),
    *("--reader", "KVR-Q62T 0012,id=q62t"),
    *("--non-reader", "Lamp,id=lamp"),
]
LIMIT = 60.0


class Held:
    """Twelve readers in one process."""

    def __init__(self) -> None:
        self.platform = kestrin.BluezPlatform()
        self.log: list[str] = []
        self.platform.log = self.log.append
        self.troubles: list[str] = []
        self.changes: list[tuple[str, ReaderPhase]] = []
        self.readers = {name: self._hold(name) for name in MANY}

    def _hold(self, name: str) -> Reader:
        reader = Reader(self.platform, name, find_limit=None, plug_in_limit=None)
        reader.on_phase = lambda reader, phase: self.changes.append((reader.name, phase))
        reader.on_trouble = lambda reader, trouble: self.troubles.append(trouble.text)
        return reader

    def wait(self, holds: Callable[[], bool]) -> None:
        if self.platform.run_until(holds, 2 * LIMIT):
            return
        phases = {name: reader.phase.name for name, reader in self.readers.items()}
        raise AssertionError(f"{phases}; {self.troubles}; {self.platform.radio_trouble}")

    def all_plugged(self) -> bool:
        return all(reader.phase is ReaderPhase.plugged_in for reader in self.readers.values())

    def any_linked(self) -> bool:
        return any(reader.has_link for reader in self.readers.values())


@pytest.fixture(scope="module")
def twelve(stack: Stack) -> Held:
    held = Held()
    held.wait(held.all_plugged)
    return held


@dataclass
class Job:
    """What became of one application's work."""

    mark: int
    frames: list[str] = field(default_factory=list)  # Since the command.
    unplugged: int = 0
    log: list[str] = field(default_factory=list)


@pytest.fixture(scope="module")
def with_asyncio(stack: Stack) -> Job:
    job = Job(stack.mark())

    async def work(platform: kestrin.BluezPlatform) -> None:
        async with kestrin.AsyncReader(platform, "KVR-0001", limit=LIMIT) as reader:
            async for _ in reader.frames(limit=0.2):
                pass
            await reader.send(STANDARD_COMMAND)
            job.frames = [frame.hex() async for frame in reader.frames(limit=2)]
        job.unplugged += not reader.is_plugged_in

    with kestrin.BluezPlatform() as platform:
        platform.log = job.log.append
        asyncio.run(work(platform))
    return job


@pytest.fixture(scope="module")
def with_callbacks(stack: Stack) -> Job:
    job = Job(stack.mark())

    class Application(kestrin.KestrinBLEProtocols, kestrin.RcpReceiver):
        plugged = False

        def scanningBleDeive(self, peripheral: kestrin.CBPeripheral) -> None:
            if peripheral.name == "KVR-Q62T 0012":
                manager.connectBLE(peripheral)

        def plugChangedStatus(self, plugged: bool) -> None:
            self.plugged = plugged
            job.unplugged += not plugged

        def dispatchRcpFrmReader(self, frame: kestrin.NSData | None) -> None:
            job.frames.append("absent" if frame is None else frame.hex())

    application = Application()
    with kestrin.BluezPlatform() as platform:
        platform.log = job.log.append
        manager = kestrin.KestrinBleMgr(platform)
        manager.delegate = manager.rcpReceiverDelegate = application
        manager.scanBLE()
        assert platform.run_until(lambda: application.plugged, LIMIT), platform.radio_trouble
        job.frames.clear()
        assert manager.send(Q62T_COMMAND)
        platform.run_for(2)
        manager.close()
        assert platform.run_until(lambda: not manager.isOpened(), LIMIT)
    return job


@pytest.fixture(scope="module")
def with_a_link_left(stack: Stack) -> Job:
    job = Job(stack.mark())
    program = Path(__file__).with_name("python_leaves_a_link.py")
    ended = subprocess.run(
        [sys.executable, str(program), "KVR-0001", STANDARD_COMMAND.hex()],
        capture_output=True,
        text=True,
        check=False,
    )
    job.log = ended.stderr.splitlines()
    job.frames = ended.stdout.splitlines()
    assert ended.returncode == 0, ended.stderr
    return job


def test_asyncio_with_a_standard_reader_gets_the_answer_and_goes(with_asyncio: Job) -> None:
    assert with_asyncio.frames == [STANDARD_ANSWER]
    assert with_asyncio.unplugged == 1


def test_asyncio_with_a_standard_reader_writes_get_reader_info_then_20_20_and_5_bytes(
    stack: Stack, with_asyncio: Job
) -> None:
    written = stack.writes(with_asyncio.mark, "standard", STANDARD_TX)
    assert written == slices(GET_READER_INFO, STANDARD_COMMAND)


def test_asyncio_with_a_standard_reader_closes_the_link(stack: Stack, with_asyncio: Job) -> None:
    stack.wait_for_disconnection(with_asyncio.mark, "standard")


def test_callbacks_with_a_q62t_reader_get_the_answer_in_pieces_and_go(with_callbacks: Job) -> None:
    assert with_callbacks.frames == [Q62T_ANSWER[:40], Q62T_ANSWER[40:80], Q62T_ANSWER[80:]]
    assert with_callbacks.unplugged == 2


def test_callbacks_with_a_q62t_reader_write_20_20_and_5_bytes(stack: Stack, with_callbacks: Job) -> None:
    assert stack.writes(with_callbacks.mark, "q62t", "FFF2") == slices(Q62T_COMMAND)


def test_callbacks_with_a_q62t_reader_close_the_link(stack: Stack, with_callbacks: Job) -> None:
    stack.wait_for_disconnection(with_callbacks.mark, "q62t")


def test_a_program_that_ends_with_its_link_up_has_its_answer(with_a_link_left: Job) -> None:
    assert with_a_link_left.frames == [STANDARD_ANSWER]


def test_a_program_that_ends_with_its_link_up_leaves_no_link(stack: Stack, with_a_link_left: Job) -> None:
    stack.wait_for_disconnection(with_a_link_left.mark, "standard")


def test_twelve_held_readers_are_plugged_in_together_and_each_answers_its_own(twelve: Held) -> None:
    answers: dict[str, Frame | NSError | None] = {}

    def answered(name: str, frame: Frame | None, error: NSError | None) -> None:
        answers[name] = frame or error

    payloads = {name: bytes([number]) * 45 for number, name in enumerate(MANY)}
    for name, reader in twelve.readers.items():
        command = kestrin.build_frame(0x00, 0x22, payloads[name])
        reader.exchange(command, 20, partial(answered, name))
    twelve.wait(lambda: len(answers) == len(MANY))
    assert answers == {
        name: Frame.parse(kestrin.build_frame(0x01, 0x22, payload)) for name, payload in payloads.items()
    }


def test_one_of_twelve_held_readers_comes_back_and_the_others_do_not_notice(
    stack: Stack, twelve: Held
) -> None:
    twelve.changes.clear()
    stack.order("drop kvr-1007")
    twelve.wait(lambda: ("KVR-1007", ReaderPhase.plugged_in) in twelve.changes)
    assert {name for name, _ in twelve.changes} == {"KVR-1007"}
    assert twelve.changes[0] == ("KVR-1007", ReaderPhase.lost)
    assert twelve.troubles == []


def test_twelve_held_readers_close_every_link(stack: Stack, twelve: Held) -> None:
    mark = stack.mark()
    for reader in twelve.readers.values():
        reader.close()
    twelve.wait(lambda: not twelve.any_linked())
    for name in MANY:
        stack.wait_for_disconnection(mark, name.lower())


def test_python_has_nothing_to_complain_about(
    with_asyncio: Job, with_callbacks: Job, with_a_link_left: Job, twelve: Held
) -> None:
    logs = [*with_asyncio.log, *with_callbacks.log, *with_a_link_left.log, *twelve.log]
    assert logs
    assert [line for line in logs if re.search("Traceback|Error|Exception|Warning", line)] == []
