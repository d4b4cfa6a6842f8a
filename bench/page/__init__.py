# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's page, served from its first use on, and a browser that looks at it."""

from collections.abc import Callable
from functools import cached_property
from typing import TYPE_CHECKING

from bench import table
from bench.video import Video
from bench.watch import History
from bench.world import Loop

if TYPE_CHECKING:
    from .browser import Browser


class Page:
    def __init__(self, loop: Loop, history: History, video: Video, run: Callable[[str], None]):
        """`run` carries out a line of the bench's language."""
        self._loop, self._panel_on, self._served = loop, (history, video, run), False
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
        if not self._served:
            from .server import serve  # takes its time to load, and so does the browser's

            serve(self._loop, *self._panel_on)
            self._served = True

    @cached_property
    def _browser(self) -> "Browser":
        self.serve()
        from .browser import Browser

        return Browser(self._loop)
