"""Platforms: a radio with its run loop."""

from __future__ import annotations

import itertools
import os
import weakref
from collections.abc import Callable, Iterable
from types import TracebackType
from typing import Protocol, TypeVar

from . import _core
from ._values import (
    CBCharacteristicProperty,
    CBManagerState,
    NSData,
    NSError,
    ReaderFamily,
    ReceivedWrite,
)

_Self = TypeVar("_Self", bound="Platform")

# A script answers one command frame with whole reply frames.
ReaderScript = Callable[[NSData], Iterable[bytes]]


class _Releasable(Protocol):
    def release(self) -> None: ...


# What is closed when the interpreter ends.
_platforms: weakref.WeakSet[Platform] = weakref.WeakSet()
_readers: weakref.WeakSet[_Releasable] = weakref.WeakSet()


class Platform(_core.PlatformBase):
    """A radio with its run loop. Everything happens on the thread that made it, in turns of that
    loop: call one of the `run` operations, or let an event loop watch `file_descriptor` and call
    `run_one_turn`. `hosted` does that with asyncio. Only `post`, `stop` and `now` may be called from
    another thread."""

    def __init__(self, made: _core.PlatformBase) -> None:
        super().__init__(made)
        self._keys = itertools.count(1)
        self._tasks: dict[int, Callable[[], object]] = {}
        self._timers: dict[int, int] = {}
        self._scripts: dict[str, ReaderScript] = {}
        self._log: Callable[[str], object] | None = None
        _platforms.add(self)

    def __enter__(self: _Self) -> _Self:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        self.release()

    def __repr__(self) -> str:
        name = type(self).__name__
        if self.is_released:
            return f"<{name} released>"
        trouble = self.radio_trouble
        return f"<{name} {trouble!r}>" if trouble else f"<{name} at {self.now():.3f} s>"

    def post(self, task: Callable[[], object]) -> None:
        """Has the run loop call `task` in a later turn. From any thread."""
        key = self._keep(task)
        self._post(key)

    def arm(self, delay: float, task: Callable[[], object]) -> int:
        """Has the run loop call `task` once, in so many seconds. Returns a number for `cancel`."""
        key = self._keep(task)
        self._timers[key] = self._arm(delay, key)
        return key

    def cancel(self, timer: int) -> None:
        """Forgets what `arm` was given; harmless when it has run."""
        self._tasks.pop(timer, None)
        armed = self._timers.pop(timer, None)
        if armed is not None:
            self._cancel(armed)

    def record(self, path: str | os.PathLike[str]) -> None:
        """Records what readers and managers that are made from now on do: everything that is asked of
        the radio, the devices and the run loop, and what comes back. `kestrin timeline` draws the
        file. OSError when it cannot be written."""
        self._record(os.fspath(path))

    @property
    def log(self) -> Callable[[str], object] | None:
        """Gets each line of the library's log, on this platform's thread. None: nobody does."""
        return self._log

    @log.setter
    def log(self, log: Callable[[str], object] | None) -> None:
        _check_callable(log, "a log")
        self._log = log
        self._hear_log(log is not None)

    def _keep(self, task: Callable[[], object]) -> int:
        if not callable(task):
            raise TypeError(f"a task is callable, not {type(task).__name__!r}")
        key = next(self._keys)
        self._tasks[key] = task
        return key

    # What the run loop calls.

    def _run_task(self, key: int) -> None:
        self._timers.pop(key, None)
        task = self._tasks.pop(key, None)
        if task is not None:
            task()

    def _log_line(self, line: str) -> None:
        if self._log is not None:
            self._log(line)

    def _answer(self, identifier: str, frame: NSData) -> tuple[bytes, ...]:
        return tuple(self._scripts[identifier](frame))


