"""Readers that are held: with handlers, and step by step with asyncio."""

from __future__ import annotations

import asyncio
import enum
import itertools
import weakref
from collections import deque
from collections.abc import AsyncIterator, Callable, Iterator
from contextlib import contextmanager
from types import TracebackType
from typing import NamedTuple, TypeVar

from . import _core
from ._platforms import Platform, _readers
from ._values import Frame, NSData, NSError

_Result = TypeVar("_Result")

# As much virtual time as may pass before other tasks get their turn.
_VIRTUAL_STEP = 0.01
_DOMAIN = "KestrinErrorDomain"


class ReaderPhase(enum.Enum):
    """Where a reader stands."""

    radio_off = "radioOff"
    """The radio is off, gone, or may not be used; waited for."""
    searching = "searching"
    """The reader that is meant is looked for. A reader begins here."""
    connecting = "connecting"
    """It is known and its link is asked for."""
    linking_up = "linkingUp"
    """There is a link, which cannot be used yet. Frames may come already."""
    plugged_in = "pluggedIn"
    """The link can be used."""
    lost = "lost"
    """The link has ended; the next attempt comes after a pause."""
    away = "away"
    """Without a link until `come_back`."""
    closed = "closed"
    """The end: nothing is tried any more."""


class ReaderErrorCode(enum.IntEnum):
    """Codes of the errors that a reader reports."""

    not_found = 12
    not_plugged_in = 13
    unplugged = 14
    not_written = 15
    no_answer = 16
    no_frame = 18
    queue_full = 19
    ambiguous = 20
    held = 21
    radio_off = 22
    radio_unusable = 23


class SeenReader(NamedTuple):
    """A reader in range, as the search has seen it."""

    name: str
    identifier: str


class Reader(_core.ReaderBase):
    """One reader, held: found, connected to and brought back after a loss, for as long as you keep
    it. Nothing blocks. What happens it reports to its handlers, each a function or None; what one of them
    raises goes to `sys.unraisablehook`, and everything goes on.

    It is used on its platform's thread, and `with` releases it at the end. docs/link.md has its
    phases as a picture."""

    on_phase: Callable[[Reader, ReaderPhase], object] | None = None
    """The phase has changed. Not called for `close`."""
    on_frame: Callable[[Reader, Frame], object] | None = None
    """One whole frame that no `exchange` waits for."""
    on_value: Callable[[Reader, NSData], object] | None = None
    """From a reader whose name begins with "KVR-Q62T": the bytes of one notification."""
    on_trouble: Callable[[Reader, NSError], object] | None = None
    """Something that a person should know, in one line; its code is a `ReaderErrorCode`."""
    on_seen: Callable[[Reader], object] | None = None
    """A reader was seen that was not seen before."""

    def __init__(
        self,
        platform: Platform,
        reader: str = "",
        *,
        take_first: bool = False,
        find_limit: float | None = 30.0,
        plug_in_limit: float | None = 30.0,
        reconnect: bool = True,
        most_waiting_frames: int = 64,
    ) -> None:
        """`reader` is an identifier, a whole name, or a part of one; empty: any. Of several that are
        meant alike none is taken, unless `take_first`. Limits are seconds; None: as long as it
        takes. Without `reconnect` the first loss, and the first limit that passes, closes it."""
        if not isinstance(platform, Platform):
            raise TypeError(f"a reader is on a Platform, not {type(platform).__name__!r}")
        if not isinstance(reader, str):
            raise TypeError(f"a reader's name is a str, not {type(reader).__name__!r}")
        self._keys = itertools.count(1)
        self._ends: dict[int, Callable[..., object]] = {}
        self._exchanges: dict[int, int] = {}
        super().__init__(
            platform,
            weakref.ref(self),
            reader,
            take_first,
            find_limit,
            plug_in_limit,
            reconnect,
            most_waiting_frames,
        )
        _readers.add(self)

    def __setattr__(self, name: str, value: object) -> None:
        if name.startswith("on_") and value is not None and not callable(value):
            raise TypeError(f"{name} is callable or None, not {type(value).__name__!r}")
        super().__setattr__(name, value)

    def __enter__(self) -> Reader:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        self.release()

    def __repr__(self) -> str:
        if self.is_released:
            return "<Reader released>"
        return f"<Reader {self.name!r} {self.phase.name}>"

    @property
    def phase(self) -> ReaderPhase:
        """Where the reader stands."""
        return ReaderPhase(self._phase_name)

    @property
    def name(self) -> str:
        """The name by which the reader was found; empty before."""
        return self._name[0][0]

    @property
    def identifier(self) -> str:
        """What tells it from every other one of its radio; empty before it was found."""
        return self._name[0][1]

    @property
    def seen(self) -> list[SeenReader]:
        """Every reader that the search has seen."""
        return [SeenReader(*each) for each in self._seen_readers]

    @property
    def candidates(self) -> list[SeenReader]:
        """The seen readers that are meant, without those that others hold."""
        return [SeenReader(*each) for each in self._candidates]

    def send(self, frame: bytes, done: Callable[[NSError | None], object] | None = None) -> None:
        """Sends a frame, CRC included, without blocking, one after the other. `done` gets None when
        the last slice was handed to the radio, else the error."""
        self._with_end(done, lambda key: self._send(frame, key))

    def exchange(
        self,
        frame: bytes,
        limit: float,
        done: Callable[[Frame | None, NSError | None], object],
    ) -> int:
        """Sends a whole frame. `done` gets the next frame of the same code that comes within `limit`
        seconds after the last slice, or the error. Returns a number for `forget`."""
        exchange = 0

        def begin(key: int) -> None:
            nonlocal exchange
            exchange = self._exchange(frame, limit, key)
            self._exchanges[exchange] = key

        self._with_end(done, begin)
        return exchange

    def forget(self, exchange: int) -> None:
        """Waits for an answer no longer; `done` is not called."""
        self._forget(exchange)
        self._ends.pop(self._exchanges.pop(exchange, 0), None)

    def close(self, done: Callable[[], object] | None = None) -> None:
        """Ends everything; `done` is called when the link is down."""
        self._with_end(done, self._close)

    def release(self) -> None:
        """Closes the link and calls nobody again. The reader cannot be used any more; releasing it
        again does nothing."""
        self._release()
        self._ends.clear()
        self._exchanges.clear()

    def _with_end(
        self, done: Callable[..., object] | None, begin: Callable[[int], object]
    ) -> None:
        """Begins what calls `done` in the end, by the key that it gets; what is refused is not kept."""
        if done is None:
            begin(0)
            return
        if not callable(done):
            raise TypeError(f"what is called in the end is callable, not {type(done).__name__!r}")
        key = next(self._keys)
        self._ends[key] = done
        try:
            begin(key)
        except BaseException:
            self._ends.pop(key, None)
            raise

    # What the library calls.

    def _end(self, key: int, *arguments: object) -> None:
        done = self._ends.pop(key, None)
        if done is not None:
            done(*arguments)

    def _phase(self, name: str) -> None:
        if self.on_phase is not None:
            self.on_phase(self, ReaderPhase(name))

    def _frame(self, data: NSData) -> None:
        if self.on_frame is not None:
            self.on_frame(self, Frame.parse(data))

    def _value(self, data: NSData) -> None:
        if self.on_value is not None:
            self.on_value(self, data)

    def _trouble(self, code: int, text: str) -> None:
        if self.on_trouble is not None:
            self.on_trouble(self, NSError(_DOMAIN, code, text))

    def _seen(self) -> None:
        if self.on_seen is not None:
            self.on_seen(self)

    def _sent(self, key: int, error: tuple[int, str]) -> None:
        self._end(key, _error_of(error))

    def _answered(self, key: int, frame: NSData | None, error: tuple[int, str]) -> None:
        for exchange in [each for each, its in self._exchanges.items() if its == key]:
            del self._exchanges[exchange]
        self._end(key, Frame.parse(frame) if frame is not None else None, _error_of(error))

    def _closed(self, key: int) -> None:
        self._end(key)


