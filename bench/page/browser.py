# SPDX-License-Identifier: LicenseRef-KT6120
"""A real browser without a window that has the unit's page open."""

from base64 import b64decode
from collections.abc import Callable
from functools import partial
from pathlib import Path
from typing import Any

from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.keys import Keys

from bench import Failure, State
from bench.places import of_caller
from bench.world import Loop

PATIENCE = 60  # s, for what an expression promises
FIND_LIMIT = 10  # s, until an element is there
TEXT_SHOWN = 2000
OPTIONS = (
    "--headless=new --no-sandbox --disable-gpu --disable-quic --no-first-run --hide-scrollbars "
    "--disable-background-networking --disable-component-update --disable-sync "
    "--disable-dev-shm-usage --user-data-dir=/tmp/browser"
).split()

BUTTON = "//button[normalize-space()='{0}'] | //summary[normalize-space()='{0}']"
INPUT = "//input[@id=//label[normalize-space()='{0}']/@for]"
OPTION = "//label[starts-with(normalize-space(),'{0}')]/select/option[normalize-space()='{1}']"
KEYS = {"Tab": Keys.TAB, "Enter": Keys.ENTER, "Space": Keys.SPACE}
TEXT = "return document.body.innerText.replace(/\\s+/g, ' ')"
VALUE = "const done = arguments[0]; Promise.resolve(({})).then(done, error => done(String(error)))"


class Browser:
    """Each call of the driver blocks, so a thread makes it while the bench goes on."""

    def __init__(self, loop: Loop) -> None:
        self._loop, self._complaints = loop, ""
        options: Any = webdriver.ChromeOptions()
        for option in OPTIONS:
            options.add_argument(option)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        service = Service("/usr/bin/chromedriver")
        self._driver: Any = self._do(webdriver.Chrome, service=service, options=options)
        self._driver.implicitly_wait(FIND_LIMIT)
        self._driver.set_script_timeout(PATIENCE)
        self._acts: dict[str, Callable[..., object]] = {
            "open": self._open,
            "click": lambda name: self._find(BUTTON, name).click(),
            "type": self._type,
            "press": lambda key: self._driver.switch_to.active_element.send_keys(KEYS[key]),
            "choose": lambda label, option: self._find(OPTION, label, option).click(),
            "script": lambda file: self._driver.execute_script(Path(file).read_text()),
            "snapshot": self._snapshot,
        }

    def command(self, verb: str, *words: str) -> None:
        try:
            self._do(self._acts[verb], *words)
        except (KeyError, TypeError):
            raise Failure(f"page {', '.join(self._acts)}?") from None

    def shows(self, text: str) -> State:
        shown = partial(self._value, "execute_script", TEXT)
        return State(
            lambda: text in str(shown()),
            lambda: f"the page shows: {str(shown())[:TEXT_SHOWN]}",
        )

    def holds(self, expression: str) -> State:
        """Of an expression's value, or of what its promise resolves to."""
        value = partial(self._value, "execute_async_script", VALUE.format(expression))
        return State(lambda: bool(value() is True), lambda: f"it is {value()}")

    def is_clean(self) -> State:
        def complaints() -> Any:
            for entry in self._do(self._driver.get_log, "browser"):  # the new ones
                if entry["message"].startswith("http"):  # the page's, not the browser's own
                    self._complaints += entry["message"] + "\n"
            return self._complaints

        return State(lambda: bool(complaints() == ""), complaints)

    def _do(self, act: Callable[..., Any], *arguments: Any, **options: Any) -> Any:
        try:
            work: Callable[[], Any] = partial(act, *arguments, **options)
            return self._loop.apart(work)
        except WebDriverException as error:
            raise Failure(f"the browser: {error.msg}") from None

    def _value(self, method: str, script: str) -> Any:
        """Of a script; while the page loads, what goes wrong."""
        try:
            return self._do(getattr(self._driver, method), script)
        except Failure as failure:
            return failure

    def _open(self, width: str = "1280", height: str = "900", scheme: str = "light") -> None:
        # The size of the page: a window around it has a minimum.
        size = {"width": int(width), "height": int(height), "mobile": int(width) < 600}
        feature = {"name": "prefers-color-scheme", "value": scheme}
        command = self._driver.execute_cdp_cmd
        command("Emulation.setDeviceMetricsOverride", {**size, "deviceScaleFactor": 1})
        command("Emulation.setEmulatedMedia", {"features": [feature]})
        self._driver.get("http://127.0.0.1/")

    def _find(self, place: str, *names: str) -> Any:
        return self._driver.find_element("xpath", place.format(*names))

    def _type(self, label: str, text: str) -> None:
        element = self._find(INPUT, label)
        element.clear()
        element.send_keys(text)

    def _snapshot(self, file: str) -> None:
        whole = {"captureBeyondViewport": True}  # also what would need scrolling
        taken = self._driver.execute_cdp_cmd("Page.captureScreenshot", whole)
        Path(of_caller(file)).write_bytes(b64decode(taken["data"]))
