"""SIGHUP: readers come and go, certificates are read again, what takes a restart is named."""

from __future__ import annotations

from certificates import Authority
from machines import Broker, ConsumerProcess, Gateway, Room, Watch, wait_for
from steps import wait_until_further

READ_AGAIN = "the configuration was read again"


def phase_of(watch: Watch, name: str) -> str:
    """What the gateway has said last of the reader; empty where it has none of that name."""
    phases: dict[str, str] = {}
    names: dict[str, str] = {}
    for seen in watch.all("/state"):
        if "/reader/" not in seen.topic:
            continue
        state = seen.json() if seen.payload else {}
        phases[seen.topic] = state.get("phase", "")
        names[seen.topic] = state.get("name", names.get(seen.topic, ""))
    return next((phase for topic, phase in phases.items() if phase and names[topic] == name), "")


def wait_for_phase(watch: Watch, name: str, phase: str) -> None:
    wait_for(f"{name} to be '{phase}'", lambda: phase_of(watch, name) == phase)


def started(room: Room, *readers: str) -> tuple[Broker, Gateway, Watch]:
    broker = Broker(room)
    broker.start()
    watch = Watch(broker.port)
    gateway = Gateway(room, broker.port)
    gateway.settings.readers = list(readers)
    gateway.start()
    for reader in readers:
        wait_for_phase(watch, reader, "pluggedIn")
    return broker, gateway, watch


def test_readers_are_added_and_removed_and_the_others_do_not_notice(room: Room) -> None:
    _, gateway, watch = started(room, "KVR-0001", "KVR-0002")
    gateway.settings.readers = ["KVR-0001", "KVR-Q62T 0004"]
    gateway.reload()
    wait_for_phase(watch, "KVR-Q62T 0004", "pluggedIn")
    wait_for_phase(watch, "KVR-0002", "")
    gateway.wait_for_line(READ_AGAIN)
    states = [seen.json() for seen in watch.all("/state") if "/reader/" in seen.topic and seen.payload]
    phases = [state["phase"] for state in states if state["name"] == "KVR-0001"]
    assert phases.count("pluggedIn") == phases[::-1].index("pluggedIn") + phases.count("pluggedIn")
    wait_until_further(gateway, 50)
    links = {each["link"] for each in gateway.exported() if each.get("name") == "KVR-0001"}
    assert len(links) == 1, "the reader that stayed has a new link"
    before = len(gateway.sent_records()["KVR-0002"])
    wait_until_further(gateway, 50)
    assert len(gateway.sent_records()["KVR-0002"]) == before, "the removed reader is still linked"
    watch.close()


def test_a_consumer_that_is_declared_is_waited_for_from_then_on(room: Room) -> None:
    _, gateway, watch = started(room, "KVR-0001")
    gateway.settings.consumers = ["store", "second"]
    gateway.reload()
    gateway.wait_for_line("the promise in force: at least once to each declared consumer: store, second")
    watch.wait("/info", lambda seen: bool(seen.json()["consumers"] == ["store", "second"]))
    watch.close()


def test_without_a_consumer_the_gateway_says_how_durable_that_is(room: Room) -> None:
    broker = Broker(room)
    broker.start()
    watch = Watch(broker.port)
    gateway = Gateway(room, broker.port)
    gateway.settings.consumers = []
    gateway.start()
    gateway.wait_for_line("as durable as your broker")
    watch.wait("/info", lambda seen: bool(seen.json()["promise"] == "as durable as your broker"))
    watch.close()


def test_what_takes_a_restart_is_named_and_stays_as_it_was(room: Room) -> None:
    _, gateway, watch = started(room, "KVR-0001")
    gateway.settings.name = "other"
    gateway.settings.log = {"directory": str(room / "elsewhere")}
    gateway.reload()
    gateway.wait_for_line("gateway.name has changed, which takes a restart")
    gateway.wait_for_line("log.directory has changed, which takes a restart")
    wait_until_further(gateway, 50)
    assert not (room / "elsewhere").exists()
    assert watch.last("kestrin/v1/gw/state")["online"] is True
    watch.close()


def test_a_configuration_that_is_wrong_at_a_reload_changes_nothing(room: Room) -> None:
    _, gateway, watch = started(room, "KVR-0001")
    gateway.settings.broker = {"keepalive": "5 s"}
    gateway.reload()
    line = gateway.wait_for_line("keepalive")
    assert "keep_alive" in line
    assert str(gateway.file) in line
    gateway.wait_for_line("the configuration stays as it was")
    wait_until_further(gateway, 50)
    watch.close()


def test_a_new_certificate_is_read_and_the_next_connection_has_it(room: Room) -> None:
    authority = Authority(room / "ca")
    own = authority.sign("broker", "127.0.0.1")
    first, second = authority.sign("gateway-1"), authority.sign("gateway-2")
    broker = Broker(
        room,
        f"cafile {authority.certificate}",
        f"certfile {own.certificate}",
        f"keyfile {own.key}",
        "require_certificate true",
        "use_identity_as_username true",
        "allow_anonymous false",
    )
    broker.start()
    gateway = Gateway(room, broker.port)
    gateway.settings.tls = {
        "ca": str(authority.certificate),
        "certificate": str(first.certificate),
        "key": str(first.key),
    }
    gateway.start()
    broker.wait_for_line("u'gateway-1'")
    mark = broker.mark()
    first.key.write_bytes(second.key.read_bytes())
    first.certificate.write_bytes(second.certificate.read_bytes())
    gateway.reload()
    broker.wait_for_line("u'gateway-2'", mark)
    place = ["--certificate", str(second.certificate), "--key", str(second.key)]
    consumer = ConsumerProcess(
        room, broker.port, "--tls", "--ca", str(authority.certificate), *place
    )
    consumer.start()
    wait_for("the consumer to have something", consumer.last_number)
