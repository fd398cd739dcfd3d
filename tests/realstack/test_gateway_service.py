"""The gateway's package as a service of a real systemd, on the real stack: installed, started, and then
everything around it is restarted, it itself too, its broker is slow, it is stuck once, it comes with the machine's
other services, and it is upgraded, while three readers go on sending.

What is compared: what the gateway wrote down as taken, and what the consumer wrote down."""

from __future__ import annotations

import json
import os
import re
import signal
import subprocess
import time
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest
from frames import build_frame
from judge import expect_everything_taken
from machines import ConsumerProcess, Json, Room, wait_for
from stack import BUILD, LOGS, Stack, daemon_property
from stack import wait_for as wait_long

UNIT = "kestrin-gateway.service"
STATE = Path("/var/lib/kestrin-gateway")
CONFIG = Path("/etc/kestrin-gateway/gateway.toml")
READERS = {"KVR-0001": "r1", "KVR-0002": "r2", "KVR-Q62T 0003": "r3"}
DEVICES = [word for name, id in READERS.items() for word in ("--reader", f"{name},id={id}")]
PART = 20  # Frames of each reader between two steps.
BROKER_PORT = 1883
WATCHDOG = 60  # The unit's, in seconds.
MOST_EXPOSURE = 2.0


def run(*command: str, check: bool = True) -> str:
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    assert done.returncode == 0 or not check, f"{command}: {done.stdout}{done.stderr}"
    return done.stdout.strip()


def shown(name: str) -> str:
    """What systemd says of the unit."""
    return run("systemctl", "show", "--value", "-p", name, UNIT)


def is_active() -> bool:
    return shown("ActiveState") == "active"


def package(name: str) -> Path:
    found = sorted((BUILD / "packages").glob(f"{name}_*.deb"))
    assert found, f"scripts/package --from build makes {name}"
    return found[-1]


def newer(deb: Path) -> Path:
    """The same package under a higher version."""
    folder = Path("/tmp/newer")
    run("dpkg-deb", "-R", str(deb), str(folder))
    control = folder / "DEBIAN/control"
    text = re.sub(r"^(Version: .*)$", r"\1+newer", control.read_text(), count=1, flags=re.MULTILINE)
    control.write_text(text)
    made = Path("/tmp/kestrin-gateway-newer.deb")
    run("dpkg-deb", "-Znone", "--root-owner-group", "-b", str(folder), str(made))
    return made


class ServiceStack(Stack):
    """With bus and daemon as the system's services."""

    def start_bus(self) -> None:
        run("systemctl", "start", "dbus.socket")
        wait_long(60, "the message bus", lambda: "org.freedesktop.DBus" in run("busctl", "--no-pager", "list"))

    def start_daemon(self) -> None:
        settings = Path("/etc/bluetooth/main.conf")
        settings.parent.mkdir(exist_ok=True)
        settings.write_text("[General]\nControllerMode = le\n")
        run("systemctl", "start", "bluetooth.service")
        self.wait_until_powered()

    def restart_daemon(self) -> None:
        # While a daemon ends in order, Linux 6.1 takes the links down and may stop with an oops in hci_chan_del when
        # the daemon closes their sockets meanwhile. After a kill the kernel does both by itself.
        if tuple(map(int, os.uname().release.split(".")[:2])) < (6, 12):
            run("systemctl", "kill", "--signal=SIGKILL", "bluetooth.service")
            wait_long(60, "the killed daemon to be gone", lambda: not self.daemon_is_active())
        run("systemctl", "restart", "bluetooth.service")
        self.wait_until_powered()

    def daemon_is_active(self) -> bool:
        return run("systemctl", "show", "--value", "-p", "ActiveState", "bluetooth.service") == "active"

    def wait_until_powered(self) -> None:
        path, name = "/org/bluez/hci0", "Adapter1"
        wait_long(120, "the adapter to be powered", lambda: daemon_property(path, name, "Powered") == "b true")


