"""The manager and its two delegates."""

from __future__ import annotations

import atexit
import threading
import time
import weakref
from collections.abc import Callable
from types import TracebackType

from . import _core
from ._core import CBPeripheral
from ._platforms import BluezPlatform, DefaultPlatform, Platform, SimulatedPlatform
from ._platforms import _platforms, _readers, _Releasable
from ._values import NSData

# Seconds for each loop that another thread turns when the interpreter ends.
_LONGEST_WAIT = 2.0

_managers: weakref.WeakSet[KestrinBleMgr] = weakref.WeakSet()


class KestrinBLEProtocols:
    """The scan delegate: derive from it and override what you want to hear. A manager holds it
    weakly. Any object that has one of these methods will do."""

    def scanBleStatus(self, status: int) -> None:
        """0 at the very start of `scanBLE`, 1 at the start of `stopSacnBLE`."""

    def scanningBleDeive(self, peripheral: CBPeripheral) -> None:
        """A reader in range, each time the scan accepts one."""


class RcpReceiver:
    """The receiver: derive from it and override what you want to hear. A manager holds it weakly.
    Any object that has one of these methods will do."""

    def plugChangedStatus(self, plugged: bool) -> None:
        """True: the reader's link can be used. False: it is unplugged; `close` on a connected reader
        gives False twice, at once and when the link is down."""

    def dispatchRcpFrmReader(self, frame: NSData | None) -> None:
        """One whole, CRC-checked frame. From a reader whose name begins with "KVR-Q62T" instead the
        bytes of each notification as they came, unchecked and possibly None."""


_SCAN = ("scanBleStatus", "scanningBleDeive")
_RECEIVER = ("plugChangedStatus", "dispatchRcpFrmReader")
_HANDLERS = {
    "scanBleStatus": "on_scan_status",
    "scanningBleDeive": "on_found",
    "plugChangedStatus": "on_plugged",
    "dispatchRcpFrmReader": "on_frame",
}


class KestrinBleMgr(_core.ManagerBase):
    """Works a handheld RFID reader. It calls its delegates, which it holds weakly, and its handlers,
    which it holds: each is a function of the argument that the delegate's method of the same event
    gets. What one of them raises goes to `sys.unraisablehook`, and everything goes on; only
    KeyboardInterrupt and SystemExit leave the operation that is under way.

    It is used on its platform's thread. `with` releases it at the end."""

    on_scan_status: Callable[[int], object] | None = None
    """Gets what `scanBleStatus` gets."""
    on_found: Callable[[CBPeripheral], object] | None = None
    """Gets what `scanningBleDeive` gets."""
    on_plugged: Callable[[bool], object] | None = None
    """Gets what `plugChangedStatus` gets."""
    on_frame: Callable[[NSData | None], object] | None = None
    """Gets what `dispatchRcpFrmReader` gets."""

    _shared: KestrinBleMgr | None = None
    _default: Platform | None = None
    _lock = threading.Lock()

    def __init__(self, platform: Platform, *, _shared: bool = False) -> None:
        """A further, independent manager on `platform`."""
        if not isinstance(platform, Platform):
            raise TypeError(f"a manager is made on a Platform, not {type(platform).__name__!r}")
        self._platform = platform
        self._delegate: weakref.ref[object] | None = None
        self._receiver: weakref.ref[object] | None = None
        super().__init__(platform, weakref.ref(self), _shared)
        _managers.add(self)

    @staticmethod
    def sharedInstance() -> KestrinBleMgr:
        """The process's one manager, made on the first call. Its radio is the one that
        `install_bluez` or `install_simulated` has installed before; its platform's thread is the one
        of that call, or of this one."""
        with KestrinBleMgr._lock:
            shared = KestrinBleMgr._shared
            if shared is None or shared.is_released:
                default = KestrinBleMgr._default or DefaultPlatform()
                shared = KestrinBleMgr(default, _shared=True)
                KestrinBleMgr._shared, KestrinBleMgr._default = shared, default
            return shared

    def __setattr__(self, name: str, value: object) -> None:
        if name in _HANDLERS.values() and value is not None and not callable(value):
            raise TypeError(f"{name} is callable or None, not {type(value).__name__!r}")
        super().__setattr__(name, value)

    def __enter__(self) -> KestrinBleMgr:
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
            return "<KestrinBleMgr released>"
        reader = self.pripheral
        if not self.isOpened():
            return "<KestrinBleMgr not linked>"
        return f"<KestrinBleMgr linked to {reader!r}>"

    @property
    def platform(self) -> Platform:
        """What it was made on."""
        return self._platform

    @property
    def delegate(self) -> object | None:
        """The scan delegate, held weakly; None when none is set or it is gone."""
        return self._delegate() if self._delegate else None

    @delegate.setter
    def delegate(self, delegate: object | None) -> None:
        self._delegate = _weakly(delegate, _SCAN, "scan delegate")

    @property
    def rcpReceiverDelegate(self) -> object | None:
        """The receiver, held weakly; None when none is set or it is gone."""
        return self._receiver() if self._receiver else None

    @rcpReceiverDelegate.setter
    def rcpReceiverDelegate(self, receiver: object | None) -> None:
        self._receiver = _weakly(receiver, _RECEIVER, "receiver")

    def release(self) -> None:
        """Closes the link, calls nobody, and lets go of everything. The manager cannot be used any
        more; releasing it again does nothing."""
        self._release()

    def _listeners(self, callback: str) -> tuple[Callable[..., object], ...]:
        delegate = self.delegate if callback in _SCAN else self.rcpReceiverDelegate
        listeners = (getattr(delegate, callback, None), getattr(self, _HANDLERS[callback]))
        return tuple(listener for listener in listeners if callable(listener))


