"""Readers of both families: their names, every property mask of TX, frames from an empty last slice to the
longest, and notifications of every size. One application works them, with a manager each."""

from __future__ import annotations

from collections.abc import Callable, Iterator

import kestrinblesdk as kestrin
import pytest
import stack as machine
from frames import GET_READER_INFO, Q62T_TX, STANDARD_RX, STANDARD_TX, exchange, pieces
from stack import Stack, daemon_device, daemon_objects, daemon_property, slices

MASKS = ["04", "08", "0C", "12", "18"]
# Two readers whose names over a link are those of the other family, one without a name at first, and one
# for every mask.
DEVICES = [
    "--tell-notifications",
    *("--reader", "KVR-0001,id=standard"),
    *("--reader", "KVR-Q62T 0012,id=q62t,reply-size=244"),
    *("--reader", ",id=late"),
    *("--reader", "KVR-0003,id=flip,gap-name=KVR-Q62T 0077"),
    *("--reader", "KVR-Q62T 0004,id=flop,gap-name=KVR-0099"),
    *(word for mask in MASKS for word in ("--reader", f"KVR-TX{mask},id=tx{mask},tx=0x{mask}")),
    *("--non-reader", "Lamp,id=lamp"),
    *("--non-reader", "kvr-q62t lamp,id=lower"),
    *("--non-reader", ",id=nameless"),
]
NAMED = ["KVR-0001", "KVR-0003", "KVR-Q62T 0004", "KVR-Q62T 0012", *(f"KVR-TX{mask}" for mask in MASKS)]
SEEN = "DiscoverPeripheral  "
LONGEST_VALUE = 244


class Air:
    """The application's platform, and what has been logged on it."""

    def __init__(self) -> None:
        self.platform = kestrin.BluezPlatform()
        self.log: list[str] = []
        self.platform.log = self.log.append

    def wait(self, limit: float, what: str, holds: Callable[[], bool]) -> None:
        if not self.platform.run_until(holds, limit):
            raise AssertionError(f"waited {limit:g} s in vain for {what}: {self.log[-40:]}")

    def link(self, *names: str) -> list[Worked]:
        """A manager each for readers of these names, from a scan to the plugged-in report."""
        all_worked = [Worked(self) for _ in names]
        for worked in all_worked:
            worked.manager.scanBLE()
        for worked, name in zip(all_worked, names):
            self.wait(30, name, lambda: name in worked.found)
            worked.manager.connectBLE(worked.peripherals[name])
        for worked, name in zip(all_worked, names):
            self.wait(60, f"{name} to be plugged in", lambda: worked.plugs == [True])
        return all_worked


class Worked:
    """A manager, and what it has reported."""

    def __init__(self, air: Air) -> None:
        self._air = air
        self.found: list[str | None] = []
        self.peripherals: dict[str | None, kestrin.CBPeripheral] = {}
        self.plugs: list[bool] = []
        self.frames: list[str] = []
        self.log: list[str] = []  # While it alone was linked up and sent.
        self.sent = False
        self.manager = kestrin.KestrinBleMgr(air.platform)
        self.manager.on_found = self._keep
        self.manager.on_plugged = self.plugs.append
        self.manager.on_frame = lambda frame: self.frames.append("absent" if frame is None else frame.hex())

    def _keep(self, peripheral: kestrin.CBPeripheral) -> None:
        self.found.append(peripheral.name)
        self.peripherals[peripheral.name] = peripheral

    def has_frames(self, frames: list[str]) -> None:
        """These, in this order and no others."""
        self._air.wait(30, f"{len(frames)} frames", lambda: len(self.frames) >= len(frames))
        assert self.frames == frames

    def goes_out_and_back(self, stack: Stack, reader: str, tx: str, command: bytes, back: list[str]) -> None:
        """The command leaves whole in slices, and its answer comes in such pieces."""
        mark = stack.mark()
        self.frames.clear()
        assert self.manager.send(command)
        self.has_frames(back)
        written = [f"{tx} {part}" for part in slices(command)]
        # The slice without a byte leaves when the reader has all that it answers to.
        machine.wait_for(
            20, "the last slice", lambda: len(stack.events(mark, "WRITE", reader)) >= len(written)
        )
        assert stack.events(mark, "WRITE", reader) == written

    def gets_values_of_every_size(self, stack: Stack, reader: str, shortest: int) -> None:
        """One value of each size up to the longest, all at once."""
        mark = stack.mark()
        self.frames.clear()
        sizes = range(shortest, LONGEST_VALUE + 1)
        stack.order(f"burst {reader} {len(sizes)} {shortest}-{LONGEST_VALUE} 1000")
        self._air.wait(60, "the burst", lambda: len(self.frames) >= len(sizes))
        notified = [line.split(" ") for line in stack.events(mark, "NOTIFY", reader)]
        assert [int(size) for _, size, _ in notified] == list(sizes)
        self.has_frames([value for _, _, value in notified])


