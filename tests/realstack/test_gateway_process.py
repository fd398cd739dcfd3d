"""The gateway on the real stack, as an ordinary user of the group bluetooth: eight virtual readers, a broker, a
consumer. The broker is killed, the daemon is killed, and then both, while every reader goes on sending.

What is compared: what each virtual reader says that it has sent (its lines NOTIFY), what the gateway wrote down
as taken, and what the consumer wrote down."""

from __future__ import annotations

import grp
import os
import pwd
import re
import signal
import threading
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest
from frames import build_frame
from judge import expect_everything_taken
from machines import Broker, ConsumerProcess, Gateway, Json, Room, by_number, wait_for
from stack import LOGS, Stack

STANDARD = [f"KVR-000{number}" for number in range(1, 6)]
Q62T = [f"KVR-Q62T 000{number}" for number in range(6, 9)]
IDS = {name: f"r{number}" for number, name in enumerate(STANDARD + Q62T, 1)}
DEVICES = [
    "--tell-notifications",
    *(word for name, id in IDS.items() for word in ("--reader", f"{name},id={id}")),
]
USER = "nobody"
PAUSE = 0.1
PART = 25  # Frames of each reader between two steps.


def own_frame(number: int, count: int) -> bytes:
    """What no reader sends twice and no two send both."""
    return build_frame(0x02, 0x22, bytes([number]) + count.to_bytes(4, "big"))


def sending_by(name: str) -> re.Pattern[str]:
    """A line in which that reader says what it has sent."""
    return re.compile(rf"NOTIFY {IDS[name]} \S+ \d+ (bb02\S+)")


class Sending(threading.Thread):
    """Has every reader send, as long as it has a host that listens; what it sends is in its lines."""

    def __init__(self, orders: Path) -> None:
        super().__init__(daemon=True)
        self.count = 0
        self._orders = orders
        self._end = threading.Event()

    def run(self) -> None:
        with self._orders.open("w", buffering=1) as pipe:
            while not self._end.wait(PAUSE):
                self.count += 1
                lines = [
                    f"notify {id} {own_frame(number, self.count).hex()}\n"
                    for number, id in enumerate(IDS.values(), 1)
                ]
                pipe.write("".join(lines))

    def wait_for_more(self, count: int) -> None:
        target = self.count + count
        wait_for(f"the readers to have been told {target} times", lambda: self.count >= target)

    def end(self) -> None:
        self._end.set()
        self.join()


class Work:
    """The run, and what is known of it afterwards."""

    def __init__(self, stack: Stack) -> None:
        self.stack = stack
        self.room = Room(LOGS / "gateway")
        self.room.folder.mkdir()
        user = pwd.getpwnam(USER)
        os.chown(self.room.folder, user.pw_uid, user.pw_gid)
        self.broker = Broker(self.room)
        self.gateway = Gateway(self.room, self.broker.port, simulated=False)
        self.gateway.settings.readers = list(IDS)
        group = grp.getgrnam("bluetooth").gr_gid
        own = {"user": user.pw_uid, "group": user.pw_gid, "extra_groups": [group]}
        self.gateway.popen_options = own
        self.consumer = ConsumerProcess(self.room, self.broker.port)
        self.daemon_kills: list[int] = []

    def do(self) -> None:
        for each in (self.broker, self.gateway, self.consumer):
            each.start()
        self.wait_until_linked(0)
        sending = Sending(self.stack.orders)
        sending.start()
        sending.wait_for_more(PART)
        self.kill_broker(sending)
        self.kill_daemon()
        sending.wait_for_more(PART)
        self.broker.kill()
        self.kill_daemon()
        self.broker.start()
        sending.wait_for_more(PART)
        sending.end()
        self.settle()

    def kill_broker(self, sending: Sending) -> None:
        self.broker.kill()
        sending.wait_for_more(PART)
        self.broker.start()
        sending.wait_for_more(PART)

    def kill_daemon(self) -> None:
        mark = self.stack.mark()
        self.daemon_kills.append(mark)
        self.stack.end("daemon", signal.SIGKILL)
        self.stack.start_daemon()
        self.wait_until_linked(mark)

    def wait_until_linked(self, mark: int) -> None:
        for name, id in IDS.items():
            self.stack.wait_for_line(mark, f"SUBSCRIBED {id} .*", 300)
            assert self.gateway.is_running(), f"the gateway has ended while {name} was waited for"

    def settle(self) -> None:
        """What was sent last has come, gets to the consumer, and everybody ends."""
        newest = {self.newest_sent(name) for name in IDS}
        wait_for("what was sent last", lambda: newest <= set(self.gateway.taken().values()))
        last = max(number for _, number in self.gateway.taken())
        wait_for(f"the consumer to have number {last}", lambda: self.consumer.last_number() >= last)
        self.statuses = [each.end() for each in (self.consumer, self.gateway, self.broker)]
        self.taken = self.gateway.taken()
        self.printed = self.consumer.records()

    def sent(self, name: str) -> list[tuple[int, str]]:
        """What the reader says that it has sent, and at which of its lines. Its answer to the question that the
        library itself asks of a new link is the library's, and comes in two pieces."""
        pattern = sending_by(name)
        lines = enumerate(self.stack.lines())
        return [(at, found[1]) for at, line in lines if (found := pattern.fullmatch(line))]

    def newest_sent(self, name: str) -> str:
        """The last of that, which stands near the end."""
        pattern = sending_by(name)
        return next(found[1] for line in reversed(self.stack.lines()) if (found := pattern.fullmatch(line)))

    def got(self, name: str) -> list[Json]:
        """What the consumer has of what that reader sent by itself, once each, in its order."""
        records = by_number(self.printed).values()
        return [each for each in records if each["name"] == name and each["bytes"].startswith("bb02")]

    def got_bytes(self, name: str) -> list[str]:
        return [record["bytes"] for record in self.got(name)]

    def next_subscription(self, name: str, mark: int) -> int:
        """The line since then in which a host has the reader's values again."""
        return self.stack.mark_after(mark, f"SUBSCRIBED {IDS[name]} .*")


