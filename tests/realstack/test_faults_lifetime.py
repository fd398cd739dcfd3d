"""Applications that end, or let go of what they hold, at a bad moment.

The file has no word of its suite's name, application: words that select tests look at it as well."""

from __future__ import annotations

import signal
import subprocess
import threading
import time
from collections.abc import Iterator
from typing import IO

import pytest
from faults import ADDRESS, DEVICES, LIMIT, READER, SECOND, App, Heard
from stack import BUILD, LOGS, Stack, wait_for

MOMENTS = ["scanning", "connecting", "linked", "burst", "without_a_daemon"]
KESTRIN = str(BUILD / "bin/kestrin")


class Probe(App):
    """In C++ and in a process of its own, since the package lets go of a manager only when it has closed
    the link."""

    def __init__(self, stack: Stack) -> None:
        super().__init__(stack)
        self.start()

    def start(self) -> None:
        self.lines = []
        self.begin()
        self._process = subprocess.Popen(
            [str(BUILD / "tests/fault_probe")], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
        )
        threading.Thread(target=self._listen, args=[self._process.stdout], daemon=True).start()
        self.ask("new")

    def _listen(self, output: IO[str]) -> None:
        with output:
            for line in output:
                if line.startswith("FRAME "):
                    self.hear_frame(bytes.fromhex(line.removeprefix("FRAME ").strip("<>\n")))
                else:
                    self.lines.append(line.rstrip("\n"))

    def ask(self, what: str) -> None:
        """Besides, to make or to "drop" parts, as the probe itself says."""
        assert self._process.stdin
        self._process.stdin.write(what + "\n")
        self._process.stdin.flush()

    def drop(self, part: str) -> None:
        self.ask(f"drop {part}")
        self.expect(f"DONE drop {part}")

    def is_alive(self) -> bool:
        return self._process.poll() is None

    def kill(self) -> None:
        self._process.kill()
        self._ended()

    def quit(self) -> int:
        """Returns its exit status."""
        if self.is_alive():
            self.ask("quit")
        return self._ended()

    def _ended(self) -> int:
        assert self._process.stdin
        self._process.stdin.close()
        return self._process.wait(LIMIT)


@pytest.fixture(scope="module")
def started(stack: Stack) -> Iterator[Probe]:
    stack.order("vanish second")
    probe = Probe(stack)
    try:
        probe.link_first()
        yield probe
    finally:
        probe.quit()


@pytest.fixture
def app(started: Probe) -> Probe:
    """Linked to the reader, with nothing counted so far."""
    if not started.is_alive():
        started.start()
    started.link_up_if_need_be()
    return started


@pytest.fixture(params=MOMENTS)
def moment(request: pytest.FixtureRequest, stack: Stack, app: Probe) -> str:
    """The one at which the application lets go; nothing is counted so far."""
    name: str = request.param
    if name == "scanning":
        app.scan_without_a_link()
    elif name == "connecting":
        app.close()
        stack.order("vanish reader")
        app.ask("connect")
        time.sleep(1)
    elif name == "burst":
        stack.order("burst reader 5000 20")
    elif name == "without_a_daemon":
        stack.end("daemon", signal.SIGKILL)
        app.expect(Heard.disconnected, Heard.resetting)
    else:
        assert app.is_linked()
    app.begin()
    return name


def test_the_application_is_linked_to_the_reader(stack: Stack, app: Probe) -> None:
    assert stack.daemon_is_linked(ADDRESS)
    assert app.is_alive()


def test_the_manager_is_destroyed(stack: Stack, app: Probe, moment: str) -> None:
    app.drop("all")
    stack.keep_daemon_up()
    app.wait_until_unlinked()
    stack.order("return reader")
    app.begin()
    app.ask("new")
    app.link_first()
    assert app.is_alive()


def test_the_delegates_are_destroyed(stack: Stack, app: Probe, moment: str) -> None:
    # The manager goes on without them, and calls new ones with what comes.
    app.drop("delegates")
    if moment == "scanning":
        stack.order("return second")
        app.expect(Heard.discovered(SECOND))
    elif moment == "connecting":
        stack.order("return reader")
        app.expect(Heard.connected, limit=90)
    elif moment == "without_a_daemon":
        app.start_daemon()
    else:
        stack.order("drop reader")
        app.expect(Heard.disconnected)
    app.expect_exactly(0, "FOUND .*", "PLUG .*")
    app.ask("delegates")
    stack.order("vanish second")
    if moment == "connecting":
        app.expect(Heard.plugged)
    else:
        app.begin()
        app.link_up()
        assert app.is_alive()


def test_the_platform_is_destroyed(stack: Stack, app: Probe, moment: str) -> None:
    # The manager shares the platform: nothing changes.
    app.drop("platform")
    if moment == "scanning":
        app.expect_a_living_scan()
        app.link_up()
    elif moment == "connecting":
        stack.order("return reader")
        app.expect(Heard.plugged, limit=90)
        app.expect_exactly(0, Heard.disconnected)
    elif moment == "linked":
        stack.order("drop reader")
        app.expect_one_loss()
    elif moment == "burst":
        app.expect_values(5000)
    else:
        app.start_daemon()
        app.link_up()


def test_a_link_that_another_program_works_is_not_reported(stack: Stack, app: Probe) -> None:
    scan = subprocess.run([KESTRIN, "scan", "--for", "5"], capture_output=True, text=True, check=False)
    assert scan.returncode == 0, scan.stderr
    assert READER not in scan.stdout + scan.stderr
    assert stack.daemon_is_linked(ADDRESS)
    app.expect_exactly(0, Heard.disconnected)


def test_SIGKILL_while_connected_leaves_a_link_that_the_next_start_takes_over(app: Probe) -> None:
    # Nobody is left to end the link, and a linked reader does not advertise. The next application finds it
    # all the same.
    app.kill()
    assert app.stack.daemon_is_linked(ADDRESS)
    app.start()
    app.link_first()
    app.expect_burst(10)
    app.expect_exactly(0, Heard.disconnected)
    app.expect_exactly(1, Heard.connected)


def test_SIGTERM_while_connected_leaves_no_link_behind(app: Probe) -> None:
    assert app.quit() == 0
    app.wait_until_unlinked()
    output = LOGS / "monitor.out"
    with output.open("wb") as written:
        monitor = subprocess.Popen([KESTRIN, "monitor", READER], stdout=written, stderr=subprocess.STDOUT)
    try:
        wait_for(40, "kestrin to be plugged in", lambda: "\nplugged" in "\n" + output.read_text().lower())
        assert app.stack.daemon_is_linked(ADDRESS)
    finally:
        monitor.terminate()
        status = monitor.wait(LIMIT)
    assert status == 0, output.read_text()
    assert not app.is_linked()
