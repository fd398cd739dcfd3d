"""What a test needs of the system that not every user may have."""

from __future__ import annotations

import os
from typing import NoReturn

import pytest


def skip_unless_root(why: str) -> NoReturn:
    """Root can do it, so that a run as root leaves nothing out."""
    if os.geteuid() == 0:
        pytest.fail(why)
    pytest.skip(why)
