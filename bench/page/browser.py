# SPDX-License-Identifier: LicenseRef-KT6120
"""A real browser without a window that has the unit's page open."""

from base64 import b64decode
from collections.abc import Callable
from concurrent.futures import Future, ThreadPoolExecutor
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

PAGE = "http://127.0.0.1/"
PATIENCE = 60  # s
FIND_LIMIT = 10  # s, for what a click or a text needs to be there
TEXT_SHOWN = 2000
OPTIONS = (
    "--headless=new --no-sandbox --disable-gpu --disable-quic --no-first-run --hide-scrollbars "
    "--disable-background-networking --disable-component-update --disable-sync "
    "--disable-dev-shm-usage --user-data-dir=/tmp/browser"
).split()

# What a label, a button's text or a summary names; of selects, their option.
BUTTON = "//button[normalize-space()='{0}'] | //summary[normalize-space()='{0}']"
INPUT = "//input[@id=//label[normalize-space()='{0}']/@for]"
OPTION = "//label[starts-with(normalize-space(),'{0}')]/select/option[normalize-space()='{1}']"
KEYS = {"Tab": Keys.TAB, "Enter": Keys.ENTER, "Space": Keys.SPACE}
ASK = "const done = arguments[0]; Promise.resolve(({})).then(done, error => done(String(error)))"
TEXT = "return document.body.innerText.replace(/\\s+/g, ' ')"


class Browser:
    """Its driver waits for answers: it is asked in a thread of its own."""

    def __init__(self, loop: Loop) -> None:
        self._loop = loop
        self._thread = ThreadPoolExecutor(1)
        self._complaints = ""
        self._driver: Any = self._do(self._start)
        self._acts: dict[str, Callable[..., object]] = {
            "open": self._open,
            "click": lambda name: self._find(BUTTON, name).click(),
            "type": self._type,
            "press": lambda key: self._driver.switch_to.active_element.send_keys(KEYS[key]),
            "choose": lambda label, option: self._find(OPTION, label, option).click(),
            "script": lambda file: self._driver.execute_script(Path(file).read_text()),
            "snapshot": self._snapshot,
        }

    def command(self, words: list[str]) -> None:
        try:
            self._do(partial(self._acts[words[0]], *words[1:]))
        except (KeyError, TypeError):
            raise Failure(f"page {', '.join(self._acts)}?") from None

    def shows(self, words: list[str]) -> State:
        shown = self._last(lambda: self._driver.execute_script(TEXT))
        return State(
            lambda: str(shown()).find(" ".join(words)) >= 0,
            lambda: f"the page shows: {str(shown())[:TEXT_SHOWN]}",
        )

    def holds(self, words: list[str]) -> State:
        """Of an expression's value or of what it promises."""
        script = ASK.format(" ".join(words))
        value = self._last(lambda: self._driver.execute_async_script(script))
        return State(lambda: bool(value() is True), lambda: f"it is {value()}")

    def is_clean(self) -> State:
        told = self._last(self._read_console)
        return State(lambda: bool(told() == ""), lambda: self._complaints)

    def _last(self, work: Callable[[], Any]) -> Callable[[], Any]:
        """A function that does not block: it returns what came of the work when it was done last."""
        under_way: Future[Any] | None = None
        result: Any = None

        def look() -> Any:
            nonlocal under_way, result
            if under_way and under_way.done():
                result = under_way.exception() or under_way.result()
                under_way = None
            under_way = under_way or self._thread.submit(work)
            return result

        return look

    def _do(self, work: Callable[[], Any]) -> Any:
        future = self._thread.submit(work)
        if not self._loop.until(future.done, PATIENCE):
            raise Failure("the browser does not answer")
        try:
            return future.result()
        except WebDriverException as error:
            raise Failure(f"the browser: {error.msg}") from None

    @staticmethod
    def _start() -> webdriver.Chrome:
        options: Any = webdriver.ChromeOptions()
        for option in OPTIONS:
            options.add_argument(option)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        driver.implicitly_wait(FIND_LIMIT)
        driver.set_script_timeout(PATIENCE)
        return driver

    def _open(self, width: str = "1280", height: str = "900", scheme: str = "light") -> None:
        # Of the page, not of a window around it, which has a least width.
        size = {"width": int(width), "height": int(height), "mobile": int(width) < 600}
        feature = {"name": "prefers-color-scheme", "value": scheme}
        tell = self._driver.execute_cdp_cmd
        tell("Emulation.setDeviceMetricsOverride", {**size, "deviceScaleFactor": 1})
        tell("Emulation.setEmulatedMedia", {"features": [feature]})
        self._driver.get(PAGE)

    def _find(self, place: str, *names: str) -> Any:
        return self._driver.find_element("xpath", place.format(*names))

    def _type(self, label: str, text: str) -> None:
        element = self._find(INPUT, label)
        element.clear()
        element.send_keys(text)

    def _snapshot(self, file: str) -> None:
        whole = {"captureBeyondViewport": True}  # however long it is
        taken = self._driver.execute_cdp_cmd("Page.captureScreenshot", whole)
        Path(of_caller(file)).write_bytes(b64decode(taken["data"]))

    def _read_console(self) -> str:
        for entry in self._driver.get_log("browser"):  # which tells each one once
            if entry["message"].startswith("http"):  # the browser itself has something to say too
                self._complaints += entry["message"] + "\n"
        return self._complaints
