"""What a gateway's system does to it, by the library of faults.c."""

from __future__ import annotations

import mmap
import os
import struct

from machines import Gateway, Room

# As `struct control` has them.
MEMBERS = [
    "write_error",
    "write_times",
    "short_times",
    "sync_error",
    "sync_times",
    "clock_seconds",
    "writes",
    "writes_failed",
    "writes_short",
    "syncs_failed",
]
ALL = -1


class Faults:
    """For a gateway that has not been started yet."""

    def __init__(self, room: Room, gateway: Gateway) -> None:
        file = room / f"{gateway.name}.faults"
        file.write_bytes(bytes(8 * len(MEMBERS)))
        with file.open("r+b") as opened:
            self._shared = mmap.mmap(opened.fileno(), 0)
        gateway.environment |= {
            "LD_PRELOAD": os.environ["KESTRIN_GATEWAY_FAULTS"],
            "KESTRIN_FAULTS_CONTROL": str(file),
            "KESTRIN_FAULTS_FOLDER": str(gateway.folder),
        }

    def __getitem__(self, member: str) -> int:
        return int(struct.unpack_from("=q", self._shared, 8 * MEMBERS.index(member))[0])

    def __setitem__(self, member: str, value: int) -> None:
        struct.pack_into("=q", self._shared, 8 * MEMBERS.index(member), value)

    def fail_writes(self, error: int, times: int = ALL) -> None:
        self["write_error"] = error
        self["write_times"] = times

    def fail_syncs(self, error: int, times: int = ALL) -> None:
        self["sync_error"] = error
        self["sync_times"] = times

    def end(self) -> None:
        for member in ("write_times", "short_times", "sync_times"):
            self[member] = 0
