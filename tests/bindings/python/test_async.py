"""The reader for asyncio, in virtual time."""

from __future__ import annotations

import asyncio
from collections.abc import Awaitable, Callable, Coroutine
from functools import partial
from typing import Any

import pytest
from support import NAME, RX, TX, simulated

import kestrinblesdk as kestrin
from kestrinblesdk import AsyncReader, build_frame

COMMAND = build_frame(0x00, 0x22, bytes(range(37)))
ANSWER = build_frame(0x01, 0x22, bytes(range(37)))


def run(main: Callable[[], Coroutine[Any, Any, None]]) -> None:
    """A run that must end by itself, with nothing left in the loop."""

    async def whole() -> None:
        await main()
        assert asyncio.all_tasks() == {asyncio.current_task()}

    asyncio.run(whole(), debug=True)


async def drain(reader: AsyncReader) -> None:
    """Lets everything arrive that is under way."""
    async for _ in reader.frames(limit=1):
        pass


def test_the_main_job() -> None:
    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)
        async with AsyncReader(platform, "KVR") as it:
            assert it.is_plugged_in and it.name == NAME
            assert repr(it) == f"<AsyncReader '{NAME}' plugged in>"
            assert await it.exchange(COMMAND) == ANSWER
        assert not it.is_plugged_in and not reader.connected

    run(main)


def test_a_frame_leaves_in_slices_with_pauses_in_which_others_run() -> None:
    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)
        turns = 0

        async def other() -> None:
            nonlocal turns
            while True:
                turns += 1
                await asyncio.sleep(0)

        async with AsyncReader(platform) as it:
            count = len(reader.writes)
            task = asyncio.create_task(other())
            before = turns
            await it.send(COMMAND)
            assert turns - before > 2
            task.cancel()
            await drain(it)
            writes = reader.writes[count:]
        assert [write.value for write in writes] == [COMMAND[:20], COMMAND[20:40], COMMAND[40:]]
        assert all(
            0.04 < after.at - before.at < 0.08 for before, after in zip(writes, writes[1:])
        )

    run(main)


def test_a_frame_of_full_slices_ends_with_an_empty_write() -> None:
    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)
        async with AsyncReader(platform) as it:
            await it.exchange(build_frame(0, 0x22, bytes(12)))
            await drain(it)
        assert [len(write.value) for write in reader.writes[-2:]] == [20, 0]

    run(main)


def test_frames_sent_at_once_do_not_mix() -> None:
    async def main() -> None:
        platform = simulated()
        platform.add_reader(NAME)
        async with AsyncReader(platform) as it:
            commands = [build_frame(0, 0x30 + at, bytes([at]) * 50) for at in range(4)]
            answers = await asyncio.gather(*(it.exchange(command) for command in commands))
        assert answers == [build_frame(1, 0x30 + at, bytes([at]) * 50) for at in range(4)]

    run(main)


def test_frames_come_in_order_and_end_when_none_comes() -> None:
    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)
        sent = [build_frame(1, at) for at in range(8)]
        async with AsyncReader(platform) as it:
            await it.receive(limit=1)  # The reader's info.
            for frame in sent:
                reader.simulate_notification(RX, frame)
            assert [frame async for frame in it.frames(limit=1)] == sent
            assert it.is_plugged_in

    run(main)


def test_frames_end_when_the_link_is_lost() -> None:
    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)
        async with AsyncReader(platform) as it:
            platform.arm(5, reader.simulate_link_loss)
            frames = [frame async for frame in it.frames()]
            assert len(frames) == 1 and not it.is_plugged_in
            for use in (it.receive(limit=1), it.exchange(COMMAND), it.send(COMMAND)):
                with pytest.raises(ConnectionError, match="the reader is unplugged"):
                    await use

    run(main)


def test_other_frames_are_kept_while_an_answer_is_waited_for() -> None:
    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)
        other = build_frame(1, 0x55)
        reader.script = lambda frame: [other, build_frame(1, frame[2]), other]
        async with AsyncReader(platform) as it:
            await drain(it)
            assert await it.exchange(build_frame(0, 0x22)) == build_frame(1, 0x22)
            assert [frame async for frame in it.frames(limit=1)] == [other, other]

    run(main)


