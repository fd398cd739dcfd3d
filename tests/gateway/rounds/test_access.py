"""The broker's access list of examples/: with a certificate each, a gateway is only itself, and a consumer commits only
as itself. With a real mosquitto."""

from __future__ import annotations

import os
import ssl
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest
from certificates import Authority, Certificate
from judge import expect_all
from machines import PROGRAM, Broker, ConsumerProcess, Gateway, Json, Room, Watch, new_client, wait_for
from steps import drain, wait_until_further

EXAMPLES = Path(os.environ["KESTRIN_EXAMPLES"])


class ExampleBroker(Broker):
    """A broker with the configuration of the examples, of which only places are others."""

    def configure(self, persistence: bool) -> None:
        folder = self.file.parent
        text = (EXAMPLES / "mosquitto.conf").read_text()
        for old, new in (
            ("listener 8883", f"listener {self.port} {self.host}"),
            ("/etc/mosquitto/kestrin/mosquitto.acl", str(EXAMPLES / "mosquitto.acl")),
            ("/etc/mosquitto/kestrin/ca.pem", f"{folder}/ca/ca.pem"),
            ("/etc/mosquitto/kestrin/", f"{folder}/ca/"),
            ("/var/lib/mosquitto/", f"{self.store}/"),
        ):
            assert old in text
            text = text.replace(old, new)
        own = "user root\n" if os.geteuid() == 0 else ""
        self.file.write_text(f"{own}log_dest stderr\nlog_type all\n{text}")


def tls_of(authority: Authority, own: Certificate | None) -> Json:
    tls: Json = {"ca_certs": str(authority.certificate), "tls_version": ssl.PROTOCOL_TLS_CLIENT}
    if own is not None:
        tls.update(certfile=str(own.certificate), keyfile=str(own.key))
    return tls


class Hall:
    def __init__(self, room: Room) -> None:
        self.room = room
        self.authority = Authority(room / "ca")
        self.authority.sign("broker", "127.0.0.1")
        self.broker = ExampleBroker(room)
        self.broker.start()
        self._certificates: dict[str, Certificate] = {}
        self._clients: list[Watch] = []

    def certificate(self, name: str) -> Certificate:
        if name not in self._certificates:
            self._certificates[name] = self.authority.sign(name)
        return self._certificates[name]

    def client(self, name: str, *filters: str) -> Watch:
        """Comes with the certificate of that name, and wants to read everything."""
        own = self.certificate(name)
        tls = tls_of(self.authority, own)
        client = Watch(self.broker.port, *(filters or ("#",)), name=f"of-{name}", tls=tls)
        self._clients.append(client)
        return client

    def gateway(self, name: str) -> Gateway:
        own = self.certificate(name)
        gateway = Gateway(self.room, self.broker.port, name)
        gateway.settings.name = name
        gateway.settings.consumers = ["stock", "audit"]
        gateway.settings.tls = {
            "ca": str(self.authority.certificate),
            "certificate": str(own.certificate),
            "key": str(own.key),
        }
        return gateway

    def close(self) -> None:
        for client in self._clients:
            client.close()


@pytest.fixture
def hall(room: Room) -> Iterator[Hall]:
    made = Hall(room)
    yield made
    made.close()


def seen_topics(client: Watch, last: str) -> list[str]:
    """Up to the message that was sent last, and which it may see."""
    client.wait(last, lambda seen: seen.payload == b"last")
    return [seen.topic for seen in client.all()]


def test_a_gateway_and_its_consumer_work_with_their_own_certificates(hall: Hall) -> None:
    gateway = hall.gateway("hall-1")
    gateway.start()
    own = hall.certificate("stock")
    keys = ["--certificate", str(own.certificate), "--key", str(own.key)]
    consumer = ConsumerProcess(
        hall.room, hall.broker.port, "--tls", "--ca", str(hall.authority.certificate), *keys,
        name="stock", gateway="hall-1",
    )  # fmt: skip
    consumer.start()
    wait_until_further(gateway, 100)
    taken = drain(gateway, consumer)
    expect_all(taken, consumer.records())
    last = taken[-1]["n"]
    # By another gateway's eyes there is nothing to see of it; `log` has the commit.
    wait_for("the commit", lambda: committed(gateway) >= last)
    assert "refuses" not in gateway.log.read_text()


def committed(gateway: Gateway) -> int:
    said = subprocess.run([PROGRAM, "log", str(gateway.folder)], capture_output=True, text=True, check=True).stdout
    line = next((line for line in said.splitlines() if line.startswith("# stock has committed")), "0")
    return int(line.split()[-1])


