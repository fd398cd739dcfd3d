"""A reader worked step by step with asyncio, on the thread of its event loop and no other."""

from __future__ import annotations

import asyncio
import weakref
from collections import deque
from collections.abc import AsyncIterator, Callable, Iterator
from contextlib import contextmanager
from types import TracebackType
from typing import TypeVar

from ._core import CBPeripheral
from ._manager import KestrinBleMgr
from ._platforms import Platform
from ._values import SMALLEST_FRAME, NSData, frame_code

_Result = TypeVar("_Result")

_SLICE_SIZE = 20
_SLICE_PAUSE = 0.05
# As much virtual time as may pass before other tasks get their turn.
_VIRTUAL_STEP = 0.01


class _Host:
    """Turns a platform's run loop in the asyncio loop that is running. Virtual time is moved on
    while somebody waits, and no longer."""

    def __init__(self, platform: Platform) -> None:
        self._platform = platform
        self._loop = asyncio.get_running_loop()
        self._users = 0
        self._waiting = 0
        self._stepping = False
        self._woken = False

    def enter(self) -> None:
        if self._loop is not asyncio.get_running_loop():
            raise RuntimeError("another asyncio loop turns this platform's run loop")
        self._users += 1
        if self._users == 1:
            self._descriptor = self._platform.file_descriptor()
            self._loop.add_reader(self._descriptor, self._platform.run_one_turn)

    def leave(self) -> None:
        self._users -= 1
        if self._users == 0:
            self._loop.remove_reader(self._descriptor)
            _hosts.pop(self._platform, None)

    async def wait(self, future: asyncio.Future[None]) -> None:
        self._waiting += 1
        if self._platform.virtual_time and not self._stepping:
            self._stepping = True
            self._loop.call_soon(self._step)
        try:
            await future
        finally:
            self._waiting -= 1

    def wake(self, future: asyncio.Future[None]) -> None:
        self._woken = True
        if not future.done():
            future.set_result(None)

    def _step(self) -> None:
        self._stepping = self._waiting > 0
        if not self._stepping:
            return
        self._woken = False
        self._loop.call_soon(self._step)
        self._platform.run_until(lambda: self._woken, _VIRTUAL_STEP)


_hosts: weakref.WeakKeyDictionary[Platform, _Host] = weakref.WeakKeyDictionary()


def _host_of(platform: Platform) -> _Host:
    host = _hosts.get(platform)
    if host is None:
        host = _hosts[platform] = _Host(platform)
    return host


@contextmanager
def hosted(platform: Platform) -> Iterator[None]:
    """Has the asyncio loop that is running turn the platform's run loop, for managers in callback
    style. Virtual time stands still meanwhile, unless an `AsyncReader` waits."""
    host = _host_of(platform)
    host.enter()
    try:
        yield
    finally:
        host.leave()


class _Answer:
    """The first frame with a code that comes from now on."""

    def __init__(self, code: int) -> None:
        self.code = code
        self.frame: NSData | None = None

    def take(self) -> NSData | None:
        frame, self.frame = self.frame, None
        return frame


