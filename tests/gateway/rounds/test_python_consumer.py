"""The consumer in Python, killed while frames arrive, as is its broker."""

from __future__ import annotations

import sys
from pathlib import Path

from judge import expect_everything_taken
from machines import Broker, ConsumerProcess, Gateway, Room, wait_for
from steps import wait_until_further

PROGRAM = Path(__file__).with_name("python_consumer.py")


class PythonConsumer(ConsumerProcess):
    def __init__(self, room: Room, port: int) -> None:
        super().__init__(room, port)
        self.command = [sys.executable, str(PROGRAM), "gw", self.name, str(self.state), str(port)]


def test_a_consumer_in_python_gets_everything_though_it_and_the_broker_are_killed(room: Room) -> None:
    broker = Broker(room)
    gateway = Gateway(room, broker.port)
    consumer = PythonConsumer(room, broker.port)
    for each in (broker, gateway, consumer):
        each.start()
    wait_for("the consumer to have something", consumer.last_number)
    for process in (consumer, broker, consumer):
        wait_until_further(gateway, 150)
        process.kill()
        wait_until_further(gateway, 50)
        process.start()
    wait_for("the consumer to go on", consumer.last_number)
    wait_until_further(gateway, 150)
    assert gateway.end() == 0
    gateway.settings.readers = []
    gateway.start()
    last = max(number for _, number in gateway.taken())
    wait_for(f"the consumer to have number {last}", lambda: consumer.last_number() >= last)
    assert consumer.end() == 0
    assert "lost 0" in consumer.lines()[-1]
    verdict = expect_everything_taken(gateway.taken(), consumer.records(), 0)
    assert verdict.taken >= 500