def links_end(stack: Stack, air: Air, links: dict[str, Worked]) -> None:
    mark = stack.mark()
    for worked in links.values():
        worked.manager.close()
    air.wait(20, "the links' ends", lambda: not any(worked.manager.isOpened() for worked in links.values()))
    for reader in links:
        stack.wait_for_disconnection(mark, reader)


@pytest.fixture(scope="module")
def air(stack: Stack) -> Iterator[Air]:
    air = Air()
    yield air
    air.platform.release()


@pytest.fixture(scope="module")
def names(air: Air) -> Worked:
    """Scans until `linked_alone`: what it hears of readers that are linked must not change them."""
    worked = Worked(air)
    worked.manager.scanBLE()
    return worked


@pytest.fixture(scope="module")
def linked(air: Air, names: Worked) -> dict[str, Worked]:
    """The first is linked up by itself, so that the lines in its log are its own."""
    start = len(air.log)
    [q62t] = air.link("KVR-Q62T 0012")
    air.platform.run_for(1)
    q62t.log = air.log[start:]
    others = air.link("KVR-0001", "KVR-LATE", "KVR-0003", "KVR-Q62T 0004")
    return {"q62t": q62t, **dict(zip(["standard", "late", "flip", "flop"], others))}


@pytest.fixture(scope="module")
def linked_alone(names: Worked, linked: dict[str, Worked]) -> dict[str, Worked]:
    names.manager.release()
    return linked


MASK_COMMAND, MASK_ANSWER = exchange(0x26, 45, 5)


@pytest.fixture(scope="module")
def masked(air: Air, linked_alone: dict[str, Worked]) -> dict[str, Worked]:
    """Linked up and sent to one after the other, so that the lines in each one's log are its own."""
    masked = {}
    for mask in MASKS:
        start = len(air.log)
        [worked] = air.link(f"KVR-TX{mask}")
        worked.sent = worked.manager.send(MASK_COMMAND)
        air.platform.run_for(2)
        worked.log = air.log[start:]
        masked[f"tx{mask}"] = worked
    return masked


def test_a_scan_reports_every_reader_wherever_its_name_stands_and_nothing_else(
    air: Air, names: Worked
) -> None:
    air.wait(60, "the readers", lambda: set(NAMED) <= set(names.found))
    for name in "Lamp", "kvr-q62t lamp":
        air.wait(30, name, lambda: SEEN + name in air.log)
    air.wait(30, "the nameless ones", lambda: air.log.count(f"{SEEN}(null)") >= 2)
    assert sorted(str(name) for name in names.found) == NAMED


def test_a_reader_whose_name_comes_late_is_reported_when_it_comes(
    stack: Stack, air: Air, names: Worked
) -> None:
    assert "KVR-LATE" not in names.found
    stack.order("rename late KVR-LATE")
    air.wait(30, "the late name", lambda: "KVR-LATE" in names.found)
    assert air.log.count(f"{SEEN}KVR-LATE") == 1


