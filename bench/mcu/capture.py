# SPDX-License-Identifier: LicenseRef-KT6120
"""Captures of the serial line: what passed on it, in which direction and when.

A line each: seconds, ">" for the unit's bytes or "<" for the MCU's, and the bytes as a quoted word of the
scenario language; "#" leads a remark.

    12.250 > "BAT:V?\\n\\r"
    12.262 < "BAT:V 2400\\r\\n"
"""

from collections.abc import Callable
from typing import IO, NamedTuple

from bench import Failure, Verb, number, to_bytes, to_text
from bench.language.words import quoted, split
from bench.watch.history import History
from bench.world.clock import Clock
from bench.world.loop import Loop

DIRECTIONS = {"serial": ">", "mcu": "<"}


class Entry(NamedTuple):
    seconds: float
    direction: str
    content: bytes


def read(path: str) -> list[Entry]:
    entries = []
    with open(path, "rb") as file:
        for line in map(to_text, file):
            words = [] if line.startswith("#") else split(line)
            if len(words) == 3 and words[1] in DIRECTIONS.values():
                entries.append(Entry(number(words[0]), words[1], to_bytes(words[2])))
            elif words:
                raise Failure(f"{path}: no line of a capture: {line.strip()}")
    return entries


class Recorder:
    """Writes a capture of what passes from now on."""

    def __init__(self, clock: Clock, history: History, place: Callable[[str], str]) -> None:
        self._clock = clock
        self._place = place
        self._file: IO[bytes] | None = None
        history.listeners.append(self._write)
        what = "writes what passes on the serial line, with times and directions; no more of it"
        self.verbs = [Verb("record", "FILE|off", what, self._record)]

    def _record(self, words: list[str]) -> None:
        if self._file:
            self._file.close()
        self._file = open(self._place(words[0]), "wb", buffering=0) if words[0] != "off" else None

    def _write(self, kind: str, content: bytes) -> None:
        if self._file and kind in DIRECTIONS:
            entry = f"{self._clock.seconds():.3f} {DIRECTIONS[kind]} {quoted(content)}\n"
            self._file.write(entry.encode())


class Replay:
    """Sends the MCU's lines of a capture.

    Each comes as long after what stands before it as it did then, and behind a query not before the unit
    has sent that: so a capture that begins in the middle of the poll finds its place. What the unit
    is told to send (a lamp's step) is passed over.
    """

    def __init__(
        self,
        loop: Loop,
        speed: Callable[[], int],
        entries: list[Entry],
        send: Callable[[bytes], object],
        done: Callable[[], object],
    ) -> None:
        self._speed = speed
        self._entries = entries
        self._send = send
        self._done = done
        self._at = 0
        self._asked = b""
        self._gap = loop.timer(self._send_next)
        self._go_on()

    def hear(self, query: bytes) -> None:
        """A line of the unit, without its end."""
        if self._asked and query == self._asked:
            self._asked = b""
            self._go_on()

    def stop(self) -> None:
        self._gap.stop()
        self._asked = b""

    def _go_on(self) -> None:
        """Up to the next query that is to be waited for, or line that is to be sent."""
        while self._at < len(self._entries):
            entry = self._entries[self._at]
            if entry.direction == "<":
                before = self._entries[max(0, self._at - 1)].seconds
                self._gap.start(max(0, entry.seconds - before) / self._speed())
                return
            self._at += 1
            queries = [line for line in entry.content.split() if line.endswith(b"?")]
            if queries:
                self._asked = queries[-1]
                return
        self._done()

    def _send_next(self) -> None:
        self._send(self._entries[self._at].content)
        self._at += 1
        self._go_on()
