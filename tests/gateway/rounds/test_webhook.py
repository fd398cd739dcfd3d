"""Webhooks with a real web server: what the gateway took is at the server, though both are killed and the server
answers wrongly or not at all; repeats carry the same number.

KESTRIN_GATEWAY_ROUNDS and KESTRIN_GATEWAY_SEED make it longer, or repeat it."""

from __future__ import annotations

import os
import random
from pathlib import Path

import pytest
from certificates import Authority, machine_that_trusts
from judge import expect_everything_taken, expect_readers_order
from machines import Broker, ConsumerProcess, Gateway, Json, Room, Watch, by_number, wait_for
from steps import wait_until_further
from web import WebServer

ROUNDS = int(os.environ.get("KESTRIN_GATEWAY_ROUNDS", "3"))
SEED = int(os.environ.get("KESTRIN_GATEWAY_SEED", str(random.SystemRandom().randrange(1 << 31))))


def made_with_a_webhook(room: Room, web: WebServer, **more: object) -> Gateway:
    """A gateway that nobody but the webhook listens to."""
    broker = Broker(room)
    broker.start()
    gateway = Gateway(room, broker.port)
    gateway.settings.consumers = []
    gateway.settings.webhooks = [{"name": "erp", "url": web.url, **more}]
    return gateway


def stop_readers(gateway: Gateway) -> None:
    gateway.settings.readers = []
    mark = gateway.mark()
    gateway.reload()
    gateway.wait_for_line("the configuration was read again", mark)


def wait_for_all(gateway: Gateway, web: WebServer) -> None:
    last = max(number for _, number in gateway.taken())
    wait_for(f"the web server to have number {last}", lambda: web.last_number() >= last, limit=120)


def test_nothing_is_lost_whoever_is_killed_and_whatever_the_server_answers(
    room: Room, capfd: pytest.CaptureFixture[str]
) -> None:
    print(f"KESTRIN_GATEWAY_SEED={SEED}")
    chance = random.Random(SEED)
    web = WebServer(room)
    web.start()
    gateway = made_with_a_webhook(room, web, batch=20)
    gateway.start()
    kills = 0
    for _ in range(ROUNDS):
        web.faults(busy=chance.randrange(30), late=chance.randrange(20), silent=chance.randrange(20))
        for process in chance.sample([web, gateway, web, gateway], 4):
            wait_until_further(gateway, chance.randrange(20, 200))
            process.kill()
            kills += process is gateway
            process.start()
    wait_until_further(gateway, 100)
    web.faults()
    stop_readers(gateway)
    wait_for_all(gateway, web)
    assert gateway.end() == 0
    taken, got = gateway.taken(), web.records()
    verdict = expect_everything_taken(taken, got, kills)
    expect_readers_order(got)
    assert verdict.repeats > 0, "no answer was lost, so nothing was tried"
    for each in web.posts():
        post, record = each["post"], each["record"]
        assert (post["Gateway"], post["Log"]) == ("gw", record["log"])
        assert int(post["From"]) <= record["n"] <= int(post["To"])
    with capfd.disabled():
        print(f"\n{ROUNDS} rounds, seed {SEED}: {kills} kills of the gateway, {verdict}")


def test_a_receiver_that_keeps_the_highest_number_takes_each_record_once(room: Room) -> None:
    web = WebServer(room)
    web.start()
    web.faults(late=40)
    gateway = made_with_a_webhook(room, web, batch=5)
    gateway.start()
    wait_until_further(gateway, 300)
    web.faults()
    stop_readers(gateway)
    wait_for_all(gateway, web)
    once: list[Json] = []
    for record in web.records():
        if not once or record["n"] > once[-1]["n"]:
            once.append(record)
    assert len(once) < len(web.records())
    assert [each["n"] for each in once] == list(range(1, len(once) + 1))
    assert len(once) == len(by_number(web.records()))


def test_a_dead_webhook_holds_up_neither_the_broker_nor_another_one(room: Room) -> None:
    web, dead = WebServer(room), WebServer(room, "dead")
    web.start()
    broker = Broker(room)
    broker.start()
    gateway = Gateway(room, broker.port)
    gateway.settings.webhooks = [{"name": "erp", "url": web.url}, {"name": "dead", "url": dead.url}]
    consumer = ConsumerProcess(room, broker.port)
    watch = Watch(broker.port)
    gateway.start()
    consumer.start()
    wait_until_further(gateway, 300)
    stop_readers(gateway)
    wait_for_all(gateway, web)
    last = web.last_number()
    wait_for("the consumer to have it too", lambda: consumer.last_number() >= last)
    trouble = watch.wait_for_trouble("the webhook dead does not take records from number 1 on")
    assert any("nobody listens there" in line for line in trouble["trouble"])

    def commits() -> Json:
        found: Json = watch.last("/health").get("commits", {})
        return found

    wait_for("the commits", lambda: commits() == {"store": last, "erp": last, "dead": 0})
    # And it gets everything once it lives.
    dead.start()
    wait_for_all(gateway, dead)
    assert [each["n"] for each in dead.records()] == list(range(1, last + 1))
    wait_for("nothing to be kept", lambda: watch.last("/health")["forgotten"] == last)
    watch.close()


def test_a_server_is_talked_to_only_with_its_own_certificate(room: Room) -> None:
    authority = Authority(room / "ca")
    token = room / "token"
    token.write_text("swordfish\n")
    token.chmod(0o600)
    web = WebServer(room, own=authority.sign("other", "web.example"))
    web.start()
    gateway = made_with_a_webhook(room, web, ca=str(authority.certificate), token_file=str(token))
    gateway.start()
    gateway.wait_for_line("its certificate is not trusted")
    wait_until_further(gateway, 50)
    assert web.records() == []
    web.kill()
    web.own = authority.sign("right", "127.0.0.1")
    web.start()
    stop_readers(gateway)
    wait_for_all(gateway, web)
    assert {each["post"]["token"] for each in web.posts()} == {"Bearer swordfish"}
    assert "swordfish" not in Path(gateway.log).read_text()


def test_a_server_of_an_authority_that_nobody_trusts_is_refused(room: Room) -> None:
    authority = Authority(room / "ca")
    web = WebServer(room, own=authority.sign("right", "127.0.0.1"))
    web.start()
    gateway = made_with_a_webhook(room, web)
    gateway.start()
    gateway.wait_for_line("its certificate is not trusted")
    assert web.records() == []


def test_a_server_is_trusted_by_its_own_authority_and_not_by_the_systems(room: Room) -> None:
    trusted, other = Authority(room / "ca"), Authority(room / "other").sign("somebody")
    web = WebServer(room, own=trusted.sign("right", "127.0.0.1"))
    web.start()
    gateway = made_with_a_webhook(room, web, ca=str(other.certificate))
    gateway.command = [*machine_that_trusts(trusted, room / "system"), *gateway.command]
    gateway.start()
    gateway.wait_for_line("its certificate is not trusted")
    assert web.records() == []
