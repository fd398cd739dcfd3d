"""What a consumer has of one log: up to which number everything is done with, what came before its
turn, and what will never come."""

from __future__ import annotations

import enum

from ._gateway_messages import Gap, Record


class Arrival(enum.Enum):
    kept = enum.auto()
    """It waits for its turn, which may have come."""
    repeat = enum.auto()
    """It was there before."""
    no_room = enum.auto()
    """Too many wait for what is missing before them: it has to come again."""


class Stream:
    def __init__(self, log: str, most_waiting: int, next_number: int | None = None) -> None:
        """`next_number`: everything below it is done with; None: nothing is known of the log yet."""
        self._log = log
        self._most_waiting = most_waiting
        self.next = next_number or 1
        """The lowest number that is not done with."""
        self._begun = next_number is not None
        self._base = 1  # What is below was never this consumer's.
        self._highest = 0
        self._first = 1
        self._why_first = "budget"
        self._waiting: dict[int, Record] = {}
        self._gaps: dict[int, Gap] = {}  # Those in `_waiting` that are about this log.

    @property
    def missing(self) -> bool:
        """Whether a number from `next` on is known to exist and has not come."""
        return self.next <= self._highest and self.next not in self._waiting

    def arrive(self, record: Record) -> Arrival:
        number = record.number
        self._highest = max(self._highest, number)
        if number < self.next or number in self._waiting:
            return Arrival.repeat
        if number != self.next and len(self._waiting) >= self._most_waiting:
            # What comes next is worth more than what comes last.
            last = max(self._waiting)
            if last < number:
                return Arrival.no_room
            del self._waiting[last]
            self._gaps.pop(last, None)
        self._waiting[number] = record
        if record.gap is not None and record.gap.log == self._log:
            self._gaps[number] = record.gap
        return Arrival.kept

    def know_of(self, published: int) -> None:
        """The numbers up to this one have been published."""
        self._highest = max(self._highest, published)

    def begin_at(self, first: int, why: str) -> None:
        """What has not come and is below `first` will not come. Before anything was taken that is
        not a loss: the log was there before its consumer."""
        if first <= self._first:
            return
        self._first, self._why_first = first, why
        if self._begun or first <= self.next:
            return
        # Nothing has been handed out: what has come all the same is in time.
        self.next = self._base = min(first, min(self._waiting, default=first))

    def take_lost(self) -> Gap | None:
        """Numbers from `next` on that will not come; they are done with then."""
        if self.next in self._waiting:
            return None
        lost = self._gap_at_next()
        if lost is None:
            return None
        if self._waiting:
            lost = lost._replace(last=min(lost.last, min(self._waiting) - 1))
        self.next = lost.last + 1
        self._begun = True
        return lost

    def ready(self) -> Record | None:
        """The record whose turn it is; None when it has not come."""
        return self._waiting.get(self.next)

    def done(self) -> Gap | None:
        """The record whose turn it was is done with. Returns what a gap record among them says is
        lost of the numbers that this consumer began behind."""
        gap = self._gaps.pop(self.next, None)
        del self._waiting[self.next]
        self.next += 1
        self._begun = True
        if gap is None or gap.first >= self._base:
            return None
        return gap._replace(last=min(gap.last, self._base - 1))

    def _gap_at_next(self) -> Gap | None:
        if self.next < self._first:
            return Gap(self._log, self.next, self._first - 1, self._why_first)
        for gap in self._gaps.values():
            if gap.first <= self.next <= gap.last:
                return Gap(self._log, self.next, gap.last, gap.reason)
        return None
