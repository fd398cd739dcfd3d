"""Works one reader on the real radio and ends when the first answer has come, with the link still up.
Usage: python_leaves_a_link.py NAME COMMAND

It prints a line for each frame that comes after the command, and the library's log on standard error."""

from __future__ import annotations

import sys

import kestrinblesdk as kestrin

LIMIT = 60.0


def work(name: str, command: bytes) -> kestrin.KestrinBleMgr:
    platform = kestrin.BluezPlatform()
    platform.log = lambda line: print(line, file=sys.stderr, flush=True)
    manager = kestrin.KestrinBleMgr(platform)
    plugged: list[bool] = []
    frames: list[str] = []

    def on_found(reader: kestrin.CBPeripheral) -> None:
        if reader.name == name:
            manager.connectBLE(reader)

    def on_frame(frame: kestrin.NSData | None) -> None:
        frames.append("absent" if frame is None else frame.hex())

    manager.on_found = on_found
    manager.on_plugged = plugged.append
    manager.on_frame = on_frame
    manager.scanBLE()
    if not platform.run_until(lambda: plugged == [True], LIMIT):
        sys.exit(f"{name} was not plugged in; {platform.radio_trouble}")
    before = len(frames)
    if not manager.send(command):
        sys.exit("the command was not written")
    platform.run_until(lambda: len(frames) > before, LIMIT)
    print(*frames[before:], sep="\n", flush=True)
    return manager


# Kept to the interpreter's end.
manager = work(sys.argv[1], bytes.fromhex(sys.argv[2]))
