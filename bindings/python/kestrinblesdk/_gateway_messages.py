"""What goes through the broker between a gateway and its consumers. docs/gateway.md has the table."""

from __future__ import annotations

import json
import re
from collections.abc import Mapping
from datetime import datetime
from typing import NamedTuple

from ._values import NSData

LARGEST_NUMBER = 1 << 63
_DEEPEST = 8
_LONGEST = 1 << 20
_REASONS = ("budget", "damaged", "refused")
_NAME = re.compile(r"[A-Za-z0-9_-]{1,64}")
_NAME_RIGHT = "1 to 64 of the characters A-Z, a-z, 0-9, _ and -"


def check_name(name: str, what: str) -> str:
    """A gateway's or a consumer's name, as topics have it; ValueError for any other text."""
    if not isinstance(name, str):
        raise TypeError(f"{what} is a text, not {type(name).__name__!r}")
    if not _NAME.fullmatch(name):
        raise ValueError(f"{what} is {name[:80]!r}; {_NAME_RIGHT} would be right")
    return name


class Gap(NamedTuple):
    """Numbers that are lost, `first` and `last` included: to the log's `budget`, in a `damaged`
    log, or `refused` by the disk."""

    log: str
    first: int
    last: int
    reason: str


class Record(NamedTuple):
    """What a gateway took: a frame, a value, or a gap, which has a number of its own and names the
    numbers that are lost."""

    log: str
    number: int
    kind: str
    """"frame", "value" or "gap"."""
    reader: str
    """Its identifier, for example its address."""
    name: str
    """As it came from the air; with U+FFFD for what is not UTF-8, see `name_bytes`."""
    name_bytes: bytes
    link: int
    """Which link of the gateway's run."""
    at: str
    """When the gateway took it, by its clock, in UTC: see `time`."""
    mono: int
    """The same in milliseconds since the gateway's machine started."""
    data: NSData
    """The whole frame, or the value."""
    type: int | None
    """Of a frame; None where its bytes are not one."""
    code: int | None
    payload: NSData | None
    gap: Gap | None

    @property
    def time(self) -> datetime:
        """`at` as a time with its zone. ValueError where it is beyond what Python has."""
        return datetime.fromisoformat(self.at)


class Standing(NamedTuple):
    """What a gateway says of its log: `first` is the lowest number that is kept."""

    log: str
    first: int
    published: int


class _Cbor:
    """CBOR as payloads have it: no tags, and a length for everything."""

    def __init__(self, data: bytes) -> None:
        self._data = data
        self._at = 0

    def whole(self) -> object:
        value = self._item(_DEEPEST)
        if self._at != len(self._data):
            raise ValueError(f"this is not CBOR: something stands behind byte {self._at}")
        return value

    def _take(self, count: int) -> bytes:
        taken = self._data[self._at : self._at + count]
        if len(taken) < count:
            raise ValueError("this is not CBOR: it ends within an item")
        self._at += count
        return taken

    def _item(self, deepest: int) -> object:
        first = self._take(1)[0]
        major, low = first >> 5, first & 0x1F
        if major == 6 or low > 27:
            raise ValueError(f"this is not CBOR as payloads have it: byte {self._at}")
        number = low if low < 24 else int.from_bytes(self._take(1 << (low - 24)), "big")
        if major == 7:
            return {20: False, 21: True}.get(low)
        if major in (0, 1):
            return number if major == 0 else -1 - number
        if major in (2, 3):
            data = self._take(number)
            return data if major == 2 else data.decode("utf-8", "replace")
        if deepest == 0:
            raise ValueError("this is not CBOR as payloads have it: it is nested too deeply")
        if major == 4:
            return [self._item(deepest - 1) for _ in range(self._count(number))]
        pairs = [
            (self._item(deepest - 1), self._item(deepest - 1))
            for _ in range(self._count(number))
        ]
        return {name: value for name, value in pairs if isinstance(name, str)}

    def _count(self, number: int) -> int:
        # Each item has a byte at least.
        if number > len(self._data):
            raise ValueError("this is not CBOR: it ends within an item")
        return number


