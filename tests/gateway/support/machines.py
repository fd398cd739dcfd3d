"""The parties of a gateway's work as processes: the broker, the gateway, the consumer, and who looks on.

Everything is waited for by looking. The limits are far beyond what a loaded machine takes."""

from __future__ import annotations

import importlib
import json
import os
import queue
import signal
import socket
import subprocess
import threading
import time
from collections.abc import Callable, Iterator, Mapping, Sequence
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, TypeVar

# Only the newer release of the package says its types.
mqtt: Any = importlib.import_module("paho.mqtt.client")
packettypes: Any = importlib.import_module("paho.mqtt.packettypes")
properties: Any = importlib.import_module("paho.mqtt.properties")
subscribeoptions: Any = importlib.import_module("paho.mqtt.subscribeoptions")

PROGRAM = os.environ["KESTRIN_GATEWAY"]
LIMIT = float(os.environ.get("KESTRIN_LIMIT", "60"))

Found = TypeVar("Found")
Json = dict[str, Any]


def wait_for(what: str, look: Callable[[], Found], limit: float = LIMIT) -> Found:
    """What `look` returns as soon as that is not empty, zero or false."""
    end = time.monotonic() + limit
    pause = 0.002
    while not (found := look()):
        assert time.monotonic() < end, f"waited {limit:g} s in vain for {what}"
        time.sleep(pause)
        pause = min(pause * 1.1, 0.05)
    return found


def free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return int(probe.getsockname()[1])


def last_line(file: Path) -> bytes:
    """The newest whole one near the end of a file that grows; empty: there is none."""
    if not file.exists():
        return b""
    with file.open("rb") as output:
        output.seek(max(0, file.stat().st_size - 8192))
        lines = output.read().split(b"\n")[:-1]
    return lines[-1] if lines else b""


class Room:
    """A folder with what runs in it. What is left running is killed at the end."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.processes: list[Process] = []

    def __truediv__(self, name: str) -> Path:
        return self.folder / name

    def close(self) -> None:
        for process in self.processes:
            process.kill()

    def said(self) -> str:
        """What everything that ran here has said at last."""
        texts = []
        for process in self.processes:
            last = process.lines()[-40:]
            texts.append("\n".join([f"---- {process.name}", *last]))
        return "\n".join(texts)


class Process:
    """A program that is started, killed and started again; what it says on standard error is kept."""

    def __init__(self, room: Room, name: str, command: Sequence[str]) -> None:
        self.room, self.name, self.command = room, name, list(command)
        self.log = room / f"{name}.log"
        self.log.touch()
        self.environment: dict[str, str] = {}
        self.popen_options: dict[str, Any] = {}
        self._running: subprocess.Popen[bytes] | None = None
        room.processes.append(self)

    def start(self) -> None:
        assert not self.is_running(), f"{self.name} runs already"
        with self.log.open("ab") as log, self.output() as output:
            # A test that is killed itself leaves nothing behind.
            self._running = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", *self.command],
                stdout=output,
                stderr=log,
                env={**os.environ, **self.environment},
                **self.popen_options,
            )

    def output(self) -> Any:
        """Where its standard output goes."""
        return self.log.open("ab")

    @property
    def pid(self) -> int:
        assert self._running
        return self._running.pid

    def is_running(self) -> bool:
        return self._running is not None and self._running.poll() is None

    def signal(self, number: signal.Signals) -> None:
        assert self._running
        self._running.send_signal(number)

    def kill(self) -> None:
        """As nobody can prepare for."""
        if self._running is not None:
            self._running.kill()
            self._running.wait()

    def end(self, limit: float = LIMIT) -> int:
        """Asks it to end; returns its exit status."""
        self.signal(signal.SIGTERM)
        return self.wait(limit)

    def wait(self, limit: float = LIMIT) -> int:
        assert self._running
        return self._running.wait(limit)

    def processor_seconds(self) -> float:
        fields = Path(f"/proc/{self.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def lines(self, mark: int = 0) -> list[str]:
        return self.log.read_text(errors="replace").splitlines()[mark:]

    def mark(self) -> int:
        """Where its lines are now."""
        return len(self.lines())

    def wait_for_line(self, part: str, mark: int = 0, limit: float = LIMIT) -> str:
        """The first line since then that has this in it."""

        def look() -> str:
            return next((line for line in self.lines(mark) if part in line), "")

        return wait_for(f"{self.name} to say '{part}'", look, limit)


class Broker(Process):
    """Debian's mosquitto on a port of this machine that stays the same over its lives."""

    def __init__(self, room: Room, *settings: str, name: str = "broker", persistence: bool = False) -> None:
        self.port = free_port()
        self.host = "127.0.0.1"
        self.file = room / f"{name}.conf"
        self.settings = list(settings)
        self.store = room / f"{name}-store"
        self.store.mkdir()
        super().__init__(room, name, ["mosquitto", "-c", str(self.file)])
        self.configure(persistence)

    def configure(self, persistence: bool) -> None:
        """For its next life."""
        kinds = ["error", "warning", "notice", "information"]
        lines = [f"listener {self.port} {self.host}", "log_dest stderr"]
        lines += [f"log_type {kind}" for kind in kinds]
        if not any(line.startswith("allow_anonymous") for line in self.settings):
            lines.append("allow_anonymous true")
        if os.geteuid() == 0:
            # Otherwise it becomes a user who may not read this folder.
            lines.append("user root")
        if persistence:
            lines += ["persistence true", f"persistence_location {self.store}/", "autosave_interval 1"]
        self.file.write_text("\n".join([*lines, *self.settings]) + "\n")

    def start(self) -> None:
        super().start()
        wait_for(f"{self.name} to listen", self._listens)

    def _listens(self) -> bool:
        assert self.is_running(), f"{self.name} has ended: {self.lines()[-3:]}"
        with socket.socket() as probe:
            return probe.connect_ex((self.host, self.port)) == 0


