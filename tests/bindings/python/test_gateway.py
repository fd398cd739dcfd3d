"""Consumers of a gateway: what they take, what they notice, and what they tell the gateway."""

from __future__ import annotations

import json
import random
from pathlib import Path
from typing import Any

import pytest

from kestrinblesdk.gateway import Consumer, Gap, Record

LOG = "0123456789abcdef0123456789abcdef"
OLD = "fedcba9876543210fedcba9876543210"
BASE = "kestrin/v1/dock/"
FRAME = BASE + "reader/C0:00:00:00:00:01/frame"


def frame(number: int, log: str = LOG, **members: Any) -> bytes:
    payload = {
        "v": 1,
        "log": log,
        "n": number,
        "reader": "C0:00:00:00:00:01",
        "name": "KVR-0417",
        "link": 17,
        "at": "2026-11-22T13:05:09.123Z",
        "mono": 5000000,
        "bytes": "bb000300010 07e48ab".replace(" ", ""),
        "type": 0,
        "code": 3,
        "payload": "00",
    }
    return json.dumps(payload | members).encode()


def gap(number: int, first: int, last: int, log: str = LOG, of: str = LOG) -> bytes:
    lost = {"log": of, "from": first, "to": last, "reason": "budget"}
    return json.dumps({"v": 1, "log": log, "n": number, "gap": lost}).encode()


def health(first: int, published: int, log: str = LOG) -> bytes:
    return json.dumps({"v": 1, "log": log, "first": first, "published": published}).encode()


class Application:
    """A consumer with everything that it hands out and publishes."""

    def __init__(self, **options: Any) -> None:
        self.consumer = Consumer("dock", "stock", **options)
        self.records: list[Record] = []
        self.gaps: list[Gap] = []
        self.troubles: list[str] = []
        self.published: list[tuple[str, dict[str, Any], bool]] = []
        self.consumer.on_record = self.keep
        self.consumer.on_gap = self.gaps.append
        self.consumer.on_trouble = self.troubles.append
        self.consumer.publish = self._publish
        self.refuse: set[int] = set()

    def keep(self, record: Record) -> None:
        if record.number in self.refuse:
            raise OSError("disk full")
        self.records.append(record)

    def _publish(self, topic: str, payload: str, retain: bool) -> None:
        members = json.loads(payload)
        assert members.pop("v") == 1
        self.published.append((topic, members, retain))

    def take(self, *payloads: bytes) -> None:
        for payload in payloads:
            self.consumer.take(FRAME, payload)

    def tick(self) -> list[tuple[str, dict[str, Any], bool]]:
        """What is published by one tick."""
        self.published.clear()
        self.consumer.tick()
        return list(self.published)

    @property
    def numbers(self) -> list[int]:
        return [record.number for record in self.records]


def commit(number: int, log: str = LOG) -> tuple[str, dict[str, Any], bool]:
    return (BASE + "commit/stock", {"log": log, "n": number}, True)


def replay(number: int, log: str = LOG) -> tuple[str, dict[str, Any], bool]:
    return (BASE + "replay", {"log": log, "from": number, "consumer": "stock"}, False)


def test_a_frame_is_taken_apart() -> None:
    application = Application()
    application.take(frame(1, nameHex="ff", name="\ufffd"))
    (record,) = application.records
    assert (record.log, record.number, record.kind, record.link) == (LOG, 1, "frame", 17)
    assert (record.name, record.name_bytes) == ("\ufffd", b"\xff")
    assert (record.type, record.code, record.payload) == (0, 3, b"\x00")
    assert record.data == bytes.fromhex("bb000300010 07e48ab".replace(" ", ""))
    assert record.time.isoformat() == "2026-11-22T13:05:09.123000+00:00"


def test_a_value_has_no_code() -> None:
    application = Application()
    members = json.loads(frame(1, kind="value"))
    for name in ("type", "code", "payload"):
        del members[name]
    application.take(json.dumps(members).encode())
    (record,) = application.records
    assert (record.kind, record.type, record.code, record.payload) == ("value",) + (None,) * 3


def test_cbor_is_the_same() -> None:
    text = frame(1)
    members = json.loads(text)
    members["bytes"] = bytes.fromhex(members["bytes"])
    members["payload"] = bytes.fromhex(members["payload"])
    application = Application()
    application.take(text)
    other = Application()
    other.take(cbor(members))
    assert other.records == application.records != []


