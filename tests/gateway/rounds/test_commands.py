"""Commands through the broker, as anybody sends them: one gateway for all of them."""

from __future__ import annotations

import json
from collections.abc import Iterator
from dataclasses import dataclass
from itertools import count

import pytest
from frames import build_frame
from machines import Broker, Gateway, Json, Room, Watch, wait_for

ANSWERS = "tests/answers"
ABSENT = "KVR-4711"


@dataclass
class Desk:
    """Somebody who sends commands and reads the answers."""

    broker: Broker
    gateway: Gateway
    watch: Watch

    def __post_init__(self) -> None:
        self._numbers = count(1)
        self.address = self.wait_until_plugged_in("KVR-0001")

    def wait_until_plugged_in(self, name: str) -> str:
        """Returns how the reader is named in topics."""

        def holds() -> str:
            for seen in self.watch.all("/state"):
                state = seen.json() if "/reader/" in seen.topic and seen.payload else {}
                if state.get("name") == name and state.get("phase") == "pluggedIn":
                    return seen.topic.split("/")[4]
            return ""

        return wait_for(f"{name} to be plugged in", holds)

    def new_correlation(self) -> bytes:
        return f"c-{next(self._numbers)}".encode()

    def topic(self, reader: str) -> str:
        return f"kestrin/v1/gw/reader/{reader}/command"

    def send(
        self,
        payload: str | bytes,
        reader: str | None = None,
        *,
        correlation: bytes | None = None,
        retain: bool = False,
        expiry: int | None = None,
    ) -> Json:
        """The answer to a command."""
        own = correlation or self.new_correlation()
        mark = self.watch.mark()
        self.watch.publish(
            self.topic(reader or self.address),
            payload,
            retain=retain,
            answer_to=ANSWERS,
            correlation=own,
            expiry=expiry,
        )
        return self.watch.wait(ANSWERS, lambda seen: seen.correlation == own, mark).json()

    def replies(self, code: int) -> list[Json]:
        """The reader's replies of that code that have come out of the gateway: type 01 each."""
        frames = [seen.json() for seen in self.watch.all("/frame")]
        numbers = {each["n"]: each for each in frames if each.get("type") == 1 and each["code"] == code}
        return list(numbers.values())


@pytest.fixture(scope="module")
def desk(shared_room: Room) -> Iterator[Desk]:
    broker = Broker(shared_room)
    broker.start()
    gateway = Gateway(shared_room, broker.port, pause=0.5)
    gateway.settings.readers = ["KVR-0001", "KVR-0002", ABSENT]
    watch = Watch(broker.port, "kestrin/#", ANSWERS)
    gateway.start()
    yield Desk(broker, gateway, watch)
    watch.close()
    assert gateway.end() == 0


def command(code: int, payload: bytes = b"ping") -> str:
    return json.dumps({"v": 1, "bytes": build_frame(0x00, code, payload).hex()})


def test_a_command_is_handed_to_the_radio_and_the_readers_answer_comes_as_a_frame(desk: Desk) -> None:
    assert desk.send(command(0x41)) == {"v": 1, "handed": True}
    wait_for("the reader's answer", lambda: desk.replies(0x41))
    assert desk.replies(0x41)[0]["payload"] == b"ping".hex()


def test_the_same_correlation_data_twice_is_carried_out_once_and_answered_twice(desk: Desk) -> None:
    own = desk.new_correlation()
    assert desk.send(command(0x42), correlation=own)["handed"] is True
    assert desk.send(command(0x42), correlation=own)["handed"] is True
    # What comes behind has overtaken nothing.
    assert desk.send(command(0x43))["handed"] is True
    wait_for("the answer to the command behind", lambda: desk.replies(0x43))
    assert len(desk.replies(0x42)) == 1


def test_correlation_data_of_another_command_is_refused(desk: Desk) -> None:
    own = desk.new_correlation()
    assert desk.send(command(0x44), correlation=own)["handed"] is True
    answer = desk.send(command(0x45), correlation=own)
    assert answer["handed"] is False
    assert "each needs its own" in answer["why"]


