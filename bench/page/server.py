# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's page on the bench: its answering program behind lighttpd, with the bench's panel."""

import shutil
import socket
from collections.abc import Callable
from pathlib import Path

from bench import Failure
from bench.video import Video
from bench.watch import History
from bench.world import Loop, Process

from . import panel

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


def serve(loop: Loop, history: History, video: Video, run: Callable[[str], None]) -> None:
    panel.start(loop, history, video, run, PANEL)
    shutil.copytree(SHARE / "www", PAGE)
    shutil.copy(Path(__file__).with_name("panel.js"), PAGE)
    page = PAGE / "index.html"
    script = '<script src="panel.js" defer></script>\n</head>'
    page.write_text(page.read_text().replace("</head>", script))
    SOCKET.parent.mkdir()
    desk = f'$SERVER["socket"] == "{DESK}/page" {{ }}\n' if DESK.exists() else ""
    SETTINGS.write_text(CONFIGURATION + desk)
    web = [str(TREE / "usr/sbin/kt6120-web"), str(SOCKET)]
    for command in (web, ["/usr/sbin/lighttpd", "-D", "-f", str(SETTINGS)]):
        Process(loop, command, stdout=lambda _: None)
    if not loop.until(answers, PATIENCE):
        raise Failure("the unit's page is not served (lighttpd and kt6120-web?)")


def answers() -> bool:
    try:
        socket.create_connection(("127.0.0.1", 80), timeout=0.1).close()
    except OSError:
        return False
    return SOCKET.exists()