def _weakly(
    delegate: object | None, callbacks: tuple[str, ...], what: str
) -> weakref.ref[object] | None:
    if delegate is None:
        return None
    if not any(callable(getattr(delegate, callback, None)) for callback in callbacks):
        raise TypeError(
            f"a {what} has a method {' or '.join(callbacks)}; {type(delegate).__name__!r} has none"
        )
    return weakref.ref(delegate)


def _install(platform: Callable[[], Platform]) -> Platform:
    with KestrinBleMgr._lock:
        if KestrinBleMgr._default is not None:
            raise RuntimeError(
                "a radio is installed once, before the first KestrinBleMgr.sharedInstance()"
            )
        KestrinBleMgr._default = platform()
        return KestrinBleMgr._default


def install_bluez(adapter: str | None = None, bus_address: str | None = None) -> Platform:
    """Makes the real radio that of `KestrinBleMgr.sharedInstance`, and returns its platform. Once,
    before that is first called."""
    return _install(lambda: BluezPlatform(adapter, bus_address, _make=_core.install_bluez))


def install_simulated(*, seed: int = 1) -> SimulatedPlatform:
    """Makes a simulated radio in real time that of `KestrinBleMgr.sharedInstance`, and returns its
    platform. Once, before that is first called."""
    platform = _install(lambda: SimulatedPlatform(seed=seed, _make=_core.install_simulated))
    assert isinstance(platform, SimulatedPlatform)
    return platform


@atexit.register
def _release_all() -> None:
    """Links are closed before the interpreter takes itself apart. A thread that turns a loop may not
    be in the library then: the interpreter would end it there."""
    for platform in [each for each in _platforms if not each.is_released]:
        deadline = time.monotonic() + _LONGEST_WAIT
        while platform._is_running and time.monotonic() < deadline:
            platform.stop()
            time.sleep(0.01)
    everything: list[_Releasable] = [*_managers, *_readers, *_platforms]
    for each in everything:
        try:
            each.release()
        except RuntimeError:
            # It belongs to another thread, which has ended or is about to.
            pass
