# SPDX-License-Identifier: LicenseRef-KT6120
"""The microcontroller at the far end of the serial line.

It answers each query from a model of the unit's hardware, follows set commands, and misbehaves on request.
"""

import re
from collections.abc import Callable

from bench import Failure, Verb, number, to_bytes, to_text
from bench.watch.history import History
from bench.world.loop import Loop

from .capture import Replay, read
from .line import Line

# A healthy unit with a full battery: query word -> value.
HEALTHY = {
    "Corvantis": "X V1.0.3",
    "LAMP:VALUE": "0",
    "BAT:STATE": "1",
    "BAT:V": "2400",
    "PWR:I": "620",
    "SONDE:EN": "0",
    "CAMERA:TYPE": "2",
    "COILER:VALUE": "0",
    "TEMP": "3150",
    "TWK": "0",
    "LOGS": "BOOT_OK",
}
# Set commands without an argument, and what each does to the model.
EFFECTS = {
    "SONDE:ON": ("SONDE:EN", "1"),
    "SONDE:OFF": ("SONDE:EN", "0"),
    "LAMP:OFF": ("LAMP:VALUE", "0"),
    "COILER:ZERO": ("COILER:VALUE", "0"),
    "LOGS:RESET": ("LOGS", "LOGS_EMPTY"),
}
MOODS = ("talk", "silent", "garbage", "half", "split")
GARBAGE = b"\x00\xff\xfe\x1b\x80 \xc3\x28\n"

DISCHARGE_STEP = 10  # s
SPLIT_GAP = 0.05  # s
ENDLESS_TICK = 0.002  # s
ENDLESS_PIECE = b"x" * 8192  # a tick
ENDLESS_DEFAULT = "1000000"  # bytes
CHATTER_PIECE = b"BOOT 1\r\nBOOT 2\r\nBOOT 3\n"  # a tick of 115200 baud


