"""Scans, prints the library's log, and ends when the radio is powered on."""

import sys

import kestrinblesdk as kestrin

LIMIT = 120.0
lines: list[str] = []


def hear(line: str) -> None:
    lines.append(line)
    print(line, flush=True)


with kestrin.BluezPlatform() as platform:
    platform.log = hear
    manager = kestrin.KestrinBleMgr(platform)
    manager.scanBLE()
    sys.exit(not platform.run_until(lambda: " CBManager is powered on" in lines, LIMIT))
