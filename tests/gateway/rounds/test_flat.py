"""That a process which grows is noticed, whatever of it grows."""

from __future__ import annotations

import os
from dataclasses import replace
from pathlib import Path

import pytest
from flat import MEGABYTE, Sample, growth, sample

USUAL = Sample(memory=20 * MEGABYTE, descriptors=20, threads=3, log=MEGABYTE)


def test_a_process_that_needs_more_at_its_start_only_is_flat() -> None:
    warm = [replace(USUAL, memory=(15 + number) * MEGABYTE) for number in range(5)]
    assert growth(warm + [USUAL] * 10) == []


@pytest.mark.parametrize(
    ("name", "step"), [("memory", MEGABYTE), ("descriptors", 1), ("threads", 1), ("log", MEGABYTE)]
)
def test_what_grows_all_the_time_is_named(name: str, step: int) -> None:
    grows = [replace(USUAL, **{name: getattr(USUAL, name) + number * step}) for number in range(15)]
    assert [line.split()[0] for line in growth(grows)] == [name]


def test_the_figures_are_those_of_the_process(tmp_path: Path) -> None:
    (tmp_path / "file").write_bytes(b"x" * 1000)
    before = sample(os.getpid(), tmp_path)
    with (tmp_path / "file").open():
        after = sample(os.getpid(), tmp_path)
    assert before.log == 1000
    assert before.memory > MEGABYTE
    assert before.threads >= 1
    assert after.descriptors == before.descriptors + 1
