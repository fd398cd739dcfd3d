"""A consumer's connection: to a real mosquitto, and to the ways in which versions of paho-mqtt
differ."""

from __future__ import annotations

import importlib
import json
import socket
import sqlite3
import subprocess
import sys
import threading
import time
import types
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest
from test_gateway import BASE, FRAME, LOG, frame, health

from kestrinblesdk.gateway import Consumer

_LIMIT = 30.0


def wait_until(holds: Callable[[], bool], what: str) -> None:
    end = time.monotonic() + _LIMIT
    while not holds():
        assert time.monotonic() < end, f"waited in vain: {what}"
        time.sleep(0.01)


class Broker:
    """Debian's mosquitto on a port of this machine."""

    def __init__(self, folder: Path) -> None:
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port: int = probe.getsockname()[1]
        self._file = folder / "mosquitto.conf"
        self.configure()
        self._process: subprocess.Popen[bytes] | None = None

    def configure(self, *lines: str) -> None:
        usual = [f"listener {self.port} 127.0.0.1", "allow_anonymous true", "persistence false"]
        self._file.write_text("\n".join([*usual, *lines]) + "\n")

    def start(self) -> None:
        self._process = subprocess.Popen(
            ["/usr/sbin/mosquitto", "-c", str(self._file)],
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )
        wait_until(self._listens, "the broker listens")

    def kill(self) -> None:
        if self._process is not None:
            self._process.kill()
            self._process.wait()
            self._process = None

    def _listens(self) -> bool:
        assert self._process is not None and self._process.poll() is None, "mosquitto has ended"
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0


class Gateway:
    """Publishes what is asked for, from the first of its records on."""

    def __init__(self, port: int, records: int) -> None:
        self.records = records
        self.commits: list[int] = []
        paho: Any = importlib.import_module("paho.mqtt.client")
        version = getattr(paho, "CallbackAPIVersion", None)
        first = () if version is None else (version.VERSION2,)
        self._client = paho.Client(*first, client_id="kestrin-gateway-dock")
        self._client.reconnect_delay_set(1, 1)
        self._client.on_connect = self._connected
        self._client.on_message = self._message
        self._client.connect("127.0.0.1", port)
        self._client.loop_start()

    def close(self) -> None:
        self._client.disconnect()
        self._client.loop_stop()

    def _connected(self, client: Any, *_: Any) -> None:
        client.subscribe([(BASE + "replay", 1), (BASE + "commit/+", 1)])
        client.publish(BASE + "info", health(1, 0), qos=1, retain=True)

    def _message(self, client: Any, _: Any, message: Any) -> None:
        members = json.loads(message.payload)
        assert members["log"] == LOG
        if message.topic.startswith(BASE + "commit/"):
            self.commits.append(members["n"])
            return
        for number in range(members["from"], self.records + 1):
            client.publish(FRAME, frame(number), qos=1)


class Running:
    """A consumer on a thread of its own."""

    def __init__(self, consumer: Consumer, port: int, **options: Any) -> None:
        self.numbers: list[int] = []
        self.troubles: list[str] = []
        self.consumer = consumer
        consumer.on_record = lambda record: self.numbers.append(record.number)
        consumer.on_trouble = self.troubles.append
        self._thread = threading.Thread(
            target=lambda: consumer.run("127.0.0.1", port, **options), daemon=True
        )
        self._thread.start()

    def stop(self) -> None:
        wait_until(lambda: self._stopped(), "run ends")

    def _stopped(self) -> bool:
        self.consumer.stop()
        return not self._thread.is_alive()


@pytest.fixture
def broker(tmp_path: Path) -> Iterator[Broker]:
    broker = Broker(tmp_path)
    broker.start()
    try:
        yield broker
    finally:
        broker.kill()


def test_records_come_through_a_real_broker_that_is_killed(broker: Broker, tmp_path: Path) -> None:
    gateway = Gateway(broker.port, 50)
    running = Running(Consumer("dock", "stock", state=tmp_path / "state"), broker.port)
    try:
        wait_until(lambda: len(running.numbers) >= 50, "50 records")
        wait_until(lambda: 50 in gateway.commits, "their commit")
        broker.kill()
        wait_until(lambda: any("lost" in line for line in running.troubles), "the loss is noticed")
        gateway.records = 80
        broker.start()
        wait_until(lambda: len(running.numbers) >= 80, "80 records")
    finally:
        running.stop()
        gateway.close()
    assert running.numbers == list(range(1, 81))
    assert json.loads((tmp_path / "state").read_text())["next"] == {LOG: 81}