def cbor(value: Any) -> bytes:
    """As the gateway writes it."""

    def head(major: int, number: int) -> bytes:
        if number < 24:
            return bytes([major << 5 | number])
        for extra, size in enumerate((1, 2, 4, 8)):
            if number < 1 << 8 * size:
                return bytes([major << 5 | 24 + extra]) + number.to_bytes(size, "big")
        raise AssertionError(number)

    if isinstance(value, dict):
        items = b"".join(cbor(name) + cbor(its) for name, its in value.items())
        return head(5, len(value)) + items
    if isinstance(value, str):
        return head(3, len(value.encode())) + value.encode()
    if isinstance(value, bytes):
        return head(2, len(value)) + value
    return head(0, value) if value >= 0 else head(1, -1 - value)


def test_each_record_counts_once() -> None:
    application = Application()
    application.take(frame(1), frame(2), frame(1), frame(2), frame(3))
    assert application.numbers == [1, 2, 3]
    assert (application.consumer.taken, application.consumer.repeats) == (3, 2)


def test_the_same_content_with_another_number_is_another_record() -> None:
    application = Application()
    application.take(frame(1), frame(2))
    assert application.numbers == [1, 2]


def test_records_are_handed_out_in_their_order() -> None:
    application = Application()
    application.take(frame(1), frame(4), frame(3))
    assert application.numbers == [1]
    application.take(frame(2))
    assert application.numbers == [1, 2, 3, 4]


def test_what_is_kept_is_committed_and_no_more() -> None:
    application = Application()
    application.take(frame(1), frame(2), frame(4))
    assert application.tick() == [commit(2)]
    assert application.tick() == [replay(3)]


def test_a_record_that_was_not_kept_is_offered_again_and_nothing_behind_it_before() -> None:
    application = Application()
    application.refuse = {2}
    application.take(frame(1), frame(2), frame(3))
    assert application.numbers == [1]
    assert application.tick() == [commit(1)]
    assert "record 2 of log" in application.troubles[0] and "disk full" in application.troubles[0]
    application.refuse.clear()
    assert application.tick() == [commit(3)]
    assert application.numbers == [1, 2, 3]
    assert application.consumer.taken == 3


def test_what_is_missing_is_asked_for_less_and_less_often() -> None:
    application = Application()
    application.take(frame(1), frame(3))
    asked = [tick for tick in range(70) if replay(2) in application.tick()]
    assert asked == [1, 3, 7, 15, 31, 63]
    application.take(frame(2))
    assert application.tick() == [commit(3)]
    assert application.tick() == []


def test_what_health_says_was_published_is_missed_too() -> None:
    application = Application()
    application.take(frame(1))
    application.consumer.take(BASE + "health", health(1, 2))
    application.tick()
    assert application.tick() == [replay(2)]


def test_lost_numbers_are_reported_once_and_not_waited_for() -> None:
    application = Application()
    application.take(frame(1), gap(6, 2, 5), frame(7))
    assert application.gaps == [Gap(LOG, 2, 5, "budget")]
    assert application.numbers == [1, 6, 7]
    assert application.records[1].kind == "gap"
    assert application.consumer.lost == 4
    assert application.tick() == [commit(7)]
    application.take(gap(6, 2, 5))
    assert application.consumer.lost == 4


def test_what_came_in_time_is_not_lost() -> None:
    application = Application()
    application.take(frame(1), frame(3), gap(5, 2, 4))
    assert application.gaps == [Gap(LOG, 2, 2, "budget"), Gap(LOG, 4, 4, "budget")]
    assert application.numbers == [1, 3, 5]


def test_a_log_that_was_there_before_is_no_loss() -> None:
    application = Application()
    application.consumer.connected()
    application.consumer.take(BASE + "info", health(100, 0))
    assert application.published == [replay(100)]
    application.take(frame(100))
    assert (application.numbers, application.consumer.lost) == ([100], 0)


def test_what_was_dropped_while_nobody_looked_is_lost() -> None:
    application = Application()
    application.consumer.restore({LOG: 5})
    application.consumer.take(BASE + "info", health(9, 0))
    assert application.gaps == [Gap(LOG, 5, 8, "budget")]
    assert application.consumer.lost == 4


