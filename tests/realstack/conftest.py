"""Tests that run in the virtual machine of scripts/realstack, a module of them in a machine of its own.

A module names the devices on its air in DEVICES. Its lines are those of every suite there: one per case,
with what it records as a property, and the summary."""

from __future__ import annotations

import textwrap

import pytest
import stack as machine

# What scripts/realstack takes for a crash of the stack itself.
STACK_CRASH_STATUS = 75

results: list[str] = []


def pytest_plugin_registered(plugin: object, manager: pytest.PytestPluginManager) -> None:
    # What it would print is printed here.
    if manager.get_name(plugin) == "terminalreporter":
        manager.unregister(plugin)


@pytest.fixture(scope="module")
def stack(request: pytest.FixtureRequest) -> machine.Stack:
    started = machine.Stack(*request.module.DEVICES)
    started.start()
    return started


def pytest_runtest_logreport(report: pytest.TestReport) -> None:
    if report.when != "call" and report.passed:
        return
    result = "ok" if report.passed else "without" if report.skipped else "FAILED"
    results.append(result)
    name = report.nodeid.rpartition("::")[2].removeprefix("test_").replace("_", " ")
    print(f"{result:6}  {name}", flush=True)
    said = [str(text) for _, text in report.user_properties]
    if isinstance(report.longrepr, tuple):
        said.append(report.longrepr[2])  # Why it was skipped.
    elif not report.passed:
        said += [report.longreprtext, *(f"{title}\n{text}" for title, text in report.sections)]
    if said:
        print(textwrap.indent("\n".join(said), " " * 8), flush=True)


def pytest_collectreport(report: pytest.CollectReport) -> None:
    if report.failed:
        results.append("FAILED")
        print(f"FAILED  {report.nodeid}\n{report.longreprtext}", flush=True)


def pytest_sessionfinish(session: pytest.Session) -> None:
    failed = results.count("FAILED")
    crashes = machine.crashes() if failed else []
    if failed:
        print(machine.logs(), *crashes, sep="\n")
    passed = results.count("ok")
    print(f"{passed} passed, {failed} failed", flush=True)
    if crashes:
        session.exitstatus = STACK_CRASH_STATUS
    elif failed or not passed:
        session.exitstatus = pytest.ExitCode.TESTS_FAILED
