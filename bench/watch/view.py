# SPDX-License-Identifier: LicenseRef-KT6120
"""Prints what happens on the bench, one line each, as it happens.

The poll's queries and the answers that tell nothing new are counted and shown as a rate instead.
"""

import re
import sys
from collections.abc import Callable

from bench.language.words import printable
from bench.world.clock import Clock
from bench.world.loop import Loop

from .history import History

RATE_INTERVAL = 5  # s
LONGEST = 500  # characters of a line

# How each kind is called here, and its colour on a terminal.
STYLES = {
    "serial": ("serial >", "36"),  # cyan
    "mcu": ("serial <", "34"),  # blue
    "log": ("log", "1"),  # bold
    "stdout": ("stdout", "37"),
    "stderr": ("stderr", "31"),  # red
    "calls": ("call", "35"),  # magenta
    "app": ("app <", "32"),  # green
    "phone": ("app >", "92"),
    "change": ("store", "33"),  # yellow
    "network": ("network", "95"),
    "bench": ("bench", "90"),  # grey
}


def write(line: str) -> None:
    print(line, flush=True)


class View:
    def __init__(
        self, loop: Loop, clock: Clock, history: History, write: Callable[[str], object] = write
    ) -> None:
        self._clock = clock
        self._write = write
        self._colours = sys.stdout.isatty()
        self._known: dict[bytes, bytes] = {}  # first word -> last line shown, for both directions
        self._partial = b""  # of the unit's line
        self._last: tuple[str, bytes] | None = None  # a program's line, and how often it came since
        self._repeats = 0
        self._queries = self._answers = 0
        self._rated = 0.0
        history.listeners.append(self._show)
        loop.timer(self._show_rate).every(RATE_INTERVAL)

    def _show(self, kind: str, text: bytes) -> None:
        if kind == "serial":
            line = self._take_line(text)
            if line and not self._routine(kind, line):
                self._print(kind, printable(line))
        elif kind in ("mcu", "app", "phone"):
            if not self._routine(kind, text):
                self._print(kind, printable(text))
        else:
            # What a program prints over and over is told once, and how often more.
            for line in filter(None, text.split(b"\n")):
                if (kind, line) == self._last:
                    self._repeats += 1
                    continue
                self._print(kind, printable(line))
                self._last = (kind, line)

    def _take_line(self, text: bytes) -> bytes:
        """A board's line brings single bytes: they are gathered up to the first byte of a line's end.

        The second is passed over.
        """
        if not self._partial and not text.strip(b"\r\n"):
            return b""
        self._partial += text
        if not re.search(rb"[\r\n]", text):
            return b""
        line, self._partial = self._partial, b""
        return line

    def _routine(self, kind: str, text: bytes) -> bool:
        query = kind == "serial" and b"?" in text
        if not query and kind != "mcu":
            return False
        word = text if query else text.split(b" ")[0]
        if self._known.get(word) != text:
            self._known[word] = text
            return False
        self._queries += query
        self._answers += not query
        return True

    def _show_repeats(self) -> None:
        last, more = self._last, self._repeats
        self._last, self._repeats = None, 0
        if last and more:
            self._print(last[0], f"... {more} times more")

    def _show_rate(self) -> None:
        self._show_repeats()
        if self._partial:
            self._print("serial", printable(self._partial))
            self._partial = b""
        now = self._clock.seconds()
        seconds, self._rated = now - self._rated, now
        if self._queries + self._answers and seconds > 0:
            self._print(
                "serial",
                f"... {self._queries / seconds:.1f} polls/s, "
                f"{self._answers / seconds:.1f} answers/s that tell nothing new",
            )
            self._queries = self._answers = 0

    def _print(self, kind: str, text: str) -> None:
        self._show_repeats()
        if len(text) > LONGEST:
            text = text[:LONGEST] + " ..."
        name, colour = STYLES[kind]
        seconds = f"{self._clock.seconds():8.3f}"
        if self._colours:
            self._write(f"\033[90m{seconds}\033[0m \033[{colour}m{name:<9} {text}\033[0m")
        else:
            self._write(f"{seconds} {name:<9} {text}")
