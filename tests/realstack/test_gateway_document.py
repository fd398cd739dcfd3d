"""docs/gateway-service.md, followed to the letter by somebody who has the packages and nothing else."""

from __future__ import annotations

import json
import os
import re
import shutil
import subprocess
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest
from stack import BUILD, LOGS
from stack import wait_for as wait_long

DOCUMENT = Path(os.environ["KESTRIN_ROOT"]) / "docs/gateway-service.md"
FOLDER = LOGS / "document"


def blocks() -> list[str]:
    """What is to be typed, in its order."""
    return re.findall(r"^```sh\n(.*?)^```$", DOCUMENT.read_text(), re.MULTILINE | re.DOTALL)


class Follower:
    """What somebody who follows the document sees."""

    def __init__(self) -> None:
        FOLDER.mkdir(parents=True)
        for deb in (BUILD / "packages").glob("*.deb"):
            shutil.copy(deb, FOLDER)
        # The machine has no network: apt knows what is installed, and of nothing newer. Nobody is there to say yes.
        for folder in ("/var/lib/apt/lists", "/etc/apt/sources.list.d"):
            shutil.rmtree(folder, ignore_errors=True)
            Path(folder).mkdir()
        Path("/etc/apt/sources.list").write_text("")
        Path("/etc/apt/apt.conf.d/90yes").write_text('APT::Get::Assume-Yes "true";\n')
        *steps, last = blocks()
        self.number_of_blocks = len(steps) + 1
        # One after the other in one shell, which stops at the first thing that fails.
        steps = [f"{step}echo \"block {number} done after $SECONDS s\"" for number, step in enumerate(steps, 1)]
        environment = {**os.environ, "DEBIAN_FRONTEND": "noninteractive"}
        done = subprocess.run(
            ["bash", "-e", "-c", "\n".join(steps)],
            cwd=FOLDER,
            env=environment,
            capture_output=True,
            text=True,
            check=False,
            timeout=1200,
        )
        self.status, self.said = done.returncode, done.stdout + done.stderr
        self.printed: list[dict[str, Any]] = []
        if self.status == 0:
            self.consume(last)

    def consume(self, block: str) -> None:
        output = FOLDER / "consumer.jsonl"
        with output.open("w") as file:
            # Of its own session, so that the signal reaches what the shell has started.
            consumer = subprocess.Popen(
                ["bash", "-e", "-c", block], cwd=FOLDER, stdout=file, start_new_session=True
            )
            try:
                wait_long(300, "frames at the consumer", lambda: output.read_text().count("\n") >= 3)
            finally:
                os.killpg(consumer.pid, 2)  # SIGINT
                self.consumer_status = consumer.wait(60)
        self.printed = [json.loads(line) for line in output.read_text().splitlines()]
        self.later = subprocess.run(
            ["systemctl", "show", "--value", "-p", "StatusText", "kestrin-gateway"],
            capture_output=True,
            text=True,
            check=True,
        ).stdout.strip()


@pytest.fixture(scope="module")
def follower() -> Iterator[Follower]:
    yield Follower()
    for command in [
        ["systemctl", "disable", "--now", "kestrin-gateway"],
        ["dpkg", "-P", "kestrin-gateway"],
        ["rm", "-rf", "/etc/kestrin-gateway", "/etc/mosquitto/conf.d/gateways.conf"],
        ["systemctl", "stop", "mosquitto"],
    ]:
        subprocess.run(command, check=False)


def test_every_command_of_the_document_does_its_work(
    follower: Follower, record_property: Callable[[str, object], None]
) -> None:
    assert follower.number_of_blocks == 6
    assert follower.status == 0, follower.said
    assert "gateway.toml: is right; gateway hall-1, 1 readers, 1 declared consumers" in follower.said
    assert "Active: active (running)" in follower.said
    record_property("times", "\n".join(re.findall(r"^block .* done after .*$", follower.said, re.MULTILINE)))


def test_the_gateway_says_that_nothing_is_wrong(follower: Follower) -> None:
    assert re.search(r'Status: "1 of 1 readers plugged in, the broker is there, \d+ records wait"', follower.said)
    last = follower.said.rpartition("gateway   hall-1, version ")[2]
    assert re.search(r"^broker    localhost:8883: ", last, re.MULTILINE), follower.said
    assert re.search(r"^reader    KVR-0417 \(\S+\): pluggedIn for ", last, re.MULTILINE), follower.said
    assert re.search(r"^trouble   none$", last, re.MULTILINE), follower.said


def test_frames_are_at_the_consumer_from_the_first_one_on(follower: Follower) -> None:
    assert [record["n"] for record in follower.printed][:3] == [1, 2, 3]
    assert {record["name"] for record in follower.printed} == {"KVR-0417"}


def test_its_status_is_the_one_that_the_document_shows(follower: Follower) -> None:
    assert re.fullmatch(r"1 of 1 readers plugged in, the broker is there, \d+ records wait", follower.later)
