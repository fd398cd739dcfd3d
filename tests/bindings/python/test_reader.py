"""Readers that are held, in virtual time, and frames that are taken apart."""

from __future__ import annotations

import gc
import json
import weakref
from pathlib import Path

import pytest
from support import NAME, simulated

import kestrinblesdk as kestrin
from kestrinblesdk import Frame, FrameError, NSError, Reader, ReaderErrorCode, ReaderPhase

COMMAND = kestrin.build_frame(0x00, 0x22, bytes(range(37)))
ANSWER = kestrin.build_frame(0x01, 0x22, bytes(range(37)))


class Heard:
    """Everything that a reader reports."""

    def __init__(self, reader: Reader) -> None:
        self.phases: list[ReaderPhase] = []
        self.frames: list[Frame] = []
        self.values: list[bytes] = []
        self.troubles: list[NSError] = []
        self.seen = 0
        reader.on_phase = lambda _, phase: self.phases.append(phase)
        reader.on_frame = lambda _, frame: self.frames.append(frame)
        reader.on_value = lambda _, value: self.values.append(value)
        reader.on_trouble = lambda _, trouble: self.troubles.append(trouble)
        reader.on_seen = lambda _: self._count()

    def _count(self) -> None:
        self.seen += 1


def test_a_frame_is_taken_apart() -> None:
    frame = Frame.parse(ANSWER)
    assert frame == (0x01, 0x22, bytes(range(37)), ANSWER)
    assert isinstance(frame.payload, kestrin.NSData) and frame.code == 0x22
    assert Frame.parse(memoryview(kestrin.build_frame(0, 3))).payload == b""


@pytest.mark.parametrize(
    ("data", "field", "offset", "incomplete", "text"),
    [
        (b"", "preamble", 0, True, "it is empty"),
        (b"\x00", "preamble", 0, False, "it does not begin with BB"),
        (b"\xbb\x00", "code", 2, True, "it has 2 bytes, the shortest frame has 8"),
        (
            bytes.fromhex("bb00030002b17e6597"),
            "payload_length",
            3,
            False,
            "its length field says 2 bytes of payload, it has 1",
        ),
        (bytes.fromhex("bb00030001b17f6597"), "end_mark", 6, False, "its end mark is 7F, not 7E"),
        (
            bytes.fromhex("bb00030001b17e9765"),
            "crc",
            7,
            False,
            "its CRC is 97 65, right would be 65 97",
        ),
    ],
)
def test_what_is_no_frame_says_which_field_and_where(
    data: bytes, field: str, offset: int, incomplete: bool, text: str
) -> None:
    with pytest.raises(FrameError) as caught:
        Frame.parse(data)
    error = caught.value
    assert (error.field, error.offset, error.incomplete, str(error)) == (
        field,
        offset,
        incomplete,
        text,
    )
    with pytest.raises(TypeError, match="a frame is bytes or a bytes-like object, not 'str'"):
        Frame.parse("BB")  # type: ignore[arg-type]


def test_the_main_job_and_a_loss() -> None:
    platform = simulated()
    device = platform.add_reader(NAME)
    with Reader(platform, NAME) as reader:
        heard = Heard(reader)
        assert reader.phase is ReaderPhase.searching and repr(reader) == "<Reader '' searching>"
        platform.run_for(5)
        assert reader.name == NAME and reader.identifier == device.identifier
        assert reader.has_link and repr(reader) == f"<Reader {NAME!r} plugged_in>"
        device.simulate_link_loss()
        platform.run_for(5)
        linking = [ReaderPhase.connecting, ReaderPhase.linking_up, ReaderPhase.plugged_in]
        assert heard.phases == [*linking, ReaderPhase.lost, *linking]
        assert heard.troubles == [] and heard.seen == 1
        assert [frame.code for frame in heard.frames] == [0x03, 0x03]
    platform.run_for(1)
    assert not device.connected and repr(reader) == "<Reader released>"


