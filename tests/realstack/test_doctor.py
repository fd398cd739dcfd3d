"""`kestrin doctor`: what it says when all is well and under each trouble, and what a user without privileges
can do. In this order: the stack comes up step by step, from the strict policy on it stays in force, and
what is taken away in the end does not come back."""

from __future__ import annotations

import os
import re
import shutil
import signal
import subprocess
from collections.abc import Callable, Iterator, Sequence
from contextlib import contextmanager
from pathlib import Path

import pytest
from stack import BUILD, LOGS, Stack, succeeds, wait_for

# Copies, since an ordinary user may not be let into the folder that this was built in.
PROGRAMS = Path("/run/kestrin-programs")
KESTRIN = str(PROGRAMS / "kestrin")
WAITS_FOR_THE_RADIO = Path(__file__).with_name("python_waits_for_the_radio.py")
ENVIRONMENT = {
    **os.environ,
    "LD_LIBRARY_PATH": str(PROGRAMS),
    "PYTHONPATH": str(PROGRAMS),
}
ROOT: list[str] = []
# Ordinary users, one with the group that the policy knows.
NOBODY = ["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups"]
MEMBER = ["setpriv", "--reuid=nobody", "--regid=nogroup", "--groups", "bluetooth"]
COMMAND = "bb00030001b17e6597"
# Debian 13 and newer ship it in /usr/share.
POLICIES = [Path(root) / "dbus-1/system.d/bluetooth.conf" for root in ("/etc", "/usr/share")]
GROUP_PART = '<policy group="bluetooth"><allow send_destination="org.bluez"/></policy>'
ADAPTER_POWER = ["org.bluez", "/org/bluez/hci0", "org.bluez.Adapter1", "Powered"]


def kestrin(*arguments: str, user: Sequence[str] = ROOT) -> tuple[int, list[str]]:
    """Its exit status and its lines."""
    ended = subprocess.run(
        [*user, KESTRIN, *arguments],
        env=ENVIRONMENT,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        check=False,
    )
    return ended.returncode, ended.stdout.splitlines()


@contextmanager
def started(*command: str) -> Iterator[tuple[subprocess.Popen[bytes], Callable[[], list[str]]]]:
    """A program at work and what gives its lines so far."""
    log = LOGS / "started.log"
    with log.open("wb") as output:
        program = subprocess.Popen(command, env=ENVIRONMENT, stdout=output, stderr=subprocess.STDOUT)
    try:
        yield program, lambda: log.read_text().splitlines()
    finally:
        program.kill()
        program.wait()


def check_doctor(status: int, *patterns: str, user: Sequence[str] = ROOT) -> None:
    actual, lines = kestrin("doctor", user=user)
    said = "\n".join(lines)
    assert actual == status, said
    assert [pattern for pattern in patterns if not re.search(pattern, said, re.MULTILINE)] == [], said
    assert len(lines) <= 24, said


def check_scan(user: Sequence[str]) -> None:
    status, lines = kestrin("scan", "--for", "6", user=user)
    assert status == 0, lines
    assert any(line.startswith("KVR-0001") for line in lines), lines


def check_send(user: Sequence[str]) -> None:
    status, lines = kestrin("send", "KVR-0001", COMMAND, "--timeout", "60", user=user)
    assert status == 0, lines
    sent = [line.startswith("SENT ") for line in lines].index(True)
    assert any(line.startswith("FRAME ") for line in lines[sent:]), lines


def set_block(stack: Stack, on: bool) -> None:
    """The kernel's block of the radio, until the daemon has heard of it."""
    Path("/sys/class/rfkill/rfkill0/soft").write_text("1" if on else "0")
    if not on:
        stack.set_power(True)
    wait_for(10, "the adapter's power to follow", lambda: stack.power() == f"b {str(not on).lower()}")


@contextmanager
def blocked_radio(stack: Stack) -> Iterator[None]:
    set_block(stack, True)
    try:
        yield
    finally:
        set_block(stack, False)