class AsyncReader:
    """The first reader whose name contains `name`: `async with` connects to it, within `limit`
    seconds, and closes the link. All limits count by the platform's clock.

    TimeoutError: something did not happen within its limit. ConnectionError: the link is down."""

    def __init__(self, platform: Platform, name: str = "", *, limit: float = 30.0) -> None:
        """Case counts in `name`; every reader's name contains an empty one."""
        if not isinstance(platform, Platform):
            raise TypeError(f"a reader is on a Platform, not {type(platform).__name__!r}")
        if not isinstance(name, str):
            raise TypeError(f"a reader's name is a str, not {type(name).__name__!r}")
        self._platform = platform
        self._wanted = name
        self._limit = limit
        self._host: _Host | None = None
        self._manager: KestrinBleMgr | None = None
        self._peripheral: CBPeripheral | None = None
        self._seen: list[str] = []
        self._plugged = False
        self._lost = False
        self._frames: deque[NSData] = deque()
        self._answers: list[_Answer] = []
        self._futures: list[asyncio.Future[None]] = []
        self._sending = asyncio.Lock()

    def __repr__(self) -> str:
        state = "plugged in" if self._plugged else "not plugged in"
        return f"<AsyncReader {self.name or self._wanted!r} {state}>"

    @property
    def name(self) -> str | None:
        """The name by which the reader was found; None before."""
        return self._peripheral.name if self._peripheral else None

    @property
    def is_plugged_in(self) -> bool:
        """Whether the reader's link can be used."""
        return self._plugged

    async def __aenter__(self) -> AsyncReader:
        if self._manager is not None:
            raise RuntimeError("this reader is in use already")
        host = _host_of(self._platform)
        host.enter()
        self._host = host
        try:
            self._manager = KestrinBleMgr(self._platform)
            self._manager.on_found = self._on_found
            self._manager.on_plugged = self._on_plugged
            self._manager.on_frame = self._on_frame
            self._peripheral, self._lost = None, False
            self._seen.clear()
            self._frames.clear()
            self._manager.scanBLE()
            await self._until(self._linked_up, self._limit, self._late)
        except BaseException:
            self._let_go()
            raise
        return self

    async def __aexit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        try:
            await self.close()
        except TimeoutError:
            # What went wrong before tells more.
            if error is None:
                raise
        finally:
            self._let_go()

    async def send(self, frame: bytes) -> None:
        """Hands one whole frame to the radio, in slices of 20 bytes with a pause of 0.05 s after
        each full one, in which other tasks run."""
        data = _data_from(frame)
        async with self._sending:
            full = len(data) - len(data) % _SLICE_SIZE
            for at in range(0, full, _SLICE_SIZE):
                self._write(data[at : at + _SLICE_SIZE])
                await self._pause(_SLICE_PAUSE)
            # Also when it is empty: a reader tells by it that a frame of full slices has ended.
            self._write(data[full:])

    async def receive(self, *, limit: float | None = None) -> NSData:
        """The next frame that has come or comes within `limit`, in the order of arrival; of a reader
        whose name begins with "KVR-Q62T" the next notification's bytes."""
        return await self._until(self._next_frame, limit, lambda: "no frame came")

    async def frames(self, *, limit: float | None = None) -> AsyncIterator[NSData]:
        """Every frame as it comes. It ends when the reader is unplugged, or when no frame has come
        within `limit`; `is_plugged_in` tells which."""
        while True:
            try:
                frame = await self.receive(limit=limit)
            except (TimeoutError, ConnectionError):
                return
            yield frame

    async def exchange(self, frame: bytes, *, limit: float = 5.0) -> NSData:
        """Sends a frame and answers the first one with the same code that comes after it. Other
        frames are kept for `receive`. A reader whose name begins with "KVR-Q62T" sends no whole
        frames: `send` and `receive` are for that one."""
        code = frame_code(_data_from(frame))
        if code is None:
            raise ValueError(
                f"a frame has {SMALLEST_FRAME} bytes or more, not {len(frame)}; build_frame makes one"
            )
        answer = _Answer(code)
        self._answers.append(answer)
        try:
            await self.send(frame)
            return await self._until(
                lambda: self._if_linked(answer.take()), limit, lambda: "no answer came"
            )
        finally:
            self._answers.remove(answer)
            # An answer that came when nobody waited for it any more.
            if answer.frame is not None:
                self._frames.append(answer.frame)

    async def close(self, *, limit: float = 10.0) -> None:
        """Closes the link and returns when it is down."""
        manager = self._used_manager()
        manager.close()
        await self._until(
            lambda: None if manager.isOpened() else True, limit, lambda: "the link did not go down"
        )

    # What the manager tells.

    def _on_found(self, peripheral: CBPeripheral) -> None:
        name = peripheral.name or ""
        self._seen.append(name)
        if self._peripheral is None and self._manager and self._wanted in name:
            self._peripheral = peripheral
            self._manager.connectBLE(peripheral)

    def _on_plugged(self, plugged: bool) -> None:
        self._lost = not plugged
        self._plugged = plugged
        self._wake_all()

    def _on_frame(self, frame: NSData | None) -> None:
        if frame is None:
            return
        for answer in self._answers:
            if answer.frame is None and answer.code == frame_code(frame):
                answer.frame = frame
                break
        else:
            self._frames.append(frame)
        self._wake_all()

    # Waiting.

    def _wake_all(self) -> None:
        for future in self._futures:
            self._used_host().wake(future)

    async def _until(
        self, take: Callable[[], _Result | None], limit: float | None, what: Callable[[], str]
    ) -> _Result:
        """What `take` answers as soon as that is something; asked after everything that happens."""
        self._used_manager()
        late = False

        def end() -> None:
            nonlocal late
            late = True
            self._wake_all()

        timer = None if limit is None else self._platform.arm(limit, end)
        try:
            while True:
                result = take()
                if result is not None:
                    return result
                if late:
                    raise TimeoutError(f"{what()} within {limit:g} s")
                await self._anything()
        finally:
            if timer is not None:
                self._platform.cancel(timer)

    async def _anything(self) -> None:
        future: asyncio.Future[None] = asyncio.get_running_loop().create_future()
        self._futures.append(future)
        try:
            await self._used_host().wait(future)
        finally:
            self._futures.remove(future)

    async def _pause(self, seconds: float) -> None:
        over: list[bool] = []

        def end() -> None:
            over.append(True)
            self._wake_all()

        timer = self._platform.arm(seconds, end)
        try:
            while not over:
                await self._anything()
        finally:
            self._platform.cancel(timer)

    # What is waited for.

    def _linked_up(self) -> bool | None:
        if self._lost:
            raise ConnectionError(f"the link to {self.name!r} went down before it could be used")
        return self._plugged or None

    def _late(self) -> str:
        if self._peripheral is not None:
            return f"the reader {self.name!r} was not plugged in"
        text = f"no reader with {self._wanted!r} in its name was found"
        if self._seen:
            text += f" (but {', '.join(map(repr, self._seen))})"
        trouble = self._platform.radio_trouble
        return f"{trouble}; {text}" if trouble else text

    def _next_frame(self) -> NSData | None:
        return self._if_linked(self._frames.popleft() if self._frames else None)

    def _if_linked(self, frame: NSData | None) -> NSData | None:
        if frame is None and not self._plugged:
            raise ConnectionError("the reader is unplugged")
        return frame

    # What there is to work with.

    def _write(self, data: bytes) -> None:
        if not self._plugged:
            raise ConnectionError("the reader is unplugged")
        if not self._used_manager().writeRawData(data):
            raise ConnectionError("the reader has no characteristic that can be written")

    def _used_manager(self) -> KestrinBleMgr:
        if self._manager is None:
            raise RuntimeError("this reader is not connected; use it inside `async with`")
        return self._manager

    def _used_host(self) -> _Host:
        if self._host is None:
            raise RuntimeError("this reader is not connected; use it inside `async with`")
        return self._host

    def _let_go(self) -> None:
        manager, self._manager = self._manager, None
        self._plugged = False
        if manager is not None:
            manager.release()
        host, self._host = self._host, None
        if host is not None:
            host.leave()


def _data_from(frame: bytes) -> bytes:
    try:
        return bytes(memoryview(frame))
    except TypeError:
        raise TypeError(
            f"a frame is bytes or a bytes-like object, not {type(frame).__name__!r}"
        ) from None
