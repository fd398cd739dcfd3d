"""Looks at a process while it works, and says what of it has grown."""

from __future__ import annotations

import statistics
from dataclasses import dataclass, fields
from pathlib import Path

MEGABYTE = 1 << 20


@dataclass
class Sample:
    memory: int  # Resident, in bytes.
    descriptors: int
    threads: int
    log: int  # Bytes of the files in its log's folder.


def sample(pid: int, log: Path) -> Sample:
    status = dict(
        line.split(":", 1) for line in Path(f"/proc/{pid}/status").read_text().splitlines() if ":" in line
    )
    return Sample(
        memory=int(status["VmRSS"].split()[0]) * 1024,
        descriptors=len(list(Path(f"/proc/{pid}/fd").iterdir())),
        threads=int(status["Threads"]),
        log=folder_size(log),
    )


def folder_size(folder: Path) -> int:
    """What is removed meanwhile does not count."""
    size = 0
    for file in folder.rglob("*"):
        try:
            size += file.stat().st_size
        except FileNotFoundError:
            continue
    return size


# How much more the last third may have than the middle one, the first being the start.
ALLOWED = Sample(memory=2 * MEGABYTE, descriptors=2, threads=0, log=2 * MEGABYTE)


def growth(samples: list[Sample]) -> list[str]:
    """A line for each figure that was not flat."""
    third = len(samples) // 3
    assert third > 0, f"{len(samples)} samples say nothing"
    before, after = samples[third : 2 * third], samples[2 * third :]
    lines = []
    for name in (each.name for each in fields(Sample)):
        then = statistics.median(getattr(each, name) for each in before)
        now = statistics.median(getattr(each, name) for each in after)
        if now > then + getattr(ALLOWED, name):
            lines.append(f"{name} has grown from {then:.0f} to {now:.0f}")
    return lines


def summary(samples: list[Sample]) -> str:
    parts = []
    for name in (each.name for each in fields(Sample)):
        values = [getattr(each, name) for each in samples]
        parts.append(f"{name} {min(values)} to {max(values)}, at last {values[-1]}")
    return "; ".join(parts)