def reload_policy() -> None:
    bus = "org.freedesktop.DBus"
    subprocess.run(["busctl", "call", bus, "/org/freedesktop/DBus", bus, "ReloadConfig"], check=True)


def nobody_is_refused() -> bool:
    asked = [*NOBODY, "busctl", "--auto-start=no", "get-property", *ADAPTER_POWER]
    answer = subprocess.run(asked, capture_output=True, text=True, check=False)
    return "denied" in (answer.stdout + answer.stderr).lower()


class Policy:
    """The message bus's, for the daemon."""

    def __init__(self) -> None:
        self._file = next(file for file in POLICIES if file.is_file())
        self._debians = self._file.read_text()

    def allow_by_default(self) -> None:
        self._file.write_text(self._debians)
        reload_policy()

    def refuse_by_default(self) -> None:
        """The policy of a system that is stricter than Debian's: root and a group only. Debian 12's names
        the group already, newer ones leave it out."""
        default = r'[^\n]*<policy context="default">.*?</policy>[^\n]*\n'
        strict = re.sub(default, "", self._debians, flags=re.DOTALL)
        if 'group="bluetooth"' not in strict:
            strict = strict.replace("</busconfig>", GROUP_PART + "</busconfig>")
        assert 'context="default"' not in strict
        assert 'group="bluetooth"' in strict
        self._file.write_text(strict)
        reload_policy()
        wait_for(10, "the bus to take the new policy", nobody_is_refused)


@pytest.fixture(scope="module")
def nothing_yet() -> Stack:
    libraries = [file for file in (BUILD / "lib").iterdir() if ".so." in file.name]
    shutil.copytree(BUILD / "python/kestrinblesdk", PROGRAMS / "kestrinblesdk")
    for file in [BUILD / "bin/kestrin", WAITS_FOR_THE_RADIO, *libraries]:
        shutil.copy(file, PROGRAMS)
    subprocess.run(["chmod", "-R", "a+rX", str(PROGRAMS)], check=True)
    LOGS.mkdir(parents=True, exist_ok=True)
    return Stack("--reader", "KVR-0001,id=reader")


@pytest.fixture(scope="module")
def bus_only(nothing_yet: Stack) -> Stack:
    nothing_yet.start_bus()
    return nothing_yet


@pytest.fixture(scope="module")
def stack(bus_only: Stack) -> Stack:
    bus_only.start_readers()
    bus_only.start_daemon()
    return bus_only


@pytest.fixture(scope="module")
def strict_policy(stack: Stack) -> Policy:
    policy = Policy()
    policy.refuse_by_default()
    return policy


def test_doctor_without_a_message_bus(nothing_yet: Stack) -> None:
    check_doctor(1, "^TROUBLE  message bus", "start dbus")


def test_doctor_without_a_daemon_and_an_adapter(bus_only: Stack) -> None:
    check_doctor(1, "^TROUBLE  daemon +bluetoothd is not running, and the kernel has no adapter")


def test_doctor_when_all_is_well(stack: Stack) -> None:
    check_doctor(
        0,
        "^ok       message bus",
        r"^ok       daemon +bluetoothd runs, BlueZ [0-9]+\.[0-9]+$",
        "^ok       permission +user root",
        "^ok       radio block +none$",
        "^ok       adapter hci0 .*powered on$",
        r"^A scan works\.$",
    )


def test_doctor_with_an_adapter_that_is_off(stack: Stack) -> None:
    stack.set_power(False)
    try:
        check_doctor(
            1, "^TROUBLE  adapter hci0 .*powered off", "-> 'bluetoothctl power on'", "^ok       radio block"
        )
    finally:
        stack.set_power(True)


def test_doctor_with_an_adapter_that_is_blocked(stack: Stack) -> None:
    with blocked_radio(stack):
        check_doctor(
            1,
            "^TROUBLE  radio block +hci0 is blocked",
            "-> 'rfkill unblock bluetooth'",
            "^TROUBLE  adapter hci0 .*powered off",
        )
    check_doctor(0, "^ok       radio block +none")


