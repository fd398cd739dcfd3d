"""Debian's Chromium without a screen, steered by its DevTools protocol over two pipes."""

from __future__ import annotations

import base64
import json
import os
import select
import shutil
import subprocess
import time
from pathlib import Path
from typing import Any

from machines import LIMIT, wait_for

Json = dict[str, Any]


class Browser:
    """Threads: one. What it is sent and sends are JSON texts with a zero byte behind each."""

    def __init__(self, folder: Path) -> None:
        program = shutil.which("chromium")
        assert program, "Chromium is missing; Debian's package is chromium"
        to_read, self._to = os.pipe()
        self._from, to_write = os.pipe()
        options = ["--headless=new", "--remote-debugging-pipe", "--disable-gpu", "--no-first-run"]
        options += [f"--user-data-dir={folder}/profile", "--disable-dev-shm-usage", "--hide-scrollbars"]
        options += ["--disable-background-networking", "--disable-component-update", "--disable-sync"]
        if os.geteuid() == 0:
            # Its sandbox is not for root.
            options.append("--no-sandbox")
        # It reads from descriptor 3 and writes to 4.
        shell = f'exec "$0" "$@" 3<&{to_read} 4>&{to_write}'
        with (folder / "chromium.log").open("wb") as log:
            self._process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "bash", "-c", shell, program, *options, "about:blank"],
                pass_fds=(to_read, to_write),
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=log,
                env={**os.environ, "HOME": str(folder), "LANG": "C.UTF-8", "TZ": "UTC"},
            )
        os.close(to_read)
        os.close(to_write)
        self._left = b""
        self._number = 0
        self.events: list[Json] = []
        self._session = ""
        targets = self.call("Target.getTargets")["targetInfos"]
        page = next(each for each in targets if each["type"] == "page")
        attached = self.call("Target.attachToTarget", targetId=page["targetId"], flatten=True)
        self._session = attached["sessionId"]
        for domain in ("Page", "Runtime", "Network", "Log", "Accessibility"):
            self.call(f"{domain}.enable")

    def close(self) -> None:
        self._process.kill()
        self._process.wait()
        os.close(self._to)
        os.close(self._from)

    def call(self, method: str, **parameters: Any) -> Json:
        """What the browser answers to a command."""
        self._number += 1
        message: Json = {"id": self._number, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        os.write(self._to, json.dumps(message).encode() + b"\0")
        end = time.monotonic() + LIMIT
        while True:
            come = self._receive(end)
            if come.get("id") == self._number:
                assert "error" not in come, f"{method}: {come['error']}"
                result: Json = come["result"]
                return result
            self.events.append(come)

    def _receive(self, end: float) -> Json:
        while b"\0" not in self._left:
            ready, _, _ = select.select([self._from], [], [], max(0.0, end - time.monotonic()))
            assert ready, "Chromium does not answer"
            piece = os.read(self._from, 1 << 20)
            assert piece, "Chromium has ended"
            self._left += piece
        text, _, self._left = self._left.partition(b"\0")
        come: Json = json.loads(text)
        return come

    def open(self, url: str) -> None:
        answer = self.call("Page.navigate", url=url)
        assert "errorText" not in answer, answer

    def value(self, script: str) -> Any:
        """What a line of script is, run in the page."""
        answer = self.call("Runtime.evaluate", expression=script, returnByValue=True, awaitPromise=True)
        assert "exceptionDetails" not in answer, answer["exceptionDetails"]
        return answer["result"].get("value")

    def text(self, selector: str) -> str:
        """The text of what the selector finds first; empty where there is nothing."""
        return str(self.value(f"document.querySelector({json.dumps(selector)})?.innerText ?? ''"))

    def texts(self, selector: str) -> list[str]:
        script = f"[...document.querySelectorAll({json.dumps(selector)})].map((each) => each.innerText)"
        return list(self.value(script))

    def wait_for_text(self, selector: str, part: str, limit: float = LIMIT) -> str:
        def look() -> str:
            return next((text for text in self.texts(selector) if part in text), "")

        return wait_for(f"'{part}' in {selector}", look, limit)

    def look_like(self, *, dark: bool = False, width: int = 1100, height: int = 1300) -> None:
        scheme = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self.call("Emulation.setEmulatedMedia", features=[scheme])
        self.call(
            "Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False
        )

    def screenshot(self) -> bytes:
        return base64.b64decode(self.call("Page.captureScreenshot", format="png")["data"])

    def press(self, key: str, code: int) -> None:
        for kind in ("rawKeyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=key, code=key, windowsVirtualKeyCode=code)
        if key == "Enter":
            self.call("Input.dispatchKeyEvent", type="char", text="\r", key=key)

    def complaints(self) -> list[str]:
        """What the browser has complained about: scripts that failed, and what the policy has stopped."""
        found = []
        for event in self.events:
            kind, about = event.get("method"), event.get("params", {})
            if kind == "Runtime.exceptionThrown":
                found.append(str(about["exceptionDetails"]))
            if kind == "Log.entryAdded" and about["entry"]["source"] in ("security", "violation"):
                found.append(str(about["entry"]["text"]))
        return found

    def requested(self) -> set[str]:
        """Every place that anything was asked from."""
        sent = [each for each in self.events if each.get("method") == "Network.requestWillBeSent"]
        return {str(each["params"]["request"]["url"]) for each in sent}

    def accessible(self) -> list[tuple[str, str]]:
        """Role and name of everything that a screen reader finds, in its order."""
        nodes = self.call("Accessibility.getFullAXTree")["nodes"]
        return [
            (str(node["role"]["value"]), str(node.get("name", {}).get("value", "")))
            for node in nodes
            if not node.get("ignored") and "role" in node
        ]
