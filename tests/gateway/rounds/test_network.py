"""Connections that end without a word, and brokers that are not there."""

from __future__ import annotations

import time

from judge import expect_all
from machines import Broker, Room, wait_for
from proxy import Proxy
from steps import drain, made_with_an_observer, wait_until_further


def test_a_connection_that_goes_silent_is_noticed_within_the_keep_alive_and_nothing_is_lost(
    room: Room,
) -> None:
    broker = Broker(room)
    broker.start()
    proxy = Proxy(broker.port)
    gateway, consumer = made_with_an_observer(room, broker, proxy.port)
    gateway.settings.broker = {"keep_alive": "5 s"}
    consumer.start()
    gateway.start()
    wait_until_further(gateway, 50)
    wait_for("the consumer to have something", consumer.last_number)
    mark = gateway.mark()
    begin = time.monotonic()
    assert proxy.go_silent() == 1
    gateway.wait_for_line("silent for longer than the keep alive", mark)
    # A ping goes out after one keep alive, and its answer is waited for as long.
    assert time.monotonic() - begin < 3 * 5
    gateway.wait_for_line("the broker is there", mark)
    assert proxy.connections >= 2
    expect_all(drain(gateway, consumer), consumer.records())
    proxy.close()


def test_without_a_broker_the_gateway_starts_and_hands_over_once_there_is_one(room: Room) -> None:
    broker = Broker(room)
    gateway, consumer = made_with_an_observer(room, broker, broker.port)
    gateway.start()
    line = gateway.wait_for_line("no broker")
    assert f"broker 127.0.0.1:{broker.port}" in line
    assert "nobody listens there" in line
    wait_until_further(gateway, 300)
    broker.start()
    consumer.start()
    taken = drain(gateway, consumer)
    assert len(taken) >= 200
    expect_all(taken, consumer.records())


def test_a_broker_that_is_not_there_is_not_asked_at_full_speed(room: Room) -> None:
    broker = Broker(room)
    gateway, _ = made_with_an_observer(room, broker, broker.port)
    gateway.start()
    gateway.wait_for_line("nobody listens there")
    wait_until_further(gateway, 500)
    said = [line for line in gateway.lines() if "nobody listens there" in line]
    assert len(said) == 1, "the same trouble is said once"
    assert gateway.processor_seconds() < 2


def test_a_gateway_that_is_asked_to_end_without_a_broker_ends(room: Room) -> None:
    broker = Broker(room)
    gateway, consumer = made_with_an_observer(room, broker, broker.port)
    gateway.start()
    wait_until_further(gateway, 50)
    assert gateway.end() == 0
    taken = gateway.exported()
    broker.start()
    gateway.start()
    consumer.start()
    last = int(taken[-1]["n"])
    wait_for(f"the consumer to have number {last}", lambda: consumer.last_number() >= last)
    got = [each for each in consumer.records() if each["n"] <= last]
    expect_all(taken, got)
