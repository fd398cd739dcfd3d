"""Objects destroyed in any order, from anywhere, without leaks and without a crash."""

from __future__ import annotations

import gc
import subprocess
import sys
import threading
import weakref
from collections.abc import Callable
from typing import Any

import pytest
from support import NAME, Application, simulated, unraisable

import kestrinblesdk as kestrin

COMMAND = kestrin.build_frame(0x00, 0x22)


def test_the_platform_may_go_before_its_managers_and_readers() -> None:
    application = Application()
    manager, reader = application.manager, application.reader
    platform = manager.platform
    del application
    platform.release()
    with pytest.raises(RuntimeError, match="this platform has been released"):
        platform.run_for(1)
    assert manager.isOpened() and reader.connected
    manager.close()
    del manager
    assert reader.identifier == "C0:00:00:00:00:01"


def test_a_released_platform_makes_no_managers() -> None:
    with simulated() as platform:
        pass
    assert platform.is_released
    with pytest.raises(RuntimeError, match="this platform has been released"):
        kestrin.KestrinBleMgr(platform)


def test_a_callback_may_drop_the_last_reference_to_its_manager() -> None:
    application = Application()
    managers = [application.manager]
    gone = weakref.ref(application.manager)
    reader, platform = application.reader, application.platform
    del application

    def drop(frame: object) -> None:
        dropped.append(frame)
        managers.clear()

    dropped: list[object] = []
    managers[0].on_found = managers[0].on_plugged = None
    managers[0].on_frame = drop
    managers[0].send(COMMAND)
    platform.run_for(1)
    assert len(dropped) == 1 and gone() is None
    platform.run_for(1)
    assert not reader.connected


def test_a_callback_may_release_its_manager() -> None:
    application = Application()
    application.manager.on_frame = lambda frame: application.manager.release()
    application.manager.send(COMMAND)
    application.platform.run_for(1)
    assert application.manager.is_released and not application.reader.connected


def test_a_callback_may_not_release_the_platform() -> None:
    application = Application()
    application.manager.on_plugged = lambda plugged: application.platform.release()
    with unraisable() as seen:
        application.reader.simulate_link_loss()
        application.platform.run_for(1)
    assert [kind for kind, _, _ in seen] == [RuntimeError]
    assert not application.platform.is_released


def test_a_manager_dropped_closes_its_link() -> None:
    application = Application()
    reader, platform = application.reader, application.platform
    del application
    gc.collect()
    platform.run_for(1)
    assert not reader.connected


def cycle_of_handlers() -> list[object]:
    application = Application()
    manager = application.manager
    manager.on_frame = lambda frame: manager.send(COMMAND)
    application.platform.log = lambda line: manager.platform
    return [application, manager, application.platform, application.reader]


def cycle_of_a_script() -> list[object]:
    application = Application()
    reader = application.reader
    reader.script = lambda frame: [repr(reader).encode(), repr(application).encode()]
    return [application, reader, application.platform]


def cycle_of_tasks() -> list[object]:
    platform = simulated()
    platform.post(lambda: platform.stop())
    platform.arm(3600, lambda: platform.stop())
    return [platform]


def cycle_of_a_delegate() -> list[object]:
    class Delegate(kestrin.RcpReceiver):
        manager: kestrin.KestrinBleMgr

    delegate = Delegate()
    delegate.manager = kestrin.KestrinBleMgr(simulated())
    delegate.manager.rcpReceiverDelegate = delegate
    return [delegate, delegate.manager, delegate.manager.platform]


@pytest.mark.parametrize(
    "make", [cycle_of_handlers, cycle_of_a_script, cycle_of_tasks, cycle_of_a_delegate]
)
def test_what_refers_to_itself_is_collected(make: Callable[[], list[object]]) -> None:
    references = [weakref.ref(each) for each in make()]
    gc.collect()
    assert [reference() for reference in references] == [None] * len(references)


def test_nothing_is_left_after_many_conversations() -> None:
    def count() -> int:
        gc.collect()
        return len(gc.get_objects())

    def conversation() -> None:
        application = Application()
        application.manager.send(COMMAND)
        application.platform.run_for(1)
        assert len(application.frames) == 1

    conversation()
    before = count()
    for _ in range(20):
        conversation()
    assert count() - before < 20


