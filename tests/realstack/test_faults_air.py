"""Faults of the reader and of the air: what an application sees, and that it can go on afterwards.

The file has no word of its suite's name, reader: words that select tests look at it as well."""

from __future__ import annotations

import time

import kestrinblesdk as kestrin
from faults import ADDRESS, DEVICES, READER, SECOND, Heard, PackageApp, app, started
from stack import Stack

COMMAND = kestrin.build_frame(0x00, 0x03, b"\xb1")
STANDARD_TX = "BA821001"


def test_the_application_is_linked_to_the_reader(stack: Stack, app: PackageApp) -> None:
    assert stack.daemon_is_linked(ADDRESS)
    assert app.is_alive()


def test_the_reader_drops_the_link(stack: Stack, app: PackageApp) -> None:
    stack.order("drop reader")
    app.expect_one_loss()


def test_the_reader_goes_while_services_are_discovered(stack: Stack, app: PackageApp) -> None:
    # Not before the first requests: a link that ends then makes the kernel fall over. And the daemon may
    # end of an answer that it is owed, with a fault of its own: that is a daemon that goes.
    app.close()
    mark = stack.mark()
    stack.order("silent reader 3")
    app.ask("connect")
    app.expect(Heard.connected)
    stack.wait_for_line(mark, "SILENT reader")
    stack.order("drop reader")
    stack.order("silent reader off")
    app.expect(Heard.disconnected)
    time.sleep(1)
    stack.keep_daemon_up()
    app.expect_one_loss()
    app.expect_exactly(1, Heard.plugged)


def test_a_receiver_that_sleeps_5_s_in_a_burst_of_2000_values_loses_none(app: PackageApp) -> None:
    app.busy = 5.0
    app.expect_burst(2000)
    assert app.busy == 0.0
    app.expect_exactly(0, Heard.disconnected)


def test_notifications_work_after_a_reconnection(stack: Stack, app: PackageApp) -> None:
    stack.order("drop reader")
    app.expect_one_loss()
    app.expect_burst(100)


def test_values_right_after_subscribing_are_not_lost(stack: Stack, app: PackageApp) -> None:
    # The reader says them as soon as it has taken the subscription.
    stack.order("greet reader 50")
    try:
        stack.order("drop reader")
        app.expect_one_loss()
        app.expect_values(50)
    finally:
        stack.order("greet reader off")


def test_a_write_that_the_reader_refuses_changes_nothing(stack: Stack, app: PackageApp) -> None:
    # Nobody hears of it; the link and its values go on.
    mark = stack.mark()
    stack.order("refuse reader writes 0x80")
    app.send(COMMAND)
    stack.wait_for_line(mark, "REFUSED reader writes.*")
    stack.order("refuse reader writes off")
    app.expect_burst(10)
    app.expect_exactly(0, Heard.disconnected)


def test_a_write_that_the_reader_never_answers(stack: Stack, app: PackageApp) -> None:
    # The daemon gives the link up after the 30 s that an answer may take.
    stack.order("silent reader on")
    app.send(COMMAND)
    app.expect(Heard.disconnected)
    stack.order("silent reader off")
    stack.keep_daemon_up()
    app.expect_one_loss()


def test_a_reader_that_is_not_there_appears_a_minute_later(stack: Stack, app: PackageApp) -> None:
    app.close()
    stack.order("vanish reader")
    app.begin()
    app.ask("connect")
    time.sleep(60)
    app.expect_exactly(0, "LOG BLE .*", "PLUG .*")
    stack.order("return reader")
    app.expect(Heard.plugged, limit=90)
    app.expect_exactly(0, Heard.disconnected)


def test_close_while_the_attempt_is_pending(stack: Stack, app: PackageApp) -> None:
    app.close()
    stack.order("vanish reader")
    app.begin()
    app.ask("connect")
    time.sleep(2)
    app.ask("close")
    app.expect(Heard.unplugged, Heard.disconnected)
    stack.order("return reader")
    app.link_up()
    app.expect_exactly(1, Heard.disconnected)
    app.expect_exactly(2, Heard.unplugged)


def test_connectBLE_from_inside_scanningBleDeive(stack: Stack, app: PackageApp) -> None:
    app.scan_without_a_link()
    app.connects_from_inside = True
    try:
        stack.order("return second")
        app.expect(Heard.found(SECOND), Heard.plugged)
        app.expect_exactly(1, Heard.connected)
        app.expect_exactly(0, Heard.disconnected)
    finally:
        app.connects_from_inside = False
        stack.order("vanish second")
    app.expect(Heard.disconnected)


def test_the_readers_attributes_have_changed_since_the_last_link(stack: Stack, app: PackageApp) -> None:
    # The same reader, first with the attributes of the other family: what the daemon remembers of it is
    # wrong then. It is alone, so it stays the reader that was accepted last.
    other = "KVR-Q62T 0001"
    for name, *device in ((other, "--reader", f"{other},id=reader,gap-name={other}"), (READER, *DEVICES[:2])):
        app.close()
        stack.end("readers")
        app.begin()
        stack.start_readers(*device)
        app.expect(Heard.powered_on)
        app.link_up_to(name)
    app.expect_burst(10)
    mark = stack.mark()
    app.send(COMMAND)
    stack.wait_for_line(mark, f"WRITE.* reader {STANDARD_TX}.*{COMMAND.hex()}")
    app.expect_exactly(0, Heard.disconnected)


def test_a_subscription_that_the_reader_refuses(stack: Stack, app: PackageApp) -> None:
    # The daemon never answers it, so the error comes late. The link is up all the time, and commands that
    # wait behind the subscription go out then.
    app.close()
    mark = stack.mark()
    stack.order("refuse reader subscriptions 0x0e")
    app.ask("connect")
    app.expect(Heard.plugged)
    refused = stack.wait_for_line(mark, "REFUSED reader subscriptions.*")
    app.expect(r"LOG \[ERROR\]: .*", limit=100)
    app.expect_exactly(0, Heard.disconnected)
    stack.wait_for_line(refused, f"WRITE.* reader .*{COMMAND.hex()}")
    stack.order("refuse reader subscriptions off")
    stack.end("daemon")
    stack.start_daemon()
    app.expect_one_loss()
    app.expect_burst(10)
