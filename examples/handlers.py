"""The same with handlers, which are any callables."""

import kestrinblesdk as kestrin

platform = kestrin.SimulatedPlatform(virtual_time=True)
platform.add_reader("KVR-0417")
manager = kestrin.KestrinBleMgr(platform)
manager.on_found = manager.connectBLE
manager.on_plugged = lambda plugged: plugged and manager.send(kestrin.build_frame(0x00, 0x22))
manager.on_frame = lambda frame: print("frame", frame)
manager.scanBLE()
platform.run_for(5)