class Work:
    """The run, and what is known of it afterwards."""

    def __init__(self) -> None:
        self.stack = ServiceStack(*DEVICES)
        self.stack.start()
        run("systemctl", "start", "mosquitto.service")
        self.room = Room(LOGS / "service")
        self.room.folder.mkdir()
        self.count = 0
        self.seen: dict[str, str] = {}

    def install(self) -> None:
        run("dpkg", "-i", str(package("libkestrinblesdk1.0")), str(package("kestrin-gateway")))
        self.seen["enabled"] = run("systemctl", "is-enabled", UNIT, check=False)
        self.seen["active"] = shown("ActiveState")
        self.seen["config"] = CONFIG.read_text()

    def configure(self) -> None:
        """As its owner does: another name, the readers, a broker, a password that only root can read."""
        text = CONFIG.read_text()
        text = text.replace('host = "broker.example"', 'host = "localhost"')
        text = text.replace('#user = "gateway-1"', 'user = "gateway-1"')
        text = text.replace("#password_file", "password_file")
        readers = "\n".join(f'[[reader]]\nname = "{name}"' for name in [*READERS, "KVR-AWAY"])
        CONFIG.write_text(re.sub(r'\[\[reader\]\]\nname = "KVR-0417"', readers, text))
        password = CONFIG.parent / "credentials/broker.password"
        password.write_text("swordfish\n")
        password.chmod(0o600)
        self.seen["check"] = run(self.program, "check-config", str(CONFIG))
        # So that it writes down what it has taken, which nothing else tells from outside.
        addition = Path(f"/etc/systemd/system/{UNIT}.d/taken.conf")
        addition.parent.mkdir(parents=True)
        command = f"{self.program} run --taken {STATE}/taken {CONFIG}"
        addition.write_text(f"[Service]\nExecStart=\nExecStart={command}\n")
        run("systemctl", "daemon-reload")

    program = "/usr/bin/kestrin-gateway"

    def start(self) -> None:
        self.consumer = ConsumerProcess(self.room, BROKER_PORT, name="store", gateway="gateway-1")
        self.consumer.start()
        run("systemctl", "enable", "--now", UNIT)
        self.seen["started"] = shown("ActiveState")
        self.first = self.main_process()
        status = Path(f"/proc/{self.first}/status").read_text()
        self.seen["user"] = status.split("Uid:")[1].split()[1]
        self.seen["capabilities"] = status.split("CapEff:")[1].split()[0]
        self.seen["security"] = run("systemd-analyze", "security", "--no-pager", UNIT, check=False)
        self.wait_until_linked(0)
        self.send()

    def main_process(self) -> int:
        return int(shown("MainPID"))

    def wait_until_linked(self, mark: int) -> None:
        for id in READERS.values():
            self.stack.wait_for_line(mark, f"SUBSCRIBED {id} .*", 600)

    def send(self) -> None:
        """Each reader sends a few frames, and the gateway takes them."""
        before = len(self.taken())
        with self.stack.orders.open("w") as orders:
            for _ in range(PART):
                self.count += 1
                for number, id in enumerate(READERS.values(), 1):
                    frame = build_frame(0x02, 0x22, bytes([number]) + self.count.to_bytes(4, "big"))
                    orders.write(f"notify {id} {frame.hex()}\n")
        target = before + PART * len(READERS)
        wait_for(f"{target} records to be taken", lambda: len(self.taken()) >= target)

    def taken(self) -> dict[tuple[str, int], str]:
        file = STATE / "taken"
        text = file.read_text() if file.exists() else ""
        lines = (line.split() for line in text[: text.rfind("\n") + 1].splitlines())
        return {(log, int(number)): digits for log, number, digits in lines}

    def restart_what_is_around(self) -> None:
        mark = self.stack.mark()
        self.stack.restart_daemon()
        self.wait_until_linked(mark)
        self.send()
        run("systemctl", "restart", "mosquitto.service")
        self.send()
        self.seen["after restarts"] = f"{self.main_process()}"

    def restart(self) -> None:
        mark = self.stack.mark()
        run("systemctl", "restart", UNIT)
        self.wait_until_linked(mark)
        self.send()

    def reload(self) -> None:
        run("systemctl", "reload", UNIT)
        self.send()
        # Frames come before the reader is plugged in.
        wait_long(60, "the status with three readers", lambda: shown("StatusText").startswith("3 of 4 readers"))
        self.seen["status"] = shown("StatusText")

    def have_a_slow_broker(self) -> None:
        """It says nothing for longer than the watchdog waits for the gateway."""
        assert shown("WatchdogUSec") == f"{WATCHDOG // 60}min"
        before = self.main_process()
        broker = int(run("systemctl", "show", "--value", "-p", "MainPID", "mosquitto.service"))
        os.kill(broker, signal.SIGSTOP)
        until = time.monotonic() + 2 * WATCHDOG
        self.send()
        while time.monotonic() < until:
            time.sleep(1)
        self.send()
        os.kill(broker, signal.SIGCONT)
        self.seen["slow broker"] = str(is_active() and self.main_process() == before)
        self.seen["restarts by a slow broker"] = shown("NRestarts")

    def get_stuck(self) -> None:
        stuck = self.main_process()
        mark = self.stack.mark()
        os.kill(stuck, signal.SIGSTOP)
        wait_long(900, "another process", lambda: is_active() and self.main_process() not in (0, stuck))
        self.seen["restarts"] = shown("NRestarts")
        self.wait_until_linked(mark)
        self.send()

    def come_with_the_machine(self) -> None:
        """The machine itself has come to its basic target so far; this is the rest of its way up."""
        run("systemctl", "stop", UNIT)
        assert not is_active()
        mark = self.stack.mark()
        run("systemctl", "start", "--no-block", "multi-user.target")
        wait_long(300, "the gateway to come with the machine", is_active)
        self.seen["comes with"] = shown("WantedBy")
        self.wait_until_linked(mark)
        self.send()

    def upgrade(self) -> None:
        before = self.main_process()
        mark = self.stack.mark()
        run("dpkg", "-i", str(newer(package("kestrin-gateway"))))
        self.seen["version"] = run("dpkg-query", "-W", "-f=${Version}", "kestrin-gateway")
        self.seen["kept config"] = str("localhost" in CONFIG.read_text())
        assert is_active() and self.main_process() != before
        self.wait_until_linked(mark)
        self.send()

    def finish(self) -> None:
        last = max(number for _, number in self.taken())
        wait_for(f"the consumer to have number {last}", lambda: self.consumer.last_number() >= last)
        # The reader that is not there is said once it was searched for long enough.
        wait_long(120, "the line about the reader that is away", lambda: self.journal("KESTRIN_READER=KVR-AWAY") != [])
        run("systemctl", "stop", UNIT)
        self.seen["stopped"] = shown("Result")
        self.lines = self.journal()
        self.consumer.end()
        self.all_taken = self.taken()
        self.printed = self.consumer.records()

    def journal(self, *fields: str) -> list[Json]:
        text = run("journalctl", "--no-pager", "-o", "json", f"_SYSTEMD_UNIT={UNIT}", *fields)
        return [json.loads(line) for line in text.splitlines()]

    def remove(self) -> None:
        run("dpkg", "-r", "kestrin-gateway")
        self.seen["after removal"] = str((STATE / "log").exists() and CONFIG.exists())
        run("dpkg", "-P", "kestrin-gateway")
        left = [STATE, Path("/var/lib/private/kestrin-gateway"), CONFIG]
        self.seen["after purge"] = str([str(path) for path in left if path.exists() or path.is_symlink()])
        self.seen["keys"] = str((CONFIG.parent / "credentials/broker.password").exists())

    def do(self) -> None:
        steps = [
            self.install,
            self.configure,
            self.start,
            self.restart_what_is_around,
            self.restart,
            self.reload,
            self.have_a_slow_broker,
            self.get_stuck,
            self.come_with_the_machine,
            self.upgrade,
            self.finish,
            self.remove,
        ]
        for step in steps:
            print(f"-- {step.__name__.replace('_', ' ')}", flush=True)
            step()


