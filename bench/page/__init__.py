# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's page behind lighttpd, served from its first use on, and a browser that opens it."""

import shutil
import socket
from functools import cached_property, partial
from pathlib import Path
from typing import TYPE_CHECKING

from bench import Failure, State
from bench.world import Loop, Process

if TYPE_CHECKING:
    from .browser import Browser

SHARE = "/run/tree/usr/share/kt6120-web"
PAGE = "/run/bench/www"
DESK = "/run/desk"  # where bench/run reaches the page
SOCKET = Path("/run/kt6120-web/socket")
SETTINGS = "/run/bench/lighttpd.conf"
PATIENCE = 30  # s

CONFIGURATION = f"""
server.document-root = "{PAGE}"
server.bind = "127.0.0.1"
server.port = 80
server.errorlog = "/run/bench/lighttpd.log"
server.upload-dirs = ( "/tmp" )
index-file.names = ( "index.html" )
mimetype.assign = ( ".html" => "text/html;charset=utf-8", ".css" => "text/css;charset=utf-8",
                    ".js" => "text/javascript;charset=utf-8", ".svg" => "image/svg+xml" )
include "{SHARE}/lighttpd/kt6120.conf"
"""


class Page:
    def __init__(self, loop: Loop) -> None:
        self._loop, self._served = loop, False

    def do_page(self, *words: str) -> None:
        """open [WIDTH HEIGHT [dark]] - a browser without a window opens the unit's page
        click BUTTON|type LABEL TEXT|choose LABEL OPTION - what a user does: page click "Lamp up"
        press KEY - Tab, Enter or Space, to the element that has the focus
        script FILE|snapshot FILE.png - runs a script on it; writes a picture of it"""
        self._browser.command(*words)

    def expect_page(self, *words: str) -> State:
        """TEXT - what the unit's page shows, any white space as one blank"""
        return self._browser.shows(" ".join(words))

    def expect_script(self, *words: str) -> State:
        """EXPRESSION - the JavaScript expression is true on the page"""
        return self._browser.holds(" ".join(words))

    def expect_console(self, _: str) -> State:
        """clean - the page has logged nothing so far"""
        return self._browser.is_clean()

    def serve(self) -> None:
        if self._served:
            return
        self._served = True
        shutil.copytree(f"{SHARE}/www", PAGE)
        SOCKET.parent.mkdir()
        desk = f'$SERVER["socket"] == "{DESK}/page" {{ }}\n' if Path(DESK).exists() else ""
        Path(SETTINGS).write_text(CONFIGURATION + desk)
        program = ["/run/tree/usr/sbin/kt6120-web", str(SOCKET)]
        for command in (program, ["/usr/sbin/lighttpd", "-D", "-f", SETTINGS]):
            Process(self._loop, command, stdout=lambda _: None)
        with socket.socket() as port:
            connect = partial(port.connect_ex, ("127.0.0.1", 80))
            if not self._loop.until(lambda: SOCKET.exists() and connect() == 0, PATIENCE):
                raise Failure("the unit's page is not served (lighttpd and kt6120-web?)")

    @cached_property
    def _browser(self) -> "Browser":
        from .browser import Browser  # takes its time to load

        self.serve()
        return Browser(self._loop)
