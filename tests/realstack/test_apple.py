"""The main job of an application in Objective-C on Foundation's run loop: the classes and the radio for Apple's
systems, over what stands in for CoreBluetooth, which has this machine's Bluetooth stack below it."""

from __future__ import annotations

import subprocess

import pytest
from frames import (
    GET_READER_INFO,
    Q62T_ANSWER,
    Q62T_COMMAND,
    Q62T_RX,
    Q62T_TX,
    STANDARD_ANSWER,
    STANDARD_COMMAND,
    STANDARD_RX,
    STANDARD_TX,
    pieces,
)
from stack import BUILD, LOGS, Stack, slices

DEVICES = [
    *("--reader", "KVR-0001,id=standard"),
    *("--reader", "KVR-Q62T 0012,id=q62t"),
    *("--non-reader", "Lamp,id=lamp"),
    *("--non-reader", ",id=nameless"),
]


class Worked:
    """What an application has said, from its scan to its end."""

    def __init__(self, name: str, command: bytes) -> None:
        with (LOGS / "apple-probe.log").open("ab") as log:
            asked = [str(BUILD / "tests/apple_probe"), name, command.hex(), "3"]
            ended = subprocess.run(asked, stdout=subprocess.PIPE, stderr=log, text=True, check=False)
            log.write(ended.stdout.encode())
        self.status = ended.returncode
        self.lines = ended.stdout.splitlines()

    def said(self, word: str) -> list[str]:
        return [line.removeprefix(f"{word} ") for line in self.lines if line.startswith(f"{word} ")]

    def frames_since_sent(self) -> list[str]:
        after = self.lines[self.lines.index("SENT 1") :]
        return [line.removeprefix("FRAME ") for line in after if line.startswith("FRAME ")]


@pytest.fixture(scope="module")
def standard(stack: Stack) -> Worked:
    return Worked("KVR-0001", STANDARD_COMMAND)


@pytest.fixture(scope="module")
def q62t(stack: Stack, standard: Worked) -> Worked:
    return Worked("KVR-Q62T 0012", Q62T_COMMAND)


def test_an_application_in_objective_c_finds_a_standard_reader_and_is_plugged_in(standard: Worked) -> None:
    assert standard.status == 0, standard.lines
    assert "KVR-0001" in standard.said("FOUND")
    assert set(standard.said("FOUND")) <= {"KVR-0001", "KVR-Q62T 0012"}
    assert standard.said("STATUS")[0] == "0"
    assert standard.said("PLUG")[0] == "1"


def test_a_standard_reader_is_written_get_reader_info_then_20_20_and_5_bytes(
    stack: Stack, standard: Worked
) -> None:
    assert stack.writes(0, "standard", STANDARD_TX) == slices(GET_READER_INFO, STANDARD_COMMAND)
    assert stack.events(0, "SUBSCRIBED", "standard") == [STANDARD_RX]


def test_a_standard_readers_answer_arrives(standard: Worked) -> None:
    assert standard.frames_since_sent() == [STANDARD_ANSWER]


def test_all_that_a_standard_reader_was_asked_went_through_core_bluetooth(standard: Worked) -> None:
    asked = standard.said("ASKED")
    assert asked[:2] == ["initWithDelegate:queue:options:", "scanForPeripheralsWithServices:options:"]
    assert asked.count("connectPeripheral:options:") == 1
    assert asked.count("writeValue:forCharacteristic:type:") == len(slices(GET_READER_INFO, STANDARD_COMMAND))
    assert asked.count("setNotifyValue:forCharacteristic:") == 1
    assert asked.count("cancelPeripheralConnection:") == 1
    assert standard.said("MISUSE") == []


def test_a_standard_readers_link_is_closed(stack: Stack, standard: Worked) -> None:
    stack.wait_for_disconnection(0, "standard")
    assert standard.said("PLUG")[-1] == "0"
    assert standard.lines[-1] == "END"


def test_the_systems_log_has_what_was_sent(standard: Worked) -> None:
    assert sum("[TX BLE]" in line for line in standard.said("LOG")) == 4


def test_a_q62t_reader_is_plugged_in_and_written_20_20_and_5_bytes(stack: Stack, q62t: Worked) -> None:
    assert q62t.status == 0, q62t.lines
    assert stack.writes(0, "q62t", Q62T_TX) == slices(Q62T_COMMAND)
    assert sorted(stack.events(0, "SUBSCRIBED", "q62t")) == [Q62T_RX, Q62T_TX]
    assert "2A29" in stack.events(0, "READ", "q62t")


def test_a_q62t_readers_answer_arrives_in_three_pieces(q62t: Worked) -> None:
    assert q62t.frames_since_sent() == pieces(20, Q62T_ANSWER)


def test_a_q62t_readers_link_is_closed(stack: Stack, q62t: Worked) -> None:
    stack.wait_for_disconnection(0, "q62t")
    assert q62t.said("MISUSE") == []