@pytest.fixture(scope="module")
def work() -> Iterator[Work]:
    done = Work()
    try:
        done.do()
    except BaseException:
        print(run("journalctl", "--no-pager", "-b", "-n", "200", check=False), flush=True)
        print(done.room.said())
        raise
    yield done
    done.room.close()


def test_the_installation_neither_enables_nor_starts_it_and_leaves_a_configuration_to_edit(work: Work) -> None:
    assert work.seen["enabled"] == "disabled"
    assert work.seen["active"] == "inactive"
    assert 'host = "broker.example"' in work.seen["config"]
    assert "is right" in work.seen["check"]


def test_it_starts_as_a_user_of_its_own_without_any_capability(work: Work) -> None:
    assert work.seen["started"] == "active"
    assert int(work.seen["user"]) != 0
    assert int(work.seen["capabilities"], 16) == 0


def test_systemd_finds_it_exposed_to_little(work: Work, record_property: Callable[[str, object], None]) -> None:
    found = re.search(r"Overall exposure level for \S+: ([0-9.]+) ", work.seen["security"])
    assert found, work.seen["security"]
    record_property("exposure", f"exposure {found[1]}")
    assert float(found[1]) <= MOST_EXPOSURE, work.seen["security"]


def test_restarts_of_daemon_and_broker_do_not_end_it(work: Work) -> None:
    assert work.seen["after restarts"] == str(work.first)


