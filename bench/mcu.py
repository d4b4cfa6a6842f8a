# SPDX-License-Identifier: LicenseRef-KT6120
"""The microcontroller at the far end of the serial line, the line itself, and captures of it.

    python3 -m bench.mcu [LINK]

plays the microcontroller alone, for whoever tries the program without the rest of the bench: its line
is linked at LINK (/dev/serial0); it writes "ready", then what it hears, until it is killed.
"""

import os
import re
import select
import socket
import sys
import tty
from collections.abc import Callable
from typing import IO, NamedTuple

from bench import Failure, number, places, table, to_bytes, to_text
from bench.language import quoted, split
from bench.watch import History
from bench.world import Act, Clock, Heard, Loop

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
MOODS = ("talk", "silent", "garbage", "half", "split")
GARBAGE = b"\x00\xff\xfe\x1b\x80 \xc3\x28\n"
DISCHARGE_STEP = 10  # s
SPLIT_GAP = 0.05  # s
TICK = 0.002  # s, in which a piece of these is sent
ENDLESS = b"x" * 8192
CHATTER = b"BOOT 1\r\nBOOT 2\r\nBOOT 3\n"  # at 115200 baud


class Line:
    """The bench's end of a serial line, whatever carries it. `others` are closed with it."""

    def __init__(self, loop: Loop, heard: Heard, file: int, *others: int, link: str = "") -> None:
        os.set_blocking(file, False)
        self._loop, self._heard, self._link, self._files = loop, heard, link, [file, *others]
        self.set_deaf(False)

    def send(self, content: bytes) -> None:
        """All of it, as one arrival at the unit."""
        while self._files and content:
            try:
                content = content[os.write(self._files[0], content) :]
            except BlockingIOError:  # the other end has not read yet
                select.select([], self._files[:1], [], 0.1)
            except OSError:
                return

    def set_deaf(self, deaf: bool) -> None:
        """While deaf, nothing is read: the line's buffer fills up."""
        if self._files:
            self._loop.forget(self._files[0])
            if not deaf:
                self._loop.reads(self._files[0], self._read)

    def close(self) -> None:
        """Every read and write at the other end fails from now on."""
        if self._link and os.path.islink(self._link):
            os.remove(self._link)
        self.set_deaf(True)
        while self._files:
            os.close(self._files.pop())

    def _read(self) -> None:
        try:
            content = os.read(self._files[0], 4096)
        except OSError:
            content = b""
        if content:
            self._heard(content)
        else:
            self.close()  # the other end has


def pseudo_terminal(loop: Loop, link: str, heard: Heard) -> Line:
    """A line whose far end is linked under that name, raw, so that nothing is echoed.

    The bench has that end open too: a terminal that nobody has open is readable for ever.
    """
    near, far = os.openpty()
    tty.setraw(far)
    if os.path.lexists(link):
        os.remove(link)
    os.symlink(os.ttyname(far), link)
    return Line(loop, heard, near, far, link=link)


def to_socket(loop: Loop, path: str, heard: Heard) -> Line:
    end = socket.socket(socket.AF_UNIX)
    try:
        end.connect(path)
    except OSError:
        raise Failure(f"nobody is at {path}") from None
    return Line(loop, heard, end.detach())


class Entry(NamedTuple):
    """A line of a capture: seconds, direction, and the bytes as a quoted word of the language.

    12.250 > "BAT:V?\\n\\r"
    12.262 < "BAT:V 2400\\r\\n"
    """

    seconds: float
    direction: str  # ">": the unit's, "<": the MCU's
    content: bytes


DIRECTIONS = {"serial": ">", "mcu": "<"}


def read(path: str) -> list[Entry]:
    with open(path, "rb") as file:
        lines = [split(line) for line in map(to_text, file) if not line.startswith("#")]
    for words in lines:
        if words and (len(words) != 3 or words[1] not in DIRECTIONS.values()):
            raise Failure(f"{path}: no line of a capture: {' '.join(words)}")
    return [Entry(number(line[0]), line[1], to_bytes(line[2])) for line in lines if line]


class Recorder:
    """Writes a capture of what passes from now on."""

    def __init__(self, clock: Clock, history: History) -> None:
        self._clock = clock
        self._file: IO[bytes] | None = None
        history.listeners.append(self._write)
        what = "writes what passes on the serial line, with times and directions; no more of it"
        self.verbs = table(f"record FILE|off  {what}", record=self._record)

    def _record(self, words: list[str]) -> None:
        if self._file:
            self._file.close()
        path = places.of_caller(words[0])
        self._file = open(path, "wb", buffering=0) if words[0] != "off" else None

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
        self, loop: Loop, speed: Callable[[], int], entries: list[Entry], send: Heard, done: Act
    ) -> None:
        self._speed, self._entries, self._send, self._done = speed, entries, send, done
        self._at, self._asked = 0, b""
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
        for at in range(self._at, len(self._entries)):
            entry, before = self._entries[at], self._entries[max(0, at - 1)]
            self._at = at
            if entry.direction == "<":
                self._gap.start(max(0, entry.seconds - before.seconds) / self._speed())
                return
            queries = [line for line in entry.content.split() if line.endswith(b"?")]
            if queries:
                self._at, self._asked = at + 1, queries[-1]
                return
        self._done()

    def _send_next(self) -> None:
        self._at += 1
        self._send(self._entries[self._at - 1].content)
        self._go_on()


