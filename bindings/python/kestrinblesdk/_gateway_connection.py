"""A consumer's connection to the broker, by paho-mqtt 1.6 or 2."""

from __future__ import annotations

import importlib
import ipaddress
import os
import random
import ssl
import time
from collections.abc import Callable
from typing import Any, NamedTuple

_FIRST_PAUSE = 0.5
_LONGEST_PAUSE = 60.0
_TICK = 1.0
_TURN = 0.2  # How long it may take until `stop` is noticed.
_LONG_ENOUGH = 10.0  # A connection that another one's takes over ends at once.
_REFUSED = 128  # From here on a broker's answer to a subscription is a refusal.


class Address(NamedTuple):
    """Where the broker is, and how it is spoken to."""

    host: str
    port: int | None
    user: str | None
    password: str | None
    tls: bool
    ca: str | os.PathLike[str] | None
    certificate: str | os.PathLike[str] | None
    key: str | os.PathLike[str] | None
    keep_alive: int

    def check(self) -> None:
        if not self.host:
            raise ValueError("the host is empty; the broker's name or address would be right")
        if (self.certificate is None) != (self.key is None):
            raise ValueError("a certificate needs its key, and a key its certificate")
        if not self.tls and (self.ca is not None or self.certificate is not None):
            raise ValueError("certificates are for TLS; tls=True would be right")
        if self.password is None:
            return
        if self.user is None:
            raise ValueError("a password needs a user")
        if not self.tls and not is_loopback(self.host):
            raise ValueError(
                f"without TLS everybody on the way to {self.host} could read the password; "
                "tls=True would be right"
            )


    def tls_context(self) -> ssl.SSLContext:
        """With the certificates as they are on disk now. OSError where they cannot be read."""
        context = ssl.create_default_context(cafile=self.ca)
        if self.certificate is not None:
            context.load_cert_chain(self.certificate, self.key)
        return context


class Handlers(NamedTuple):
    filters: list[str]
    up: Callable[[Callable[[str, str, bool], None]], None]
    down: Callable[[], None]
    message: Callable[[str, bytes], None]
    tick: Callable[[], None]
    trouble: Callable[[str], None]


def is_loopback(host: str) -> bool:
    """Whether a name means this machine, without asking anybody."""
    if host.lower() == "localhost":
        return True
    try:
        return ipaddress.ip_address(host).is_loopback
    except ValueError:
        return False


def load_paho() -> Any:
    """paho-mqtt. ImportError says how to get it."""
    try:
        return importlib.import_module("paho.mqtt.client")
    except ModuleNotFoundError:
        raise ImportError(
            "a consumer's connection needs paho-mqtt: apt install python3-paho-mqtt",
            name="paho.mqtt.client",
        ) from None


class Connection:
    """Made, and made again after a loss, on the thread that calls `run`."""

    def __init__(self, address: Address, client_id: str, handlers: Handlers) -> None:
        address.check()
        self._paho = load_paho()
        self._address = address
        self._client_id = client_id
        self._handlers = handlers
        self._stopped = False
        self._up = False
        self._up_since: float | None = None
        self._next_tick = 0.0

    def stop(self) -> None:
        """Ends `run` soon. From any thread, and from a signal handler."""
        # No lock: a signal handler runs in the middle of whatever this thread does.
        self._stopped = True

    def run(self, limit: float | None) -> None:
        end = None if limit is None else time.monotonic() + limit
        pause = _FIRST_PAUSE
        while not self._is_over(end):
            if self._run_once(end):
                pause = _FIRST_PAUSE
            if self._is_over(end):
                return
            # Many that lost the same broker do not come back at once.
            self._wait(pause * random.uniform(0.5, 1.5), end)
            pause = min(pause * 2, _LONGEST_PAUSE)

    def _is_over(self, end: float | None) -> bool:
        return self._stopped or (end is not None and time.monotonic() >= end)

    def _wait(self, pause: float, end: float | None) -> None:
        over = time.monotonic() + pause
        while time.monotonic() < over and not self._is_over(end):
            time.sleep(_TURN)

    def _run_once(self, end: float | None) -> bool:
        """One connection, from its beginning to its end. Whether it held."""
        client = None
        self._up_since = None
        try:
            client = self._new_client()
            client.connect(self._address.host, self._port(), keepalive=self._address.keep_alive)
            while not self._is_over(end):
                if client.loop(timeout=_TURN) != self._paho.MQTT_ERR_SUCCESS:
                    break
                self._tick()
            else:
                self._leave(client)
        except (OSError, ValueError) as error:
            # ValueError: a name that cannot be one of a host.
            self._trouble(f"no connection to the broker at {self._address.host}: {error}")
        finally:
            self._close(client)
        return self._up_since is not None and time.monotonic() - self._up_since > _LONG_ENOUGH

    def _leave(self, client: Any) -> None:
        if self._up:
            self._handlers.tick()
        client.disconnect()

    def _close(self, client: Any) -> None:
        if client is None:
            return
        # Without callbacks: paho ends the socket when the client is dropped.
        client.on_connect = client.on_message = client.on_subscribe = client.on_disconnect = None
        if self._up:
            self._up = False
            self._handlers.down()

    def _port(self) -> int:
        if self._address.port is not None:
            return self._address.port
        return 8883 if self._address.tls else 1883

    def _new_client(self) -> Any:
        paho, address = self._paho, self._address
        # Version 2 wants to be told which callbacks it has to do with.
        version = getattr(paho, "CallbackAPIVersion", None)
        first = () if version is None else (version.VERSION2,)
        client = paho.Client(
            *first, client_id=self._client_id, clean_session=True, protocol=paho.MQTTv311
        )
        if address.user is not None:
            client.username_pw_set(address.user, address.password)
        if address.tls:
            client.tls_set_context(address.tls_context())
        client.on_connect = self._connected
        client.on_subscribe = self._subscribed
        client.on_message = self._message
        client.on_disconnect = self._lost
        return client

    # What paho calls, with arguments that differ between its versions.

    def _connected(self, client: Any, _user: Any, _flags: Any, reason: Any, *_: Any) -> None:
        if reason != 0:
            text = self._paho.connack_string(reason) if isinstance(reason, int) else str(reason)
            self._trouble(f"the broker has refused the connection: {text}")
            return
        self._up = True
        self._up_since = time.monotonic()
        client.subscribe([(name, 1) for name in self._handlers.filters])
        self._next_tick = time.monotonic() + _TICK

        def publish(topic: str, payload: str, retain: bool) -> None:
            if self._up:
                client.publish(topic, payload, qos=1, retain=retain)

        self._handlers.up(publish)

    def _subscribed(self, _client: Any, _user: Any, _id: Any, granted: Any, *_: Any) -> None:
        codes = [int(getattr(code, "value", code)) for code in granted]
        for name, code in zip(self._handlers.filters, codes):
            if code >= _REFUSED:
                self._trouble(f"the broker has refused the subscription to {name}")

    def _message(self, _client: Any, _user: Any, message: Any) -> None:
        self._handlers.message(message.topic, message.payload)

    def _lost(self, _client: Any, _user: Any, *_: Any) -> None:
        if self._up and not self._stopped:
            self._trouble(f"the connection to the broker at {self._address.host} is lost")

    def _tick(self) -> None:
        now = time.monotonic()
        if not self._up or now < self._next_tick:
            return
        self._next_tick = now + _TICK
        self._handlers.tick()

    def _trouble(self, text: str) -> None:
        self._handlers.trouble(text)
