"""What tests of the whole gateway do again and again."""

from __future__ import annotations

from machines import Broker, ConsumerProcess, Gateway, Json, Room, wait_for

OBSERVER = "observer"


def made_with_an_observer(room: Room, broker: Broker, port: int) -> tuple[Gateway, ConsumerProcess]:
    """A gateway whose log keeps everything, since an observer never commits, and a consumer."""
    gateway = Gateway(room, port)
    gateway.settings.consumers = ["store", OBSERVER]
    consumer = ConsumerProcess(room, broker.port)
    return gateway, consumer


def wait_until_further(gateway: Gateway, count: int) -> None:
    target = gateway.sent_count() + count
    wait_for(f"the readers to have sent {target}", lambda: gateway.sent_count() >= target)


def drain(gateway: Gateway, consumer: ConsumerProcess) -> list[Json]:
    """Stops what the readers send and waits until the consumer has what there is."""
    gateway.settings.readers = []
    mark = gateway.mark()
    gateway.reload()
    gateway.wait_for_line("the configuration was read again", mark)
    taken = gateway.exported()
    last = max(int(each["n"]) for each in taken)
    wait_for(f"the consumer to have number {last}", lambda: consumer.last_number() >= last)
    return taken
