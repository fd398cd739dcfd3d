"""`kestrin-gateway tail` beside a gateway that runs: it shows what the log gets, also over the end of one log, and
neither disturbs the gateway nor wastes the processor."""

from __future__ import annotations

import json
import subprocess
from typing import Any

from machines import PROGRAM, Broker, Gateway, Json, Process, Room, Watch, wait_for
from steps import wait_until_further


class Tail(Process):
    def __init__(self, room: Room, gateway: Gateway, *options: str) -> None:
        self.shown_file = room / "tail.jsonl"
        super().__init__(room, "tail", [PROGRAM, "tail", str(gateway.file), *options])

    def output(self) -> Any:
        return self.shown_file.open("wb")

    def shown(self) -> list[Json]:
        text = self.shown_file.read_bytes()
        return [json.loads(line) for line in text[: text.rfind(b"\n") + 1].splitlines()]


def started(room: Room) -> Gateway:
    """A gateway whose log keeps everything."""
    broker = Broker(room)
    broker.start()
    gateway = Gateway(room, broker.port)
    gateway.settings.consumers = ["observer"]
    gateway.start()
    wait_until_further(gateway, 50)
    return gateway


def stop_readers(gateway: Gateway) -> None:
    gateway.settings.readers = []
    mark = gateway.mark()
    gateway.reload()
    gateway.wait_for_line("the configuration was read again", mark)


def test_it_shows_everything_that_the_log_gets(room: Room) -> None:
    gateway = started(room)
    tail = Tail(room, gateway, "--from", "1")
    tail.start()
    wait_until_further(gateway, 500)
    stop_readers(gateway)
    logged = gateway.exported()
    wait_for("all of it", lambda: len(tail.shown()) >= len(logged))
    assert tail.shown() == logged
    assert tail.end() == 0
    assert tail.lines() == []
    assert gateway.end() == 0


def test_it_needs_no_credential_of_the_service(room: Room) -> None:
    gateway = started(room)
    logged = gateway.exported()[:5]
    gateway.settings.broker = {"user": "gw", "password_file": "credential:broker.password"}
    gateway.configure()
    tail = Tail(room, gateway, "--from", "1", "--count", "5")
    tail.start()
    wait_for("five of it", lambda: len(tail.shown()) == 5)
    assert tail.shown() == logged


def test_it_wakes_when_there_is_something_and_not_before(room: Room) -> None:
    gateway = started(room)
    tail = Tail(room, gateway)
    tail.start()
    wait_for("its first records", tail.shown)
    stop_readers(gateway)
    settled = gateway.exported()[-1]["n"]
    wait_for("the last one", lambda: tail.shown()[-1]["n"] == settled)
    before = tail.processor_seconds()
    mark = tail.mark()
    gateway_before = gateway.processor_seconds()
    # A gateway that has nothing to record says so in its health, every ten seconds.
    watch = Watch(gateway.settings.port, "kestrin/v1/gw/health")
    wait_for("three of them", lambda: len(watch.all("/health")) >= 3)
    watch.close()
    assert tail.processor_seconds() - before < 0.5, "it looks again and again"
    assert gateway.processor_seconds() - gateway_before < 1
    assert tail.lines(mark) == []
    assert tail.end() == 0


def test_it_goes_on_when_the_gateway_is_killed_and_when_its_log_is_laid_aside(room: Room) -> None:
    gateway = started(room)
    tail = Tail(room, gateway, "--from", "1")
    tail.start()
    gateway.kill()
    gateway.start()
    wait_until_further(gateway, 100)
    stop_readers(gateway)
    logged = gateway.exported()
    wait_for("all of it", lambda: len(tail.shown()) >= len(logged))
    assert gateway.end() == 0
    database = gateway.folder / "current" / "records.sqlite"
    victim = bytes.fromhex(logged[len(logged) // 2]["bytes"])
    content = database.read_bytes()
    assert victim in content
    damaged = database.with_suffix(".new")
    damaged.write_bytes(content.replace(victim, bytes(len(victim))))
    # `tail` looks at it all the time.
    damaged.rename(database)
    # It still has the latest pages, and would stand in for the damaged ones.
    (database.parent / "records.sqlite-wal").unlink(missing_ok=True)
    gateway.start()
    tail.wait_for_line("has ended; another one begins: ")
    damage = wait_for("the other log's first record", lambda: [each for each in tail.shown() if "gap" in each])
    assert damage[0]["n"] == 1
    assert damage[0]["gap"]["reason"] == "damaged"
    assert tail.shown()[: len(logged)] == logged
    assert tail.end() == 0


def test_nothing_from_the_air_reaches_a_terminal_as_it_is(room: Room) -> None:
    hostile = "KVR-\x1b]0;owned\x07\x1b[2J\u009b31m\u202egnp<b>"
    broker = Broker(room)
    broker.start()
    gateway = Gateway(room, broker.port)
    script = room / "hostile.readers"
    script.write_text(f"0.01 {hostile}\n")
    gateway.settings.radio["script"] = str(script)
    # One is held; the other is not in range, for which all that are in range are named.
    gateway.settings.readers = [hostile, "KVR-0009"]
    gateway.start()
    wait_until_further(gateway, 20)
    gateway.wait_for_line("'KVR-0009' is not in range")
    consumed = room / "consumed"
    consumer = [PROGRAM, "consume", "--gateway", "gw", "--name", "store", "--state", str(room / "state")]
    consumer += ["--host", "127.0.0.1", "--port", str(broker.port)]
    with consumed.open("wb") as output:
        running = subprocess.Popen(consumer, stdout=output, stderr=subprocess.STDOUT)
    try:
        wait_for("a line with the name", lambda: b"owned" in consumed.read_bytes())
    finally:
        running.terminate()
        running.wait()
    texts = {"consume": consumed.read_bytes(), "stderr": gateway.log.read_bytes()}
    log = str(gateway.folder)
    for name, command in (("log", ["log", log]), ("tail", ["tail", log, "--count", "5"])):
        texts[name] = subprocess.run([PROGRAM, *command], capture_output=True, check=True).stdout
    for name, text in texts.items():
        assert b"owned" in text, f"{name} does not show it at all"
        shown = text.decode()
        wrong = [char for char in shown if char != "\n" and not (char.isprintable() and char != "\u202e")]
        assert not wrong, f"{name}: {wrong!r} in {shown!r}"
    # It is escaped and not lost.
    first = next(json.loads(line) for line in texts["tail"].splitlines() if b"owned" in line)
    assert first["name"] == hostile