class Mcu:
    """Answers from a model of the unit's hardware, follows set commands, misbehaves on request."""

    def __init__(
        self,
        loop: Loop,
        speed: Callable[[], int],
        history: History,
        plug_in: Callable[[Heard], Line],
        find: Callable[[str], str],
    ) -> None:
        """Its pauses are `speed` times as short. It plugs its line in, and again after it was gone.

        `find` tells where a file is that a scenario names.
        """
        self._loop, self._speed, self._history, self._find = loop, speed, history, find
        self._plug_in: Callable[[], Line] = lambda: plug_in(self._heard)
        self._line: Line | None = self._plug_in()
        self._model = dict(HEALTHY)
        self._gathered = b""  # the unit's bytes since the last line end
        self._mood, self._turning, self._late = "talk", False, 0.0  # the reel; s before each answer
        self._rest = b""  # the second half of a split answer
        self._gap = loop.timer(self._send_rest)
        # From the first look at the voltage on, until it is set by hand: a slow board sees it full too.
        self._full = True
        self._battery = loop.timer(self._discharge)
        self._pouring = loop.timer(self._pour)
        self._piece, self._left = b"", 0  # bytes to pour
        self._replay: Replay | None = None
        self.verbs = table(
            r"""
            mcu WORD VALUE         what the MCU reports from now on: mcu BAT:V 1500
            mcu send "LINE\r\n"    a line that nobody asked for, bytes as told
            mcu silent|garbage|half|split|late MS|turn|talk  how it answers; turn counts the reel on; talk is well again
            mcu endless [BYTES]|deaf|gone  bytes without line end; reads nothing; hangs up
            mcu chatter BYTES      lines without pause, three at once, as fast as the line carries
            mcu replay FILE        its lines of a capture, each behind the query that it answered
            """,
            mcu=self.command,
        )

    def renew_line(self) -> None:
        """Where one is plugged in: a program that was killed leaves the old one locked for its use."""
        self._gathered = b""
        if self._line:
            self._line.close()
            self._line = self._plug_in()

    def send(self, content: bytes) -> None:
        if self._line:
            self._history.note("mcu", content)
            self._line.send(content)

    def command(self, words: list[str]) -> None:
        verb, value = words[0], words[1] if len(words) > 1 else ""
        acts: dict[str, Callable[[], object]] = {
            "turn": lambda: setattr(self, "_turning", True),
            "late": lambda: setattr(self, "_late", number(value) / 1000),
            "endless": lambda: self._start_pouring(ENDLESS, value or "1000000"),
            "chatter": lambda: self._start_pouring(CHATTER, value),
            "deaf": self._stop_reading,
            "gone": self._hang_up,
            "send": lambda: self.send(to_bytes(value)),
            "replay": lambda: self._start_replay(value),
        }
        if verb in self._model and len(words) > 1:
            if verb == "BAT:V":
                self._full = False
                self._battery.stop()  # what is set by hand stays
            self._model[verb] = " ".join(words[1:])
        elif verb in MOODS:
            self._change_mood(verb)
        elif verb in acts:
            acts[verb]()
        else:
            raise Failure(f'the MCU knows no "{" ".join(words)}"')

    def _change_mood(self, mood: str) -> None:
        self._mood = mood
        if self._replay:
            self._replay.stop()
            self._replay = None
        if mood == "talk":
            self._late, self._turning = 0, False
            self._pouring.stop()
            self._line = self._line or self._plug_in()
            self._line.set_deaf(False)

    def _stop_reading(self) -> None:
        if self._line:
            self._line.set_deaf(True)

    def _hang_up(self) -> None:
        self._pouring.stop()
        if self._line:
            self._line.close()
        self._line = None

    def _start_replay(self, path: str) -> None:
        def done() -> None:
            self._history.note("bench", "capture replayed\n")

        self._change_mood("silent")
        entries = read(self._find(path))
        self._replay = Replay(self._loop, self._speed, entries, self.send, done)

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
            if word == "BAT:V" and self._full:
                self._full = False
                self._battery.every(DISCHARGE_STEP)
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
        half = text[: len(text) // 2]
        said = {"talk": text, "garbage": GARBAGE, "half": half, "split": half}.get(self._mood)
        if said:
            self.send(said)
        if self._mood == "split":
            self._rest = text[len(half) :]
            self._gap.start(SPLIT_GAP / self._speed())

    def _send_rest(self) -> None:
        self._gap.stop()
        rest, self._rest = self._rest, b""
        if rest:
            self.send(rest)

    def _start_pouring(self, piece: bytes, size: str) -> None:
        self._piece, self._left = piece, int(number(size))
        self._pouring.every(TICK)

    def _pour(self) -> None:
        piece = self._piece[: self._left]
        self._left -= len(piece)
        if self._line:
            self._line.send(piece)
        if self._left <= 0:
            self._pouring.stop()
            self._history.note("bench", "endless line sent\n")

    def _discharge(self) -> None:
        self._model["BAT:V"] = str(max(0, int(self._model["BAT:V"]) - 1))


def alone(link: str) -> None:
    def write(kind: str, text: bytes) -> None:
        if kind == "serial":
            sys.stdout.buffer.write(text)
            sys.stdout.flush()

    loop, history = Loop(), History()
    history.listeners.append(write)
    Mcu(loop, lambda: 1, history, lambda heard: pseudo_terminal(loop, link, heard), str)
    print("ready", flush=True)
    loop.until(lambda: False)


if __name__ == "__main__":
    alone(sys.argv[1] if sys.argv[1:] else places.SERIAL)