def test_a_gateway_cannot_publish_as_another_one(hall: Hall) -> None:
    reader = hall.client("stock")
    intruder = hall.client("hall-1")
    for part in ("state", "info", "health", "gap", "reader/AA/state", "reader/AA/frame", "replay"):
        intruder.publish(f"kestrin/v1/hall-2/{part}", "{}", retain=True)
    for topic in ("kestrin/v1/hall-1/answer/a/b", "kestrin/v1/hall-1", "other", "kestrin/v1/hall-1/commit/stock"):
        intruder.publish(topic, "{}", retain=True)
    intruder.publish("kestrin/v1/hall-1/gap", "last")
    assert seen_topics(reader, "kestrin/v1/hall-1/gap") == ["kestrin/v1/hall-1/gap"]


def test_the_check_sees_what_is_not_refused(hall: Hall) -> None:
    reader = hall.client("stock")
    client = hall.client("hall-2")
    parts = ["state", "info", "health", "reader/AA/state", "reader/AA/frame"]
    for part in parts:
        client.publish(f"kestrin/v1/hall-2/{part}", "{}")
    client.publish("kestrin/v1/hall-2/gap", "last")
    expected = [f"kestrin/v1/hall-2/{part}" for part in [*parts, "gap"]]
    assert seen_topics(reader, "kestrin/v1/hall-2/gap") == expected


def test_a_gateway_reads_its_own_commands_only(hall: Hall) -> None:
    dispatch = hall.client("dispatch")
    one, other = hall.client("hall-1"), hall.client("hall-2")
    for name in ("hall-2", "hall-1"):
        dispatch.publish(f"kestrin/v1/{name}/reader/AA/command", "last")
    assert seen_topics(one, "/command") == ["kestrin/v1/hall-1/reader/AA/command"]
    assert seen_topics(other, "/command") == ["kestrin/v1/hall-2/reader/AA/command"]
    # The answers come to who has asked.
    one.publish("kestrin/v1/hall-1/answer/dispatch", "last")
    assert seen_topics(dispatch, "/answer/dispatch") == ["kestrin/v1/hall-1/answer/dispatch"]


def test_a_gateway_reads_no_frames_of_others(hall: Hall) -> None:
    one, other, stock = hall.client("hall-1"), hall.client("hall-2"), hall.client("stock")
    other.publish("kestrin/v1/hall-2/reader/AA/frame", "{}")
    # Behind it comes what it may read.
    stock.wait("/frame", lambda seen: seen.payload == b"{}")
    stock.publish("kestrin/v1/hall-1/replay", "last")
    assert seen_topics(one, "/replay") == ["kestrin/v1/hall-1/replay"]


def test_a_consumer_commits_only_as_itself_and_sends_no_commands(hall: Hall) -> None:
    gateway = hall.client("hall-1")
    stock = hall.client("stock")
    for part in ("commit/audit", "commit/stock/x", "reader/AA/command", "reader/AA/frame", "state", "gap"):
        stock.publish(f"kestrin/v1/hall-1/{part}", "{}", retain=True)
    stock.publish("kestrin/v1/hall-1/commit/stock", "last")
    assert seen_topics(gateway, "/commit/stock") == ["kestrin/v1/hall-1/commit/stock"]
    # What was refused is not retained either.
    dispatch = hall.client("dispatch")
    dispatch.publish("kestrin/v1/hall-1/reader/AA/command", "last")
    gateway.wait("/command", lambda seen: seen.payload == b"last")
    assert dispatch.all() == []


def test_a_gateway_cannot_take_the_place_of_another_by_its_client_id(hall: Hall) -> None:
    gateway = hall.gateway("hall-1")
    gateway.start()
    gateway.wait_for_line("the broker is there")
    own = hall.certificate("hall-2")
    intruder = new_client("kestrin-gateway-hall-1")
    intruder.tls_set(**tls_of(hall.authority, own))
    intruder.connect("127.0.0.1", hall.broker.port)
    intruder.loop_start()
    wait_for("it to be connected", intruder.is_connected)
    watch = hall.client("stock")
    mark = watch.mark()
    watch.wait("hall-1/health", lambda _: True, mark)
    assert not [line for line in gateway.lines() if "another client" in line or "no broker" in line]
    intruder.disconnect()
    intruder.loop_stop()


def test_nobody_comes_in_without_a_certificate_of_the_authority(hall: Hall, room: Room) -> None:
    other = Authority(room / "other").sign("hall-1")
    for own in (None, other):
        client = new_client("hall-1")
        client.tls_set(**tls_of(hall.authority, own))
        came = []
        client.on_connect = lambda *_, came=came: came.append(True)
        try:
            client.connect("127.0.0.1", hall.broker.port)
            wait_for("the broker to end it", lambda client=client: client.loop(0.05) != 0)
        except (ssl.SSLError, OSError):
            pass
        assert not came, "it was let in"
