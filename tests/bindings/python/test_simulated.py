"""The simulated radio from Python: time, readers, their answers and their faults."""

from __future__ import annotations

import pytest
from support import NAME, RX, TX, Application, simulated, unraisable

import kestrinblesdk as kestrin

COMMAND = kestrin.build_frame(0x00, 0x22)
UNLIKELY = kestrin.NSError("CBATTErrorDomain", 14, "Unlikely Error")


def test_virtual_time_passes_only_while_somebody_waits() -> None:
    platform = simulated()
    assert platform.virtual_time and platform.now() == 0
    platform.run_for(3600)
    assert platform.now() == 3600


def test_the_same_seed_gives_the_same_times() -> None:
    def arrivals(seed: int) -> list[float]:
        return [write.at for write in Application(seed=seed).reader.writes]

    assert arrivals(7) == arrivals(7)
    assert arrivals(7) != arrivals(8)


def test_options_reach_the_radio() -> None:
    application = Application(latency=(0.25, 0.25), piece_size=(3, 3), connection_delay=(1, 1))
    before = application.platform.now()
    application.manager.send(COMMAND)
    assert application.platform.run_until(lambda: bool(application.frames), 5)
    assert application.platform.now() - before == pytest.approx(0.5, abs=0.01)


def test_an_option_that_there_is_not_is_refused() -> None:
    with pytest.raises(TypeError):
        kestrin.SimulatedPlatform(colour="red")  # type: ignore[call-arg]


def test_a_script_answers_commands() -> None:
    application = Application()
    reply = kestrin.build_frame(0x01, 0x22, b"from the script")
    commands: list[bytes] = []

    def script(frame: kestrin.NSData) -> list[bytes]:
        commands.append(frame)
        return [reply, reply]

    application.reader.script = script
    assert application.reader.script is script
    application.manager.send(COMMAND)
    application.platform.run_for(1)
    assert commands == [COMMAND] and application.frames == [reply, reply]
    application.reader.script = None
    application.manager.send(COMMAND)
    application.platform.run_for(1)
    assert application.frames[2:] == [kestrin.build_frame(0x01, 0x22)]


def test_a_script_that_fails_answers_nothing_and_is_reported() -> None:
    application = Application()
    application.reader.script = lambda frame: ["text"]  # type: ignore[list-item]
    with unraisable() as seen:
        application.manager.send(COMMAND)
        application.platform.run_for(1)
    assert [kind for kind, _, _ in seen] == [TypeError]
    assert "an answer is bytes" in seen[0][1]

    def fail(frame: kestrin.NSData) -> list[bytes]:
        raise LookupError("no answer")

    application.reader.script = fail
    with unraisable() as seen:
        application.manager.send(COMMAND)
        application.platform.run_for(1)
    assert [kind for kind, _, _ in seen] == [LookupError]
    assert application.frames == []


def test_a_silent_reader_answers_nothing() -> None:
    application = Application()
    application.reader.simulate_silence()
    application.manager.send(COMMAND)
    application.platform.run_for(1)
    assert application.frames == []
    assert application.reader.writes[-1].value == COMMAND


def test_a_lost_link_is_reported() -> None:
    application = Application()
    application.reader.simulate_link_loss()
    application.platform.run_for(1)
    assert application.plugged == [True, False] and not application.manager.open()


def test_a_vanished_reader_is_connected_to_when_it_appears() -> None:
    application = Application()
    application.reader.simulate_vanishing()
    application.platform.run_for(5)
    assert application.plugged == [True, False]
    peripheral = application.manager.pripheral
    assert peripheral is not None
    application.manager.connectBLE(peripheral)
    application.platform.run_for(5)
    assert not application.reader.connected
    application.reader.simulate_appearing()
    application.platform.run_for(5)
    assert application.plugged[-1] is True


def test_failing_connections_are_tried_again() -> None:
    platform = simulated()
    reader = platform.add_reader(NAME)
    reader.simulate_failing_connections(2)
    manager = kestrin.KestrinBleMgr(platform)
    manager.on_found = manager.connectBLE
    manager.scanBLE()
    platform.run_for(10)
    assert reader.connected and reader.connection_attempts == 3


