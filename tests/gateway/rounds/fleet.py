"""A fleet of gateways on one broker, each with a consumer of its own, of all of which a random third is killed
again and again. Ends with a table, and with 1 where anything is lost or does not come back.

Run by scripts/fleet."""

from __future__ import annotations

import argparse
import random
import re
import statistics
import sys
import tempfile
import time
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from functools import partial
from pathlib import Path

from judge import expect_readers_order, judge_everything_taken
from machines import Broker, ConsumerProcess, Gateway, Process, Room, Watch, wait_for

MOST = 50
# Between two frames of a reader; each gateway has five.
PAUSE = 0.2
# Until everybody is back, and until everything is committed, on a machine with much else to do.
LIMIT = 240.0


class Member:
    """A gateway with its consumer, and how long both take to come back."""

    def __init__(self, room: Room, broker: Broker, number: int) -> None:
        name = f"gw-{number:02}"
        self.gateway = Gateway(room, broker.port, name, pause=PAUSE)
        self.gateway.settings.name = name
        self.consumer = ConsumerProcess(room, broker.port, name=f"store-{number:02}", gateway=name)
        self.gateway.settings.consumers = [self.consumer.name]
        self.needs: tuple[Process, ...] = (broker, self.gateway, self.consumer)
        self.gateway_kills = 0
        self.kills = 0
        self.backs: list[float] = []
        self._hit = False
        self._since: float | None = None
        self._beyond = 0

    @property
    def name(self) -> str:
        return self.gateway.name

    def hit(self, killed: Sequence[Process]) -> None:
        """Where it is hit once more before it is back, only the last time counts."""
        own = [each for each in self.needs if each in killed]
        if not own:
            return
        self.kills += len([each for each in own if each is not self.needs[0]])
        self.gateway_kills += self.gateway in own
        self._hit = True
        self._since = None

    def look(self) -> None:
        """It is back when its consumer has what the gateway took once all three ran again."""
        if self._hit and all(each.is_running() for each in self.needs):
            self._hit = False
            self._since = time.monotonic()
            self._beyond = self.gateway.last_taken()
        if self._since is not None and self.consumer.last_number() > self._beyond:
            self.backs.append(time.monotonic() - self._since)
            self._since = None

    @property
    def is_back(self) -> bool:
        return not self._hit and self._since is None

    @property
    def has_everything(self) -> bool:
        return self.consumer.last_number() >= self.gateway.last_taken()


@dataclass
class Row:
    name: str
    kills: int
    taken: int
    committed: int
    repeated: int
    lost: int
    backs: list[float]

    def text(self) -> str:
        counts = (self.kills, self.taken, self.committed, self.repeated, self.lost)
        middle = f"{statistics.median(self.backs):8.1f}" if self.backs else "       -"
        longest = f"{max(self.backs):8.1f}" if self.backs else "       -"
        return f"{self.name:<8}" + "".join(f"{each:>10}" for each in counts) + middle + longest


HEAD = f"{'gateway':<8}" + "".join(
    f"{each:>{width}}"
    for each, width in (
        ("killed", 10),
        ("taken", 10),
        ("committed", 10),
        ("repeated", 10),
        ("lost", 10),
        ("back", 8),
        ("at most", 8),
    )
)