def test_a_manager_may_be_collected_on_another_thread() -> None:
    application = Application()
    reader, platform = application.reader, application.platform
    managers = [application.manager]
    application.manager.on_found = application.manager.on_plugged = None
    del application
    thread = threading.Thread(target=managers.clear)
    thread.start()
    thread.join()
    assert reader.connected
    platform.run_for(1)
    assert not reader.connected


def run_program(text: str) -> Any:
    return subprocess.run(
        [sys.executable, "-X", "dev", "-c", text], capture_output=True, text=True, timeout=60
    )


PROGRAM = f"""
import kestrinblesdk as kestrin
platform = kestrin.SimulatedPlatform(virtual_time=True)
reader = platform.add_reader({NAME!r})
manager = kestrin.KestrinBleMgr(platform)
manager.on_found = manager.connectBLE
manager.on_plugged = lambda plugged: print("plugged", plugged)
manager.scanBLE()
platform.run_for(5)
"""


@pytest.mark.parametrize(
    "rest",
    [
        "",
        "import sys; sys.keep = manager; del manager, platform",
        "platform.log = print; platform.post(lambda: platform)",
        "del platform, reader",
        "import builtins; builtins.keep = [manager, platform, reader, manager.pripheral]",
    ],
)
def test_the_interpreter_ends_with_a_manager_alive(rest: str) -> None:
    result = run_program(PROGRAM + rest)
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout == "plugged True\n"


def test_the_interpreters_end_releases_managers_and_platforms() -> None:
    result = run_program(
        "import atexit\n"
        "keep = []\n"
        "atexit.register(lambda: print([each.is_released for each in keep]))\n"
        + PROGRAM
        + "keep += [manager, platform]"
    )
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout == "plugged True\n[True, True]\n"


def test_the_interpreter_ends_inside_a_callback() -> None:
    result = run_program(
        PROGRAM + "import sys\nmanager.on_plugged = lambda plugged: sys.exit(3)\nmanager.close()"
    )
    assert (result.returncode, result.stderr) == (3, "")


def test_the_interpreter_ends_while_another_thread_turns_the_loop() -> None:
    result = run_program(
        "import threading, kestrinblesdk as kestrin\n"
        "started = threading.Event()\n"
        "def work():\n"
        "    platform = kestrin.SimulatedPlatform()\n"
        "    def again():\n"
        "        started.set()\n"
        "        platform.post(again)\n"
        "    again()\n"
        "    platform.run()\n"
        "threading.Thread(target=work, daemon=True).start()\n"
        "assert started.wait(60)\n"
    )
    assert (result.returncode, result.stderr) == (0, "")


def test_the_process_has_one_shared_manager() -> None:
    result = run_program(
        "import kestrinblesdk as kestrin\n"
        "platform = kestrin.install_simulated(seed=3)\n"
        f"platform.add_reader({NAME!r})\n"
        "manager = kestrin.KestrinBleMgr.sharedInstance()\n"
        "assert manager is kestrin.KestrinBleMgr.sharedInstance()\n"
        "assert manager is not kestrin.KestrinBleMgr(platform)\n"
        "assert manager.platform is platform\n"
        "platform.log = lambda line: None\n"
        "manager.on_found = lambda peripheral: (print(peripheral.name), platform.stop())\n"
        "manager.scanBLE()\n"
        "platform.run_for(60)\n"
        "try:\n"
        "    kestrin.install_bluez()\n"
        "except RuntimeError as error:\n"
        "    print(error)\n"
    )
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout == (
        f"{NAME}\na radio is installed once, before the first KestrinBleMgr.sharedInstance()\n"
    )


def test_without_a_radio_the_shared_manager_scans_for_nothing() -> None:
    result = run_program(
        "import kestrinblesdk as kestrin\n"
        "manager = kestrin.KestrinBleMgr.sharedInstance()\n"
        "assert manager.scanBLE()\n"
        "manager.platform.run_one_turn()\n"
        "print(manager.platform.radio_trouble)\n"
    )
    assert result.returncode == 0
    assert result.stdout.strip() != ""
