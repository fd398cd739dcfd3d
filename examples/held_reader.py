"""A reader that is held: found, connected to, and brought back after a loss."""

import kestrinblesdk as kestrin
from kestrinblesdk import Reader, ReaderPhase

platform = kestrin.SimulatedPlatform(virtual_time=True)
device = platform.add_reader("KVR-0417")


def phase_changed(reader: Reader, phase: ReaderPhase) -> None:
    print(reader.name, phase.name)
    if phase is ReaderPhase.plugged_in:
        reader.send(kestrin.build_frame(0x00, 0x22))


with Reader(platform, "KVR-0417") as reader:
    reader.on_phase = phase_changed
    reader.on_frame = lambda reader, frame: print(f"frame with code {frame.code:02x}")
    reader.on_trouble = lambda reader, trouble: print(trouble.text)
    platform.run_for(5)
    device.simulate_link_loss()
    platform.run_for(5)
