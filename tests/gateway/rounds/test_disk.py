"""Disks that are full or fail, and clocks that jump: nothing that was taken is lost, and what the disk did not
take is reported by number."""

from __future__ import annotations

import errno
import os
import subprocess
from collections.abc import Iterator
from datetime import datetime
from pathlib import Path

import pytest
from faults import Faults
from judge import expect_all, judge
from machines import Broker, Gateway, Json, Room, Watch, wait_for
from privileges import skip_unless_root
from steps import drain, made_with_an_observer, wait_until_further

REFUSED = "the disk refuses records"


class Bench:
    """A broker, a gateway that faults can be played to, a consumer and one who looks on."""

    def __init__(self, room: Room) -> None:
        self.broker = Broker(room)
        self.broker.start()
        self.gateway, self.consumer = made_with_an_observer(room, self.broker, self.broker.port)
        self.faults = Faults(room, self.gateway)
        self.watch = Watch(self.broker.port)

    def start(self) -> None:
        self.gateway.start()
        self.consumer.start()
        wait_until_further(self.gateway, 50)

    def wait_until_trouble_is_over(self, part: str) -> None:
        def holds() -> bool:
            trouble = self.watch.last("/health").get("trouble", [part])
            return not any(part in line for line in trouble)

        wait_for(f"health without '{part}'", holds)


@pytest.fixture
def bench(room: Room) -> Iterator[Bench]:
    made = Bench(room)
    yield made
    made.watch.close()


def expect_refused_numbers_to_be_named(taken: list[Json], printed: list[Json]) -> int:
    """Whatever number is missing in the log is in a gap that says so, and the consumer has the rest. Returns
    how many are missing."""
    numbers = {each["n"] for each in taken}
    named: set[int] = set()
    for gap in (each["gap"] for each in taken if "gap" in each):
        assert gap["reason"] == "refused", gap
        named |= set(range(gap["from"], gap["to"] + 1))
    assert not named & numbers, "a number is there and said to be lost"
    missing = set(range(1, max(numbers) + 1)) - numbers
    assert missing == named
    assert not judge(taken, printed).lost
    return len(missing)


def expect_reported_refusals(bench: Bench, mark: int, taken: list[Json]) -> None:
    missing = expect_refused_numbers_to_be_named(taken, bench.consumer.records())
    assert missing > 0, "the disk has taken everything"
    said = [line for line in bench.gateway.lines(mark) if REFUSED in line]
    assert len(said) == 1, f"said once while it lasts: {said}"
    sent = sum(len(each) for each in bench.gateway.sent_records().values())
    own = [each for each in taken if "gap" not in each]
    assert len(own) + missing >= sent - 10, "some of what was sent is neither there nor named"


def test_a_full_disk_is_reported_and_what_it_did_not_take_is_named(bench: Bench) -> None:
    bench.start()
    mark = bench.gateway.mark()
    bench.faults.fail_writes(errno.ENOSPC)
    bench.gateway.wait_for_line(REFUSED, mark)
    bench.watch.wait_for_trouble("No space left on device")
    wait_until_further(bench.gateway, 100)
    bench.faults.end()
    wait_until_further(bench.gateway, 100)
    bench.wait_until_trouble_is_over(REFUSED)
    taken = drain(bench.gateway, bench.consumer)
    expect_reported_refusals(bench, mark, taken)