def test_a_connection_that_never_completes_waits() -> None:
    platform = simulated()
    reader = platform.add_reader(NAME)
    reader.simulate_connection_never_completing()
    manager = kestrin.KestrinBleMgr(platform)
    manager.on_found = manager.connectBLE
    manager.scanBLE()
    platform.run_for(60)
    assert not reader.connected
    reader.simulate_connection_never_completing(False)
    platform.run_for(60)
    assert reader.connected


def test_refused_writes_are_counted_and_not_received() -> None:
    application = Application()
    before = len(application.reader.writes)
    application.reader.simulate_write_error(UNLIKELY)
    application.manager.send(COMMAND)
    application.platform.run_for(1)
    assert application.reader.refused_writes == 1 and len(application.reader.writes) == before
    application.reader.simulate_write_error(None)
    application.manager.send(COMMAND)
    application.platform.run_for(1)
    assert len(application.reader.writes) == before + 1


def test_a_reader_without_its_characteristic_can_not_be_sent_to() -> None:
    platform = simulated()
    reader = platform.add_reader(NAME)
    reader.simulate_missing_characteristic(TX)
    manager = kestrin.KestrinBleMgr(platform)
    manager.on_found = manager.connectBLE
    manager.scanBLE()
    platform.run_for(5)
    assert manager.open() and manager.send(COMMAND) is False


@pytest.mark.parametrize(
    "fault",
    ["simulate_service_discovery_error", "simulate_characteristic_discovery_error"],
)
def test_a_discovery_that_fails_finds_nothing_to_write_to(fault: str) -> None:
    platform = simulated()
    getattr(platform.add_reader(NAME), fault)(UNLIKELY)
    manager = kestrin.KestrinBleMgr(platform)
    manager.on_found = manager.connectBLE
    manager.scanBLE()
    platform.run_for(5)
    assert manager.send(COMMAND) is False


def test_a_property_mask_is_the_readers() -> None:
    application = Application()
    application.reader.simulate_properties(TX, kestrin.CBCharacteristicProperty.read)
    assert application.manager.send(COMMAND) is True
    application.manager.close()
    application.platform.run_for(1)
    peripheral = application.manager.pripheral
    assert peripheral is not None
    application.manager.connectBLE(peripheral)
    application.platform.run_for(6)
    assert application.manager.open() and application.manager.send(COMMAND) is False


def test_a_notification_reaches_whoever_is_subscribed() -> None:
    application = Application()
    assert application.reader.simulate_notification(RX, kestrin.build_frame(1, 9)) is True
    application.platform.run_for(1)
    assert application.frames == [kestrin.build_frame(1, 9)]
    application.manager.close()
    application.platform.run_for(1)
    assert application.reader.simulate_notification(RX, b"late") is False


def test_a_radio_switched_off_ends_links_and_says_why() -> None:
    application = Application()
    assert application.platform.radio_trouble == ""
    application.platform.simulate_state(kestrin.CBManagerState.poweredOff)
    application.platform.run_for(1)
    assert application.plugged == [True, False]
    assert application.platform.radio_trouble != ""


def test_a_text_that_is_no_uuid_is_refused() -> None:
    reader = simulated().add_reader(NAME)
    with pytest.raises(ValueError, match='"FF" is not a UUID'):
        reader.simulate_missing_service("FF")
    with pytest.raises(TypeError, match="a value is bytes"):
        reader.simulate_value("FFF1", "text")  # type: ignore[arg-type]


def test_a_name_can_change_and_the_scan_tells_it_again() -> None:
    platform = simulated()
    reader = platform.add_reader("Lamp")
    names: list[str | None] = []
    manager = kestrin.KestrinBleMgr(platform)
    manager.on_found = lambda peripheral: names.append(peripheral.name)
    manager.scanBLE()
    platform.run_for(1)
    assert names == []
    reader.simulate_name("KVR-7")
    platform.run_for(1)
    assert names == ["KVR-7"]


def test_only_a_simulated_platform_has_virtual_readers() -> None:
    if not kestrin.has_bluez:
        with pytest.raises(NotImplementedError, match="built without the real radio"):
            kestrin.BluezPlatform()
        return
    platform = kestrin.BluezPlatform(bus_address="unix:path=/nowhere")
    assert not hasattr(platform, "add_reader")
    with pytest.raises(TypeError, match="not a simulated one"):
        kestrin.SimulatedPlatform.simulate_state(
            platform, kestrin.CBManagerState.poweredOff  # type: ignore[arg-type]
        )
