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


def build_frame(type: int, code: int, payload: bytes = b"") -> NSData:
    """A whole frame, CRC included. Commands to a reader have type 0x00. ValueError for a type or
    code above 255 and for more payload than the length field can tell."""
    return _core.build_frame(type, code, payload)


def frame_crc(data: bytes) -> int:
    """The CRC of bytes, which for a frame are those from the type through the end mark."""
    return _core.frame_crc(data)


class FrameError(ValueError):
    """Why bytes are not one whole frame; its text says what would be right."""

    def __init__(self, text: str, field: str, offset: int, incomplete: bool) -> None:
        super().__init__(text)
        self.field = field
        """The first field that is wrong, or that the bytes end in front of or within: preamble, type,
        code, payload_length, payload, end_mark or crc."""
        self.offset = offset
        """The place of the first byte of a wrong field, or of the first that is not there."""
        self.incomplete = incomplete
        """The bytes are right as far as they go; more of them may make a frame."""


class Frame(NamedTuple):
    """One whole frame, taken apart."""

    type: int
    """The message type; commands have 0x00."""
    code: int
    """The command's or the reply's code."""
    payload: NSData
    """The payload; empty when the frame has none."""
    data: NSData
    """The whole frame."""

    @classmethod
    def parse(cls, data: bytes) -> Frame:
        """Takes one whole frame apart. FrameError when the bytes are anything else."""
        parsed = _core.parse_frame(data)
        if parsed[0]:
            return cls(*parsed[1:])
        _, field, offset, incomplete, text = parsed
        raise FrameError(text, field, offset, incomplete)
