"""Rounds with random faults, and what is left of them in the process. The program plays them, since what
a process holds is the point of it; what only root may do is done for it here."""

from __future__ import annotations

import os
import subprocess
from collections.abc import Callable

import pytest
from stack import BUILD, LOGS, Stack

DEVICES = ["--reader", "KVR-0001,id=reader"]
ROUNDS = os.environ["KESTRIN_STRESS_ROUNDS"]
SEED = os.environ["KESTRIN_STRESS_SEED"]
PROGRAM = BUILD / "tests/stress_probe"
# Freed memory that the C library keeps at hand for each thread would count as allocated.
ENVIRONMENT = {**os.environ, "GLIBC_TUNABLES": "glibc.malloc.tcache_count=0"}


def carry_out(stack: Stack, request: str) -> str:
    requests: dict[str, Callable[[], None]] = {
        "adapter on": lambda: stack.set_power(True),
        "adapter off": lambda: stack.set_power(False),
        "daemon stop": stack.stop_daemon,
        "daemon start": stack.start_daemon,
    }
    try:
        requests[request]()
    except (AssertionError, LookupError, subprocess.SubprocessError) as error:
        print(f"{request}: {error!r}")
        return "failed"
    return "done"


@pytest.mark.parametrize(
    ("rounds", "seed"), [pytest.param(ROUNDS, SEED, id=f"{ROUNDS} rounds, seed {SEED}")]
)
def test_rounds_with_random_faults_leave_nothing_behind(
    stack: Stack, rounds: str, seed: str, record_property: Callable[[str, object], None]
) -> None:
    command = [str(PROGRAM), rounds, seed, str(stack.orders), str(stack.readers_log)]
    pipe = subprocess.PIPE
    results: list[str] = []
    with (LOGS / "stress.log").open("w", buffering=1) as log, subprocess.Popen(
        command, env=ENVIRONMENT, stdin=pipe, stdout=pipe, stderr=subprocess.STDOUT, text=True
    ) as program:
        assert program.stdin and program.stdout
        for line in program.stdout:
            kind, _, rest = line.strip().partition(" ")
            if kind == "PLEASE":
                print(carry_out(stack, rest), file=program.stdin, flush=True)
            elif kind == "ROUND":
                log.write(line)
            else:
                results.append(line.strip())
    record_property("results", "\n".join(results))
    assert program.returncode == 0
    assert [line for line in results if line.startswith("FIGURES ")] != []
