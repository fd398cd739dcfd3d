"""Holds twelve readers on the real radio at once, in one process.
Usage: python_twelve_readers.py NAME...

It prints PLUGGED when all are plugged in, ANSWERED when each has answered a command of its own, BACK NAME
when one that was lost is plugged in again without the others noticing, and DOWN when every link is. The
library's log goes to standard error."""

from __future__ import annotations

import sys
import time
from collections.abc import Callable
from functools import partial

import kestrinblesdk as kestrin
from kestrinblesdk import Frame, NSError, Reader, ReaderPhase

LIMIT = 120.0


def tell(word: str, *more: object) -> None:
    print(word, *more, flush=True)


def main(names: list[str]) -> None:
    platform = kestrin.BluezPlatform()
    platform.log = lambda line: print(line, file=sys.stderr, flush=True)
    readers = {name: Reader(platform, name, find_limit=None, plug_in_limit=None) for name in names}
    troubles: list[str] = []
    for reader in readers.values():
        reader.on_trouble = lambda reader, trouble: troubles.append(trouble.text)

    def wait(done: Callable[[], bool], what: str) -> None:
        if not platform.run_until(done, LIMIT):
            phases = {name: reader.phase.name for name, reader in readers.items()}
            sys.exit(f"{what} did not come about: {phases}; {troubles}; {platform.radio_trouble}")

    def all_plugged() -> bool:
        return all(reader.phase is ReaderPhase.plugged_in for reader in readers.values())

    begun = time.monotonic()
    wait(all_plugged, "twelve links")
    tell("PLUGGED", f"{time.monotonic() - begun:.1f}")

    answers: dict[str, Frame | NSError | None] = {}

    def answered(name: str, frame: Frame | None, error: NSError | None) -> None:
        answers[name] = frame or error

    for number, (name, reader) in enumerate(readers.items()):
        command = kestrin.build_frame(0x00, 0x22, bytes([number]) * 45)
        reader.exchange(command, 20, partial(answered, name))
    wait(lambda: len(answers) == len(names), "an answer from each")
    for number, name in enumerate(names):
        answer = answers[name]
        if not isinstance(answer, Frame) or answer.payload != bytes([number]) * 45:
            sys.exit(f"{name} has answered {answer}")
    tell("ANSWERED")

    changes: list[tuple[str, ReaderPhase]] = []
    for reader in readers.values():
        reader.on_phase = lambda reader, phase: changes.append((reader.name, phase))
    wait(lambda: bool(changes) and changes[-1][1] is ReaderPhase.plugged_in, "a loss and its end")
    if len({name for name, _ in changes}) != 1:
        sys.exit(f"a loss of one has moved others: {changes}")
    tell("BACK", changes[-1][0])

    for reader in readers.values():
        reader.close()
    wait(lambda: not any(reader.has_link for reader in readers.values()), "the links' end")
    tell("DOWN")


if len(sys.argv) != 13:
    sys.exit(f"{len(sys.argv) - 1} names were given, not 12")
main(sys.argv[1:])
