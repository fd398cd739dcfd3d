"""Works handheld RFID readers over Bluetooth Low Energy.

    import kestrinblesdk as kestrin

    platform = kestrin.SimulatedPlatform(virtual_time=True)
    platform.add_reader("KVR-0417")

In callback style `KestrinBleMgr` scans, connects and sends, and tells handlers and delegates what
happens; with asyncio `AsyncReader` does it step by step. Names that stand for the library's own
operations are kept letter for letter.
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
from ._reader import AsyncReader, hosted
from ._values import (
    CBCharacteristicProperty,
    CBManagerState,
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
    "KestrinBLEProtocols",
    "KestrinBLESDKVersionNumber",
    "KestrinBleMgr",
    "NSData",
    "NSError",
    "Platform",
    "RcpReceiver",
    "ReaderFamily",
    "ReaderScript",
    "ReceivedWrite",
    "SimulatedPlatform",
    "VirtualPeripheral",
    "build_frame",
    "frame_crc",
    "has_bluez",
    "hosted",
    "install_bluez",
    "install_simulated",
]
