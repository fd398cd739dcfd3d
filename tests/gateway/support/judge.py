"""Compares what a gateway took with what its consumer got."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass

from machines import Json, by_number


@dataclass
class Verdict:
    taken: int
    delivered: int
    repeats: int
    lost: list[tuple[str, int]]

    def __str__(self) -> str:
        return f"taken {self.taken}, delivered {self.delivered}, repeats {self.repeats}, lost {len(self.lost)}"


def judge(taken: Sequence[Json], printed: Sequence[Json]) -> Verdict:
    """`taken` is the gateway's own log, `printed` what the consumer wrote down, over all its lives and with
    what it wrote twice since it was killed before it could keep its state."""
    log = by_number(taken)
    got = by_number(printed)
    assert len(log) == len(taken), "the log has a number twice"
    invented = got.keys() - log.keys()
    assert not invented, f"the consumer has what the gateway never took: {sorted(invented)[:5]}"
    for key, record in got.items():
        assert record == log[key], f"taken as {log[key]}, delivered as {record}"
    keep_order(list(got.values()))
    lost = sorted(log.keys() - got.keys())
    return Verdict(len(taken), len(got), len(printed) - len(got), lost)


def keep_order(first: Sequence[Json]) -> None:
    """What came for the first time came in the order of its numbers."""
    last: dict[str, int] = {}
    for record in first:
        assert record["n"] > last.get(record["log"], 0), f"out of order: {record}"
        last[record["log"]] = record["n"]


def expect_all(taken: Sequence[Json], printed: Sequence[Json]) -> Verdict:
    """Nothing is lost, and the gateway has no gap to report."""
    assert taken, "the gateway has taken nothing"
    gaps = [record for record in taken if "gap" in record]
    assert not gaps, f"the gateway has lost something itself: {gaps}"
    verdict = judge(taken, printed)
    assert not verdict.lost, f"lost: {verdict.lost[:20]}"
    return verdict


def expect_everything_taken(
    taken: dict[tuple[str, int], str], printed: Sequence[Json], gateway_kills: int
) -> Verdict:
    """The same by what the gateway wrote down behind each frame that its log had accepted."""
    verdict = judge_everything_taken(taken, printed, gateway_kills)
    assert not verdict.lost, f"lost: {verdict.lost[:20]} of {len(taken)}"
    return verdict


def judge_everything_taken(
    taken: dict[tuple[str, int], str], printed: Sequence[Json], gateway_kills: int
) -> Verdict:
    """For who says himself what is lost. What a gateway came by between its log and its writing it down, at
    the moment of a kill, is in the log alone."""
    assert taken, "the gateway has taken nothing"
    got = by_number(printed)
    lost = sorted(taken.keys() - got.keys())
    for key, record in got.items():
        assert "gap" not in record, f"the gateway has lost something itself: {record}"
        assert record["bytes"] == taken.get(key, record["bytes"]), f"{record} was {taken[key]}"
    unknown = sorted(got.keys() - taken.keys())
    assert len(unknown) <= gateway_kills, f"the gateway never took {unknown[:20]}"
    keep_order(list(got.values()))
    return Verdict(len(taken), len(got), len(printed) - len(got), lost)


def count_of(record: Json) -> tuple[str, int]:
    """Which start of the simulated readers sent it, and the how many-th of the reader's it was in that."""
    content = record.get("payload", record["bytes"])
    assert len(content) == 18, f"not what a simulated reader sends: {record}"
    return content[2:10], int(content[10:], 16)


def is_sent_by_itself(record: Json) -> bool:
    """Whether a simulated reader has sent it without being asked."""
    return len(record.get("payload", record.get("bytes", ""))) == 18


def expect_readers_order(printed: Sequence[Json]) -> None:
    """In the log's numbers each reader's frames stand as the reader has counted them, without a hole."""
    counted: dict[tuple[str, str], int] = {}
    own = filter(is_sent_by_itself, by_number(printed).values())
    for record in sorted(own, key=lambda each: int(each["n"])):
        start, count = count_of(record)
        key = (record["name"], start)
        before = counted.get(key)
        assert before is None or count == before + 1, f"{record['name']}: {count} behind {before}"
        counted[key] = count
