"""Works one reader on the real radio from Python.
Usage: python_main_job.py asyncio|callbacks|leave NAME COMMAND

It prints PLUGGED, SENT, a line FRAME for each that comes and UNPLUGGED, and the library's log on
standard error. `leave` ends the program when the first frame has come after the command, with the link
still up."""

from __future__ import annotations

import asyncio
import sys

import kestrinblesdk as kestrin

LIMIT = 60.0


def tell(word: str, *more: object) -> None:
    print(word, *more, flush=True)


def log(line: str) -> None:
    print(line, file=sys.stderr, flush=True)


async def with_asyncio(name: str, command: bytes) -> None:
    with kestrin.BluezPlatform() as platform:
        platform.log = log
        async with kestrin.AsyncReader(platform, name, limit=LIMIT) as reader:
            tell("PLUGGED", reader.name)
            async for frame in reader.frames(limit=0.2):
                tell("FRAME", frame.hex())
            await reader.send(command)
            tell("SENT")
            async for frame in reader.frames(limit=2):
                tell("FRAME", frame.hex())
        tell("UNPLUGGED")


class Application(kestrin.KestrinBLEProtocols, kestrin.RcpReceiver):
    def __init__(self, manager: kestrin.KestrinBleMgr, name: str) -> None:
        self.manager = manager
        self.name = name
        self.plugged = False
        self.frames = 0
        manager.delegate = manager.rcpReceiverDelegate = self

    def scanningBleDeive(self, peripheral: kestrin.CBPeripheral) -> None:
        if peripheral.name == self.name:
            self.manager.connectBLE(peripheral)

    def plugChangedStatus(self, plugged: bool) -> None:
        self.plugged = plugged
        tell("PLUGGED" if plugged else "UNPLUGGED", self.name)

    def dispatchRcpFrmReader(self, frame: kestrin.NSData | None) -> None:
        self.frames += 1
        tell("FRAME", frame.hex() if frame is not None else "absent")


def with_callbacks(name: str, command: bytes, leave: bool) -> Application:
    platform = kestrin.BluezPlatform()
    platform.log = log
    application = Application(kestrin.KestrinBleMgr(platform), name)
    manager = application.manager
    manager.scanBLE()
    if not platform.run_until(lambda: application.plugged, LIMIT):
        sys.exit(f"{name} was not plugged in; {platform.radio_trouble}")
    if not manager.send(command):
        sys.exit("the command was not written")
    tell("SENT")
    before = application.frames
    if leave:
        platform.run_until(lambda: application.frames > before, LIMIT)
        return application
    platform.run_for(2)
    manager.close()
    if not platform.run_until(lambda: not manager.isOpened(), LIMIT):
        sys.exit("the link did not go down")
    return application


def main(style: str, name: str, command: str) -> Application | None:
    if style == "asyncio":
        asyncio.run(with_asyncio(name, bytes.fromhex(command)))
        return None
    return with_callbacks(name, bytes.fromhex(command), style == "leave")


# Kept to the interpreter's end.
application = main(*sys.argv[1:])