def test_its_status_says_how_it_stands(work: Work) -> None:
    assert re.fullmatch(r"3 of 4 readers plugged in, the broker is there, \d+ records wait", work.seen["status"])


def test_a_slow_broker_does_not_have_it_restarted(work: Work) -> None:
    assert work.seen["slow broker"] == "True"
    assert int(work.seen["restarts by a slow broker"]) == 0


def test_when_its_loop_is_stuck_the_watchdog_restarts_it(work: Work) -> None:
    assert int(work.seen["restarts"]) == 1


def test_it_comes_with_the_machine_once_it_is_enabled(work: Work) -> None:
    assert work.seen["comes with"] == "multi-user.target"


def test_an_upgrade_restarts_it_and_keeps_the_configuration(work: Work) -> None:
    assert work.seen["version"].endswith("+newer")
    assert work.seen["kept config"] == "True"


def test_what_it_took_is_at_the_consumer(work: Work, record_property: Callable[[str, object], None]) -> None:
    # Where a stuck one was killed, what it was about to write down may be in the log alone.
    verdict = expect_everything_taken(work.all_taken, work.printed, 1)
    record_property("taken", f"{verdict}, over a restart of each service, a slow broker, a stuck loop and an upgrade")
    assert verdict.taken >= 10 * PART * len(READERS)


def test_its_lines_are_in_the_journal_with_fields(work: Work) -> None:
    away = [line for line in work.lines if line.get("KESTRIN_READER") == "KVR-AWAY"]
    assert any("is not in range" in line["MESSAGE"] for line in away)
    assert {line["KESTRIN_REASON"] for line in away} == {"reader"}
    assert {line["PRIORITY"] for line in away} == {"4"}
    assert any(line.get("KESTRIN_REASON") == "broker" for line in work.lines)
    assert not any(line["MESSAGE"].startswith("kestrin-gateway: ") for line in work.lines)


def test_it_stops_cleanly(work: Work) -> None:
    assert work.seen["stopped"] == "success"


def test_removing_keeps_log_and_configuration_and_purging_keeps_only_the_owners_keys(work: Work) -> None:
    assert work.seen["after removal"] == "True"
    assert work.seen["after purge"] == "[]"
    assert work.seen["keys"] == "True"