def test_a_scan_that_a_block_interrupts_goes_on_when_the_power_is_back(stack: Stack) -> None:
    blocked = re.compile("hci0 is powered off.*rfkill unblock")
    with started(KESTRIN, "scan", "--for", "60") as (scan, lines):
        wait_for(20, "the scan", lambda: any(line.startswith("KVR-0001") for line in lines()))
        with blocked_radio(stack):
            wait_for(20, "the scan to report it", lambda: any(map(blocked.search, lines())))
        wait_for(
            20, "the radio to be back", lambda: sum(line.endswith("is powered on") for line in lines()) == 2
        )
        scan.terminate()
        assert scan.wait(20) == 0, lines()


def test_an_ordinary_user_may_scan_under_debians_policy(stack: Stack) -> None:
    check_scan(NOBODY)


def test_an_ordinary_user_may_connect_and_send_under_debians_policy(stack: Stack) -> None:
    check_send(NOBODY)


def test_doctor_for_an_ordinary_user_when_all_is_well(stack: Stack) -> None:
    check_doctor(0, "^ok       permission +user nobody", user=NOBODY)


def test_a_stricter_policy_is_in_force(strict_policy: Policy) -> None:
    assert nobody_is_refused()


def test_a_user_whom_it_refuses_learns_so_at_once_and_what_to_do(strict_policy: Policy) -> None:
    status, lines = kestrin("scan", "--for", "60", user=NOBODY)
    assert status == 1, lines
    assert len(lines) == 1, lines
    assert re.match("kestrin: cannot scan: permission to talk to .* refused: .*adduser USER", lines[0])


def test_the_manager_of_that_user_gets_state_3_and_5_when_the_policy_lets_him(
    strict_policy: Policy,
) -> None:
    program = str(PROGRAMS / WAITS_FOR_THE_RADIO.name)
    with started(*NOBODY, "/usr/bin/python3", program) as (waiting, lines):
        wait_for(20, "state 3", lambda: " CBManager state is unauthorized" in lines())
        strict_policy.allow_by_default()
        wait_for(60, "state 5", lambda: " CBManager is powered on" in lines())
        strict_policy.refuse_by_default()
        assert waiting.wait(20) == 0, lines()


def test_doctor_names_the_group_to_a_refused_user(strict_policy: Policy) -> None:
    check_doctor(
        1,
        "^TROUBLE  permission +user nobody may not talk to the daemon",
        "-> 'adduser nobody bluetooth' and log in again",
        r"^A scan does not work\.$",
        user=NOBODY,
    )


def test_a_member_of_the_group_bluetooth_may_scan(strict_policy: Policy) -> None:
    check_scan(MEMBER)


def test_a_member_of_the_group_bluetooth_may_connect_and_send(strict_policy: Policy) -> None:
    check_send(MEMBER)


def test_root_may_scan(strict_policy: Policy) -> None:
    check_scan(ROOT)


def test_doctor_does_not_start_a_daemon_that_is_not_running(stack: Stack) -> None:
    stack.stop_daemon()
    # The bus would start this program for a call to the daemon's name, as it shows in the end.
    called = LOGS / "called"
    service = f"[D-BUS Service]\nName=org.bluez\nUser=root\nExec=/usr/bin/touch {called}\n"
    Path("/usr/share/dbus-1/system-services/org.bluez.service").write_text(service)
    reload_policy()
    check_doctor(
        1,
        "^TROUBLE  daemon +bluetoothd is not running",
        "systemctl start bluetooth",
        "^-        adapter",
    )
    status, lines = kestrin("scan", "--for", "2")
    assert status != 0, lines
    assert not called.exists()
    succeeds("busctl", "call", "org.bluez", "/", "org.freedesktop.DBus.Peer", "Ping")
    wait_for(10, "the bus to start what is called", called.exists)


def test_doctor_with_a_message_bus_that_has_gone(stack: Stack) -> None:
    stack.end("bus", signal.SIGKILL)
    check_doctor(1, "^TROUBLE  message bus", "systemctl start dbus", "^-        daemon")
