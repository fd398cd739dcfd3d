"""Bytes, frames, states and what they look like."""

from __future__ import annotations

import pytest
from kestrinblesdk import NSData
from support import READER_INFO_COMMAND, Application, simulated

import kestrinblesdk as kestrin


def test_a_frame_is_built_from_its_parts() -> None:
    assert kestrin.build_frame(0x00, 0x03, b"\xb1") == READER_INFO_COMMAND
    assert kestrin.build_frame(0, 0x22) == bytes.fromhex("bb002200007e5473")


def test_a_frame_takes_any_bytes_like_payload() -> None:
    expected = kestrin.build_frame(0, 1, b"abc")
    assert kestrin.build_frame(0, 1, bytearray(b"abc")) == expected
    assert kestrin.build_frame(0, 1, memoryview(b"abc")) == expected


def test_the_crc_is_the_catalogues() -> None:
    assert kestrin.frame_crc(b"123456789") == 0x29B1
    assert kestrin.frame_crc(READER_INFO_COMMAND[1:]) == 0


@pytest.mark.parametrize("type, code, word", [(256, 0, "type"), (-1, 0, "type"), (0, 256, "code")])
def test_a_number_that_is_no_byte_is_refused_by_name(type: int, code: int, word: str) -> None:
    with pytest.raises(ValueError, match=f"a frame's {word} is a number from 0 to 255"):
        kestrin.build_frame(type, code)


def test_a_payload_that_does_not_fit_is_refused() -> None:
    with pytest.raises(ValueError, match="65536 bytes does not fit"):
        kestrin.build_frame(0, 0, bytes(65536))


def test_data_prints_as_the_log_prints_it_and_its_repr_makes_it_again() -> None:
    frame = kestrin.build_frame(0, 3, b"\xb1")
    assert str(frame) == "<bb000300 01b17e65 97>"
    assert repr(frame) == "NSData.fromhex('bb000300 01b17e65 97')"
    assert eval(repr(frame)) == frame and type(eval(repr(frame))) is NSData
    assert str(NSData()) == "<>"


def test_everything_has_a_readable_repr() -> None:
    platform = simulated()
    reader = platform.add_reader("KVR-0417")
    manager = kestrin.KestrinBleMgr(platform)
    assert repr(platform) == "<SimulatedPlatform at 0.000 s>"
    assert repr(reader) == "<VirtualPeripheral 'KVR-0417' C0:00:00:00:00:01>"
    assert repr(manager) == "<KestrinBleMgr not linked>"
    assert repr(kestrin.AsyncReader(platform, "KVR")) == "<AsyncReader 'KVR' not plugged in>"
    assert repr(kestrin.CBManagerState.poweredOff) == "<CBManagerState.poweredOff: 4>"
    assert repr(kestrin.ReaderFamily.standard) == "<ReaderFamily.standard: 'standard'>"
    platform.simulate_state(kestrin.CBManagerState.poweredOff)
    assert platform.radio_trouble in repr(platform)
    platform.release()
    manager.release()
    assert repr(platform) == "<SimulatedPlatform released>"
    assert repr(manager) == "<KestrinBleMgr released>"


def test_a_linked_manager_shows_its_reader() -> None:
    application = Application()
    peripheral = "<CBPeripheral 'KVR-0417' C0:00:00:00:00:01>"
    assert repr(application.manager.pripheral) == peripheral
    assert repr(application.manager) == f"<KestrinBleMgr linked to {peripheral}>"
    assert repr(application.reader).endswith("C0:00:00:00:00:01 connected>")


def test_everything_public_has_a_doc_string() -> None:
    for name in kestrin.__all__:
        value = getattr(kestrin, name)
        if not callable(value) or value is kestrin.ReaderScript:
            continue
        assert value.__doc__, name
        for member, content in vars(value).items():
            if not member.startswith("_") and (callable(content) or isinstance(content, property)):
                assert content.__doc__, f"{name}.{member}"


def test_the_version_is_the_librarys() -> None:
    assert kestrin.KestrinBLESDKVersionNumber == 1.0
    assert kestrin.__version__.startswith("1.0")
