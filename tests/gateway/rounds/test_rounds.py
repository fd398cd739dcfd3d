"""Rounds in which gateway, broker and consumer are killed while frames arrive: what the gateway wrote down as
taken, behind each frame that its log had accepted, is compared with what the consumer wrote down.

KESTRIN_GATEWAY_ROUNDS, KESTRIN_GATEWAY_FRAMES (a round's) and KESTRIN_GATEWAY_SEED make it longer, or repeat
it."""

from __future__ import annotations

import os
import random
import time
from dataclasses import dataclass

import pytest
from judge import expect_everything_taken, expect_readers_order
from machines import Broker, ConsumerProcess, Gateway, Room, wait_for

ROUNDS = int(os.environ.get("KESTRIN_GATEWAY_ROUNDS", "3"))
FRAMES = int(os.environ.get("KESTRIN_GATEWAY_FRAMES", "1500"))
SEED = int(os.environ.get("KESTRIN_GATEWAY_SEED", str(random.SystemRandom().randrange(1 << 31))))
# Between two frames of a reader; there are five of them.
PAUSE = float(os.environ.get("KESTRIN_GATEWAY_PAUSE", "0.004"))


@dataclass
class Figures:
    taken: int = 0
    printed_twice: int = 0
    kills: int = 0
    sent: int = 0


class Rounds:
    def __init__(self, room: Room, seed: int) -> None:
        self.random = random.Random(seed)
        self.broker = Broker(room)
        self.gateway = Gateway(room, self.broker.port, pause=PAUSE)
        # With room for a round that waits, and small enough that room is used again.
        self.gateway.settings.log["budget"] = f"{max(1024, FRAMES // 2)} KiB"
        self.readers = self.gateway.settings.readers
        self.consumer = ConsumerProcess(room, self.broker.port)
        self.figures = Figures()
        self.gateway_kills = 0

    def play(self, number: int) -> None:
        life = self.consumer.lives + 1
        self.gateway.clear_taken()
        self.gateway_kills = 0
        self.broker.configure(persistence=number % 2 == 1)
        for each in (self.broker, self.gateway, self.consumer):
            each.start()
        self.disturb()
        self.settle()
        for each in (self.consumer, self.gateway, self.broker):
            assert each.end() == 0
        printed = self.consumer.records(life)
        verdict = expect_everything_taken(self.gateway.taken(), printed, self.gateway_kills)
        expect_readers_order(printed)
        self.figures.taken += verdict.taken
        self.figures.printed_twice += verdict.repeats
        self.consumer.forget_lives()

    def disturb(self) -> None:
        """Each is killed once or twice while the readers send, and stays away for a while."""
        begin = self.gateway.sent_count()
        steps = []
        for process in (self.broker, self.gateway, self.consumer):
            for _ in range(self.random.randint(1, 2)):
                steps.append((self.random.uniform(0.02, 0.8), process))
        for part, process in sorted(steps, key=lambda step: step[0]):
            self.wait_until_sent(begin + round(part * FRAMES))
            process.kill()
            self.figures.kills += 1
            self.gateway_kills += process is self.gateway
            if process is not self.gateway:
                self.wait_until_sent(self.gateway.sent_count() + self.random.randrange(FRAMES // 10))
            process.start()
        self.wait_until_sent(begin + FRAMES)
        self.figures.sent = self.gateway.sent_count()

    def wait_until_sent(self, count: int) -> None:
        wait_for(f"the readers to have sent {count}", lambda: self.gateway.sent_count() >= count)

    def settle(self) -> None:
        """The gateway leaves its readers, and the consumer gets what is left."""
        assert self.gateway.end() == 0
        self.gateway.settings.readers = []
        mark = self.gateway.mark()
        self.gateway.start()
        self.gateway.settings.readers = self.readers
        # Asked to end before it watches for that, it would be killed.
        self.gateway.wait_for_line("the promise in force", mark)
        last = max(number for _, number in self.gateway.taken())
        wait_for(f"the consumer to have number {last}", lambda: self.consumer.last_number() >= last)


def test_nothing_that_a_gateway_took_is_lost_whoever_is_killed(
    room: Room, capfd: pytest.CaptureFixture[str]
) -> None:
    print(f"KESTRIN_GATEWAY_SEED={SEED}")
    begin = time.monotonic()
    rounds = Rounds(room, SEED)
    for number in range(ROUNDS):
        rounds.play(number)
    figures = rounds.figures
    assert figures.kills >= 3 * ROUNDS
    assert figures.taken > 0
    with capfd.disabled():
        print(
            f"\n{ROUNDS} rounds in {time.monotonic() - begin:.0f} s, seed {SEED}: {figures.kills} kills,"
            f" sent {figures.sent}, taken {figures.taken}, printed twice {figures.printed_twice}, lost 0"
        )
