"""Works handheld RFID readers over Bluetooth Low Energy.

    import kestrinblesdk as kestrin

    platform = kestrin.SimulatedPlatform(virtual_time=True)
    platform.add_reader("KVR-0417")

`Reader` holds one reader, brings it back after a loss, and calls handlers; with asyncio
`AsyncReader` works one step by step. `KestrinBleMgr` below them is the library's manager itself, whose
names are kept letter for letter.
"""

from . import _core
from ._core import CBPeripheral
from ._manager import (
    KestrinBLEProtocols,
    KestrinBleMgr,
    RcpReceiver,
    install_bluez,
    install_simulated,
)
from ._platforms import (
    BluezPlatform,
    DefaultPlatform,
    Platform,
    ReaderScript,
    SimulatedPlatform,
    VirtualPeripheral,
)
from ._reader import (
    AsyncReader,
    Reader,
    ReaderErrorCode,
    ReaderPhase,
    SeenReader,
    hosted,
)
from ._values import (
    CBCharacteristicProperty,
    CBManagerState,
    Frame,
    FrameError,
    NSData,
    NSError,
    ReaderFamily,
    ReceivedWrite,
    build_frame,
    frame_crc,
)

__version__: str = _core.version
"""The library's version."""
KestrinBLESDKVersionNumber: float = _core.version_number
"""The library's version as a number."""
has_bluez: bool = _core.has_bluez
"""Whether the package was built with the real radio."""

__all__ = [
    "AsyncReader",
    "BluezPlatform",
    "CBCharacteristicProperty",
    "CBManagerState",
    "CBPeripheral",
    "DefaultPlatform",
    "Frame",
    "FrameError",
    "KestrinBLEProtocols",
    "KestrinBLESDKVersionNumber",
    "KestrinBleMgr",
    "NSData",
    "NSError",
    "Platform",
    "RcpReceiver",
    "Reader",
    "ReaderErrorCode",
    "ReaderFamily",
    "ReaderPhase",
    "ReaderScript",
    "ReceivedWrite",
    "SeenReader",
    "SimulatedPlatform",
    "VirtualPeripheral",
    "build_frame",
    "frame_crc",
    "has_bluez",
    "hosted",
    "install_bluez",
    "install_simulated",
]
