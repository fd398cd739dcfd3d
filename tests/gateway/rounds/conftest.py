"""What every test of the whole program has: a room of its own, which is cleared behind it."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path

import pytest
from machines import Room


@pytest.fixture
def room(tmp_path: Path) -> Iterator[Room]:
    made = Room(tmp_path)
    yield made
    made.close()
    # Shown where the test has failed.
    print(made.said())


@pytest.fixture(scope="module")
def shared_room(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Room]:
    """For a module whose tests use one gateway."""
    made = Room(tmp_path_factory.mktemp("shared"))
    yield made
    made.close()
    print(made.said())
