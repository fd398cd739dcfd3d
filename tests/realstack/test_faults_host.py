"""Faults of the daemon, the bus and the adapter: what an application sees, and that it can go on
afterwards.

The file has no word of its suite's name, daemon: words that select tests look at it as well."""

from __future__ import annotations

import signal
from collections.abc import Iterator
from pathlib import Path

import kestrinblesdk as kestrin
import pytest
from faults import (
    ADDRESS,
    DEVICES,
    DISCONNECTED,
    LIMIT,
    POWERED_OFF,
    POWERED_ON,
    RESETTING,
    UNSUPPORTED,
    PackageApplication,
    application,
    started,
)
from stack import Stack, wait_for

FRAME_OF_200_BYTES = kestrin.build_frame(0x00, 0x22, bytes(192))
assert len(FRAME_OF_200_BYTES) == 200
RECEIVE_BUFFER = Path("/proc/sys/net/core/rmem_default")


def start_readers(stack: Stack) -> None:
    stack.start_readers()
    stack.order("vanish second")


def test_the_application_is_linked_to_the_reader(stack: Stack, application: PackageApplication) -> None:
    assert stack.daemon_is_linked(ADDRESS)
    assert application.is_alive()


def test_the_daemon_is_killed_idle(stack: Stack, application: PackageApplication) -> None:
    application.close_and_begin()
    stack.end("daemon", signal.SIGKILL)
    application.expect(RESETTING)
    stack.start_daemon()
    application.expect(POWERED_ON)
    application.link_up()
    application.expect_exactly(0, DISCONNECTED)


def test_the_daemon_is_killed_while_scanning(stack: Stack, application: PackageApplication) -> None:
    application.scan_without_a_link()
    stack.end("daemon", signal.SIGKILL)
    application.expect(RESETTING)
    stack.start_daemon()
    application.expect(POWERED_ON)
    application.expect_a_living_scan()
    application.link_up()
    application.expect_exactly(0, DISCONNECTED)


def test_the_daemon_is_killed_while_connected(stack: Stack, application: PackageApplication) -> None:
    # The new daemon shows the link that the old one has left.
    stack.end("daemon", signal.SIGKILL)
    stack.start_daemon()
    application.expect(POWERED_ON)
    application.expect_one_loss()
    application.expect_exactly(1, RESETTING)


def test_the_daemon_is_killed_in_the_middle_of_a_write(
    stack: Stack, application: PackageApplication
) -> None:
    mark = stack.mark()
    application.send(FRAME_OF_200_BYTES)
    first = f"WRITE.* reader .* 20 {FRAME_OF_200_BYTES[:20].hex()}"
    wait_for(LIMIT, "the first slice of the frame", lambda: stack.has_line(mark, first))
    stack.end("daemon", signal.SIGKILL)
    application.expect(DISCONNECTED)
    stack.start_daemon()
    application.expect(POWERED_ON)
    application.expect_one_loss()


def test_the_daemon_is_stopped_and_started_while_connected(
    stack: Stack, application: PackageApplication
) -> None:
    stack.end("daemon")
    stack.start_daemon()
    application.expect(POWERED_ON)
    application.expect_one_loss()


@pytest.fixture
def larger_receive_buffer() -> Iterator[None]:
    usual = RECEIVE_BUFFER.read_text()
    RECEIVE_BUFFER.write_text("4194304")
    yield
    RECEIVE_BUFFER.write_text(usual)


@pytest.mark.usefixtures("larger_receive_buffer")
def test_with_a_larger_receive_buffer_no_value_is_lost_while_the_daemon_stands_still(
    stack: Stack, application: PackageApplication
) -> None:
    # The kernel keeps for the daemon what the link's receive buffer holds, and drops the rest. The buffer
    # has the size that was set when the link was made.
    stack.order("drop reader")
    application.expect_one_loss()
    mark = stack.mark()
    stack.pause_daemon()
    try:
        stack.order("burst reader 2000 20")
        wait_for(LIMIT, "the burst to be sent", lambda: stack.has_line(mark, "BURST-SENT reader 2000"))
    finally:
        stack.resume_daemon()
    application.expect_values(2000)


def test_the_adapter_goes_off_and_on_while_connected(
    stack: Stack, application: PackageApplication
) -> None:
    stack.set_power(False)
    application.expect(DISCONNECTED)
    application.expect(POWERED_OFF)
    stack.set_power(True)
    application.expect(POWERED_ON)
    application.expect_one_loss()


def test_the_adapter_goes_off_and_on_while_scanning(stack: Stack, application: PackageApplication) -> None:
    application.scan_without_a_link()
    stack.set_power(False)
    application.expect(POWERED_OFF)
    stack.set_power(True)
    application.expect(POWERED_ON)
    application.expect_a_living_scan()
    application.link_up()
    application.expect_exactly(0, DISCONNECTED)


def test_the_adapter_is_removed_and_comes_back_while_connected(
    stack: Stack, application: PackageApplication
) -> None:
    stack.end("readers")
    application.expect(DISCONNECTED)
    application.expect(RESETTING)
    application.expect(UNSUPPORTED)
    start_readers(stack)
    application.expect(POWERED_ON)
    application.expect_one_loss()


def test_the_adapter_is_removed_and_comes_back_while_scanning(
    stack: Stack, application: PackageApplication
) -> None:
    application.scan_without_a_link()
    stack.end("readers")
    application.expect(UNSUPPORTED)
    start_readers(stack)
    application.expect(POWERED_ON)
    application.expect_a_living_scan()
    application.link_up()
    application.expect_exactly(0, DISCONNECTED)


def test_the_readers_process_is_killed_in_a_burst(stack: Stack, application: PackageApplication) -> None:
    stack.order("burst reader 5000 20")
    stack.end("readers", signal.SIGKILL)
    application.expect(DISCONNECTED)
    start_readers(stack)
    application.expect(POWERED_ON)
    application.expect_one_loss()


def test_the_message_bus_goes(stack: Stack, application: PackageApplication) -> None:
    stack.end("bus", signal.SIGKILL)
    application.expect(DISCONNECTED)
    application.expect(RESETTING)
    wait_for(LIMIT, "the daemon to end with its bus", lambda: not stack.daemon_runs())
    stack.start_bus()
    stack.start_daemon()
    application.expect(POWERED_ON)
    application.expect_one_loss()