def test_five_readers_are_linked_up_together(linked: dict[str, Worked]) -> None:
    assert all(worked.manager.isOpened() and worked.plugs == [True] for worked in linked.values())


def test_of_a_q62t_reader_all_the_services_that_the_daemon_shows_are_searched_in_their_order(
    linked: dict[str, Worked]
) -> None:
    start = daemon_device(2) + "/service"
    services = [path for path in daemon_objects() if path.startswith(start) and path.count("/") == 5]
    uuids = [daemon_property(path, "GattService1", "UUID") for path in services]
    shown = [uuid.removeprefix('s "0000')[:4].upper() for uuid in uuids]
    # Which there are besides the reader's own is the daemon's affair: 5.66 keeps Generic Access to itself,
    # 5.82 shows it.
    assert [uuid for uuid in shown if uuid != "1800"] == ["180A", "FFF0", "180F"]
    searched = [line for line in linked["q62t"].log if line.startswith("searching : ")]
    assert searched == [f"searching : {uuid}" for uuid in shown]


def test_of_a_q62t_reader_the_manufacturer_is_logged_and_nothing_is_handed_over(
    linked: dict[str, Worked]
) -> None:
    assert "BLE_D5_NOVA_Manufacturer_Name : Virtual Readers" in linked["q62t"].log
    assert linked["q62t"].frames == []


@pytest.mark.parametrize(
    ("reader", "number", "name", "own_name", "tx", "size"),
    [
        pytest.param("flip", 4, "KVR-0003", "KVR-Q62T 0077", STANDARD_TX, 45, id="a_standard_one"),
        pytest.param("flop", 5, "KVR-Q62T 0004", "KVR-0099", Q62T_TX, 20, id="a_q62t_one"),
    ],
)
def test_a_reader_stays_of_its_family_when_its_own_name_is_one_of_the_other(
    stack: Stack,
    air: Air,
    names: Worked,
    linked: dict[str, Worked],
    reader: str,
    number: int,
    name: str,
    own_name: str,
    tx: str,
    size: int,
) -> None:
    # The daemon calls the reader by the name that it has read from it.
    machine.wait_for(
        20,
        "the daemon to read the reader's own name",
        lambda: daemon_property(daemon_device(number), "Device1", "Name") == f's "{own_name}"',
    )
    start = len(air.log)
    names.manager.scanBLE()
    air.wait(20, "the scan to go on", lambda: f"{SEEN}KVR-TX18" in air.log[start:])
    assert not {f"{SEEN}KVR-Q62T 0077", f"{SEEN}KVR-0099"} & set(air.log)
    peripheral = linked[reader].manager.pripheral
    assert peripheral is not None and peripheral.name == name
    command, answer = exchange(0x22, 45, 1)
    linked[reader].goes_out_and_back(stack, reader, tx, command, pieces(size, answer))


def test_the_reader_whose_name_came_late_is_a_standard_one_and_works(
    stack: Stack, linked: dict[str, Worked]
) -> None:
    command, answer = exchange(0x22, 45, 1)
    linked["late"].goes_out_and_back(stack, "late", STANDARD_TX, command, [answer])


@pytest.mark.parametrize("length", [20, 40])
def test_frames_to_a_standard_reader_that_fill_their_slices_end_with_a_write_of_no_bytes(
    stack: Stack, linked_alone: dict[str, Worked], length: int
) -> None:
    command, answer = exchange(0x24, length, 7)
    linked_alone["standard"].goes_out_and_back(stack, "standard", STANDARD_TX, command, [answer])
    assert stack.writes(0, "standard", STANDARD_TX)[-1] == "0"


