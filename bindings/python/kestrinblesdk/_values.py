"""Values that cross the interface: bytes, errors, states, and frames from their parts."""

from __future__ import annotations

import enum
from typing import NamedTuple

from . import _core


class NSData(bytes):
    """Bytes, printed as the library's log prints them."""

    __slots__ = ()

    def _groups(self) -> str:
        return " ".join(self[at : at + 4].hex() for at in range(0, len(self), 4))

    def __repr__(self) -> str:
        return f"NSData.fromhex({self._groups()!r})"

    def __str__(self) -> str:
        return f"<{self._groups()}>"


class NSError(NamedTuple):
    """What went wrong: a domain, a code within it and a readable text."""

    domain: str
    code: int
    text: str


class CBManagerState(enum.IntEnum):
    """A radio's state."""

    unknown = 0
    resetting = 1
    unsupported = 2
    unauthorized = 3
    poweredOff = 4
    poweredOn = 5


class CBCharacteristicProperty(enum.IntFlag):
    """What may be done with a characteristic."""

    read = 0x02
    writeWithoutResponse = 0x04
    write = 0x08
    notify = 0x10
    indicate = 0x20


class ReaderFamily(enum.Enum):
    """The two families of readers. A name that begins with "KVR-Q62T" is of that family."""

    standard = "standard"
    kvrQ62T = "kvrQ62T"


class ReceivedWrite(NamedTuple):
    """One write as a virtual reader got it."""

    characteristic: str
    value: NSData
    with_response: bool
    at: float


SMALLEST_FRAME = 8
"""The length of a frame without a payload."""


def build_frame(type: int, code: int, payload: bytes = b"") -> NSData:
    """A whole frame, CRC included. Commands to a reader have type 0x00. ValueError for a type or
    code above 255 and for more payload than the length field can tell."""
    return _core.build_frame(type, code, payload)


def frame_crc(data: bytes) -> int:
    """The CRC of bytes, which for a frame are those from the type through the end mark."""
    return _core.frame_crc(data)


def frame_code(frame: bytes) -> int | None:
    """The code of a frame; None for bytes that are too short to be one."""
    return frame[2] if len(frame) >= SMALLEST_FRAME else None