def test_what_does_not_come_in_time_says_so() -> None:
    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)
        async with AsyncReader(platform) as it:
            await it.receive(limit=1)
            before = platform.now()
            with pytest.raises(TimeoutError, match="^no frame came within 7.5 s$"):
                await it.receive(limit=7.5)
            assert platform.now() - before == pytest.approx(7.5, abs=0.02)
            reader.simulate_silence()
            with pytest.raises(TimeoutError, match="^no answer came within 3 s$"):
                await it.exchange(COMMAND, limit=3)

    run(main)


def test_a_reader_that_is_not_there_names_those_that_are() -> None:
    async def main() -> None:
        platform = simulated()
        platform.add_reader(NAME)
        with pytest.raises(
            TimeoutError, match=rf"no reader whose name contains 'KVR-9' was found within 4 s; in range: '{NAME}'"
        ):
            async with AsyncReader(platform, "KVR-9", limit=4):
                raise AssertionError("it is not there")
        platform.simulate_state(kestrin.CBManagerState.poweredOff)
        with pytest.raises(TimeoutError) as caught:
            async with AsyncReader(platform, limit=4):
                raise AssertionError("it is not there")
        assert platform.radio_trouble in str(caught.value)

    run(main)


def test_a_link_lost_before_it_can_be_used_says_so() -> None:
    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)
        platform.arm(1, reader.simulate_link_loss)
        with pytest.raises(ConnectionError, match=f"the link to '{NAME}' went down before"):
            async with AsyncReader(platform):
                raise AssertionError("it is not linked")

    run(main)


def test_a_reader_that_can_not_be_written_says_so() -> None:
    async def main() -> None:
        platform = simulated()
        platform.add_reader(NAME).simulate_missing_characteristic(TX)
        async with AsyncReader(platform) as it:
            with pytest.raises(ConnectionError, match="no characteristic that can be written"):
                await it.send(COMMAND)

    run(main)


@pytest.mark.parametrize("moment", [0.0, 0.1, 0.5, 1.5, 2.5])
def test_cancellation_closes_the_link(moment: float) -> None:
    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)

        async def work() -> None:
            async with AsyncReader(platform) as it:
                async for _ in it.frames():
                    pass

        task = asyncio.create_task(work())
        platform.arm(moment, lambda: task.cancel())
        with pytest.raises(asyncio.CancelledError):
            await task
        platform.run_for(1)
        assert not reader.connected
        assert not asyncio.get_running_loop().remove_reader(platform.file_descriptor())

    run(main)


def test_whoever_listens_hears_that_the_reader_was_let_go_of() -> None:
    class Stuck(AsyncReader):
        async def close(self, *, limit: float = 10.0) -> None:
            raise TimeoutError("the link did not go down")

    async def main() -> None:
        platform = simulated()
        platform.add_reader(NAME)
        with pytest.raises(TimeoutError, match="the link did not go down"):
            async with Stuck(platform) as it:
                await it.receive(limit=1)
                frames = asyncio.create_task(it.receive())
                limited = asyncio.create_task(it.receive(limit=5))
                await asyncio.sleep(0)
        for task in (frames, limited):
            with pytest.raises(ConnectionError, match="the reader is unplugged"):
                await asyncio.wait_for(task, 10)

    run(main)


def test_a_cancelled_wait_loses_no_frame() -> None:
    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)
        async with AsyncReader(platform) as it:
            await it.receive(limit=1)
            for wait in (it.receive(), it.exchange(COMMAND)):
                reader.simulate_silence()
                task = asyncio.create_task(wait)
                platform.arm(1, task.cancel)
                platform.arm(1, partial(reader.simulate_notification, RX, ANSWER))
                with pytest.raises(asyncio.CancelledError):
                    await task
                assert await it.receive(limit=1) == ANSWER

    run(main)


