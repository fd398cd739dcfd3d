"""The rehearsal of a fleet, in little: that it ends with a table, and that it notices what is lost."""

from __future__ import annotations

import argparse

import pytest
from fleet import Fleet, number_of_gateways
from machines import Room

GATEWAYS = 3
SECONDS = 4


@pytest.fixture(scope="module")
def fleet(shared_room: Room) -> Fleet:
    made = Fleet(shared_room, GATEWAYS, seed=2)
    made.run(SECONDS)
    return made


def test_a_fleet_of_which_a_third_is_killed_again_and_again_loses_nothing(
    fleet: Fleet, capsys: pytest.CaptureFixture[str]
) -> None:
    assert fleet.finish() == 0
    table = capsys.readouterr().out
    assert all(f"gw-{number:02}" in table for number in range(1, GATEWAYS + 1))
    rows = fleet.rows()
    assert fleet.waves > 1
    assert sum(row.kills for row in rows) >= fleet.waves
    assert any(row.backs for row in rows)
    for row in rows:
        assert row.taken > 0
        assert row.committed >= row.taken


def test_a_frame_that_no_consumer_has_is_lost_and_makes_the_rehearsal_fail(
    fleet: Fleet, capsys: pytest.CaptureFixture[str]
) -> None:
    member = fleet.members[0]
    life = member.consumer.life(member.consumer.lives)
    lines = life.read_text().splitlines(keepends=True)
    life.write_text("".join(lines[:-1]))
    assert fleet.rows()[0].lost == 1
    assert fleet.finish() == 1
    assert "lost: 1" in capsys.readouterr().err


def test_more_gateways_than_a_machine_runs_are_refused_with_what_to_do_instead() -> None:
    with pytest.raises(argparse.ArgumentTypeError, match="at most 50 gateways"):
        number_of_gateways("51")
