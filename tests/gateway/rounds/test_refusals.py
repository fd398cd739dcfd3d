"""Brokers and machines that refuse: one line for a person each time, in the log and where there is a broker in
`health`, and what was taken is kept."""

from __future__ import annotations

import time
from pathlib import Path

from certificates import Authority, Certificate
from judge import expect_all
from machines import Broker, ConsumerProcess, Gateway, Room, Watch, wait_for
from steps import drain, made_with_an_observer, wait_until_further


def with_tls(broker: Broker, authority: Authority, own: Certificate) -> None:
    broker.settings = [
        f"cafile {authority.certificate}",
        f"certfile {own.certificate}",
        f"keyfile {own.key}",
    ]
    broker.configure(persistence=False)


def tls_consumer(room: Room, broker: Broker, authority: Authority) -> ConsumerProcess:
    return ConsumerProcess(room, broker.port, "--tls", "--ca", str(authority.certificate))


def expect_refusal_and_recovery(room: Room, wrong: Certificate, authority: Authority, part: str) -> None:
    """The gateway says why it does not talk to the broker, and delivers everything once the broker has a
    certificate that is right."""
    broker = Broker(room)
    with_tls(broker, authority, wrong)
    broker.start()
    gateway, _ = made_with_an_observer(room, broker, broker.port)
    gateway.settings.tls = {"ca": str(authority.certificate)}
    gateway.start()
    gateway.wait_for_line(part)
    wait_until_further(gateway, 100)
    said = [line for line in gateway.lines() if part in line]
    assert len(said) == 1, "the same trouble is said once"
    broker.kill()
    with_tls(broker, authority, authority.sign("right", "127.0.0.1"))
    broker.start()
    consumer = tls_consumer(room, broker, authority)
    consumer.start()
    expect_all(drain(gateway, consumer), consumer.records())


def test_a_broker_with_an_expired_certificate_is_refused_until_it_has_a_new_one(room: Room) -> None:
    authority = Authority(room / "ca")
    wrong = authority.sign("expired", "127.0.0.1", expired=True)
    expect_refusal_and_recovery(room, wrong, authority, "it has expired")


def test_a_broker_with_another_hosts_certificate_is_refused_until_it_has_its_own(room: Room) -> None:
    authority = Authority(room / "ca")
    wrong = authority.sign("other", "broker.example")
    expect_refusal_and_recovery(room, wrong, authority, 'its certificate is not for "127.0.0.1"')


def allow(file: Path, *lines: str) -> None:
    file.write_text("\n".join(lines) + "\n")


def test_records_that_the_broker_refuses_are_kept_and_delivered_when_it_takes_them(room: Room) -> None:
    rules = room / "acl"
    allow(rules, "topic readwrite kestrin/#", "topic deny kestrin/v1/gw/reader/+/frame")
    broker = Broker(room, f"acl_file {rules}")
    broker.start()
    gateway, consumer = made_with_an_observer(room, broker, broker.port)
    watch = Watch(broker.port)
    gateway.start()
    consumer.start()
    gateway.wait_for_line("the broker refuses records")
    watch.wait_for_trouble("the broker refuses records")
    wait_until_further(gateway, 200)
    said = [line for line in gateway.lines() if "the broker refuses records" in line]
    assert len(said) <= 2, "refusals are not said one by one"
    assert gateway.processor_seconds() < 2, "what is refused is not offered at full speed"
    assert consumer.last_number() == 0
    watch.close()
    broker.kill()
    allow(rules, "topic readwrite kestrin/#")
    broker.start()
    expect_all(drain(gateway, consumer), consumer.records())


def test_two_gateways_of_one_name_say_so_and_do_not_fight_at_full_speed(room: Room) -> None:
    broker = Broker(room)
    broker.start()
    watch = Watch(broker.port)
    older = Gateway(room, broker.port, "older")
    younger = Gateway(room, broker.port, "younger")
    older.start()
    watch.wait("/state", lambda seen: seen.json().get("online") is True)
    mark = older.mark()
    younger.start()
    line = older.wait_for_line("another client with the id kestrin-gateway-gw", mark)
    assert "ive each gateway a name of its own" in line

    def comings() -> list[float]:
        """When one of them has said that it is there."""
        seen = watch.all("kestrin/v1/gw/state")
        return [each.at for each in seen if each.payload and each.json()["online"]]

    wait_for("both to have come six times in all", lambda: len(comings()) >= 6)
    times = comings()
    # Each waits at least half of 0.5, 1, 2, ... s before it comes again.
    assert times[5] - times[1] > 1.5, f"they come too fast: {times}"
    watch.close()


def test_two_gateways_on_one_log_are_one_too_many(room: Room) -> None:
    broker = Broker(room)
    broker.start()
    first = Gateway(room, broker.port, "first")
    second = Gateway(room, broker.port, "second")
    second.settings.name = "gw-2"
    second.settings.log = first.settings.log
    first.start()
    wait_until_further(first, 20)
    second.start()
    assert second.wait() == 1
    # `setpriv` becomes the gateway, so the number is its own.
    second.wait_for_line(f"{first.folder} is in use by another process ({first.pid})")
    wait_until_further(first, 20)
    assert first.end() == 0


def test_a_configuration_that_is_wrong_ends_the_start_with_2_and_a_line_that_says_where(room: Room) -> None:
    gateway = Gateway(room, 1883)
    gateway.settings.log = {"directroy": str(gateway.folder)}
    gateway.start()
    assert gateway.wait() == 2
    line = gateway.wait_for_line("directroy")
    assert str(gateway.file) in line
    assert "directory" in line


def test_a_reader_that_is_not_in_range_is_named_and_holds_nobody_up(room: Room) -> None:
    broker = Broker(room)
    broker.start()
    watch = Watch(broker.port)
    gateway = Gateway(room, broker.port)
    gateway.settings.readers = ["KVR-4711", "KVR-0001"]
    begin = time.monotonic()
    gateway.start()
    wait_until_further(gateway, 20)
    assert time.monotonic() - begin < 25, "the other reader waits for the one that is not there"
    gateway.wait_for_line("'KVR-4711' is not in range")
    watch.wait_for_trouble("'KVR-4711' is not in range")
    watch.wait(
        "/reader/KVR-4711/state", lambda seen: "is not in range" in seen.json().get("trouble", "")
    )
    watch.close()
