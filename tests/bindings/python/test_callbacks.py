"""Managers in callback style: handlers, delegates, and what may not be asked."""

from __future__ import annotations

from collections.abc import Callable
from functools import partial
from typing import Any

import pytest
from support import NAME, READER_INFO_COMMAND, RX, TX, Application, simulated, unraisable

import kestrinblesdk as kestrin

COMMAND = kestrin.build_frame(0x00, 0x22, bytes(range(37)))
ANSWER = kestrin.build_frame(0x01, 0x22, bytes(range(37)))


def test_a_scan_finds_readers_and_nothing_else() -> None:
    platform = simulated()
    platform.add_reader(NAME)
    platform.add_reader("KVR-Q62T 0012")
    platform.add_peripheral("Lamp")
    platform.add_peripheral(None)
    found: list[str | None] = []
    statuses: list[int] = []
    manager = kestrin.KestrinBleMgr(platform)
    manager.on_found = lambda peripheral: found.append(peripheral.name)
    manager.on_scan_status = statuses.append
    assert manager.scanBLE() is True
    assert statuses == [0]
    platform.run_for(2)
    manager.stopSacnBLE()
    assert statuses == [0, 1]
    assert sorted(map(str, found)) == [NAME, "KVR-Q62T 0012"]


def test_the_main_job_with_handlers() -> None:
    application = Application()
    manager, platform = application.manager, application.platform
    assert manager.open() and manager.isOpened()
    before = platform.now()
    assert manager.send(COMMAND) is True
    # Two full slices, 0.05 s after each.
    assert platform.now() - before == pytest.approx(0.1)
    platform.run_for(1)
    assert application.frames == [ANSWER]
    writes = [write.value for write in application.reader.writes]
    assert writes == [READER_INFO_COMMAND, COMMAND[:20], COMMAND[20:40], COMMAND[40:]]
    assert {write.characteristic for write in application.reader.writes} == {TX}
    assert all(write.with_response for write in application.reader.writes)
    assert application.reader.subscriptions == [RX]
    manager.close()
    assert application.plugged == [True, False] and manager.open()
    platform.run_for(1)
    assert application.plugged == [True, False, False] and not manager.open()


def test_the_main_job_with_delegates() -> None:
    class Delegate(kestrin.KestrinBLEProtocols, kestrin.RcpReceiver):
        def __init__(self, manager: kestrin.KestrinBleMgr) -> None:
            self.manager = manager
            self.frames: list[kestrin.NSData | None] = []

        def scanningBleDeive(self, peripheral: kestrin.CBPeripheral) -> None:
            self.manager.connectBLE(peripheral)

        def plugChangedStatus(self, plugged: bool) -> None:
            if plugged:
                self.manager.send(COMMAND)

        def dispatchRcpFrmReader(self, frame: kestrin.NSData | None) -> None:
            self.frames.append(frame)

    platform = simulated()
    platform.add_reader(NAME)
    manager = kestrin.KestrinBleMgr(platform)
    delegate = Delegate(manager)
    manager.delegate = delegate
    manager.rcpReceiverDelegate = delegate
    assert manager.delegate is delegate and manager.rcpReceiverDelegate is delegate
    manager.scanBLE()
    platform.run_for(5)
    assert delegate.frames[-1] == ANSWER


def test_a_delegate_needs_only_the_methods_it_has() -> None:
    class OnlyFrames:
        def dispatchRcpFrmReader(self, frame: kestrin.NSData | None) -> None:
            frames.append(frame)

    frames: list[kestrin.NSData | None] = []
    application = Application()
    receiver = OnlyFrames()
    application.manager.rcpReceiverDelegate = receiver
    application.manager.send(COMMAND)
    application.platform.run_for(1)
    application.manager.close()
    assert frames == [ANSWER]


def test_a_delegate_that_is_gone_is_told_nothing() -> None:
    application = Application()
    application.manager.rcpReceiverDelegate = kestrin.RcpReceiver()
    assert application.manager.rcpReceiverDelegate is None
    application.manager.close()
    assert application.plugged == [True, False]


def test_a_delegate_without_a_callback_is_refused() -> None:
    manager = kestrin.KestrinBleMgr(simulated())
    with pytest.raises(TypeError, match="a scan delegate has a method scanBleStatus"):
        manager.delegate = kestrin.RcpReceiver()
    with pytest.raises(TypeError, match="'str' has none"):
        manager.rcpReceiverDelegate = "frames"


def test_a_handler_is_callable() -> None:
    manager = kestrin.KestrinBleMgr(simulated())
    with pytest.raises(TypeError, match="on_frame is callable or None, not 'list'"):
        manager.on_frame = []  # type: ignore[assignment]
    manager.on_frame = None


def test_a_q62t_readers_values_come_as_they_are() -> None:
    application = Application("KVR-Q62T 0012")
    application.reader.simulate_notification("FFF1", b"no frame")
    application.platform.run_for(1)
    assert application.frames == [b"no frame"]