def _error_of(error: tuple[int, str]) -> NSError | None:
    return NSError(_DOMAIN, *error) if error[0] else None


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


class AsyncReader:
    """The first reader whose name contains `name`: `async with` connects to it, within `limit`
    seconds, and closes the link. It is a `Reader` that is not connected to again when it is lost.
    All limits count by the platform's clock.

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
        self._reader: Reader | None = None
        self._name: str | None = None
        self._trouble: NSError | None = None
        self._frames: deque[NSData] = deque()
        self._futures: list[asyncio.Future[None]] = []

    def __repr__(self) -> str:
        state = "plugged in" if self.is_plugged_in else "not plugged in"
        return f"<AsyncReader {self.name or self._wanted!r} {state}>"

    @property
    def name(self) -> str | None:
        """The name by which the reader was found; None before."""
        return (self._reader.name if self._reader else None) or self._name

    @property
    def is_plugged_in(self) -> bool:
        """Whether the reader's link can be used."""
        return self._reader is not None and self._reader.phase is ReaderPhase.plugged_in

    async def __aenter__(self) -> AsyncReader:
        if self._reader is not None:
            raise RuntimeError("this reader is in use already")
        host = _host_of(self._platform)
        host.enter()
        self._host = host
        try:
            self._name, self._trouble = None, None
            self._frames.clear()
            reader = Reader(
                self._platform,
                self._wanted,
                take_first=True,
                find_limit=self._limit,
                plug_in_limit=None,
                reconnect=False,
            )
            self._reader = reader
            reader.on_phase = lambda _, phase: self._wake_all()
            reader.on_frame = lambda _, frame: self._take(frame.data)
            reader.on_value = lambda _, value: self._take(value)
            reader.on_trouble = lambda _, trouble: self._take_trouble(trouble)
            await self._until(
                self._linked_up, self._limit, lambda: f"the reader {self.name!r} was not plugged in"
            )
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
            # What went wrong before says more.
            if error is None:
                raise
        finally:
            self._let_go()

    async def send(self, frame: bytes) -> None:
        """Hands one whole frame to the radio, in slices of 20 bytes with a pause of 0.05 s after
        each full one, in which other tasks run."""
        ends: list[NSError | None] = []

        def done(error: NSError | None) -> None:
            ends.append(error)
            self._wake_all()

        self._used_reader().send(frame, done)
        await self._until(lambda: ends or None, None, lambda: "")
        if ends[0] is not None:
            raise ConnectionError(ends[0].text)

    async def receive(self, *, limit: float | None = None) -> NSData:
        """The next frame that has come or comes within `limit`, in the order of arrival; of a reader
        whose name begins with "KVR-Q62T" the next notification's bytes."""
        return await self._until(self._next_frame, limit, lambda: "no frame came")

    async def frames(self, *, limit: float | None = None) -> AsyncIterator[NSData]:
        """Every frame as it comes. It ends when the reader is unplugged, or when no frame has come
        within `limit`; `is_plugged_in` says which."""
        while True:
            try:
                frame = await self.receive(limit=limit)
            except (TimeoutError, ConnectionError):
                return
            yield frame

    async def exchange(self, frame: bytes, *, limit: float = 5.0) -> NSData:
        """Sends a frame and returns the first one with the same code that comes after it. Other
        frames are kept for `receive`. A reader whose name begins with "KVR-Q62T" sends no whole
        frames: `send` and `receive` are for that one."""
        ends: list[tuple[Frame | None, NSError | None]] = []

        def done(answer: Frame | None, error: NSError | None) -> None:
            ends.append((answer, error))
            self._wake_all()

        reader = self._used_reader()
        exchange = reader.exchange(frame, limit, done)
        try:
            await self._until(lambda: ends or None, None, lambda: "")
        except BaseException:
            if ends and ends[0][0] is not None:
                # An answer that came when nobody waited for it any more.
                self._frames.append(ends[0][0].data)
            elif not reader.is_released:
                reader.forget(exchange)
            raise
        answer, error = ends[0]
        if answer is not None:
            return answer.data
        assert error is not None
        if error.code == ReaderErrorCode.no_frame:
            raise ValueError(error.text)
        if error.code == ReaderErrorCode.no_answer:
            raise TimeoutError(error.text)
        raise ConnectionError(error.text)

    async def close(self, *, limit: float = 10.0) -> None:
        """Closes the link and returns when it is down."""
        reader = self._used_reader()
        reader.close(self._wake_all)
        await self._until(
            lambda: None if reader.has_link else True, limit, lambda: "the link did not go down"
        )

    # What the reader reports.

    def _take(self, frame: NSData) -> None:
        self._frames.append(frame)
        self._wake_all()

    def _take_trouble(self, trouble: NSError) -> None:
        if trouble.code != ReaderErrorCode.radio_off:
            self._trouble = trouble
        self._wake_all()

    # Waiting.

    def _wake_all(self) -> None:
        if self._host is None:
            return
        for future in self._futures:
            self._host.wake(future)

    async def _until(
        self, take: Callable[[], _Result | None], limit: float | None, what: Callable[[], str]
    ) -> _Result:
        """What `take` returns as soon as that is something; asked after everything that happens."""
        self._used_reader()
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
                self._linked_reader()
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

    # What is waited for.

    def _linked_up(self) -> bool | None:
        if self._used_reader().phase is not ReaderPhase.closed:
            return self.is_plugged_in or None
        trouble = self._trouble
        if trouble is None or trouble.code == ReaderErrorCode.not_found:
            raise TimeoutError(trouble.text if trouble else "the radio cannot be used")
        raise ConnectionError(trouble.text)

    def _next_frame(self) -> NSData | None:
        if self._frames:
            return self._frames.popleft()
        if not self.is_plugged_in:
            raise ConnectionError("the reader is unplugged")
        return None

    # What there is to work with.

    def _used_reader(self) -> Reader:
        if self._reader is None:
            raise RuntimeError("this reader is not connected; use it inside `async with`")
        return self._reader

    def _linked_reader(self) -> Reader:
        """For whoever has waited: the reader may have been let go of meanwhile."""
        if self._reader is None:
            raise ConnectionError("the reader is unplugged")
        return self._reader

    def _used_host(self) -> _Host:
        if self._host is None:
            raise RuntimeError("this reader is not connected; use it inside `async with`")
        return self._host

    def _let_go(self) -> None:
        # Whoever still waits finds that there is no reader any more.
        self._wake_all()
        reader, self._reader = self._reader, None
        if reader is not None:
            self._name = reader.name or None
            reader.release()
        host, self._host = self._host, None
        if host is not None:
            host.leave()
