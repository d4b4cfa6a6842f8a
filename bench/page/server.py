# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's page on the bench: its answering program behind lighttpd, with the bench's panel."""

import shutil
import socket
from collections.abc import Callable
from functools import cached_property
from pathlib import Path
from typing import TYPE_CHECKING

from bench import Failure, table
from bench.video import Video
from bench.watch import History
from bench.world import Loop, Process

if TYPE_CHECKING:
    from .browser import Browser

TREE = Path("/run/tree")
SHARE = TREE / "usr/share/kt6120-web"
PAGE = Path("/run/bench/www")
PANEL = "/run/bench/panel"
DESK = Path("/run/desk")  # where the desk reaches the page, if it does
SOCKET = Path("/run/kt6120-web/socket")
SETTINGS = Path("/run/bench/lighttpd.conf")
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
server.modules += ( "mod_proxy" )
$HTTP["url"] =~ "^/bench/" {{ proxy.server = ( "" => (( "host" => "{PANEL}" ))) }}
"""


class Page:
    """Served from its first use on, and a browser that looks at it."""

    def __init__(
        self, loop: Loop, history: History, video: Video, run: Callable[[str], None]
    ) -> None:
        """`run` carries out a line of the bench's language."""
        self._loop = loop
        self._panel_on = (loop, history, video, run, PANEL)
        self._served = False
        self.verbs = table(
            """
            page open [WIDTH HEIGHT [dark]]  a browser without a window opens the unit's page
            page click BUTTON|type LABEL TEXT|choose LABEL OPTION  what its user does: page click "Lamp up"
            page press KEY                 Tab, Enter or Space, to whatever has the focus
            page script FILE|snapshot FILE.png  runs a script on it; writes a picture of it
            """,
            page=lambda words: self._browser.command(words),
        )
        self.expects = table(
            """
            page TEXT          what the unit's page shows, any white space as one blank
            script EXPRESSION  the JavaScript expression is true on the page
            console clean      its console has told nothing so far
            """,
            page=lambda words: self._browser.shows(words),
            script=lambda words: self._browser.holds(words),
            console=lambda _: self._browser.is_clean(),
        )

    def serve(self) -> None:
        if self._served:
            return
        from . import panel  # takes its time to load

        self._served = True
        panel.start(*self._panel_on)
        shutil.copytree(SHARE / "www", PAGE)
        shutil.copy(Path(__file__).with_name("panel.js"), PAGE)
        page = PAGE / "index.html"
        script = '<script src="panel.js" defer></script>\n</head>'
        page.write_text(page.read_text().replace("</head>", script))
        SOCKET.parent.mkdir()
        desk = f'$SERVER["socket"] == "{DESK}/page" {{ }}\n' if DESK.exists() else ""
        SETTINGS.write_text(CONFIGURATION + desk)
        web = [str(TREE / "usr/sbin/kt6120-web"), str(SOCKET), str(SHARE / "catalogue.json")]
        for command in (web, ["/usr/sbin/lighttpd", "-D", "-f", str(SETTINGS)]):
            Process(self._loop, command, stdout=lambda _: None)
        if not self._loop.until(self._answers, PATIENCE):
            raise Failure("the unit's page is not served (lighttpd and kt6120-web?)")

    @staticmethod
    def _answers() -> bool:
        try:
            socket.create_connection(("127.0.0.1", 80), timeout=0.1).close()
        except OSError:
            return False
        return SOCKET.exists()

    @cached_property
    def _browser(self) -> "Browser":
        self.serve()
        from .browser import Browser  # takes its time to load

        return Browser(self._loop)