@pytest.mark.parametrize("operation", ["send", "sendPower", "writeRawData", "readData"])
@pytest.mark.parametrize("wrong", ["text", None, 45, [1, 2]])
def test_what_is_no_bytes_is_refused(operation: str, wrong: Any) -> None:
    manager = kestrin.KestrinBleMgr(simulated())
    expected = f"is bytes or a bytes-like object, not '{type(wrong).__name__}'"
    with pytest.raises(TypeError, match=expected):
        getattr(manager, operation)(wrong)


def test_only_a_peripheral_can_be_connected_to() -> None:
    manager = kestrin.KestrinBleMgr(simulated())
    for wrong in (NAME, None):
        with pytest.raises(TypeError, match="connectBLE takes a CBPeripheral"):
            manager.connectBLE(wrong)  # type: ignore[arg-type]


def test_a_manager_is_made_on_a_platform() -> None:
    with pytest.raises(TypeError, match="a manager is made on a Platform, not 'str'"):
        kestrin.KestrinBleMgr("simulated")  # type: ignore[arg-type]


def test_bytes_handed_in_are_delivered_as_frames() -> None:
    application = Application()
    assert application.manager.readData(ANSWER[:4]) == 0
    assert application.frames == []
    application.manager.readData(bytearray(ANSWER[4:]))
    assert application.frames == [ANSWER]


def test_entering_the_background_closes_the_link() -> None:
    application = Application()
    application.platform.enter_background()
    assert application.plugged == [True]
    application.platform.run_for(1)
    assert application.plugged == [True, False, False]


def test_an_exception_in_a_callback_is_reported_and_everything_goes_on() -> None:
    application = Application()

    def fail(frame: object) -> None:
        raise ValueError("not this one")

    class Receiver:
        def dispatchRcpFrmReader(self, frame: object) -> None:
            raise KeyError("nor this one")

    receiver = Receiver()
    application.manager.rcpReceiverDelegate = receiver
    application.manager.on_frame = fail
    with unraisable() as seen:
        application.manager.send(COMMAND)
        application.platform.run_for(1)
    assert [(kind, text) for kind, text, _ in seen] == [
        (KeyError, "'nor this one'"),
        (ValueError, "not this one"),
    ]
    assert seen[1][2] is fail
    application.manager.on_frame = application.frames.append
    with unraisable():
        application.manager.send(COMMAND)
        application.platform.run_for(1)
    assert application.frames == [ANSWER]


@pytest.mark.parametrize("interrupt", [KeyboardInterrupt, SystemExit])
def test_an_interrupt_in_a_callback_leaves_the_operation(interrupt: type[BaseException]) -> None:
    application = Application()

    def end(plugged: bool) -> None:
        raise interrupt

    application.manager.on_plugged = end
    with pytest.raises(interrupt):
        application.manager.close()
    started = application.platform.now()
    with pytest.raises(interrupt):
        application.platform.run_for(60)
    assert application.platform.now() - started < 1
    application.manager.on_plugged = None
    application.platform.run_for(1)


def test_a_manager_released_can_not_be_used() -> None:
    application = Application()
    with application.manager as manager:
        assert manager.isOpened()
    assert manager.is_released
    manager.release()
    uses: list[Callable[[], object]] = [manager.scanBLE, manager.close, manager.open]
    uses.append(partial(manager.send, COMMAND))
    for use in uses:
        with pytest.raises(RuntimeError, match="this manager has been released"):
            use()
    application.platform.run_for(1)
    assert not application.reader.connected
    assert application.plugged == [True]


def test_the_log_comes_line_by_line() -> None:
    lines: list[str] = []
    platform = simulated()
    platform.add_reader(NAME)
    manager = kestrin.KestrinBleMgr(platform)
    platform.log = lines.append
    manager.scanBLE()
    platform.run_for(1)
    assert "start San" in lines
    platform.log = None
    count = len(lines)
    manager.scanBLE()
    platform.run_for(1)
    assert len(lines) == count
    with pytest.raises(TypeError, match="a log is callable or None"):
        platform.log = "file"  # type: ignore[assignment]


def test_two_managers_work_a_reader_each() -> None:
    platform = simulated()
    readers = [platform.add_reader(name) for name in ("KVR-1", "KVR-2")]
    frames: list[list[kestrin.NSData | None]] = [[], []]
    managers = []
    for at, name in enumerate(("KVR-1", "KVR-2")):
        manager = kestrin.KestrinBleMgr(platform)

        def found(
            peripheral: kestrin.CBPeripheral,
            name: str = name,
            manager: kestrin.KestrinBleMgr = manager,
        ) -> None:
            if peripheral.name == name:
                manager.connectBLE(peripheral)

        manager.on_found = found
        manager.on_frame = frames[at].append
        manager.scanBLE()
        managers.append(manager)
    platform.run_for(5)
    assert [reader.connected for reader in readers] == [True, True]
    for at, manager in enumerate(managers):
        manager.send(kestrin.build_frame(0, 0x30 + at))
    platform.run_for(1)
    assert [each[-1] for each in frames] == [kestrin.build_frame(1, 0x30 + at) for at in (0, 1)]
