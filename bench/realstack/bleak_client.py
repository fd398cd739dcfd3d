"""What an application in Python would use: a client for several systems. See Tally.h for its lines."""
import asyncio
import os
import sys
import time

from bleak import BleakClient, BleakScanner

RECEIVE = "ba821002-3b5b-4654-85fe-e998b123adea"


class Tally:
    def __init__(self):
        self.count = self.sum = 0

    def add(self, _characteristic, value):
        self.count += 1
        self.sum += int.from_bytes(value[5:9], "big")

    def answer_line(self):
        line = sys.stdin.readline()
        if not line:
            os._exit(0)
        if line == "count\n":
            print("COUNT", self.count, self.sum, flush=True)
            self.count = self.sum = 0


async def main():
    tally = Tally()
    reader = await BleakScanner.find_device_by_filter(
        lambda device, advertised: (advertised.local_name or "").startswith("KVR"), timeout=60)
    began = time.monotonic()
    client = BleakClient(reader, timeout=60)
    await client.connect()
    known = time.monotonic()
    await client.start_notify(RECEIVE, tally.add)
    asyncio.get_running_loop().add_reader(sys.stdin, tally.answer_line)
    print(f"UP {(known - began) * 1000:.1f}", flush=True)
    await asyncio.Event().wait()


asyncio.run(main())