def toml(value: Any) -> str:
    if isinstance(value, bool):
        return str(value).lower()
    if isinstance(value, list):
        return "[" + ", ".join(map(toml, value)) + "]"
    return json.dumps(str(value)) if isinstance(value, str | Path) else str(value)


def section(title: str, values: Mapping[str, Any]) -> str:
    lines = [f"{key} = {toml(value)}" for key, value in values.items() if value is not None]
    return "\n".join([title, *lines, ""])


@dataclass
class Settings:
    """What is in a gateway's configuration."""

    port: int
    name: str = "gw"
    host: str = "127.0.0.1"
    consumers: list[str] = field(default_factory=lambda: ["store"])
    readers: list[str] = field(default_factory=list)
    radio: dict[str, Any] = field(default_factory=dict)
    log: dict[str, Any] = field(default_factory=dict)
    broker: dict[str, Any] = field(default_factory=dict)
    tls: dict[str, Any] | None = None
    page: dict[str, Any] | None = None
    page_tls: dict[str, Any] | None = None
    format: str | None = None
    webhooks: list[dict[str, Any]] = field(default_factory=list)

    def text(self) -> str:
        gateway = {"name": self.name, "consumers": self.consumers, "format": self.format}
        parts = [] if self.readers else ["reader = []\n"]
        parts += [
            section("[gateway]", gateway),
            section("[radio]", self.radio),
            section("[log]", self.log),
            section("[broker]", {"host": self.host, "port": self.port, **self.broker}),
        ]
        if self.tls is not None:
            parts.append(section("[broker.tls]", self.tls))
        if self.page is not None:
            parts.append(section("[page]", self.page))
        if self.page_tls is not None:
            parts.append(section("[page.tls]", self.page_tls))
        for reader in self.readers:
            key = "address" if reader.count(":") == 5 else "name"
            parts.append(section("[[reader]]", {key: reader}))
        parts += [section("[[webhook]]", webhook) for webhook in self.webhooks]
        return "\n".join(parts)


# Of both families: names that begin with KVR-Q62T are of the second one.
READERS = ["KVR-0001", "KVR-0002", "KVR-0003", "KVR-Q62T 0004", "KVR-Q62T 0005"]