class _Members:
    """The members of a payload. ValueError names the one that is missing or wrong."""

    def __init__(self, members: Mapping[str, object], path: str = "") -> None:
        self._members = members
        self._path = path

    def has(self, name: str) -> bool:
        return name in self._members

    def whole(self, name: str, least: int = 0) -> int:
        right = f"a whole number from {least} to {LARGEST_NUMBER}"
        value = self._need(name, right)
        if isinstance(value, bool) or not isinstance(value, int):
            raise self._wrong(name, value, right)
        if not least <= value <= LARGEST_NUMBER:
            raise ValueError(f"{self._quoted(name)}: {value} is out of range; {right} would be right")
        return value

    def text(self, name: str, right: str = "a text") -> str:
        value = self._need(name, right)
        if not isinstance(value, str):
            raise self._wrong(name, value, right)
        return value

    def word(self, name: str, words: tuple[str, ...]) -> str:
        its = self.text(name, " or ".join(words))
        if its not in words:
            raise ValueError(f"{self._quoted(name)}: {its[:80]!r} is not known")
        return its

    def name(self, name: str) -> str:
        return check_name(self.text(name, _NAME_RIGHT), self._quoted(name))

    def data(self, name: str) -> NSData:
        right = "hexadecimal text"
        value = self._need(name, right)
        if isinstance(value, bytes):
            return NSData(value)
        if not isinstance(value, str):
            raise self._wrong(name, value, right)
        try:
            return NSData(bytes.fromhex(value))
        except ValueError:
            raise ValueError(f"{self._quoted(name)}: it is not hexadecimal text") from None

    def signed(self, name: str) -> int:
        value = self._need(name, "a whole number")
        if isinstance(value, bool) or not isinstance(value, int):
            raise self._wrong(name, value, "a whole number")
        return value

    def inside(self, name: str) -> _Members:
        value = self._need(name, "an object")
        if not isinstance(value, dict):
            raise self._wrong(name, value, "an object")
        return _Members(value, name + ".")

    def _quoted(self, name: str) -> str:
        return f'"{self._path}{name}"'

    def _need(self, name: str, right: str) -> object:
        if name not in self._members:
            raise ValueError(f"{self._quoted(name)} is missing; {right} would be right")
        return self._members[name]

    def _wrong(self, name: str, value: object, right: str) -> ValueError:
        kind = "null" if value is None else type(value).__name__
        return ValueError(f"{self._quoted(name)}: it is {kind}; {right} would be right")


def _decoded(payload: bytes) -> object:
    if payload[0] >> 5 == 5:
        return _Cbor(payload).whole()
    try:
        return json.loads(payload.decode("utf-8"))
    except (ValueError, RecursionError) as error:
        raise ValueError(f"this is not JSON: {error}") from None


def _members_of(payload: bytes) -> _Members:
    if not payload:
        raise ValueError("the payload is empty; one JSON object would be right")
    if len(payload) > _LONGEST:
        raise ValueError(f"the payload has {len(payload)} bytes; at most {_LONGEST} would be right")
    value = _decoded(payload)
    if not isinstance(value, dict):
        raise ValueError("this is not one object with named members")
    members = _Members(value)
    if members.has("v") and members.whole("v") != 1:
        raise ValueError(f'its version, "v", is {members.whole("v")}; 1 would be right')
    return members


def _gap_of(members: _Members) -> Gap:
    first = members.whole("from", 1)
    reason = members.word("reason", _REASONS)
    return Gap(members.name("log"), first, members.whole("to", first), reason)


def record_of(payload: bytes) -> Record:
    """A frame, a value or a gap. ValueError says in words why it cannot be read."""
    members = _members_of(payload)
    log, number = members.name("log"), members.whole("n", 1)
    if members.has("gap"):
        gap = _gap_of(members.inside("gap"))
        return Record(
            log, number, "gap", "", "", b"", 0, "", 0, NSData(), None, None, None, gap
        )
    kind = members.word("kind", ("frame", "value")) if members.has("kind") else "frame"
    name = members.text("name")
    taken = members.has("type")
    return Record(
        log,
        number,
        kind,
        members.text("reader"),
        name,
        members.data("nameHex") if members.has("nameHex") else name.encode("utf-8", "replace"),
        members.whole("link"),
        members.text("at", "a time"),
        members.signed("mono"),
        members.data("bytes"),
        members.whole("type") if taken else None,
        members.whole("code") if taken else None,
        members.data("payload") if taken else None,
        None,
    )


def standing_of(payload: bytes) -> Standing:
    """What the topics `info` and `health` say of the gateway's log."""
    members = _members_of(payload)
    published = members.whole("published") if members.has("published") else 0
    return Standing(members.name("log"), members.whole("first"), published)