class SimulatedPlatform(Platform):
    """A platform with a simulated radio: virtual readers, in real or in virtual time, which passes
    only while somebody waits for it. What is not given stays as the library has it; times are
    seconds, a pair is a range."""

    def __init__(
        self,
        *,
        virtual_time: bool = False,
        seed: int = 1,
        state: CBManagerState = CBManagerState.poweredOn,
        piece_size: tuple[int, int] | None = None,
        latency: tuple[float, float] | None = None,
        signal_strength: tuple[int, int] | None = None,
        advertising_interval: float | None = None,
        connection_delay: tuple[float, float] | None = None,
        first_retry_pause: float | None = None,
        longest_retry_pause: float | None = None,
        supervision_timeout: float | None = None,
        _make: Callable[[object, _core.SimulatedOptions], _core.PlatformBase] = _core.make_simulated,
    ) -> None:
        given = {
            "piece_size": piece_size,
            "latency": latency,
            "signal_strength": signal_strength,
            "advertising_interval": advertising_interval,
            "connection_delay": connection_delay,
            "first_retry_pause": first_retry_pause,
            "longest_retry_pause": longest_retry_pause,
            "supervision_timeout": supervision_timeout,
        }
        options = _core.SimulatedOptions()
        options.virtual_time = virtual_time
        options.seed = seed
        options.state = int(state)
        for name, value in given.items():
            if value is not None:
                setattr(options, name, value)
        super().__init__(_make(weakref.ref(self), options))

    def add_reader(self, name: str, family: ReaderFamily | None = None) -> VirtualPeripheral:
        """A reader in range that advertises `name` and answers every command. Its name tells the
        family unless one is given."""
        if family is None:
            q62t = name.startswith("KVR-Q62T")
            family = ReaderFamily.kvrQ62T if q62t else ReaderFamily.standard
        made = _core.add_reader(self, name, family is ReaderFamily.kvrQ62T)
        return VirtualPeripheral(self, made, name)

    def add_peripheral(self, name: str | None) -> VirtualPeripheral:
        """A peripheral in range that is not a reader. A name of None is never advertised."""
        return VirtualPeripheral(self, _core.add_peripheral(self, name), name)

    def simulate_state(self, state: CBManagerState) -> None:
        """Brings the radio into a state and reports the change. In every state but powered on scans
        and links have ended and attempts to connect wait."""
        _core.simulate_state(self, int(state))


class BluezPlatform(Platform):
    """A platform with the real radio on Linux. Without a bus, a daemon or an adapter it is made all
    the same, and `radio_trouble` says what to do. NotImplementedError where the package was built
    without that radio."""

    def __init__(
        self,
        adapter: str | None = None,
        bus_address: str | None = None,
        *,
        _make: Callable[
            [object, str | None, str | None], _core.PlatformBase
        ] = _core.make_bluez,
    ) -> None:
        """`adapter` by its name, for example "hci0"; None: the first that is powered. `bus_address`
        None: the system bus."""
        super().__init__(_make(weakref.ref(self), adapter, bus_address))


class DefaultPlatform(Platform):
    """The platform of `KestrinBleMgr.sharedInstance`. Until a radio is installed, every manager
    finds its radio unsupported. It logs to standard error until `log` is set."""

    def __init__(self) -> None:
        super().__init__(_core.make_default(weakref.ref(self)))


class VirtualPeripheral(_core.VirtualPeripheralBase):
    """A virtual reader, or another peripheral, in range of a simulated radio: what to make it do,
    and what it has seen. UUIDs are texts, as "FFF1"."""

    def __init__(
        self, platform: Platform, made: _core.VirtualPeripheralBase, name: str | None
    ) -> None:
        super().__init__(made)
        self._platform = platform
        self._name = name

    def __repr__(self) -> str:
        linked = " connected" if self.connected else ""
        return f"<VirtualPeripheral {self._name!r} {self.identifier}{linked}>"

    @property
    def script(self) -> ReaderScript | None:
        """Answers one command frame with whole reply frames; None: as every reader does."""
        return self._platform._scripts.get(self.identifier)

    @script.setter
    def script(self, script: ReaderScript | None) -> None:
        _check_callable(script, "a script")
        if script is None:
            self._platform._scripts.pop(self.identifier, None)
        else:
            self._platform._scripts[self.identifier] = script
        self._set_script(script is not None)

    @property
    def writes(self) -> list[ReceivedWrite]:
        """Every write received so far, oldest first, over all links."""
        return [ReceivedWrite(*write) for write in self._writes()]

    def simulate_properties(
        self, characteristic: str, properties: CBCharacteristicProperty | int
    ) -> None:
        """The property mask of the characteristics of that UUID on the links made from now on."""
        super().simulate_properties(characteristic, int(properties))


def _check_callable(function: object, what: str) -> None:
    if function is not None and not callable(function):
        raise TypeError(f"{what} is callable or None, not {type(function).__name__!r}")


__all__ = [
    "BluezPlatform",
    "DefaultPlatform",
    "NSError",
    "Platform",
    "ReaderScript",
    "SimulatedPlatform",
    "VirtualPeripheral",
]