def test_what_was_taken_is_committed_at_the_end(broker: Broker, tmp_path: Path) -> None:
    gateway = Gateway(broker.port, 3)
    running = Running(Consumer("dock", "stock"), broker.port)
    wait_until(lambda: len(running.numbers) >= 3, "3 records")
    running.stop()
    wait_until(lambda: 3 in gateway.commits, "the commit")
    gateway.close()


def test_the_example_keeps_every_record_once(broker: Broker, tmp_path: Path) -> None:
    gateway = Gateway(broker.port, 20)
    example = Path(__file__).resolve().parents[3] / "examples/gateway_consumer.py"

    def kept() -> list[int]:
        database = sqlite3.connect(tmp_path / "frames.db")
        try:
            return [number for (number,) in database.execute("select number from frame")]
        except sqlite3.OperationalError:
            return []  # The table is not there yet.
        finally:
            database.close()

    try:
        for records in (20, 30):
            gateway.records = records
            program = subprocess.Popen(
                [sys.executable, str(example), "dock", "127.0.0.1", str(broker.port)],
                cwd=tmp_path,
                stdout=subprocess.DEVNULL,
            )
            try:
                wait_until(lambda: len(kept()) >= records, f"{records} records")
                wait_until(lambda: records in gateway.commits, "their commit")
                program.terminate()
                assert program.wait(_LIMIT) == 0
            finally:
                program.kill()
                program.wait()
    finally:
        gateway.close()
    assert kept() == list(range(1, 31))


def test_a_refused_connection_is_told(broker: Broker) -> None:
    broker.kill()
    broker.configure("allow_anonymous false")
    broker.start()
    running = Running(Consumer("dock", "stock"), broker.port)
    wait_until(lambda: bool(running.troubles), "a line of trouble")
    running.stop()
    assert "the broker has refused the connection: " in running.troubles[0]


def test_no_broker_is_told_and_tried_again(broker: Broker) -> None:
    broker.kill()
    running = Running(Consumer("dock", "stock"), broker.port)
    wait_until(lambda: len(running.troubles) >= 2, "two attempts")
    running.stop()
    assert all("no connection to the broker at 127.0.0.1: " in line for line in running.troubles)


def test_a_missing_certificate_is_told_and_tried_again(broker: Broker, tmp_path: Path) -> None:
    running = Running(Consumer("dock", "stock"), broker.port, tls=True, ca=tmp_path / "none.pem")
    wait_until(lambda: len(running.troubles) >= 2, "two attempts")
    running.stop()
    assert "No such file" in running.troubles[0]


def test_run_ends_with_its_limit(broker: Broker) -> None:
    Consumer("dock", "stock").run("127.0.0.1", broker.port, limit=0.2)


@pytest.mark.parametrize(
    ("options", "text"),
    [
        ({"host": ""}, "the host is empty"),
        ({"host": "broker.example", "password": "x"}, "a password needs a user"),
        ({"host": "broker.example", "user": "me", "password": "x"}, "without TLS everybody"),
        ({"host": "127.0.0.1", "tls": True, "key": "k"}, "a certificate needs its key"),
        ({"host": "127.0.0.1", "ca": "ca"}, "certificates are for TLS"),
    ],
)
def test_what_cannot_be_right_is_a_value_error(options: dict[str, Any], text: str) -> None:
    with pytest.raises(ValueError, match=text):
        Consumer("dock", "stock").run(**options, limit=0)


@pytest.mark.parametrize("host", ["localhost", "127.0.0.1", "127.9.9.9", "::1"])
def test_a_password_may_go_to_this_machine(host: str) -> None:
    Consumer("dock", "stock").run(host, user="me", password="x", limit=0)


def test_without_paho_it_is_told_how_to_get_it(monkeypatch: pytest.MonkeyPatch) -> None:
    def missing(name: str) -> None:
        raise ModuleNotFoundError(name)

    monkeypatch.setattr(importlib, "import_module", missing)
    with pytest.raises(ImportError, match="apt install python3-paho-mqtt"):
        Consumer("dock", "stock").run("127.0.0.1", limit=0)


