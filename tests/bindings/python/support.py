"""What the tests share: a linked reader, and what happened to it."""

from __future__ import annotations

import sys
from collections.abc import Iterator
from contextlib import contextmanager
from typing import Any

import kestrinblesdk as kestrin

NAME = "KVR-0417"
TX = "BA821001-3B5B-4654-85FE-E998B123ADEA"
RX = "BA821002-3B5B-4654-85FE-E998B123ADEA"
READER_INFO_COMMAND = bytes.fromhex("bb00030001b17e6597")


def simulated(**options: Any) -> kestrin.SimulatedPlatform:
    """A platform in virtual time."""
    return kestrin.SimulatedPlatform(virtual_time=True, **options)


class Application:
    """A manager whose handlers keep what they are told, on a reader that is linked."""

    def __init__(self, name: str = NAME, **options: Any) -> None:
        self.platform = simulated(**options)
        self.reader = self.platform.add_reader(name)
        self.manager = kestrin.KestrinBleMgr(self.platform)
        self.plugged: list[bool] = []
        self.frames: list[kestrin.NSData | None] = []
        self.manager.on_found = self.manager.connectBLE
        self.manager.on_plugged = self.plugged.append
        self.manager.on_frame = self.frames.append
        self.manager.scanBLE()
        self.platform.run_for(5)
        assert self.plugged == [True]
        self.frames.clear()


@contextmanager
def unraisable() -> Iterator[list[Any]]:
    """The exceptions that nobody could catch."""
    seen: list[Any] = []
    before = sys.unraisablehook

    def keep(what: Any) -> None:
        seen.append((what.exc_type, str(what.exc_value), what.object))

    sys.unraisablehook = keep
    try:
        yield seen
    finally:
        sys.unraisablehook = before
