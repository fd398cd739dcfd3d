import asyncio

import kestrinblesdk as kestrin


async def main() -> None:
    platform = kestrin.SimulatedPlatform(virtual_time=True)  # Or kestrin.BluezPlatform().
    platform.add_reader("KVR-0417")
    async with kestrin.AsyncReader(platform, "KVR") as reader:
        print("plugged in:", reader.name)
        print("answer:", await reader.exchange(kestrin.build_frame(0x00, 0x22)))


asyncio.run(main())