class ReasonCode:
    """As version 2 of paho-mqtt hands it over."""

    def __init__(self, value: int) -> None:
        self.value = value

    def __eq__(self, other: object) -> bool:
        return self.value == other

    def __str__(self) -> str:
        return "Not authorized"


class Client:
    """Calls back as one of paho-mqtt's versions does."""

    made: list[Client] = []

    def __init__(self, *first: object, client_id: str, clean_session: bool, protocol: int) -> None:
        self.first = first
        self.client_id = client_id
        self.published: list[tuple[str, str, int, bool]] = []
        self.turn = 0
        Client.made.append(self)
        assert clean_session and protocol == 4

    def connect(self, host: str, port: int, keepalive: int) -> None:
        self.address = (host, port, keepalive)

    def subscribe(self, filters: list[tuple[str, int]]) -> None:
        self.filters = filters

    def publish(self, topic: str, payload: str, qos: int, retain: bool) -> None:
        self.published.append((topic, payload, qos, retain))

    def disconnect(self) -> None:
        pass

    def loop(self, timeout: float) -> int:
        two = bool(self.first)
        code: Any = ReasonCode if two else int
        self.turn += 1
        if self.turn == 1:
            if two:
                self.on_connect(self, None, object(), code(0), object())
            else:
                self.on_connect(self, None, {"session present": 0}, code(0))
        elif self.turn == 2:
            granted = [code(1), code(128), code(1), code(1)]
            if two:
                self.on_subscribe(self, None, 1, granted, object())
            else:
                self.on_subscribe(self, None, 1, tuple(granted))
        elif self.turn == 3:
            self.on_message(self, None, types.SimpleNamespace(topic=FRAME, payload=frame(1)))
        else:
            if two:
                self.on_disconnect(self, None, object(), code(7), object())
            else:
                self.on_disconnect(self, None, code(7))
            return 7
        return 0

    on_connect: Any = None
    on_subscribe: Any = None
    on_message: Any = None
    on_disconnect: Any = None


@pytest.mark.parametrize("two", [False, True])
def test_both_versions_of_paho_are_worked(two: bool, monkeypatch: pytest.MonkeyPatch) -> None:
    paho = types.SimpleNamespace(Client=Client, MQTTv311=4, MQTT_ERR_SUCCESS=0)
    if two:
        paho.CallbackAPIVersion = types.SimpleNamespace(VERSION2="two")
    monkeypatch.setattr(importlib, "import_module", lambda name: paho)
    Client.made.clear()
    consumer = Consumer("dock", "stock")
    records: list[int] = []
    troubles: list[str] = []
    consumer.on_record = lambda record: records.append(record.number)

    def told(text: str) -> None:
        troubles.append(text)
        if "lost" in text:
            consumer.stop()

    consumer.on_trouble = told
    consumer.run("127.0.0.1", limit=_LIMIT)
    (client,) = Client.made
    assert client.first == (("two",) if two else ())
    assert client.client_id == "kestrin-consumer-dock-stock"
    assert client.address == ("127.0.0.1", 1883, 30)
    assert client.filters == [(name, 1) for name in consumer.filters]
    assert records == [1]
    assert troubles == [
        f"the broker has refused the subscription to {BASE}gap",
        "the connection to the broker at 127.0.0.1 is lost",
    ]


def test_a_refusal_of_version_2_is_told_in_its_words(monkeypatch: pytest.MonkeyPatch) -> None:
    class Refused(Client):
        def loop(self, timeout: float) -> int:
            self.on_connect(self, None, object(), ReasonCode(135), object())
            return 5

    paho = types.SimpleNamespace(Client=Refused, MQTTv311=4, MQTT_ERR_SUCCESS=0)
    paho.CallbackAPIVersion = types.SimpleNamespace(VERSION2="two")
    monkeypatch.setattr(importlib, "import_module", lambda name: paho)
    consumer = Consumer("dock", "stock")
    troubles: list[str] = []

    def told(text: str) -> None:
        troubles.append(text)
        consumer.stop()

    consumer.on_trouble = told
    consumer.run("127.0.0.1", limit=_LIMIT)
    assert troubles == ["the broker has refused the connection: Not authorized"]
