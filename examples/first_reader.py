"""A first application in Python: finds a reader, connects to it, sends it a command and prints the
frames that come. With a real one it would begin with kestrin.BluezPlatform()."""

from __future__ import annotations

import kestrinblesdk as kestrin


class FirstReader(kestrin.KestrinBLEProtocols, kestrin.RcpReceiver):
    def __init__(self, manager: kestrin.KestrinBleMgr) -> None:
        self.manager = manager

    def scanningBleDeive(self, peripheral: kestrin.CBPeripheral) -> None:
        print("found", peripheral.name)
        self.manager.connectBLE(peripheral)

    def plugChangedStatus(self, plugged: bool) -> None:
        print("plugged in" if plugged else "unplugged")
        if plugged:
            self.manager.send(kestrin.build_frame(0x00, 0x22))

    def dispatchRcpFrmReader(self, frame: kestrin.NSData | None) -> None:
        print("frame", frame)


with kestrin.SimulatedPlatform(virtual_time=True) as platform:
    platform.add_reader("KVR-0417")
    manager = kestrin.KestrinBleMgr(platform)
    application = FirstReader(manager)
    manager.delegate = manager.rcpReceiverDelegate = application  # Held weakly.
    manager.scanBLE()
    platform.run_for(5)
    manager.close()
    platform.run_for(1)