@pytest.mark.parametrize("length", [20, 40])
def test_frames_to_a_q62t_reader_that_fill_their_slices_end_with_a_write_of_no_bytes(
    stack: Stack, linked_alone: dict[str, Worked], length: int
) -> None:
    command, answer = exchange(0x24, length, 7)
    linked_alone["q62t"].goes_out_and_back(stack, "q62t", Q62T_TX, command, [answer])
    assert stack.writes(0, "q62t", Q62T_TX)[-1] == "0"


def test_1029_bytes_go_out_to_a_standard_reader_in_52_slices_and_come_back_as_one_frame(
    stack: Stack, linked_alone: dict[str, Worked]
) -> None:
    command, answer = exchange(0x25, 1029, 3)
    linked_alone["standard"].goes_out_and_back(stack, "standard", STANDARD_TX, command, [answer])


def test_1029_bytes_go_out_to_a_q62t_reader_in_52_slices_and_come_back_as_they_were_notified(
    stack: Stack, linked_alone: dict[str, Worked]
) -> None:
    command, answer = exchange(0x25, 1029, 3)
    back = pieces(LONGEST_VALUE, answer)
    linked_alone["q62t"].goes_out_and_back(stack, "q62t", Q62T_TX, command, back)


def test_frames_of_12_to_244_bytes_notified_at_once_come_from_a_standard_reader_whole_and_in_order(
    stack: Stack, linked_alone: dict[str, Worked]
) -> None:
    linked_alone["standard"].gets_values_of_every_size(stack, "standard", 12)


def test_values_of_1_to_244_bytes_notified_at_once_come_from_a_q62t_reader_as_they_are_in_order(
    stack: Stack, linked_alone: dict[str, Worked]
) -> None:
    linked_alone["q62t"].gets_values_of_every_size(stack, "q62t", 1)


def test_both_characteristics_of_a_q62t_reader_notify_values_without_a_byte_too(
    stack: Stack, linked_alone: dict[str, Worked]
) -> None:
    linked_alone["q62t"].frames.clear()
    values = ["bb01", "bb02", "", "0304"]
    for at, value in enumerate(values):
        stack.order(f"{['notify', 'notify-tx'][at % 2]} q62t {value}".rstrip())
        # Only values of one characteristic come in order when nobody listens for a while.
        linked_alone["q62t"].has_frames(values[: at + 1])


def test_the_five_links_end(stack: Stack, air: Air, linked_alone: dict[str, Worked]) -> None:
    links_end(stack, air, linked_alone)


def test_kestrin_scan_after_the_links_shows_the_advertised_names(linked_alone: dict[str, Worked]) -> None:
    # A process of its own: what the daemon has read over links must not come up in it.
    ended = machine.kestrin("scan", "--for", "6")
    assert ended.returncode == 0
    shown = sorted(line.split("\t")[0] for line in ended.stdout.splitlines())
    assert shown == sorted([*NAMED, "KVR-LATE"])


def test_a_reader_of_each_tx_mask_is_linked_up_together_with_the_others(masked: dict[str, Worked]) -> None:
    assert all(worked.manager.isOpened() for worked in masked.values())
    assert [worked.plugs for worked in masked.values()] == [[True]] * 5


@pytest.mark.parametrize("reader", ["tx08", "tx0C", "tx18"])
def test_a_reader_whose_tx_can_be_written_answers_get_reader_info_and_the_command(
    masked: dict[str, Worked], reader: str
) -> None:
    info, answer = masked[reader].frames
    assert (kestrin.Frame.parse(bytes.fromhex(info)).type, info[4:6]) == (0x01, "03")
    assert answer == MASK_ANSWER
    assert masked["tx0C"].frames == [info, answer]


def sent_lines(worked: Worked) -> int:
    return sum(line.startswith("[TX BLE] ") for line in worked.log)


def error_lines(worked: Worked) -> int:
    return sum(line.startswith("[ERROR]") for line in worked.log)


def writes_in_requests(stack: Stack, reader: str) -> list[str]:
    """All that was written to the reader; a mistake when something was written otherwise."""
    assert stack.events(0, "WRITE-COMMAND", reader) == []
    assert stack.events(0, "WRITE-NOT-PERMITTED", reader) == []
    return stack.events(0, "WRITE", reader)