@pytest.mark.parametrize(
    ("payload", "why"),
    [
        ("", "empty"),
        ("{", "JSON"),
        ("[]", "object"),
        ('{"v": 1}', "bytes"),
        ('{"v": 1, "bytes": 5}', "bytes"),
        ('{"v": 1, "bytes": "bb0"}', "bytes"),
        ('{"v": 1, "bytes": "bb 00 22 zz"}', "bytes"),
        ('{"v": 1, "bytes": "0011223344556677"}', "bytes"),
        ('{"v": 2, "bytes": ""}', "v"),
    ],
)
def test_a_malformed_command_is_answered_with_what_is_wrong(desk: Desk, payload: str, why: str) -> None:
    answer = desk.send(payload)
    assert answer["handed"] is False
    assert why in answer["why"]
    assert "\n" not in answer["why"]


def test_a_command_with_a_wrong_checksum_is_refused(desk: Desk) -> None:
    frame = bytearray(build_frame(0x00, 0x46, b"ping"))
    frame[-1] ^= 1
    answer = desk.send(json.dumps({"bytes": frame.hex()}))
    assert answer["handed"] is False


def test_the_longest_command_is_taken_and_a_longer_one_is_refused(desk: Desk) -> None:
    longest = build_frame(0x00, 0x47, bytes(1021))
    assert len(longest) == 1029
    assert desk.send(json.dumps({"bytes": longest.hex()}))["handed"] is True
    answer = desk.send(json.dumps({"bytes": build_frame(0x00, 0x48, bytes(1022)).hex()}))
    assert answer["handed"] is False
    assert "1029" in answer["why"] or "1,029" in answer["why"]


def test_a_retained_command_is_refused(desk: Desk) -> None:
    answer = desk.send(command(0x49), retain=True)
    assert answer["handed"] is False
    assert "retained" in answer["why"]
    desk.watch.publish(desk.topic(desk.address), b"", retain=True)


def test_a_command_for_a_reader_that_the_gateway_does_not_have_is_refused(desk: Desk) -> None:
    answer = desk.send(command(0x4A), "KVR-0815")
    assert answer["handed"] is False
    assert "KVR-0815" in answer["why"]


def test_a_command_that_expires_before_its_reader_is_there_is_not_carried_out(desk: Desk) -> None:
    answer = desk.send(command(0x4B), ABSENT, expiry=1)
    assert answer["handed"] is False
    assert "expired" in answer["why"]


def test_a_command_without_a_response_topic_is_carried_out(desk: Desk) -> None:
    desk.watch.publish(desk.topic(desk.address), command(0x4C))
    wait_for("the reader's answer", lambda: desk.replies(0x4C))


def test_a_command_that_is_refused_without_a_response_topic_is_a_line_in_the_log(desk: Desk) -> None:
    mark = desk.gateway.mark()
    desk.watch.publish(desk.topic(desk.address), "{")
    desk.gateway.wait_for_line("a command was refused", mark)


def test_a_commit_beyond_what_was_published_is_ignored_with_a_line(desk: Desk) -> None:
    mark = desk.gateway.mark()
    log = desk.watch.last("/info")["log"]
    desk.watch.publish("kestrin/v1/gw/commit/store", json.dumps({"v": 1, "log": log, "n": 1 << 40}))
    desk.gateway.wait_for_line("commit", mark)
    assert desk.watch.last("/health")["commits"].get("store", 0) < 1 << 40


def test_a_commit_for_another_log_is_ignored_with_a_line(desk: Desk) -> None:
    mark = desk.gateway.mark()
    desk.watch.publish("kestrin/v1/gw/commit/store", json.dumps({"v": 1, "log": "other", "n": 1}))
    desk.gateway.wait_for_line("commit", mark)
    assert desk.watch.last("/health")["commits"].get("store", 0) == 0


def test_refusals_have_not_kept_the_gateway_from_its_work(desk: Desk) -> None:
    assert desk.gateway.is_running()
    assert desk.send(command(0x4D))["handed"] is True