@pytest.fixture
def small_disk(room: Room) -> Iterator[Path]:
    folder = room / "small"
    folder.mkdir()
    mount = ["mount", "-t", "tmpfs", "-o", "size=3m", "kestrin-test", str(folder)]
    done = subprocess.run(mount, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        # The same with a disk that only says that it is full is proven above.
        skip_unless_root(f"a small disk cannot be mounted here: {done.stderr.strip()}")
    yield folder
    room.close()
    subprocess.run(["umount", str(folder)], check=True)


def fill(folder: Path) -> Path:
    ballast = folder / "ballast"
    with ballast.open("wb", buffering=0) as file:
        try:
            while True:
                file.write(bytes(4096))
        except OSError as error:
            assert error.errno == errno.ENOSPC
    return ballast


def test_a_disk_that_fills_up_and_gets_room_again_costs_only_what_is_named(
    bench: Bench, small_disk: Path
) -> None:
    bench.gateway.folder = small_disk / "log"
    bench.gateway.settings.log = {"directory": str(bench.gateway.folder), "budget": "64 MiB"}
    bench.start()
    mark = bench.gateway.mark()
    ballast = fill(small_disk)
    bench.gateway.wait_for_line(REFUSED, mark)
    bench.watch.wait_for_trouble("No space left on device")
    wait_until_further(bench.gateway, 100)
    ballast.unlink()
    wait_until_further(bench.gateway, 100)
    bench.wait_until_trouble_is_over(REFUSED)
    taken = drain(bench.gateway, bench.consumer)
    expect_reported_refusals(bench, mark, taken)


def test_a_disk_with_write_errors_costs_only_what_is_named(bench: Bench) -> None:
    bench.start()
    mark = bench.gateway.mark()
    bench.faults.fail_writes(errno.EIO, 30)
    wait_for("30 writes to have failed", lambda: bench.faults["writes_failed"] >= 30)
    bench.gateway.wait_for_line("Input/output error", mark)
    wait_until_further(bench.gateway, 100)
    bench.wait_until_trouble_is_over(REFUSED)
    taken = drain(bench.gateway, bench.consumer)
    missing = expect_refused_numbers_to_be_named(taken, bench.consumer.records())
    assert 0 < missing <= 30


def test_short_writes_cost_nothing(bench: Bench) -> None:
    bench.start()
    bench.faults["short_times"] = 200
    wait_for("200 short writes", lambda: bench.faults["writes_short"] >= 200)
    expect_all(drain(bench.gateway, bench.consumer), bench.consumer.records())


def test_a_kill_behind_short_writes_costs_nothing(bench: Bench) -> None:
    bench.start()
    bench.faults["short_times"] = -1
    seen = bench.faults["writes_short"]
    wait_for("short writes", lambda: bench.faults["writes_short"] > seen + 50)
    bench.gateway.kill()
    bench.faults.end()
    bench.gateway.start()
    wait_until_further(bench.gateway, 50)
    taken = drain(bench.gateway, bench.consumer)
    assert not [each for each in taken if "gap" in each]
    assert not judge(taken, bench.consumer.records()).lost


def test_nothing_is_handed_over_that_could_not_be_synced(bench: Bench) -> None:
    bench.start()
    mark = bench.gateway.mark()
    bench.faults.fail_syncs(errno.EIO)
    bench.gateway.wait_for_line("the log cannot be put on the disk", mark)
    bench.watch.wait_for_trouble("the log cannot be put on the disk")
    wait_until_further(bench.gateway, 100)
    synced = bench.watch.last("/health")["synced"]
    assert bench.consumer.last_number() <= synced
    assert max(each["n"] for each in bench.gateway.exported()) > synced
    bench.faults.end()
    bench.wait_until_trouble_is_over("nothing new is published before it is")
    expect_all(drain(bench.gateway, bench.consumer), bench.consumer.records())


def wall_seconds(record: Json) -> float:
    return datetime.fromisoformat(record["at"].replace("Z", "+00:00")).timestamp()


@pytest.mark.parametrize("jump", [3600, -3600])
def test_a_clock_that_jumps_by_an_hour_costs_nothing(bench: Bench, jump: int) -> None:
    bench.start()
    bench.faults["clock_seconds"] = jump
    wait_until_further(bench.gateway, 100)
    bench.faults["clock_seconds"] = 0
    wait_until_further(bench.gateway, 100)
    taken = drain(bench.gateway, bench.consumer)
    expect_all(taken, bench.consumer.records())
    steps = [wall_seconds(after) - wall_seconds(before) for before, after in zip(taken, taken[1:])]
    jumps = [round(step / 3600) for step in steps if abs(step) > 1800]
    assert jumps == [jump // 3600, -jump // 3600], "the clock has not jumped for the gateway"
    assert all(after["mono"] >= before["mono"] for before, after in zip(taken, taken[1:]))


def test_a_clock_that_is_not_set_is_reported_and_frames_are_kept(bench: Bench) -> None:
    bench.faults["clock_seconds"] = -int(datetime.now().timestamp()) + 86400
    bench.start()
    bench.gateway.wait_for_line("clock not set")
    bench.watch.wait_for_trouble("clock not set")
    bench.faults["clock_seconds"] = 0
    bench.wait_until_trouble_is_over("clock not set")
    taken = drain(bench.gateway, bench.consumer)
    expect_all(taken, bench.consumer.records())
    assert taken[0]["at"].startswith("1970-01-02")
    assert not taken[-1]["at"].startswith("1970")


def test_the_faults_of_these_tests_reach_the_log(bench: Bench) -> None:
    bench.start()
    assert bench.faults["writes"] > 0
    assert os.environ["KESTRIN_GATEWAY_FAULTS"]


def test_a_log_that_cannot_be_made_ends_the_start_with_1_and_a_line(room: Room) -> None:
    gateway = Gateway(room, 1883)
    (room / "file").write_text("not a folder")
    gateway.settings.log = {"directory": str(room / "file" / "log")}
    gateway.start()
    assert gateway.wait() == 1
    assert str(room / "file") in gateway.lines()[-1]


def test_a_log_that_is_damaged_in_its_middle_is_begun_again_and_says_what_is_missing(room: Room) -> None:
    broker = Broker(room)
    broker.start()
    gateway, consumer = made_with_an_observer(room, broker, broker.port)
    gateway.start()
    wait_until_further(gateway, 300)
    assert gateway.end() == 0
    before = gateway.exported()
    database = gateway.folder / "current" / "records.sqlite"
    content = bytearray(database.read_bytes())
    middle = len(content) // 2
    content[middle : middle + 40] = bytes(40)
    database.write_bytes(content)
    # It still has the latest pages, and would stand in for the damaged ones.
    (database.parent / "records.sqlite-wal").unlink()
    mark = gateway.mark()
    gateway.start()
    consumer.start()
    wait_until_further(gateway, 50)
    assert any("damaged" in line for line in gateway.lines(mark)), gateway.lines(mark)
    taken = drain(gateway, consumer)
    assert taken[0]["log"] != before[0]["log"]
    assert taken[0]["gap"]["log"] == before[0]["log"]
    assert taken[0]["gap"]["reason"] == "damaged"
    own = [each for each in consumer.records() if each["log"] == taken[0]["log"]]
    assert not judge(taken, own).lost