class Gateway(Process):
    """`kestrin-gateway run`: on a simulated radio, whose readers send by themselves, or on the real one."""

    def __init__(
        self, room: Room, port: int, name: str = "gateway", *, pause: float = 0.01, simulated: bool = True
    ) -> None:
        self.file = room / f"{name}.toml"
        self.sent = room / f"{name}.sent"
        self.folder = room / f"{name}-log"
        script = room / f"{name}.readers"
        script.write_text("".join(f"{pause:g} {reader}\n" for reader in READERS))
        self.settings = Settings(
            port,
            readers=list(READERS),
            radio={"kind": "simulated", "script": str(script)} if simulated else {"kind": "bluez"},
            log={"directory": str(self.folder)},
        )
        self._taken = room / f"{name}.taken"
        records = ["--taken", str(self._taken), *(["--sent", str(self.sent)] if simulated else [])]
        super().__init__(room, name, [PROGRAM, "run", str(self.file), *records])
        self.sent.touch()
        self._sent_lines = 0
        self._sent_at = 0

    def start(self) -> None:
        self.configure()
        super().start()

    def configure(self) -> None:
        new = self.file.with_suffix(".new")
        new.write_text(self.settings.text())
        new.rename(self.file)

    def reload(self) -> None:
        self.configure()
        self.signal(signal.SIGHUP)

    def sent_count(self) -> int:
        """How much its readers have sent, over all its lives."""
        with self.sent.open("rb") as file:
            file.seek(self._sent_at)
            piece = file.read()
        self._sent_at += len(piece)
        self._sent_lines += piece.count(b"\n")
        return self._sent_lines

    def sent_records(self) -> dict[str, list[bytes]]:
        """The same by reader, in its order."""
        sent: dict[str, list[bytes]] = {}
        for line in self.sent.read_text().splitlines():
            name, _, digits = line.partition("\t")
            sent.setdefault(name, []).append(bytes.fromhex(digits))
        return sent

    def taken(self) -> dict[tuple[str, int], str]:
        """What it has written down behind each frame that its log had accepted: log, number, bytes."""
        text = self._taken.read_text()
        lines = (line.split() for line in text[: text.rfind("\n") + 1].splitlines())
        return {(log, int(number)): digits for log, number, digits in lines}

    def last_taken(self) -> int:
        """The newest number of those; 0: none."""
        line = last_line(self._taken)
        return int(line.split()[1]) if line else 0

    def clear_taken(self) -> None:
        """Between two lives."""
        self._taken.unlink(missing_ok=True)

    def exported(self) -> list[Json]:
        """What is in its log, which may be in use."""
        file = self.room / f"{self.name}-export.jsonl"
        file.unlink(missing_ok=True)
        command = [PROGRAM, "export", str(self.folder), "--jsonl", str(file)]
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        assert done.returncode == 0, done.stderr
        return [json.loads(line) for line in file.read_text().splitlines()]


class ConsumerProcess(Process):
    """`kestrin-gateway consume`: what each of its lives prints is in a file of its own."""

    def __init__(
        self, room: Room, port: int, *options: str, name: str = "store", gateway: str = "gw"
    ) -> None:
        self.state = room / f"{name}.state"
        self.lives = 0
        names = ["--gateway", gateway, "--name", name, "--state", str(self.state)]
        place = ["--host", "127.0.0.1", "--port", str(port)]
        super().__init__(room, name, [PROGRAM, "consume", *names, *place, *options])

    def output(self) -> Any:
        self.lives += 1
        return self.life(self.lives).open("wb")

    def life(self, number: int) -> Path:
        return self.room / f"{self.name}-{number}.jsonl"

    def printed(self, number: int) -> list[Json]:
        """What one life has printed. A kill may have cut its last line off; that is not in its state."""
        text = self.life(number).read_bytes()
        return [json.loads(line) for line in text[: text.rfind(b"\n") + 1].splitlines()]

    def records(self, first: int = 1) -> list[Json]:
        """What its lives from `first` on have printed."""
        return [each for number in range(first, self.lives + 1) for each in self.printed(number)]

    def forget_lives(self) -> None:
        """Removes what was printed, where there is much of it."""
        for number in range(1, self.lives + 1):
            self.life(number).unlink(missing_ok=True)

    def last_number(self) -> int:
        """Of the newest thing that it has printed in this life; 0: nothing."""
        line = last_line(self.life(self.lives))
        return int(json.loads(line)["n"]) if line else 0


