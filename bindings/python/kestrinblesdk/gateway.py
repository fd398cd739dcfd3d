"""Consumers of what `kestrin-gateway` hands to a broker: nothing is missed, and nothing counts twice.

    consumer = Consumer("warehouse-3", "stock", state="stock.state")
    consumer.on_record = lambda record: store(record.log, record.number, record.data)
    consumer.run("broker.example", tls=True)

docs/gateway.md has the promise, the topics and the payloads.
"""

from __future__ import annotations

import json
import logging
import os
from collections.abc import Callable, Mapping
from pathlib import Path

from ._gateway_connection import Address, Connection, Handlers
from ._gateway_messages import Gap, Record, check_name, record_of, standing_of
from ._gateway_state import read_state, write_state
from ._gateway_stream import Arrival, Stream

_logger = logging.getLogger("kestrinblesdk.gateway")
_MOST_TICKS_BETWEEN = 32
_MOST_LOGS = 100

Publish = Callable[[str, str, bool], None]


class Consumer:
    """Takes every record of one gateway: each once, in the order of its numbers within its log; asks
    for what is missing; and commits what is kept safe.

    Handlers are set before `run`. `on_record` gets each record, those of gaps too: what it returns
    from is kept safe and is committed; after an exception the record is offered again, and nothing
    behind it before. `on_gap` gets numbers that will never come. `on_trouble` gets one line for a
    person; without it that goes to the log "kestrinblesdk.gateway".

    State: with `state`, a file that the consumer writes in front of each commit. A record whose
    handler has returned and whose state is not written yet comes once more after a crash. Whoever
    wants not even that keeps `record.log` and `record.number` with what is made of the record, and
    hands the numbers behind them to `restore`.

    Everything happens on the thread that calls; `run` turns the connection on its own. `connected`,
    `take` and `tick` are for programs that have a connection of their own, which publishes by
    `publish` and subscribes to `filters`.
    """

    def __init__(
        self,
        gateway: str,
        name: str,
        *,
        state: str | os.PathLike[str] | None = None,
        most_waiting: int = 10_000,
    ) -> None:
        """`most_waiting`: how many records are held in memory while one before them is missing."""
        self._gateway = check_name(gateway, "the gateway's name")
        self._name = check_name(name, "the consumer's name")
        self._most_waiting = most_waiting
        self._state = None if state is None else Path(state)
        self._written: dict[str, int] = {}
        self._logs: dict[str, Stream] = {}  # The one used last is the last.
        self._current: str | None = None  # The gateway's log.
        self._stated = False  # The gateway has said so, nobody has guessed.
        self._ask_at_standing = False
        self._commit_again = False
        self._committed = 0
        self._missing_at = 0
        self._ticks_to_ask = 0
        self._ticks_between = 1
        self._busy = False
        self._connection: Connection | None = None
        self.on_record: Callable[[Record], object] | None = None
        self.on_gap: Callable[[Gap], object] | None = None
        self.on_trouble: Callable[[str], object] | None = None
        self.publish: Publish | None = None
        """Publishes a topic, a payload, and whether it is retained, with QoS 1. `run` sets it."""
        self.taken = 0
        """How many records were handed to `on_record`."""
        self.repeats = 0
        """How many came again."""
        self.lost = 0
        """How many numbers will never come."""
        if self._state is not None:
            self.restore(read_state(self._state, self._gateway, self._name))

    def __repr__(self) -> str:
        return f"<Consumer {self._name!r} of {self._gateway!r}: {self.taken} taken>"

    @property
    def filters(self) -> list[str]:
        """What to subscribe to, with QoS 1."""
        base = f"kestrin/v1/{self._gateway}/"
        return [base + "reader/+/frame", base + "gap", base + "info", base + "health"]

    @property
    def saved(self) -> dict[str, int]:
        """The next number of each log: everything below it is done with."""
        return {log: stream.next for log, stream in self._logs.items()}

    def restore(self, saved: Mapping[str, int]) -> None:
        """Goes on from what `saved` was, of the same gateway."""
        for log, number in saved.items():
            check_name(log, "a log's identity")
            if number < 1:
                raise ValueError(f"the next number of log {log} is {number}; 1 or more would be right")
        self._logs = {log: Stream(log, self._most_waiting, n) for log, n in saved.items()}
        self._written = dict(saved)
        self._current = None
        self._stated = False

    def run(
        self,
        host: str,
        port: int | None = None,
        *,
        user: str | None = None,
        password: str | None = None,
        tls: bool = False,
        ca: str | os.PathLike[str] | None = None,
        certificate: str | os.PathLike[str] | None = None,
        key: str | os.PathLike[str] | None = None,
        keep_alive: int = 30,
        limit: float | None = None,
    ) -> None:
        """Connects to the broker, and again after every loss, until `stop` is called or `limit`
        seconds are over. Needs paho-mqtt: ImportError without it. ValueError where an argument
        cannot be right. A password goes without TLS to this machine only."""
        address = Address(host, port, user, password, tls, ca, certificate, key, keep_alive)
        handlers = Handlers(
            self.filters, self._go_up, self._go_down, self.take, self.tick, self._trouble
        )
        client_id = f"kestrin-consumer-{self._gateway}-{self._name}"
        self._connection = Connection(address, client_id, handlers)
        try:
            self._connection.run(limit)
        finally:
            self._connection = None

    def stop(self) -> None:
        """Ends `run` soon, from a handler, another thread or a signal handler."""
        connection = self._connection
        if connection is not None:
            connection.stop()

    def connected(self) -> None:
        """To be called after each connection, when `filters` are subscribed to: asks for what has not
        been committed, as soon as the gateway has said which log is in use, or with the next `tick`."""
        self._commit(again=True)
        self._ask_at_standing = True
        self._missing_at = 0

    def take(self, topic: str, payload: bytes) -> None:
        """A message that has come."""
        base = f"kestrin/v1/{self._gateway}/"
        try:
            if topic in (base + "info", base + "health"):
                self._take_standing(payload)
            else:
                self._take_record(payload)
        except ValueError as error:
            self._trouble(f"{topic}: {error}")

    def tick(self) -> None:
        """To be called once per second or so: commits, and asks again for what is missing since the
        last call, less and less often while nothing comes."""
        for stream in list(self._logs.values()):
            self._hand_out(stream)
        again, self._commit_again = self._commit_again, False
        self._commit(again)
        self._ask_again()

    # What has come.

    def _take_record(self, payload: bytes) -> None:
        record = record_of(payload)
        # As long as the gateway has not said which log is its own, the newest one is.
        if self._current is None or (not self._stated and record.log not in self._logs):
            self._use(record.log, stated=False)
        stream = self._stream(record.log)
        if stream.arrive(record) is Arrival.repeat:
            self.repeats += 1
            # The gateway may not have the last commit.
            self._commit_again = self._commit_again or record.log == self._current
        self._hand_out(stream)

    def _take_standing(self, payload: bytes) -> None:
        standing = standing_of(payload)
        self._use(standing.log, stated=True)
        stream = self._stream(standing.log)
        stream.begin_at(standing.first, "budget")
        stream.know_of(standing.published)
        self._hand_out(stream)
        if self._ask_at_standing:
            self._ask_at_standing = False
            self._ask()

    def _use(self, log: str, stated: bool) -> None:
        self._stated = stated
        if self._current == log:
            return
        self._current = log
        self._committed = 0
        self._missing_at = 0

    def _stream(self, log: str) -> Stream:
        stream = self._logs.pop(log, None)
        if stream is None:
            others = [other for other in self._logs if other != self._current]
            if len(self._logs) >= _MOST_LOGS and others:
                del self._logs[others[0]]
            stream = Stream(log, self._most_waiting)
        self._logs[log] = stream
        return stream

    # What the application gets.

    def _hand_out(self, stream: Stream) -> None:
        # A handler that calls `take` or `tick` finds its record still in turn.
        if self._busy:
            return
        while self._hand_out_one(stream):
            pass

    def _hand_out_one(self, stream: Stream) -> bool:
        lost = stream.take_lost()
        if lost is not None:
            self._report(lost)
            return True
        record = stream.ready()
        if record is None or not self._is_kept(record):
            return False
        self.taken += 1
        lost = stream.done()
        if record.gap is not None and record.gap.log != record.log:
            self._lose(record.gap)
        elif lost is not None:
            self._report(lost)
        return True

    def _is_kept(self, record: Record) -> bool:
        if self.on_record is None:
            return True
        self._busy = True
        try:
            self.on_record(record)
        except Exception as error:
            self._trouble(
                f"record {record.number} of log {record.log} was not kept and comes again: "
                f"{type(error).__name__}: {error}"
            )
            return False
        finally:
            self._busy = False
        return True

    def _lose(self, gap: Gap) -> None:
        """A gap record of the current log about the log before it."""
        stream = self._logs.get(gap.log)
        if stream is None:
            self._report(gap)
            return
        stream.begin_at(gap.last + 1, gap.reason)
        self._hand_out(stream)

    def _report(self, lost: Gap) -> None:
        self.lost += lost.last - lost.first + 1
        if self.on_gap is None:
            return
        try:
            self.on_gap(lost)
        except Exception as error:
            self._trouble(f"on_gap: {type(error).__name__}: {error}")

    def _trouble(self, text: str) -> None:
        line = " ".join(text.split())
        if self.on_trouble is None:
            _logger.warning("%s", line)
        else:
            self.on_trouble(line)

    # What the gateway gets.

    def _commit(self, again: bool) -> None:
        if not self._write_state() or self._current is None or self._current not in self._logs:
            return
        done = self._logs[self._current].next - 1
        if done == 0 or (done == self._committed and not again):
            return
        if self._send(f"commit/{self._name}", {"log": self._current, "n": done}, retain=True):
            self._committed = done

    def _write_state(self) -> bool:
        """Whether what is to be committed is in the state's file, or there is none."""
        saved = self.saved
        if self._state is None or saved == self._written:
            return True
        try:
            write_state(self._state, self._gateway, self._name, saved)
        except OSError as error:
            self._trouble(f"the state cannot be written, so nothing is committed: {error}")
            return False
        self._written = saved
        return True

    def _ask(self) -> None:
        if self._current is not None:
            number = self._stream(self._current).next
            asked = {"log": self._current, "from": number, "consumer": self._name}
            self._send("replay", asked, retain=False)

    def _ask_again(self) -> None:
        if self._ask_at_standing:
            self._ask_at_standing = False
            self._ask()
        if self._current is None:
            return
        stream = self._stream(self._current)
        if not stream.missing:
            self._missing_at = 0
        elif self._missing_at != stream.next:
            # It may be on its way still.
            self._missing_at = stream.next
            self._ticks_between = self._ticks_to_ask = 1
        else:
            self._ticks_to_ask -= 1
            if self._ticks_to_ask > 0:
                return
            self._ask()
            self._ticks_between = min(self._ticks_between * 2, _MOST_TICKS_BETWEEN)
            self._ticks_to_ask = self._ticks_between

    def _send(self, topic: str, members: Mapping[str, object], retain: bool) -> bool:
        if self.publish is None:
            return False
        payload = json.dumps({"v": 1, **members}, separators=(",", ":"))
        self.publish(f"kestrin/v1/{self._gateway}/{topic}", payload, retain)
        return True

    # The connection of `run`.

    def _go_up(self, publish: Publish) -> None:
        self.publish = publish
        self.connected()

    def _go_down(self) -> None:
        self.publish = None


__all__ = ["Consumer", "Gap", "Record"]
