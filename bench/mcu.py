# SPDX-License-Identifier: LicenseRef-KT6120
"""The microcontroller at the far end of the serial line, the line itself, and captures of it.

    python3 -m bench.mcu [LINK]

plays the microcontroller without the rest of the bench: its line is linked at LINK (/dev/serial0); it
writes "ready", then what it hears, until it is killed.

A capture is a text file with a line for each that passed: seconds, direction (">" is the unit's, "<"
the MCU's), and the bytes as a quoted word of the language:

    12.250 > "BAT:V?\\n\\r"
    12.262 < "BAT:V 2400\\r\\n"
"""

import math
import os
import re
import select
import socket
import sys
import tty
from collections.abc import Callable, Iterator
from functools import partial
from typing import IO

from bench import Failure, number, places, to_bytes, to_text
from bench.language import quoted, split
from bench.watch import History
from bench.world import Clock, Heard, Loop

# A healthy unit with a full battery: query word -> value.
HEALTHY = dict(
    reading.split("=")
    for reading in "Corvantis=X V1.0.3,LAMP:VALUE=0,BAT:STATE=1,BAT:V=2400,PWR:I=620,SONDE:EN=0,"
    "CAMERA:TYPE=2,COILER:VALUE=0,TEMP=3150,TWK=0,LOGS=BOOT_OK".split(",")
)
# Set commands without an argument, and what each does to the model.
EFFECTS = {
    "SONDE:ON": ("SONDE:EN", "1"),
    "SONDE:OFF": ("SONDE:EN", "0"),
    "LAMP:OFF": ("LAMP:VALUE", "0"),
    "COILER:ZERO": ("COILER:VALUE", "0"),
    "LOGS:RESET": ("LOGS", "LOGS_EMPTY"),
}
# How it answers: the parts that it sends of a line, with a short pause between them.
MOODS: dict[str, Callable[[bytes], list[bytes]]] = {
    "talk": lambda line: [line],
    "silent": lambda line: [],
    "garbage": lambda line: [b"\x00\xff\xfe\x1b\x80 \xc3\x28\n"],
    "half": lambda line: [line[: len(line) // 2]],
    "split": lambda line: [line[: len(line) // 2], line[len(line) // 2 :]],
    "gone": lambda line: [],
}
SPLIT_GAP = 0.05  # s
DIRECTIONS = {"serial": ">", "mcu": "<"}


class Line:
    """The bench's end of a serial line, whatever carries it. `others` are closed with it."""

    def __init__(self, loop: Loop, heard: Heard, file: int, *others: int, link: str = "") -> None:
        self._loop, self._link, self._files = loop, link, [file, *others]
        loop.hears(file, heard, self.close)

    def send(self, content: bytes) -> None:
        """All of it, as one arrival at the unit."""
        while self._files and content:
            try:
                content = content[os.write(self._files[0], content) :]
            except BlockingIOError:  # the other end has not read yet
                select.select([], self._files[:1], [], 0.1)
            except OSError:
                return

    def close(self) -> None:
        """Every read and write at the other end fails from now on."""
        if self._link and os.path.islink(self._link):
            os.remove(self._link)
        if self._files:
            self._loop.forget(self._files[0])
        while self._files:
            os.close(self._files.pop())


def pseudo_terminal(loop: Loop, link: str, heard: Heard) -> Line:
    """A line whose far end is linked under that name, raw, so that nothing is echoed."""
    near, far = os.openpty()  # open here too: one that is closed is always readable
    tty.setraw(far)
    os.symlink(os.ttyname(far), link + ".new")
    os.rename(link + ".new", link)
    return Line(loop, heard, near, far, link=link)


def to_socket(loop: Loop, path: str, heard: Heard) -> Line:
    end = socket.socket(socket.AF_UNIX)
    end.connect(path)
    return Line(loop, heard, end.detach())


PlugIn = Callable[[Heard], Line]
Find = Callable[[str], str]  # the path of a scenario's file


class Mcu:
    """Answers from a model of the unit's hardware, follows set commands, misbehaves on request."""

    def __init__(self, clock: Clock, history: History, plug_in: PlugIn, find: Find) -> None:
        self._clock, self._history, self._find = clock, history, find
        self._plug_in: Callable[[], Line] = lambda: plug_in(self._hear)
        self._line = self._plug_in()
        self._model = dict(HEALTHY)
        self._gathered = b""  # the unit's bytes since the last line end
        self._mood, self._turning = "talk", False  # the reel
        self._answer: list[bytes] = []  # what is still to be sent of it
        self._gap = clock.loop.timer(self._send_part)
        self._capture: IO[bytes] | None = None
        self._replay: Iterator[bytes | float] = iter(())
        self._awaited: bytes | float | None = None  # by the replay
        self._pause = clock.loop.timer(self._replay_on)

    def renew_line(self) -> None:
        """Unless it is gone: a program that was killed leaves the old one locked for its use."""
        self._gathered = b""
        if self._mood != "gone":
            self._line.close()
            self._line = self._plug_in()

    def send(self, content: bytes) -> None:
        if self._mood != "gone":
            self._note("mcu", content)
            self._line.send(content)

    def do_record(self, file: str) -> None:
        """FILE|off - records the serial line to a capture, with times and directions; stops that"""
        if self._capture:
            self._capture.close()
        self._capture = open(file, "wb", buffering=0) if file != "off" else None

    def _note(self, kind: str, content: bytes) -> None:
        self._history.note(kind, content)
        if self._capture:
            entry = f"{self._clock.seconds():.3f} {DIRECTIONS[kind]} {quoted(content)}\n"
            self._capture.write(entry.encode())

    def do_mcu(self, verb: str, *words: str) -> None:
        """WORD VALUE - what the MCU reports from now on: mcu BAT:V 1500
        send "LINE\\r\\n" - sends any bytes, without a query
        silent|garbage|half|split|turn|talk - how it answers; turn: the reel turns; talk: normally
        gone|endless BYTES - closes the line; sends that number of bytes without a line end
        replay FILE - sends its lines of a capture, each after the query that it answered"""
        value = " ".join(words)
        if verb in self._model and value:
            self._model[verb] = value
        elif verb in MOODS:
            self._change_mood(verb)
        elif verb == "turn":
            self._turning = True
        elif verb == "endless":
            self._line.send(b"x" * int(number(value)))
            self._history.note("bench", "endless line sent\n")
        elif verb == "send":
            self.send(to_bytes(value))
        elif verb == "replay":
            self._start_replay(value)
        else:
            raise Failure(f'the MCU knows no "{verb} {value}"')

    def _change_mood(self, mood: str) -> None:
        if self._mood == "gone":
            self._line = self._plug_in()
        self._mood, self._awaited = mood, None
        self._pause.stop()
        self._turning = self._turning and mood != "talk"
        if mood == "gone":
            self._line.close()

    def _hear(self, content: bytes) -> None:
        self._gathered += content
        lines = re.findall(rb"[^\r\n]*[\r\n]+", self._gathered)
        self._gathered = self._gathered[sum(map(len, lines)) :]
        for line in lines:
            self._note("serial", line)
            query = line.strip(b"\r\n")
            self._handle(to_text(query))
            if query == self._awaited:
                self._replay_on()

    def _handle(self, text: str) -> None:
        if text.endswith("?"):
            word = "Corvantis" if text == "*IDN?" else text[:-1]
            if self._turning and word == "COILER:VALUE":
                self._model[word] = str(int(self._model[word]) + 1)
            if word in self._model:
                self._send_part()  # of the answer before, if the unit asks so soon
                self._answer = MOODS[self._mood](to_bytes(f"{word} {self._model[word]}\r\n"))
                self._send_part()
        elif text.startswith("LAMP:SET "):
            self._model["LAMP:VALUE"] = text[9:]
        elif text in EFFECTS:
            word, value = EFFECTS[text]
            self._model[word] = value

    def _send_part(self) -> None:
        # One line a write: of two the unit would take one, and leave every later answer one behind.
        if self._answer:
            self.send(self._answer.pop(0))
            self._gap.start(SPLIT_GAP / self._clock.speed)

    def _start_replay(self, path: str) -> None:
        with open(self._find(path), "rb") as file:
            lines = [split(line) for line in map(to_text, file) if not line.startswith("#")]
        entries = list(filter(None, lines))
        for entry in entries:
            if len(entry) != 3 or entry[1] not in DIRECTIONS.values():
                raise Failure(f"{path}: not a line of a capture: {' '.join(entry)}")
        self._change_mood("silent")
        self._replay = self._replayed(entries)
        self._replay_on()

    def _replay_on(self) -> None:
        self._awaited = next(self._replay, None)
        if isinstance(self._awaited, float):
            self._pause.start(self._awaited / self._clock.speed)

    def _replayed(self, entries: list[list[str]]) -> Iterator[bytes | float]:
        """Sends the MCU's lines. Yields the query, or the seconds, to wait for before it goes on.

        Each line comes with its recorded delay after the entry before it. If that entry is a query, the
        delay begins when the unit sends the query, so a capture may begin anywhere in the poll cycle. Other
        lines of the unit (a lamp step) are ignored.
        """
        before = math.inf
        for seconds, direction, word in entries:
            content, queries = to_bytes(word), re.findall(rb"\S+\?", to_bytes(word))
            if direction == "<":
                yield max(0.0, number(seconds) - before)
                self.send(content)
            elif queries:
                yield queries[-1]
            before = number(seconds)
        self._history.note("bench", "capture replayed\n")


def alone(link: str) -> None:
    loop, history = Loop(), History()
    history.listeners.append(lambda kind, text: kind == "serial" and os.write(1, text))
    Mcu(Clock(loop), history, partial(pseudo_terminal, loop, link), str)
    print("ready", flush=True)
    loop.rest()


if __name__ == "__main__":
    alone(sys.argv[1] if sys.argv[1:] else places.SERIAL)