def test_another_log_begins_with_its_own_numbers() -> None:
    application = Application()
    application.take(frame(1, OLD), frame(2, OLD), gap(1, 3, 9, of=OLD), frame(2))
    assert [(record.log, record.number) for record in application.records] == [
        (OLD, 1),
        (OLD, 2),
        (LOG, 1),
        (LOG, 2),
    ]
    assert application.gaps == [Gap(OLD, 3, 9, "budget")]
    assert application.tick() == [commit(2)]
    assert application.consumer.saved == {OLD: 10, LOG: 3}


def test_a_late_record_of_the_log_before_does_not_move_the_commit_back() -> None:
    application = Application()
    application.take(frame(1, OLD), frame(1))
    application.consumer.take(BASE + "info", health(1, 0))
    application.take(frame(2, OLD))
    assert application.tick() == [commit(1)]


def test_a_late_record_of_a_log_that_the_gateway_has_left_is_not_committed() -> None:
    application = Application()
    application.consumer.take(BASE + "info", health(1, 0))
    application.take(frame(1), frame(1, OLD))
    assert [record.log for record in application.records] == [LOG, OLD]
    assert application.tick() == [commit(1)]


def test_after_each_connection_it_commits_and_asks() -> None:
    application = Application()
    application.take(frame(1), frame(2))
    application.tick()
    application.published.clear()
    application.consumer.connected()
    assert application.published == [commit(2)]
    assert application.tick() == [replay(3)]


def test_repeats_are_answered_by_a_commit() -> None:
    application = Application()
    application.take(frame(1))
    assert application.tick() == [commit(1)]
    application.take(frame(1))
    assert application.tick() == [commit(1)]
    assert application.tick() == []


def test_too_many_that_wait_make_room_for_what_comes_before() -> None:
    application = Application(most_waiting=2)
    application.take(frame(1), frame(5), frame(4), frame(3), frame(6))
    assert application.numbers == [1]
    application.take(frame(2))
    assert application.numbers == [1, 2, 3, 4]
    application.take(frame(5), frame(6))
    assert application.numbers == [1, 2, 3, 4, 5, 6]


def test_a_handler_may_not_disturb_what_is_under_way() -> None:
    application = Application()
    kept = application.keep

    def keep(record: Record) -> None:
        kept(record)
        application.consumer.take(FRAME, frame(record.number))
        application.consumer.tick()

    application.consumer.on_record = keep
    application.take(frame(1), frame(2))
    assert application.numbers == [1, 2]


@pytest.mark.parametrize(
    ("payload", "text"),
    [
        (b"", "the payload is empty"),
        (b"[]", "not one object"),
        (b"{", "this is not JSON"),
        (b"\xff", "this is not JSON"),
        (b"[" * 100_000, "this is not JSON"),
        (frame(0), '"n": 0 is out of range; a whole number from 1 to 9223372036854775808'),
        (frame(1 << 63 | 1), '"n": 9223372036854775809 is out of range'),
        (frame(1, v=2), 'its version, "v", is 2; 1 would be right'),
        (frame(1, log="a/b"), '"log" is \'a/b\''),
        (frame(1, bytes="b"), '"bytes": it is not hexadecimal text'),
        (frame(1, bytes=5), '"bytes": it is int; hexadecimal text would be right'),
        (frame(1, link=True), '"link": it is bool'),
        (frame(1, mono=None), '"mono": it is null; a whole number would be right'),
        (frame(1, kind="x"), "\"kind\": 'x' is not known"),
        (frame(1, gap=[]), '"gap": it is list; an object would be right'),
        (gap(4, 3, 2), '"gap.to": 2 is out of range'),
        (b'{"log":"l","n":1}', '"name" is missing; a text would be right'),
        (cbor(json.loads(frame(1)))[:-1], "it ends within an item"),
        (cbor({}) + b"x", "something stands behind byte 1"),
        (b"\xa1\x61x" + b"\x81" * 100_000, "it is nested too deeply"),
        (b"\xbf\xff", "this is not CBOR as payloads have it"),
        (b"\xa1\x61x\x9b" + b"\xff" * 8, "it ends within an item"),
        (b" " * ((1 << 20) + 1), "at most 1048576 would be right"),
    ],
)
def test_what_cannot_be_read_is_named(payload: bytes, text: str) -> None:
    application = Application()
    application.take(payload)
    (trouble,) = application.troubles
    assert trouble.startswith(FRAME + ": ") and text in trouble and "\n" not in trouble
    application.take(frame(1))
    assert application.numbers == [1]