def new_client(name: str) -> Any:
    """Both releases of the package: the newer one wants to be told how it is to call."""
    if hasattr(mqtt, "CallbackAPIVersion"):
        return mqtt.Client(mqtt.CallbackAPIVersion.VERSION2, client_id=name, protocol=mqtt.MQTTv5)
    return mqtt.Client(client_id=name, protocol=mqtt.MQTTv5)


@dataclass
class Seen:
    """A message, and when it came."""

    topic: str
    payload: bytes
    retain: bool
    correlation: bytes | None
    at: float

    def json(self) -> Json:
        read: Json = json.loads(self.payload)
        return read


class Watch:
    """Looks at a broker's topics and publishes, as any other client does."""

    def __init__(self, port: int, *filters: str, name: str = "watch", tls: Json | None = None) -> None:
        self._new: queue.SimpleQueue[Seen] = queue.SimpleQueue()
        self._seen: list[Seen] = []
        self._subscribed = threading.Event()
        self._filters = filters or ("kestrin/#",)
        self._client = new_client(name)
        self._client.on_connect = self._connected
        self._client.on_subscribe = lambda *_: self._subscribed.set()
        self._client.on_message = self._message
        self._client.reconnect_delay_set(1, 1)
        if tls is not None:
            self._client.tls_set(**tls)
        self._client.connect("127.0.0.1", port, keepalive=60)
        self._client.loop_start()
        assert self._subscribed.wait(LIMIT), "the broker has not answered a subscription"

    def _connected(self, *_: object) -> None:
        options = subscribeoptions.SubscribeOptions(qos=1, retainAsPublished=True)
        self._client.subscribe([(each, options) for each in self._filters])

    def _message(self, _client: object, _data: object, message: Any) -> None:
        correlation = getattr(message.properties, "CorrelationData", None)
        seen = Seen(message.topic, message.payload, message.retain, correlation, time.monotonic())
        self._new.put(seen)

    def close(self) -> None:
        self._client.disconnect()
        self._client.loop_stop()

    def all(self, topic: str = "", mark: int = 0) -> list[Seen]:
        """Everything that came, or what came to the topics that end in this."""
        while not self._new.empty():
            self._seen.append(self._new.get())
        return [seen for seen in self._seen[mark:] if seen.topic.endswith(topic)]

    def mark(self) -> int:
        self.all()
        return len(self._seen)

    def last(self, topic: str) -> Json:
        """What came last to the topic that ends in this; empty: nothing."""
        came = self.all(topic)
        return came[-1].json() if came and came[-1].payload else {}

    def wait(
        self, topic: str, holds: Callable[[Seen], bool], mark: int = 0, limit: float = LIMIT
    ) -> Seen:
        """The first message to the topic since then for which it holds."""

        def look() -> Seen | None:
            return next((seen for seen in self.all(topic, mark) if holds(seen)), None)

        found = wait_for(f"a message to {topic}", look, limit)
        assert found
        return found

    def wait_for_trouble(self, part: str, mark: int = 0, limit: float = LIMIT) -> Json:
        """The gateway's health since then in which a line has this in it."""

        def holds(seen: Seen) -> bool:
            return any(part in line for line in seen.json()["trouble"])

        return self.wait("/health", holds, mark, limit).json()

    def publish(
        self,
        topic: str,
        payload: str | bytes,
        *,
        retain: bool = False,
        answer_to: str | None = None,
        correlation: bytes | None = None,
        expiry: int | None = None,
    ) -> None:
        """Returns once the broker has it."""
        along = properties.Properties(packettypes.PacketTypes.PUBLISH)
        if answer_to is not None:
            along.ResponseTopic = answer_to
        if correlation is not None:
            along.CorrelationData = correlation
        if expiry is not None:
            along.MessageExpiryInterval = expiry
        info = self._client.publish(topic, payload, qos=1, retain=retain, properties=along)
        info.wait_for_publish(LIMIT)
        assert info.is_published(), f"the broker has not taken a message to {topic}"


def by_number(records: Iterator[Json] | Sequence[Json]) -> dict[tuple[str, int], Json]:
    """Records by what identifies them; one that came twice has to be the same both times."""
    known: dict[tuple[str, int], Json] = {}
    for record in records:
        before = known.setdefault((record["log"], record["n"]), record)
        assert before == record, f"one number, two contents: {before} and {record}"
    return known
