"""The example alert rules and the example dashboard, held against promtool and what a gateway says."""

from __future__ import annotations

import json
import os
import re
import subprocess
from pathlib import Path

from machines import Room
from pages import plugged_in, script_of, started_broker, with_a_page

EXAMPLES = Path(os.environ["KESTRIN_SOURCES"]) / "examples" / "monitoring"
METRIC = re.compile(r"\bkestrin_gateway_[a-z_]+")


def promtool(*arguments: str) -> str:
    command = ["promtool", *arguments]
    done = subprocess.run(command, cwd=EXAMPLES, capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def test_promtool_takes_the_rules_and_the_configuration() -> None:
    rules = re.search(r"SUCCESS: (\d+) rules found", promtool("check", "rules", "gateway-alerts.yml"))
    assert rules and int(rules[1]) == len(re.findall(r"- alert:", (EXAMPLES / "gateway-alerts.yml").read_text()))
    assert "SUCCESS" in promtool("check", "config", "prometheus.yml")


def test_each_alert_comes_when_it_should_and_only_then() -> None:
    assert "SUCCESS" in promtool("test", "rules", "gateway-alerts-test.yml")
    tried = (EXAMPLES / "gateway-alerts-test.yml").read_text()
    for alert in re.findall(r"- alert: (\w+)", (EXAMPLES / "gateway-alerts.yml").read_text()):
        assert len(re.findall(rf"alertname: {alert}\b", tried)) >= 2, alert


def test_rules_and_dashboard_ask_only_for_what_a_gateway_has(room: Room, tmp_path: Path) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    script_of(room, gateway, [(0.2, b"KVR-0001")])
    gateway.start()
    page.wait()
    page.wait_for_status("a signal", lambda status: "signal" in status["readers"][0])
    has = set(METRIC.findall(page.ask("/metrics")[1]))
    dashboard = json.loads((EXAMPLES / "gateway-dashboard.json").read_text())
    questions = [target["expr"] for panel in dashboard["panels"] for target in panel["targets"]]
    questions += re.findall(r"expr: (.*)", (EXAMPLES / "gateway-alerts.yml").read_text())
    asked = {name for question in questions for name in METRIC.findall(question)}
    assert len(asked) >= 10 and asked <= has, asked - has
    # promtool reads each of the dashboard's questions as a rule.
    rules = [{"record": f"tried:{number}", "expr": each} for number, each in enumerate(questions)]
    file = tmp_path / "questions.yml"
    file.write_text(json.dumps({"groups": [{"name": "questions", "rules": rules}]}).replace("$instance", ".*"))
    assert f"SUCCESS: {len(rules)} rules found" in promtool("check", "rules", str(file))


def test_promtool_finds_nothing_wrong_with_the_metrics(room: Room) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    script_of(room, gateway, [(0.2, b'KVR"\\'), (0.2, b"KVR-0002")])
    gateway.start()
    page.wait()
    plugged_in(page, 2)
    code, text, headers = page.ask("/metrics")
    assert code == 200 and headers["content-type"].startswith("text/plain; version=0.0.4")
    done = subprocess.run(
        ["promtool", "check", "metrics"], input=text, capture_output=True, text=True, check=False
    )
    assert (done.returncode, done.stdout, done.stderr) == (0, "", ""), done
    assert "kestrin_gateway_broker_up 1" in text.splitlines()
