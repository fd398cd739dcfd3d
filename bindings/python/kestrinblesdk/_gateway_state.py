"""The file in which a consumer keeps what it has come to."""

from __future__ import annotations

import json
import os
from collections.abc import Mapping
from pathlib import Path

_FORM = "kestrinblesdk.gateway.Consumer"


def read_state(path: Path, gateway: str, consumer: str) -> dict[str, int]:
    """The next number of each log; nothing where there is no file yet. ValueError where the file is
    damaged or another consumer's: starting without it would take everything once more."""
    try:
        text = path.read_text("utf-8")
    except FileNotFoundError:
        return {}
    except UnicodeDecodeError:
        raise ValueError(_damaged(path)) from None
    try:
        state = json.loads(text)
        whose = (state["form"], state["gateway"], state["consumer"])
        logs = state["next"]
        right = all(isinstance(log, str) and type(n) is int and n >= 1 for log, n in logs.items())
    except (ValueError, RecursionError, LookupError, TypeError, AttributeError):
        raise ValueError(_damaged(path)) from None
    if not right or whose[0] != _FORM:
        raise ValueError(_damaged(path))
    if whose[1:] != (gateway, consumer):
        raise ValueError(
            f"{path} is the state of consumer {whose[2]!r} at gateway {whose[1]!r}; "
            "a file for each of them would be right"
        )
    return dict(logs)


def write_state(path: Path, gateway: str, consumer: str, logs: Mapping[str, int]) -> None:
    """Takes the place of the file as a whole, and is on the disk when this returns. OSError when it
    cannot be; the old file stays then."""
    state = {"form": _FORM, "gateway": gateway, "consumer": consumer, "next": dict(logs)}
    new = path.with_name(path.name + ".new")
    with open(new, "w", encoding="utf-8") as file:
        json.dump(state, file)
        file.flush()
        os.fsync(file.fileno())
    os.replace(new, path)
    folder = os.open(path.parent, os.O_RDONLY | os.O_DIRECTORY)
    try:
        os.fsync(folder)
    finally:
        os.close(folder)


def _damaged(path: Path) -> str:
    return (
        f"{path} is not the state of a consumer, or is damaged; put the right file back, or remove "
        "it to be given everything that the gateway still has"
    )
