# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's page behind lighttpd, and a real browser that opens it; both start at their first use."""

import os
import socket
from collections.abc import Callable
from functools import cached_property, partial
from typing import Any

from bench import Failure, State
from bench.world import PATIENCE, Loop, Process

SHARE = "/run/tree/usr/share/kt6120-web"
SAVED = "/run/bench/saved"  # what the browser downloads
DESK = "/run/desk"  # where bench/run reaches the page
SOCKET = "/run/kt6120-web/socket"
PICTURE_SOCKET = "/run/kt6120-picture.socket"
SETTINGS = "/run/bench/lighttpd.conf"
FIND_LIMIT = 10  # s, until an element is there

CONFIGURATION = f"""
server.document-root = "{SHARE}/www"
server.bind = "127.0.0.1"
server.port = 80
server.errorlog = "/run/bench/lighttpd.log"
server.upload-dirs = ( "/tmp" )
index-file.names = ( "index.html" )
mimetype.assign = ( ".html" => "text/html;charset=utf-8", ".css" => "text/css;charset=utf-8",
                    ".js" => "text/javascript;charset=utf-8", ".svg" => "image/svg+xml" )
include "{SHARE}/lighttpd/kt6120.conf"
# Nobody needs a password here.
$REQUEST_HEADER["User-Agent"] == "reader" {{ setenv.set-environment = ( "REMOTE_USER" => "reader" ) }}
"""
BROWSER_OPTIONS = (
    "--headless=new --no-sandbox --disable-gpu --disable-quic --no-first-run --hide-scrollbars "
    "--disable-background-networking --disable-component-update --disable-sync "
    "--disable-dev-shm-usage --user-data-dir=/tmp/browser "
    # The picture comes over the loopback; no name can be announced on it.
    "--allow-loopback-in-peer-connection --disable-features=WebRtcHideLocalIpsWithMdns"
).split()

BUTTON = "//button[normalize-space()='{0}'] | //summary[normalize-space()='{0}']"
INPUT = "//input[@id=//label[normalize-space()='{0}']/@for]"
OPTION = "//label[starts-with(normalize-space(),'{0}')]/select/option[normalize-space()='{1}']"
KEYS = {"Tab": "\ue004", "Enter": "\ue007", "Space": " "}  # as WebDriver encodes them
TEXT = "return document.body.innerText.replace(/\\s+/g, ' ')"
VALUE = "const done = arguments[0]; Promise.resolve(({})).then(done, error => done(String(error)))"


def selenium() -> Any:
    """The library, which takes its time to load. Some of its releases are typed."""
    try:
        import selenium.webdriver
    except ImportError:
        raise Failure("no browser is installed: ./dev test --web installs one") from None
    return selenium


def start_browser() -> Any:
    """Chromium without a window, through its driver, which blocks."""
    webdriver = selenium().webdriver
    options = webdriver.ChromeOptions()
    for option in BROWSER_OPTIONS:
        options.add_argument(option)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    # Without a path, Debian 13's Selenium asks a program of its own that Debian leaves out.
    service = webdriver.chrome.service.Service("/usr/bin/chromedriver")
    return webdriver.Chrome(options=options, service=service)