class Fleet:
    def __init__(self, room: Room, gateways: int, seed: int, say: Callable[[str], None] = print) -> None:
        self.random = random.Random(seed)
        self.broker = Broker(room)
        self.members = [Member(room, self.broker, number) for number in range(1, gateways + 1)]
        self.say = say
        self.problems: list[str] = []
        self.waves = 0
        self._committed: dict[str, int] = {}
        self._begin = time.monotonic()

    @property
    def everybody(self) -> list[Process]:
        gateways = [each.gateway for each in self.members]
        return [self.broker, *gateways, *(each.consumer for each in self.members)]

    def run(self, seconds: float) -> None:
        """Everything up to the table."""
        for each in self.everybody:
            each.start()
        for member in self.members:
            wait_for(f"the first frame of {member.name}", member.consumer.last_number, LIMIT)
        self._begin = time.monotonic()
        pause = min(10.0, seconds / 6)
        while time.monotonic() < self._begin + seconds:
            self.strike()
            self.look_for(pause * self.random.uniform(0.5, 1.5))
        self.settle()

    def strike(self) -> None:
        """Kills a third, and starts each again after a while of its own."""
        everybody = self.everybody
        killed = self.random.sample(everybody, max(1, round(len(everybody) / 3)))
        for each in killed:
            each.kill()
        for member in self.members:
            member.hit(killed)
        self.waves += 1
        kinds = [type(each) for each in killed]
        self.say(
            f"{time.monotonic() - self._begin:6.1f} s: killed {kinds.count(Gateway)} gateways,"
            f" {kinds.count(ConsumerProcess)} consumers{', the broker' if Broker in kinds else ''}"
        )
        now = time.monotonic()
        away = sorted(((now + self.random.uniform(0.1, 3), each) for each in killed), key=lambda pair: pair[0])
        for at, each in away:
            self.look_for(at - time.monotonic())
            each.start()

    def look_for(self, seconds: float) -> None:
        end = time.monotonic() + seconds
        while True:
            for member in self.members:
                member.look()
            if (left := end - time.monotonic()) <= 0:
                return
            time.sleep(min(0.05, left))

    def settle(self) -> None:
        """Everybody comes back, the readers are left, and the consumers get what there is."""
        self.expect("everybody to be back", self.all_back)
        for member in self.members:
            self.attempt(partial(self.leave_readers, member))
        self.expect("the consumers to have everything", lambda: all(each.has_everything for each in self.members))
        watch = Watch(self.broker.port, "kestrin/v1/+/commit/+", name="fleet")
        self.expect("everything to be committed", lambda: self.all_committed(watch))
        watch.close()
        for each in reversed(self.everybody):
            self.attempt(partial(self.end, each))

    def all_back(self) -> bool:
        for member in self.members:
            member.look()
        return all(each.is_back for each in self.members)

    def leave_readers(self, member: Member) -> None:
        member.gateway.settings.readers = []
        mark = member.gateway.mark()
        member.gateway.reload()
        member.gateway.wait_for_line("the configuration was read again", mark)

    def all_committed(self, watch: Watch) -> bool:
        for seen in watch.all():
            self._committed[seen.topic.split("/")[2]] = int(seen.json()["n"])
        return all(self._committed.get(each.name, 0) >= each.gateway.last_taken() for each in self.members)

    def end(self, process: Process) -> None:
        status = process.end()
        assert status == 0, f"{process.name} has ended with {status}: {process.lines()[-3:]}"

    def expect(self, what: str, holds: Callable[[], bool]) -> None:
        self.attempt(lambda: wait_for(what, holds, LIMIT))

    def attempt(self, step: Callable[[], object]) -> None:
        """What does not hold is said below the table, which tells more."""
        try:
            step()
        except (AssertionError, OSError) as problem:
            self.problems.append(str(problem))

    def rows(self) -> list[Row]:
        return [self.row(each) for each in self.members]

    def row(self, member: Member) -> Row:
        taken = member.gateway.taken()
        printed = member.consumer.records()
        verdict = judge_everything_taken(taken, printed, member.gateway_kills)
        self.attempt(lambda: expect_readers_order(printed))
        summaries = "\n".join(member.consumer.lines())
        told_apart = sum(map(int, re.findall(r"taken \d+, repeats (\d+), lost", summaries)))
        return Row(
            member.name,
            member.kills,
            verdict.taken,
            self._committed.get(member.name, 0),
            verdict.repeats + told_apart,
            len(verdict.lost),
            member.backs,
        )

    def finish(self) -> int:
        """Prints the table; returns the exit status."""
        rows = self.rows()
        self.say("\n" + HEAD)
        for row in rows:
            self.say(row.text())
        backs = [each for row in rows for each in row.backs]
        lost = sum(row.lost for row in rows)
        whole = Row(
            "all",
            kills=sum(row.kills for row in rows),
            taken=sum(row.taken for row in rows),
            committed=sum(row.committed for row in rows),
            repeated=sum(row.repeated for row in rows),
            lost=lost,
            backs=backs,
        )
        self.say(whole.text())
        self.say(
            f"\n{self.waves} times a third was killed. killed: the gateway or its consumer. committed: the number up"
            " to which\nthe consumer has everything. repeated: what a consumer wrote down twice, since it was killed"
            " before it could\nkeep its state, and what it told apart by number in its last run. back: seconds, half"
            " of them and at most,\nfrom when broker, gateway and consumer ran again to a frame at the consumer that"
            " was taken after that."
        )
        if lost > 0:
            self.problems.append(f"lost: {lost}")
        for problem in self.problems:
            print(f"fleet: {problem}", file=sys.stderr)
        return 1 if self.problems else 0


def number_of_gateways(text: str) -> int:
    if not text.isdecimal() or (count := int(text)) < 1:
        raise argparse.ArgumentTypeError(f"'{text}' is not a number from 1 to {MOST}")
    if count > MOST:
        raise argparse.ArgumentTypeError(
            f"a machine like this one runs at most {MOST} gateways as processes; 'kestrin_bench_gateway_whole many"
            f" {count} FRAMES' has as many in one process, without kills"
        )
    return count


def minutes(text: str) -> float:
    try:
        value = float(text)
    except ValueError:
        value = 0
    if not 0 < value <= 10_000:
        raise argparse.ArgumentTypeError(f"'{text}' is not a number of minutes, more than 0 and at most 10000")
    return value


def main() -> int:
    parser = argparse.ArgumentParser(prog="fleet", allow_abbrev=False)
    parser.add_argument("--gateways", type=number_of_gateways, default=10, metavar="N", help=f"1 to {MOST} (10)")
    parser.add_argument("--minutes", type=minutes, default=10.0, metavar="M", help="how long to kill (10)")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 31), metavar="S")
    options = parser.parse_args()
    print(f"{options.gateways} gateways with five readers each, seed {options.seed}", flush=True)
    with tempfile.TemporaryDirectory() as folder:
        room = Room(Path(folder))
        fleet = Fleet(room, options.gateways, options.seed, lambda line: print(line, flush=True))
        try:
            fleet.run(options.minutes * 60)
            return fleet.finish()
        except AssertionError as problem:
            print(f"{room.said()}\nfleet: {problem}", file=sys.stderr)
            return 1
        finally:
            room.close()


if __name__ == "__main__":
    sys.exit(main())