def test_an_exception_in_the_body_closes_the_link_and_goes_on() -> None:
    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)
        with pytest.raises(LookupError):
            async with AsyncReader(platform):
                raise LookupError
        assert not reader.connected

    run(main)


def test_a_link_that_does_not_go_down_hides_no_other_exception() -> None:
    class Stuck(AsyncReader):
        async def close(self, *, limit: float = 10.0) -> None:
            raise TimeoutError("the link did not go down")

    async def main() -> None:
        platform = simulated()
        reader = platform.add_reader(NAME)
        with pytest.raises(TimeoutError, match="the link did not go down"):
            async with Stuck(platform):
                pass
        platform.run_for(1)
        assert not reader.connected
        with pytest.raises(LookupError):
            async with Stuck(platform):
                raise LookupError

    run(main)


def test_two_readers_are_worked_at_once() -> None:
    async def main() -> None:
        platform = simulated()
        names = ["KVR-1", "KVR-2", "KVR-3"]
        for name in names:
            platform.add_reader(name)

        async def work(name: str) -> bytes:
            async with AsyncReader(platform, name) as it:
                return await it.exchange(build_frame(0, 0x22, name.encode()))

        assert await asyncio.gather(*map(work, names)) == [
            build_frame(1, 0x22, name.encode()) for name in names
        ]

    run(main)


def test_a_reader_can_be_connected_to_again() -> None:
    async def main() -> None:
        platform = simulated()
        platform.add_reader(NAME)
        it = AsyncReader(platform)
        for _ in range(3):
            async with it:
                assert await it.exchange(COMMAND) == ANSWER
                with pytest.raises(RuntimeError, match="in use already"):
                    await it.__aenter__()

    run(main)


def test_a_reader_that_is_not_connected_refuses_everything() -> None:
    async def main() -> None:
        it = AsyncReader(simulated())
        uses: list[Awaitable[object]] = [it.send(COMMAND), it.receive(), it.close()]
        for use in uses:
            with pytest.raises((RuntimeError, ConnectionError)):
                await use

    run(main)


def test_wrong_arguments_are_refused() -> None:
    async def main() -> None:
        platform = simulated()
        platform.add_reader(NAME)
        with pytest.raises(TypeError, match="a reader is on a Platform, not 'str'"):
            AsyncReader("KVR")  # type: ignore[arg-type]
        with pytest.raises(TypeError, match="a reader's name is a str, not 'bytes'"):
            AsyncReader(platform, b"KVR")  # type: ignore[arg-type]
        async with AsyncReader(platform) as it:
            with pytest.raises(TypeError, match="a frame is bytes or a bytes-like object"):
                await it.send("BB00")  # type: ignore[arg-type]
            with pytest.raises(ValueError, match="not a whole frame: it has 7 bytes, the shortest frame has 8"):
                await it.exchange(COMMAND[:7])

    run(main)


def test_values_of_the_q62t_family_are_received_as_they_come() -> None:
    async def main() -> None:
        platform = simulated()
        platform.add_reader("KVR-Q62T 0012")
        async with AsyncReader(platform) as it:
            await it.send(COMMAND)
            pieces = [piece async for piece in it.frames(limit=1)]
        assert pieces == [ANSWER[:20], ANSWER[20:40], ANSWER[40:]]

    run(main)


def test_a_manager_in_callback_style_is_hosted() -> None:
    async def main() -> None:
        platform = kestrin.SimulatedPlatform()
        platform.add_reader(NAME)
        manager = kestrin.KestrinBleMgr(platform)
        found = asyncio.get_running_loop().create_future()
        manager.on_found = lambda peripheral: found.set_result(peripheral.name)
        with kestrin.hosted(platform):
            manager.scanBLE()
            assert await asyncio.wait_for(found, 60) == NAME
        manager.release()

    run(main)


def test_an_interrupt_in_a_callback_leaves_asyncio() -> None:
    async def main() -> None:
        platform = simulated()
        platform.add_reader(NAME)

        def end() -> None:
            raise SystemExit(5)

        platform.arm(1, end)
        async with AsyncReader(platform):
            pass

    with pytest.raises(SystemExit):
        asyncio.run(main())