@pytest.mark.parametrize("name", ["", "a/b", "+", "#", "ä", "x" * 65, "a b", "a\n"])
def test_names_can_be_parts_of_topics(name: str) -> None:
    with pytest.raises(ValueError, match="the gateway's name"):
        Consumer(name, "stock")
    with pytest.raises(ValueError, match="the consumer's name"):
        Consumer("dock", name)


def test_the_state_is_written_in_front_of_the_commit(tmp_path: Path) -> None:
    path = tmp_path / "stock.state"
    application = Application(state=path)
    application.take(frame(1), frame(2))
    assert not path.exists()

    def publish(topic: str, payload: str, retain: bool) -> None:
        assert json.loads(path.read_text())["next"] == {LOG: 3}
        application.published.append((topic, {}, retain))

    application.consumer.publish = publish
    assert len(application.tick()) == 1
    again = Application(state=path)
    again.take(frame(1), frame(2), frame(3))
    assert (again.numbers, again.consumer.repeats) == ([3], 2)


def test_without_a_written_state_nothing_is_committed(tmp_path: Path) -> None:
    folder = tmp_path / "later"
    application = Application(state=folder / "stock.state")
    application.take(frame(1))
    assert application.tick() == []
    assert "the state cannot be written" in application.troubles[0]
    folder.mkdir()
    assert application.tick() == [commit(1)]


def test_a_broken_write_leaves_the_state_as_it_was(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    path = tmp_path / "stock.state"
    application = Application(state=path)
    application.take(frame(1))
    application.tick()
    before = path.read_text()

    def full(_: int) -> None:
        raise OSError("disk full")

    monkeypatch.setattr("os.fsync", full)
    application.take(frame(2))
    assert application.tick() == []
    assert path.read_text() == before


@pytest.mark.parametrize(
    "text",
    [
        "",
        "{",
        "[]",
        "\udcff",
        '{"form":"kestrinblesdk.gateway.Consumer"}',
        '{"form":"x","gateway":"dock","consumer":"stock","next":{}}',
        '{"form":"kestrinblesdk.gateway.Consumer","gateway":"dock","consumer":"stock","next":[]}',
        '{"form":"kestrinblesdk.gateway.Consumer","gateway":"dock","consumer":"stock",'
        '"next":{"l":0}}',
    ],
)
def test_a_damaged_state_is_refused(tmp_path: Path, text: str) -> None:
    path = tmp_path / "stock.state"
    path.write_text(text, "utf-8", "surrogateescape")
    with pytest.raises(ValueError, match="is not the state of a consumer, or is damaged"):
        Consumer("dock", "stock", state=path)


def test_another_consumers_state_is_refused(tmp_path: Path) -> None:
    path = tmp_path / "stock.state"
    application = Application(state=path)
    application.take(frame(1))
    application.tick()
    with pytest.raises(ValueError, match="the state of consumer 'stock' at gateway 'dock'"):
        Consumer("dock", "audit", state=path)


def test_restored_numbers_are_checked() -> None:
    with pytest.raises(ValueError, match="1 or more would be right"):
        Consumer("dock", "stock").restore({LOG: 0})


@pytest.mark.parametrize("seed", range(30))
def test_whatever_the_broker_does_each_record_counts_once(seed: int) -> None:
    """A broker that loses, repeats and exchanges, and a consumer that is killed: with seeds that
    repeat it."""
    chance = random.Random(seed)
    payloads = {n: frame(n) for n in range(1, 101)}
    application = Application()
    taken: list[int] = []
    for _ in range(400):
        sent = chance.choices(range(1, 101), k=chance.randrange(30))
        application.take(*(payloads[n] for n in sent))
        if chance.random() < 0.1:
            application.tick()
        if chance.random() < 0.05:
            taken += application.numbers
            saved = application.consumer.saved
            application = Application()
            application.consumer.restore(saved)
    for _ in range(400):
        for _, members, _ in application.tick():
            application.take(*(payloads[n] for n in range(members.get("from", 101), 101)))
    application.take(*(payloads[n] for n in range(1, 101)))
    assert taken + application.numbers == list(range(1, 101))