class Mcu:
    def __init__(
        self,
        loop: Loop,
        speed: Callable[[], int],
        history: History,
        plug_in: Callable[[Callable[[bytes], object]], Line],
        find: Callable[[str], str],
    ) -> None:
        """At the end of a line that it plugs in, and again after it was gone.

        `speed`: its pauses are that many times as short. `find` tells where a file is that a scenario
        names.
        """
        self._speed = speed
        self._loop = loop
        self._history = history
        self._plug_in = plug_in
        self._line: Line | None = plug_in(self._heard)
        self._find = find
        self._replay: Replay | None = None
        self._model = dict(HEALTHY)
        self._gathered = b""  # the unit's bytes since the last line end
        self._mood = "talk"
        self._turning = False  # the reel
        self._late = 0.0  # s before each answer
        self._rest = b""  # the second half of a split answer
        self._gap = loop.timer(self._send_rest)
        self._battery = loop.timer(self._discharge)  # until the voltage is set by hand
        self._battery.every(DISCHARGE_STEP)
        self._endless = loop.timer(self._pour)
        self._piece = b""
        self._left = 0  # bytes to pour
        self.verbs = [
            Verb(
                "mcu",
                "WORD VALUE",
                "what the MCU reports from now on: mcu BAT:V 1500",
                self.command,
            ),
            Verb("mcu", r'send "LINE\r\n"', "a line that nobody asked for, bytes as told"),
            Verb(
                "mcu",
                "silent|garbage|half|split|late MS|turn|talk",
                "how it answers; turn counts the reel on; talk is well again",
            ),
            Verb(
                "mcu",
                "endless [BYTES]|deaf|gone",
                "bytes without line end; reads nothing; hangs up",
            ),
            Verb(
                "mcu",
                "replay FILE",
                "its lines of a capture, each behind the query that it answered",
            ),
            Verb(
                "mcu",
                "chatter BYTES",
                "lines without pause, three at once, as fast as the line carries",
            ),
        ]

    def renew_line(self) -> None:
        """Where one is plugged in: a program that was killed leaves the old one locked for its own use."""
        self._gathered = b""
        if self._line:
            self._line.close()
            self._line = self._plug_in(self._heard)

    def send(self, content: bytes) -> None:
        if self._line:
            self._history.note("mcu", content)
            self._line.send(content)

    def command(self, words: list[str]) -> None:
        verb, value = words[0], words[1] if len(words) > 1 else ""
        if self._replay and verb in (*MOODS, "replay", "gone"):
            self._replay.stop()
            self._replay = None
        if verb in self._model and len(words) > 1:
            if verb == "BAT:V":
                self._battery.stop()  # what is set by hand stays
            self._model[verb] = " ".join(words[1:])
        elif verb in MOODS:
            self._mood = verb
            if verb == "talk":
                self._recover()
        elif verb == "replay":
            self._mood = verb
            entries = read(self._find(value))
            self._replay = Replay(self._loop, self._speed, entries, self.send, self._replayed)
        elif verb == "turn":
            self._turning = True
        elif verb == "late":
            self._late = number(value) / 1000
        elif verb == "endless":
            self._start_pouring(ENDLESS_PIECE, value or ENDLESS_DEFAULT)
        elif verb == "chatter":
            self._start_pouring(CHATTER_PIECE, value)
        elif verb in ("deaf", "gone"):
            if self._line and verb == "deaf":
                self._line.set_deaf(True)
            elif self._line:
                self._endless.stop()
                self._line.close()
                self._line = None
        elif verb == "send":
            self.send(to_bytes(value))
        else:
            raise Failure(f'the MCU knows no "{" ".join(words)}"')

    def _recover(self) -> None:
        self._late = 0
        self._turning = False
        self._endless.stop()
        self._line = self._line or self._plug_in(self._heard)
        self._line.set_deaf(False)

    def _heard(self, content: bytes) -> None:
        # Shown line by line, each with its own line end; what has none stands alone.
        for line in re.findall(rb"[^\r\n]*[\r\n]+|[^\r\n]+", content):
            self._history.note("serial", line)
        *lines, self._gathered = re.split(rb"[\r\n]", self._gathered + content)
        for line in filter(None, lines):
            self._handle(to_text(line))
            if self._replay:
                self._replay.hear(line)

    def _handle(self, text: str) -> None:
        if text.endswith("?"):
            word = "Corvantis" if text == "*IDN?" else text[:-1]
            if self._turning and word == "COILER:VALUE":
                self._model[word] = str(int(self._model[word]) + 1)
            if word in self._model:
                self._answer(to_bytes(f"{word} {self._model[word]}\r\n"))
        elif text.startswith("LAMP:SET "):
            self._model["LAMP:VALUE"] = text[9:]
        elif text in EFFECTS:
            word, value = EFFECTS[text]
            self._model[word] = value

    def _answer(self, text: bytes) -> None:
        """One line a write: the unit takes one line a notification.

        Two lines in one write would leave every later answer one behind.
        """
        if self._late and self._mood == "talk":
            self._loop.timer(lambda: self.send(text)).start(self._late / self._speed())
            return
        self._send_rest()  # of the answer before, where the unit asks so soon
        middle = len(text) // 2
        if self._mood == "talk":
            self.send(text)
        elif self._mood == "garbage":
            self.send(GARBAGE)
        elif self._mood in ("half", "split"):
            self.send(text[:middle])
        if self._mood == "split":
            self._rest = text[middle:]
            self._gap.start(SPLIT_GAP / self._speed())

    def _send_rest(self) -> None:
        self._gap.stop()
        rest, self._rest = self._rest, b""
        if rest:
            self.send(rest)

    def _replayed(self) -> None:
        self._history.note("bench", "capture replayed\n")

    def _start_pouring(self, piece: bytes, size: str) -> None:
        self._piece = piece
        self._left = int(number(size))
        self._endless.every(ENDLESS_TICK)

    def _pour(self) -> None:
        piece = self._piece[: self._left]
        self._left -= len(piece)
        if self._line:
            self._line.send(piece)
        if self._left <= 0:
            self._endless.stop()
            self._history.note("bench", "endless line sent\n")

    def _discharge(self) -> None:
        self._model["BAT:V"] = str(max(0, int(self._model["BAT:V"]) - 1))