def test_frames_are_sent_and_exchanged() -> None:
    platform = simulated()
    device = platform.add_reader(NAME)
    reader = Reader(platform)
    heard = Heard(reader)
    platform.run_for(5)
    heard.frames.clear()
    sent: list[NSError | None] = []
    answers: list[tuple[Frame | None, NSError | None]] = []
    reader.send(COMMAND, sent.append)
    reader.send(COMMAND)
    reader.exchange(COMMAND, 1, lambda frame, error: answers.append((frame, error)))
    assert sent == [] and answers == []
    platform.run_for(5)
    assert sent == [None]
    assert answers == [(Frame.parse(ANSWER), None)]
    assert [frame.data for frame in heard.frames] == [ANSWER, ANSWER]
    device.simulate_silence()
    kept = reader.exchange(COMMAND, 1, lambda frame, error: answers.append((frame, error)))
    reader.exchange(COMMAND, 1, lambda frame, error: answers.append((frame, error)))
    reader.forget(kept)
    platform.run_for(5)
    assert answers[1:] == [
        (None, NSError("KestrinErrorDomain", ReaderErrorCode.no_answer, "no answer came within 1 s"))
    ]
    device.simulate_link_loss()
    platform.run_for(0.5)
    reader.send(COMMAND, sent.append)
    platform.run_for(0)
    assert sent[1] is not None and sent[1].code == ReaderErrorCode.unplugged
    reader.release()


def test_a_name_that_fits_several_is_refused_until_one_is_chosen() -> None:
    platform = simulated()
    names = ["KVR-1", "KVR-2"]
    for name in names:
        platform.add_reader(name)
    reader = Reader(platform, "KVR", find_limit=None, plug_in_limit=None)
    heard = Heard(reader)
    platform.run_for(2)
    assert [trouble.code for trouble in heard.troubles] == [ReaderErrorCode.ambiguous]
    assert sorted(each.name for each in reader.candidates) == names
    assert sorted(each.name for each in reader.seen) == names
    assert not reader.choose("nobody")
    assert reader.choose(reader.candidates[1].identifier)
    platform.run_for(5)
    assert reader.phase is ReaderPhase.plugged_in
    reader.release()


def test_a_reader_that_is_not_there_ends_when_it_is_tried_once() -> None:
    platform = simulated()
    reader = Reader(platform, "KVR-9", find_limit=4, reconnect=False)
    heard = Heard(reader)
    platform.run_for(5)
    assert reader.phase is ReaderPhase.closed
    assert [trouble.code for trouble in heard.troubles] == [ReaderErrorCode.not_found]
    assert heard.phases == [ReaderPhase.closed]
    reader.release()


def test_a_reader_leaves_and_comes_back_and_is_closed() -> None:
    platform = simulated()
    device = platform.add_reader(NAME)
    reader = Reader(platform)
    platform.run_for(5)
    reader.leave()
    platform.run_for(5)
    assert reader.phase.name == "away" and not device.connected
    reader.come_back()
    platform.run_for(5)
    assert reader.phase is ReaderPhase.plugged_in
    down: list[bool] = []
    reader.close(lambda: down.append(device.connected))
    reader.close()
    platform.run_for(5)
    assert down == [False]
    reader.release()


def test_values_of_the_q62t_family_come_as_they_are() -> None:
    platform = simulated()
    device = platform.add_reader("KVR-Q62T 0012")
    reader = Reader(platform)
    heard = Heard(reader)
    platform.run_for(5)
    device.simulate_notification("FFF1", b"\xbb\x01")
    platform.run_for(1)
    assert heard.values == [b"\xbb\x01"] and heard.frames == []
    reader.release()


def test_readers_take_a_device_each() -> None:
    platform = simulated()
    names = {f"KVR-{at}" for at in range(12)}
    for name in names:
        platform.add_reader(name)
    readers = [Reader(platform, "KVR", take_first=True) for _ in names]
    platform.run_for(10)
    assert {reader.name for reader in readers} == names
    assert all(reader.phase is ReaderPhase.plugged_in for reader in readers)
    for reader in readers:
        reader.release()


def test_a_reader_may_be_released_from_inside_a_handler_and_again() -> None:
    platform = simulated()
    device = platform.add_reader(NAME)
    reader = Reader(platform)
    calls: list[ReaderPhase] = []

    def end(it: Reader, phase: ReaderPhase) -> None:
        calls.append(phase)
        it.release()

    reader.on_phase = end
    platform.run_for(5)
    assert calls == [ReaderPhase.connecting] and not device.connected
    reader.release()
    with pytest.raises(RuntimeError, match="this reader has been released"):
        reader.send(COMMAND)


