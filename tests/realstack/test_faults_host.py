"""Faults of the daemon, the bus and the adapter: what an application sees, and that it can go on
afterwards.

The file has no word of its suite's name, daemon: words that select tests look at it as well."""

from __future__ import annotations

import signal
from collections.abc import Iterator
from pathlib import Path

import kestrinblesdk as kestrin
import pytest
from faults import ADDRESS, DEVICES, LIMIT, Heard, PackageApp, app, started
from stack import Stack, wait_for

FRAME_OF_200_BYTES = kestrin.build_frame(0x00, 0x22, bytes(192))
RECEIVE_BUFFER = Path("/proc/sys/net/core/rmem_default")


def start_readers(app: PackageApp) -> None:
    app.stack.start_readers()
    app.stack.order("vanish second")
    app.expect(Heard.powered_on)


def test_the_application_is_linked_to_the_reader(stack: Stack, app: PackageApp) -> None:
    assert stack.daemon_is_linked(ADDRESS)
    assert app.is_alive()


def test_the_daemon_is_killed_idle(stack: Stack, app: PackageApp) -> None:
    app.close()
    stack.end("daemon", signal.SIGKILL)
    app.expect(Heard.resetting)
    app.start_daemon()
    app.expect_no_loss()


def test_the_daemon_is_killed_while_scanning(stack: Stack, app: PackageApp) -> None:
    app.scan_without_a_link()
    stack.end("daemon", signal.SIGKILL)
    app.expect(Heard.resetting)
    app.start_daemon()
    app.expect_a_living_scan()
    app.expect_no_loss()


def test_the_daemon_is_killed_while_connected(stack: Stack, app: PackageApp) -> None:
    # The new daemon shows the link that the old one has left.
    stack.end("daemon", signal.SIGKILL)
    app.start_daemon()
    app.expect_one_loss()
    app.expect_exactly(1, Heard.resetting)


def test_the_daemon_is_killed_in_the_middle_of_a_write(stack: Stack, app: PackageApp) -> None:
    mark = stack.mark()
    app.send(FRAME_OF_200_BYTES)
    stack.wait_for_line(mark, f"WRITE.* reader .* 20 {FRAME_OF_200_BYTES[:20].hex()}")
    stack.end("daemon", signal.SIGKILL)
    app.expect(Heard.disconnected)
    app.start_daemon()
    app.expect_one_loss()


def test_the_daemon_is_stopped_and_started_while_connected(stack: Stack, app: PackageApp) -> None:
    stack.end("daemon")
    app.start_daemon()
    app.expect_one_loss()


@pytest.fixture
def larger_receive_buffer() -> Iterator[None]:
    usual = RECEIVE_BUFFER.read_text()
    RECEIVE_BUFFER.write_text("4194304")
    yield
    RECEIVE_BUFFER.write_text(usual)


def test_with_a_larger_receive_buffer_no_value_is_lost_while_the_daemon_stands_still(
    larger_receive_buffer: None, stack: Stack, app: PackageApp
) -> None:
    # The kernel keeps for the daemon what the link's receive buffer holds, and drops the rest. The buffer
    # has the size that was set when the link was made.
    stack.order("drop reader")
    app.expect_one_loss()
    mark = stack.mark()
    stack.send_signal("daemon", signal.SIGSTOP)
    try:
        stack.order("burst reader 2000 20")
        stack.wait_for_line(mark, "BURST-SENT reader 2000")
    finally:
        stack.send_signal("daemon", signal.SIGCONT)
    app.expect_values(2000)


def test_the_adapter_goes_off_and_on_while_connected(stack: Stack, app: PackageApp) -> None:
    stack.set_power(False)
    app.expect(Heard.disconnected, Heard.powered_off)
    stack.set_power(True)
    app.expect(Heard.powered_on)
    app.expect_one_loss()


def test_the_adapter_goes_off_and_on_while_scanning(stack: Stack, app: PackageApp) -> None:
    app.scan_without_a_link()
    stack.set_power(False)
    app.expect(Heard.powered_off)
    stack.set_power(True)
    app.expect(Heard.powered_on)
    app.expect_a_living_scan()
    app.expect_no_loss()


def test_the_adapter_is_removed_and_comes_back_while_connected(stack: Stack, app: PackageApp) -> None:
    stack.end("readers")
    app.expect(Heard.disconnected, Heard.resetting, Heard.unsupported)
    start_readers(app)
    app.expect_one_loss()


def test_the_adapter_is_removed_and_comes_back_while_scanning(stack: Stack, app: PackageApp) -> None:
    app.scan_without_a_link()
    stack.end("readers")
    app.expect(Heard.unsupported)
    start_readers(app)
    app.expect_a_living_scan()
    app.expect_no_loss()


def test_the_readers_process_is_killed_in_a_burst(stack: Stack, app: PackageApp) -> None:
    stack.order("burst reader 5000 20")
    stack.end("readers", signal.SIGKILL)
    app.expect(Heard.disconnected)
    start_readers(app)
    app.expect_one_loss()


def test_the_message_bus_goes(stack: Stack, app: PackageApp) -> None:
    stack.end("bus", signal.SIGKILL)
    app.expect(Heard.disconnected, Heard.resetting)
    wait_for(LIMIT, "the daemon to end with its bus", lambda: not stack.daemon_runs())
    stack.start_bus()
    app.start_daemon()
    app.expect_one_loss()
