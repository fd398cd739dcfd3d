"""The gateway on the real stack for as long as KESTRIN_SOAK_MINUTES says: eight virtual readers send all the time,
the broker is killed every minute and the daemon every five. Nothing of what was taken is lost, and memory,
descriptors, threads and the log stay as they are.

Run by scripts/gateway-soak in a machine of its own; its name keeps it out of every suite's way."""

from __future__ import annotations

import os
import time
from collections.abc import Callable, Iterator

import pytest
from flat import Sample, growth, sample, summary
from judge import expect_everything_taken
from stack import Stack
from test_gateway_process import DEVICES as DEVICES
from test_gateway_process import IDS, Sending, Work

MINUTES = float(os.environ["KESTRIN_SOAK_MINUTES"])
BROKER_EVERY = min(60.0, MINUTES * 60 / 6)
DAEMON_EVERY = 5 * BROKER_EVERY
LOOK_EVERY = min(10.0, MINUTES)
SAY_EVERY = MINUTES * 60 / 10


class Soak(Work):
    def __init__(self, stack: Stack) -> None:
        super().__init__(stack)
        self.samples: list[Sample] = []
        self.broker_kills = 0

    def do(self) -> None:
        for each in (self.broker, self.gateway, self.consumer):
            each.start()
        self.wait_until_linked(0)
        print(f"{len(IDS)} readers are linked", flush=True)
        sending = Sending(self.stack.orders)
        sending.start()
        self.soak(sending)
        sending.end()
        self.settle()

    def soak(self, sending: Sending) -> None:
        begin = time.monotonic()
        next_broker, next_daemon = begin + BROKER_EVERY, begin + DAEMON_EVERY
        next_word = begin + SAY_EVERY
        while (now := time.monotonic()) < begin + MINUTES * 60:
            if now >= next_broker:
                next_broker += BROKER_EVERY
                self.broker_kills += 1
                self.kill_broker(sending)
            if now >= next_daemon:
                next_daemon += DAEMON_EVERY
                self.kill_daemon()
            self.samples.append(sample(self.gateway.pid, self.gateway.folder))
            self.stack_looks()
            if now >= next_word:
                next_word = now + SAY_EVERY
                figures = ", ".join(f"{name} {value}" for name, value in vars(self.samples[-1]).items())
                print(f"{(now - begin) / 60:.1f} of {MINUTES:g} minutes: {figures}", flush=True)
            time.sleep(LOOK_EVERY)

    def stack_looks(self) -> None:
        assert self.gateway.is_running(), f"the gateway has ended: {self.gateway.lines()[-3:]}"
        assert self.consumer.is_running(), f"the consumer has ended: {self.consumer.lines()[-3:]}"
        assert self.stack.daemon_runs(), "the daemon has ended by itself"


@pytest.fixture(scope="module")
def soak(stack: Stack) -> Iterator[Soak]:
    done = Soak(stack)
    try:
        done.do()
    except AssertionError:
        print(done.room.said())
        raise
    yield done
    done.room.close()


def test_nothing_that_was_taken_is_lost(soak: Soak, record_property: Callable[[str, object], None]) -> None:
    verdict = expect_everything_taken(soak.taken, soak.printed, 0)
    kills = f"the broker killed {soak.broker_kills} times, the daemon {len(soak.daemon_kills)} times"
    record_property("taken", f"{verdict}, in {MINUTES:g} minutes with {kills}")
    assert verdict.taken > MINUTES * 60 * len(IDS)


def test_memory_descriptors_threads_and_log_are_flat(
    soak: Soak, record_property: Callable[[str, object], None]
) -> None:
    record_property("figures", f"{len(soak.samples)} looks: {summary(soak.samples)}")
    assert growth(soak.samples) == []


def test_everybody_ends_well(soak: Soak) -> None:
    assert soak.statuses == [0, 0, 0]
