"""The contract of all radios, kept by the real one: its suite, a program, runs against virtual readers, and
each of its cases is one here."""

from __future__ import annotations

import os
import subprocess
from collections.abc import Iterator

import pytest
from stack import BUILD, Stack

# Others are in range too: what the contract says of the reader must not depend on silence.
DEVICES = [
    *("--reader", "KVR-0001,id=contract"),
    *("--reader", "KVR-Q62T 0012,id=q62t"),
    *("--non-reader", "Lamp,id=lamp"),
    *("--non-reader", ",id=nameless"),
]
PROGRAM = str(BUILD / "tests/bluez_contract_test")
LAST = "ARefusedSubscription"


def all_cases() -> list[str]:
    """After a refused subscription the daemon is of no use for that characteristic, so those come last."""
    listed = subprocess.run([PROGRAM, "--gtest_list_tests"], check=True, capture_output=True, text=True)
    cases = [line.split("/")[0].strip() for line in listed.stdout.splitlines() if line.startswith(" ")]
    return sorted(cases, key=lambda case: case.startswith(LAST))


class Suite:
    """One run of the program, for these cases, in its own order."""

    def __init__(self, stack: Stack, cases: list[str]) -> None:
        settings = {
            "KESTRIN_CONTRACT_ORDERS": str(stack.orders),
            "KESTRIN_CONTRACT_LOG": str(stack.readers_log),
            "KESTRIN_CONTRACT_READER": "contract",
            "KESTRIN_CONTRACT_NAME": "KVR-0001",
        }
        chosen = ":".join(f"*.{case}/*" for case in cases)
        self._program = subprocess.Popen(
            [PROGRAM, f"--gtest_filter={chosen}"],
            env={**os.environ, **settings},
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
        )
        self._outcomes: dict[str, tuple[str, str]] = {}

    def outcome(self, case: str) -> tuple[str, str]:
        """`ok`, `without` or `FAILED`, and what was said before."""
        said = ""
        while case not in self._outcomes:
            line = self._next_line()
            assert line, f"the suite ended with status {self._program.wait(20)} before this case:\n{said}"
            result, _, name = line.partition(" contract: ")
            if name:
                self._outcomes[name.strip()] = (result.strip(), said)
                said = ""
            else:
                said += line
        return self._outcomes[case]

    def end(self) -> int:
        while self._next_line():
            pass
        return self._program.wait(20)

    def stop(self) -> None:
        self._program.kill()
        self._program.communicate()

    def _next_line(self) -> str:
        assert self._program.stdout
        return self._program.stdout.readline()


class Suites:
    """Both runs, each begun when its first outcome is asked for."""

    def __init__(self, stack: Stack, cases: list[str]) -> None:
        self._stack = stack
        self._cases = cases
        self._begun: dict[bool, Suite] = {}

    def of(self, case: str) -> Suite:
        is_last = case.startswith(LAST)
        if is_last not in self._begun:
            self.statuses()
            cases = [other for other in self._cases if other.startswith(LAST) is is_last]
            self._begun[is_last] = Suite(self._stack, cases)
        return self._begun[is_last]

    def statuses(self) -> list[int]:
        """How the runs ended; they are waited for."""
        return [suite.end() for suite in self._begun.values()]

    def stop(self) -> None:
        for suite in self._begun.values():
            suite.stop()


@pytest.fixture(scope="module")
def suites(stack: Stack, request: pytest.FixtureRequest) -> Iterator[Suites]:
    chosen = [item.callspec.params["case"] for item in request.session.items if hasattr(item, "callspec")]
    begun = Suites(stack, chosen)
    yield begun
    begun.stop()


@pytest.mark.parametrize("case", all_cases())
def test_contract(suites: Suites, case: str) -> None:
    result, said = suites.of(case).outcome(case)
    if result == "without":
        pytest.skip(said.strip())
    assert result == "ok", said


def test_the_suites_of_the_contract_end_by_themselves(suites: Suites) -> None:
    # 1 is that of failed cases, which have their own lines.
    assert suites.statuses() != []
    assert [status for status in suites.statuses() if status not in (0, 1)] == []
