"""What the tests of the page share: a room that is cleared, a browser, and a gateway with a page."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path

import pytest
from browser import Browser
from machines import Room


@pytest.fixture
def room(tmp_path: Path) -> Iterator[Room]:
    made = Room(tmp_path)
    yield made
    made.close()
    # Shown where the test has failed.
    print(made.said())


@pytest.fixture
def browser(tmp_path: Path) -> Iterator[Browser]:
    folder = tmp_path / "browser"
    folder.mkdir()
    made = Browser(folder)
    yield made
    made.close()
