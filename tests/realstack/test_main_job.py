"""The main job: kestrin works readers of both families through the kernel's Bluetooth stack and the daemon."""

from __future__ import annotations

from itertools import dropwhile

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
from stack import Stack, daemon_device, daemon_objects, kestrin, slices

DEVICES = [
    *("--reader", "KVR-0001,id=standard"),
    *("--reader", "KVR-Q62T 0012,id=q62t"),
    *("--non-reader", "Lamp,id=lamp"),
    *("--non-reader", ",id=nameless"),
]


class Sent:
    """What became of one `kestrin send`."""

    def __init__(self, name: str, command: bytes) -> None:
        ended = kestrin("send", name, command.hex(), "--for", "2", "--timeout", "30", "--log")
        self.status = ended.returncode
        self.lines = ended.stdout.splitlines()

    def frames(self) -> list[str]:
        """Since the command was sent."""
        after = dropwhile(lambda line: not line.startswith("SENT "), self.lines)
        return [line.removeprefix("FRAME ") for line in after if line.startswith("FRAME ")]


class Scanned:
    """What `kestrin scan` has shown, and what the daemon has then; it forgets devices soon after a scan."""

    def __init__(self) -> None:
        ended = kestrin("scan", "--for", "6")
        self.objects = daemon_objects()
        assert ended.returncode == 0
        self.names = sorted(line.split("\t")[0] for line in ended.stdout.splitlines())


@pytest.fixture(scope="module")
def scanned(stack: Stack) -> Scanned:
    return Scanned()


@pytest.fixture(scope="module")
def standard(stack: Stack, scanned: Scanned) -> Sent:
    return Sent("KVR-0001", STANDARD_COMMAND)


@pytest.fixture(scope="module")
def q62t(stack: Stack, standard: Sent) -> Sent:
    return Sent("KVR-Q62T", Q62T_COMMAND)


def test_kestrin_scan_shows_both_readers_and_nothing_else(scanned: Scanned) -> None:
    assert scanned.names == ["KVR-0001", "KVR-Q62T 0012"]


def test_the_daemon_itself_saw_all_four_devices(scanned: Scanned) -> None:
    assert {daemon_device(number) for number in range(1, 5)} <= set(scanned.objects)


def test_a_standard_reader_is_connected_to_linked_up_and_sent_45_bytes(standard: Sent) -> None:
    assert standard.status == 0, standard.lines


def test_a_standard_readers_answer_arrives(standard: Sent) -> None:
    assert standard.frames() == [STANDARD_ANSWER]


def test_a_standard_reader_is_written_get_reader_info_then_20_20_and_5_bytes(
    stack: Stack, standard: Sent
) -> None:
    assert stack.writes(0, "standard", STANDARD_TX) == slices(GET_READER_INFO, STANDARD_COMMAND)


def test_a_standard_readers_rx_is_subscribed_to(stack: Stack, standard: Sent) -> None:
    assert stack.events(0, "SUBSCRIBED", "standard") == [STANDARD_RX]


def test_a_standard_readers_link_is_closed(stack: Stack, standard: Sent) -> None:
    stack.wait_for_disconnection(0, "standard")


def test_a_q62t_reader_is_connected_to_linked_up_and_sent_45_bytes(q62t: Sent) -> None:
    assert q62t.status == 0, q62t.lines


def test_a_q62t_readers_answer_arrives_in_three_pieces(q62t: Sent) -> None:
    assert q62t.frames() == pieces(20, Q62T_ANSWER)


def test_a_q62t_reader_is_written_20_20_and_5_bytes(stack: Stack, q62t: Sent) -> None:
    assert stack.writes(0, "q62t", Q62T_TX) == slices(Q62T_COMMAND)


def test_a_q62t_readers_rx_and_tx_are_subscribed_to(stack: Stack, q62t: Sent) -> None:
    assert sorted(stack.events(0, "SUBSCRIBED", "q62t")) == [Q62T_RX, Q62T_TX]


def test_a_q62t_readers_manufacturer_name_is_read(stack: Stack, q62t: Sent) -> None:
    assert "2A29" in stack.events(0, "READ", "q62t")


def test_a_q62t_readers_link_is_closed(stack: Stack, q62t: Sent) -> None:
    stack.wait_for_disconnection(0, "q62t")


def test_the_virtual_readers_end_cleanly(stack: Stack, q62t: Sent) -> None:
    assert stack.end("readers") == 0
    assert stack.lines()[-1] == "END"
    assert not stack.orders.exists()
