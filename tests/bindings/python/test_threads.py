"""The thread that a platform belongs to, and what other threads may do."""

from __future__ import annotations

import os
import signal
import threading
import weakref
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from functools import partial

import pytest
from support import NAME, Application, simulated, unraisable

import kestrinblesdk as kestrin

COMMAND = kestrin.build_frame(0x00, 0x22)


def elsewhere(work: Callable[[], object]) -> None:
    with ThreadPoolExecutor(1) as pool:
        pool.submit(work).result(60)


def test_another_thread_is_refused() -> None:
    application = Application()
    manager, platform, reader = application.manager, application.platform, application.reader
    peripheral = manager.pripheral
    assert peripheral is not None
    for work in (
        manager.scanBLE,
        manager.close,
        manager.open,
        manager.release,
        lambda: manager.send(COMMAND),
        lambda: manager.connectBLE(peripheral),
        lambda: kestrin.KestrinBleMgr(platform),
        lambda: platform.run_for(1),
        platform.run,
        platform.run_one_turn,
        platform.release,
        platform.enter_background,
        lambda: platform.add_reader("KVR-9"),
        reader.simulate_link_loss,
        lambda: reader.writes,
    ):
        with pytest.raises(RuntimeError, match="used on the thread that made the platform"):
            elsewhere(work)
    assert manager.open()


def test_another_thread_may_post_and_stop() -> None:
    platform = kestrin.SimulatedPlatform()
    threads: list[int] = []

    def work() -> None:
        platform.post(lambda: threads.append(threading.get_ident()))
        platform.post(platform.stop)
        assert platform.now() >= 0

    thread = threading.Thread(target=work)
    thread.start()
    platform.run()
    thread.join()
    assert threads == [threading.get_ident()]


def test_stop_ends_the_next_run_when_none_is_under_way() -> None:
    platform = kestrin.SimulatedPlatform()
    platform.stop()
    platform.run()
    platform.post(platform.stop)
    platform.run()


def test_other_threads_run_while_the_loop_is_turned() -> None:
    platform = kestrin.SimulatedPlatform()
    turned = threading.Event()

    def stop_later() -> None:
        turned.wait(60)
        platform.stop()

    thread = threading.Thread(target=stop_later)
    thread.start()
    platform.post(turned.set)
    platform.run()
    thread.join()
    assert turned.is_set()


def test_a_signal_ends_a_run_that_waits() -> None:
    platform = kestrin.SimulatedPlatform()
    platform.post(lambda: os.kill(os.getpid(), signal.SIGINT))
    with pytest.raises(KeyboardInterrupt):
        platform.run()


def test_a_callback_may_not_turn_the_loop() -> None:
    platform = simulated()
    platform.post(lambda: platform.run_for(1))
    platform.post(platform.run)
    platform.post(platform.run_one_turn)
    with unraisable() as seen:
        platform.run()
    assert [(kind, text.split(";")[0]) for kind, text, _ in seen] == [
        (RuntimeError, "the run loop is being turned already")
    ] * 3
    assert not platform.is_turning


def test_tasks_run_in_order_of_time_and_once() -> None:
    platform = simulated()
    done: list[str] = []
    platform.arm(2, lambda: done.append("late"))
    platform.arm(1, lambda: done.append("soon"))
    task = partial(done.append, "never")
    gone = weakref.ref(task)
    never = platform.arm(3600, task)
    del task
    platform.post(lambda: done.append("now"))
    assert gone() is not None
    platform.cancel(never)
    assert gone() is None
    platform.run()
    assert done == ["now", "soon", "late"] and platform.now() == 2
    platform.cancel(never)
    platform.run_for(10)
    assert len(done) == 3


def test_a_task_that_fails_is_reported_and_the_next_one_runs() -> None:
    platform = simulated()
    done: list[str] = []
    platform.post(lambda: 1 // 0)
    platform.post(lambda: done.append("next"))
    with unraisable() as seen:
        platform.run()
    assert [kind for kind, _, _ in seen] == [ZeroDivisionError] and done == ["next"]
    with pytest.raises(TypeError, match="a task is callable, not 'str'"):
        platform.post("work")  # type: ignore[arg-type]


def test_run_until_asks_before_each_turn() -> None:
    platform = simulated()
    done: list[int] = []
    platform.arm(3, lambda: done.append(1))
    assert platform.run_until(lambda: bool(done), 10) is True
    assert platform.now() == 3
    assert platform.run_until(lambda: False, 10) is False
    assert platform.now() == 13


def test_what_run_until_asks_may_fail() -> None:
    platform = simulated()
    with pytest.raises(ZeroDivisionError):
        platform.run_until(lambda: bool(1 // 0), 10)
    platform.run_for(1)
    assert platform.now() == 1


def test_the_descriptor_tells_of_work_that_is_due() -> None:
    import select

    platform = simulated()
    descriptor = platform.file_descriptor()
    assert select.select([descriptor], [], [], 0)[0] == []
    done: list[int] = []
    platform.post(lambda: done.append(1))
    assert select.select([descriptor], [], [], 0)[0] == [descriptor]
    assert platform.run_one_turn() is True and done == [1]
    assert platform.run_one_turn() is False


def test_a_platform_belongs_to_the_thread_that_made_it() -> None:
    def work() -> None:
        platform = simulated()
        platform.add_reader(NAME)
        manager = kestrin.KestrinBleMgr(platform)
        manager.on_found = manager.connectBLE
        manager.scanBLE()
        platform.run_for(5)
        assert manager.open()
        manager.release()

    elsewhere(work)