class Page:
    """Each call of the browser's driver blocks, so a thread makes it while the loop runs."""

    def __init__(self, loop: Loop) -> None:
        self._loop, self._served, self._complaints = loop, False, ""

    def serve(self) -> None:
        if self._served:
            return
        self._served = True
        os.mkdir(os.path.dirname(SOCKET))
        self._await_viewer(socket.socket(socket.AF_UNIX))
        with open(SETTINGS, "w") as settings:
            settings.write(CONFIGURATION)
            if os.path.exists(DESK):
                settings.write(f'$SERVER["socket"] == "{DESK}/page" {{ }}\n')
        program = ["/run/tree/usr/sbin/kt6120-web", SOCKET]
        for command in (program, ["/usr/sbin/lighttpd", "-D", "-f", SETTINGS]):
            Process(self._loop, command, stdout=lambda _: None)
        with socket.socket() as port:
            connect = partial(port.connect_ex, ("127.0.0.1", 80))
            if not self._loop.until(lambda: os.path.exists(SOCKET) and connect() == 0, PATIENCE):
                raise Failure("the unit's page is not served (lighttpd and kt6120-web?)")

    def _await_viewer(self, listening: socket.socket) -> None:
        """The program of the picture runs from a request to its own end, as systemd has it."""
        listening.bind(PICTURE_SOCKET)
        listening.listen()

        def start() -> None:
            self._loop.forget(listening.fileno())
            command = ["/run/tree/usr/sbin/kt6120-picture"]
            Process(self._loop, command, stdin=listening, ended=lambda _: wait())

        def wait() -> None:
            self._loop.reads(listening.fileno(), start)

        wait()

    def do_page(self, verb: str, *words: str) -> None:
        """open [WIDTH HEIGHT [dark]] - a browser without a window opens the unit's page
        click BUTTON|type LABEL TEXT|choose LABEL OPTION - what a user does: page click "Lamp up"
        hold BUTTON|release - presses the mouse's button on it; lets it go
        press KEY - Tab, Enter, Space or a letter, to the element that has the focus
        script FILE|snapshot FILE.png - runs a script on it; writes a picture of what is in view"""
        acts: dict[str, Callable[..., object]] = {
            "open": self._open,
            "click": lambda name: self._find(BUTTON, name).click(),
            "type": self._type,
            "press": lambda key: self.driver.switch_to.active_element.send_keys(KEYS.get(key, key)),
            "hold": lambda name: self._pointer().click_and_hold(self._find(BUTTON, name)).perform(),
            "release": lambda: self._pointer().release().perform(),
            "choose": lambda label, option: self._find(OPTION, label, option).click(),
            "script": self._run_script,
            "snapshot": lambda file: self.driver.save_screenshot(file),
        }
        self.serve()
        try:
            self._do(acts[verb], *words)
        except (KeyError, TypeError):
            raise Failure(f"page {', '.join(acts)}?") from None

    def expect_page(self, *words: str) -> State:
        """TEXT - what the unit's page shows, any white space as one blank"""
        shown = partial(self._value, "execute_script", TEXT)
        return State(shown, lambda text: " ".join(words) in str(text))

    def expect_script(self, *words: str) -> State:
        """EXPRESSION - the JavaScript expression, or what it promises, is true on the page"""
        value = partial(self._value, "execute_async_script", VALUE.format(" ".join(words)))
        return State(value, lambda result: result is True)

    def expect_console(self, _: str) -> State:
        """clean - the page has logged nothing so far"""

        def complaints() -> str:
            for entry in self._do(self.driver.get_log, "browser"):  # the new ones
                if entry["message"].startswith("http"):  # the page's, not the browser's own
                    self._complaints += entry["message"] + "\n"
            return self._complaints

        return State(complaints, lambda text: text == "")

    @cached_property
    def driver(self) -> Any:
        driver = start_browser()
        driver.implicitly_wait(FIND_LIMIT)
        driver.set_script_timeout(PATIENCE)
        saving = {"behavior": "allow", "downloadPath": SAVED}
        driver.execute_cdp_cmd("Browser.setDownloadBehavior", saving)
        return driver

    def _do(self, act: Callable[..., Any], *arguments: Any) -> Any:
        errors = selenium().common.exceptions
        try:
            try:
                return self._loop.apart(partial(act, *arguments))
            except errors.StaleElementReferenceException:  # the page has replaced it meanwhile
                return self._loop.apart(partial(act, *arguments))
        except errors.WebDriverException as error:
            raise Failure(f"the browser: {error.msg}") from None

    def _value(self, method: str, script: str) -> object:
        """The value of a script, or the failure, for instance while the page loads."""
        try:
            return self._do(getattr(self.driver, method), script)
        except Failure as failure:
            return failure

    def _open(self, width: str = "1280", height: str = "900", scheme: str = "light") -> None:
        # The size of the page: a window around it has a minimum.
        size = {"width": int(width), "height": int(height), "mobile": int(width) < 600}
        feature = {"name": "prefers-color-scheme", "value": scheme}
        command = self.driver.execute_cdp_cmd
        command("Emulation.setDeviceMetricsOverride", {**size, "deviceScaleFactor": 1})
        command("Emulation.setEmulatedMedia", {"features": [feature]})
        self.driver.get("http://127.0.0.1/")

    def _find(self, place: str, *names: str) -> Any:
        return self.driver.find_element("xpath", place.format(*names))

    def _pointer(self) -> Any:
        return selenium().webdriver.ActionChains(self.driver)

    def _type(self, label: str, text: str) -> None:
        element = self._find(INPUT, label)
        element.clear()
        element.send_keys(text)

    def _run_script(self, file: str) -> None:
        with open(file) as script:
            self.driver.execute_script(script.read())