MASK_WRITES = [f"{STANDARD_TX} {part}" for part in slices(GET_READER_INFO, MASK_COMMAND)]


def test_to_tx_with_write_without_response_only_requests_leave_as_for_any_other(
    stack: Stack, masked: dict[str, Worked]
) -> None:
    # Whether they do anything is the reader's affair; this one refuses, which nobody is told.
    tx04 = masked["tx04"]
    assert stack.events(0, "WRITE-NOT-PERMITTED", "tx04") == MASK_WRITES
    assert stack.events(0, "WRITE", "tx04") == stack.events(0, "WRITE-COMMAND", "tx04") == []
    assert tx04.frames == []
    assert tx04.sent and sent_lines(tx04) == 4
    stack.order(f"notify tx04 {MASK_ANSWER}")
    tx04.has_frames([MASK_ANSWER])
    assert tx04.plugs == [True]


def test_to_tx_with_write_only_the_bytes_arrive_and_each_slice_asks_for_notifications_in_vain(
    stack: Stack, masked: dict[str, Worked]
) -> None:
    tx08 = masked["tx08"]
    assert writes_in_requests(stack, "tx08") == MASK_WRITES
    assert tx08.sent and sent_lines(tx08) == error_lines(tx08) == 4


def test_to_tx_with_both_kinds_of_write_the_bytes_arrive_in_requests(
    stack: Stack, masked: dict[str, Worked]
) -> None:
    tx0c = masked["tx0C"]
    assert writes_in_requests(stack, "tx0C") == MASK_WRITES
    assert tx0c.sent and (sent_lines(tx0c), error_lines(tx0c)) == (4, 0)


def test_to_tx_with_write_and_notify_the_bytes_arrive(stack: Stack, masked: dict[str, Worked]) -> None:
    tx18 = masked["tx18"]
    assert writes_in_requests(stack, "tx18") == MASK_WRITES
    assert tx18.sent and (sent_lines(tx18), error_lines(tx18)) == (4, 0)


def test_tx_with_write_and_notify_is_subscribed_to_once_and_its_values_come(
    stack: Stack, masked: dict[str, Worked]
) -> None:
    assert sorted(stack.events(0, "SUBSCRIBED", "tx18")) == [STANDARD_TX, STANDARD_RX]
    before = list(masked["tx18"].frames)
    stack.order(f"notify-tx tx18 {MASK_ANSWER}")
    masked["tx18"].has_frames([*before, MASK_ANSWER])


def test_to_tx_that_takes_no_writes_nothing_leaves_send_says_so_and_the_log_names_the_mask(
    stack: Stack, masked: dict[str, Worked]
) -> None:
    tx12 = masked["tx12"]
    assert not tx12.sent
    assert tx12.log.count("No write property on TX characteristic, 18.") == 4
    assert sent_lines(tx12) == 0
    assert writes_in_requests(stack, "tx12") == []
    assert tx12.plugs == [True]


def test_the_five_links_with_tx_masks_end(stack: Stack, air: Air, masked: dict[str, Worked]) -> None:
    links_end(stack, air, masked)


def test_the_application_ends_cleanly_in_the_midst_of_a_scan(
    air: Air, linked_alone: dict[str, Worked], masked: dict[str, Worked]
) -> None:
    last = Worked(air)
    last.manager.scanBLE()
    air.wait(30, "the scan", lambda: "KVR-0001" in last.found)
    assert daemon_property("/org/bluez/hci0", "Adapter1", "Discovering") == "b true"
    managers = [last, *linked_alone.values(), *masked.values()]
    for worked in managers:
        worked.manager.release()
    air.platform.release()
    machine.wait_for(
        20,
        "the end of the scan",
        lambda: daemon_property("/org/bluez/hci0", "Adapter1", "Discovering") == "b false",
    )