def test_a_reader_that_nobody_holds_closes_its_link() -> None:
    platform = simulated()
    device = platform.add_reader(NAME)
    reader = Reader(platform)
    platform.run_for(5)
    assert device.connected
    gone = weakref.ref(reader)
    del reader
    gc.collect()
    assert gone() is None
    platform.run_for(1)
    assert not device.connected


def test_wrong_arguments_are_refused() -> None:
    platform = simulated()
    with pytest.raises(TypeError, match="a reader is on a Platform, not 'str'"):
        Reader("KVR")  # type: ignore[arg-type]
    with pytest.raises(TypeError, match="a reader's name is a str, not 'bytes'"):
        Reader(platform, b"KVR")  # type: ignore[arg-type]
    reader = Reader(platform)
    with pytest.raises(TypeError, match="on_phase is callable or None, not 'int'"):
        reader.on_phase = 5  # type: ignore[assignment]
    with pytest.raises(TypeError, match="what is called in the end is callable, not 'int'"):
        reader.send(COMMAND, 5)  # type: ignore[arg-type]
    with pytest.raises(TypeError, match="a frame is bytes or a bytes-like object"):
        reader.send("BB00")  # type: ignore[arg-type]
    reader.release()


def test_nothing_is_kept_of_what_was_forgotten_refused_or_done() -> None:
    class Done:
        def __call__(self, *_: object) -> None:
            pass

    platform = simulated()
    device = platform.add_reader(NAME)
    reader = Reader(platform)
    platform.run_for(5)
    device.simulate_silence()
    kept: list[weakref.ref[Done]] = []

    def remembered() -> Done:
        done = Done()
        kept.append(weakref.ref(done))
        return done

    reader.forget(reader.exchange(COMMAND, 1, remembered()))
    with pytest.raises(TypeError):
        reader.send("BB00", remembered())  # type: ignore[arg-type]
    with pytest.raises(TypeError):
        reader.exchange("BB00", 1, remembered())  # type: ignore[arg-type]
    reader.send(COMMAND, remembered())
    reader.exchange(COMMAND, 1, remembered())
    platform.run_for(5)
    gc.collect()
    assert [each() for each in kept] == [None] * 5
    reader.release()


def test_a_platform_records_what_its_readers_do(tmp_path: Path) -> None:
    platform = simulated()
    platform.add_reader(NAME)
    assert not platform.is_recording_whole
    file = tmp_path / "run.jsonl"
    platform.record(file)
    with pytest.raises(RuntimeError, match="this platform records already"):
        platform.record(file)
    reader = Reader(platform)
    platform.run_for(5)
    reader.send(COMMAND)
    platform.run_for(1)
    assert reader.phase is ReaderPhase.plugged_in
    reader.release()
    assert platform.is_recording_whole
    events = [json.loads(line) for line in file.read_text().splitlines()]
    assert events[0]["format"] == "kestrin-recording"
    assert events[0]["program"] == f"kestrinblesdk {kestrin.__version__}"
    calls = [event["operation"] for event in events if event.get("kind") == "call"]
    assert calls == ["scanBLE", "connectBLE", "send", "close"]
    assert [event["plugged"] for event in events if event.get("kind") == "plug"][0] is True
    with pytest.raises(OSError, match="cannot be written"):
        simulated().record(tmp_path / "no folder" / "run.jsonl")


def test_an_exception_of_a_handler_is_reported_and_everything_goes_on(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    import sys

    platform = simulated()
    platform.add_reader(NAME)
    reported: list[BaseException | None] = []
    monkeypatch.setattr(sys, "unraisablehook", lambda it: reported.append(it.exc_value))
    reader = Reader(platform)

    def fail(it: Reader, phase: ReaderPhase) -> None:
        raise LookupError(phase)

    reader.on_phase = fail
    platform.run_for(5)
    assert [type(each) for each in reported] == [LookupError] * 3
    assert reader.phase is ReaderPhase.plugged_in

    reader.release()