@pytest.fixture(scope="module")
def work(stack: Stack) -> Iterator[Work]:
    done = Work(stack)
    try:
        done.do()
    except AssertionError:
        print(done.room.said())
        raise
    yield done
    done.room.close()


def may_be_missing(work: Work, name: str) -> set[int]:
    """Lines of what the reader sent to a daemon that was killed: from the first that had not arrived when the
    kill came, behind which all of that link is missing, to the next subscription."""
    lines = work.sent(name)
    got = set(work.got_bytes(name))
    spared: set[int] = set()
    for kill in work.daemon_kills:
        again = work.next_subscription(name, kill)
        spared |= {at for at, _ in lines if kill <= at < again}
        for at, value in reversed([each for each in lines if each[0] < kill]):
            if value in got:
                break
            spared.add(at)
    return spared


def test_the_gateway_runs_as_an_ordinary_user_of_the_group_bluetooth(work: Work) -> None:
    assert pwd.getpwnam(USER).pw_uid != 0
    assert work.statuses == [0, 0, 0]


def test_what_the_gateway_took_of_eight_readers_is_at_the_consumer(
    work: Work, record_property: Callable[[str, object], None]
) -> None:
    verdict = expect_everything_taken(work.taken, work.printed, 0)
    record_property("taken", f"{verdict}, with the broker killed twice and the daemon twice")
    assert verdict.taken >= 4 * PART * len(IDS)


def test_what_a_reader_sent_to_a_daemon_that_was_not_killed_is_at_the_consumer(
    work: Work, record_property: Callable[[str, object], None]
) -> None:
    sent = 0
    spared = 0
    for name in IDS:
        got = set(work.got_bytes(name))
        outside = may_be_missing(work, name)
        missing = [value for at, value in work.sent(name) if value not in got and at not in outside]
        assert missing == [], f"{name} has sent what is not at the consumer"
        sent += len(work.sent(name))
        spared += sum(value not in got for _, value in work.sent(name))
    record_property("sent", f"sent {sent}, of which {spared} went down with a daemon")


def test_the_consumer_has_of_each_reader_what_it_sent_in_its_order_and_nothing_else(
    work: Work, record_property: Callable[[str, object], None]
) -> None:
    again = 0
    for name in IDS:
        places = {value: at for at, value in work.sent(name)}
        own = work.got(name)
        assert own, f"nothing of {name}"
        assert {each["bytes"] for each in own} <= places.keys(), f"{name} has not sent everything that is there"
        for before, after in zip(own, own[1:]):
            if is_delivered_again(before, after):
                again += 1
            else:
                assert places[before["bytes"]] < places[after["bytes"]], f"out of order: {before}, {after}"
    record_property("again", f"{again} were handed over twice by the assembler, under two numbers")


def is_delivered_again(before: Json, after: Json) -> bool:
    """What the receive assembler has handed over twice, which has two numbers: a value that is followed by
    bytes without a preamble, as the manufacturer's name that is read from a KVR-Q62T while its link is new."""
    same = all(before[member] == after[member] for member in ("bytes", "link"))
    return same and after.get("kind") == "value"
