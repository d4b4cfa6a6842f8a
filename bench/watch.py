# SPDX-License-Identifier: LicenseRef-KT6120
"""What happened on the bench, what the unit's store holds and what its program takes, and the view of it."""

import math
import re
import sys
from collections import Counter
from collections.abc import Callable
from functools import partial

from bench import Failure, Row, State, number, places, to_bytes, to_text
from bench.machine import GAUGES, Machine
from bench.world import Act, Clock

Write = Callable[[str], object]

DAY = 86400  # s
RATE_INTERVAL = 5  # s
LONGEST = 500  # characters of a line

# What happens, by the name that `expect` has for it: how it is shown, its colour on a terminal (cyan,
# blue, bold, white, red, magenta, green, bright green, yellow, bright magenta, grey), and what it is.
KINDS = {
    "serial": ("serial >", "36", "bytes of the unit to the MCU"),
    "mcu": ("serial <", "34", "of the MCU to the unit"),
    "log": ("log", "1", "the program log"),
    "stdout": ("stdout", "37", "the program's standard output"),
    "stderr": ("stderr", "31", "its standard error"),
    "calls": ("call", "35", "calls of recorded programs, in order"),
    "app": ("app <", "32", "bytes of the unit to the phone"),
    "phone": ("app >", "92", "of the phone to the unit"),
    "change": ("store", "33", 'changes of the store: "Battery/Voltage: 6260 -> 4695"'),
    "network": ("network", "95", "changes of the network"),
    "bench": ("bench", "90", "the bench's own remarks"),
}
LINES = KINDS.keys() - {"serial", "mcu", "app", "phone"}  # whose line feeds are not shown


class Stream:
    """All bytes of one kind. `found`: the end of the text that an expect has met last."""

    def __init__(self) -> None:
        self.content, self.found, self.mark = bytearray(), 0, 0
        self.met: set[int] = set()  # where the calls begin that expects have met


class History:
    """Everything that happened, in order; listeners are called for each piece."""

    def __init__(self) -> None:
        self._streams = {kind: Stream() for kind in KINDS}
        self.listeners: list[Callable[[str, bytes], object]] = []
        self.when_marked: Act = lambda: None

    def note(self, kind: str, text: bytes | str) -> None:
        """A text of a kind that is made of lines carries its line feed."""
        content = to_bytes(text) if isinstance(text, str) else text
        self._streams[kind].content += content
        for listener in self.listeners:
            listener(kind, content)

    def of(self, kind: str) -> Stream:
        return self._streams[kind]

    def mark(self) -> None:
        for stream in self._streams.values():
            stream.found = stream.mark = len(stream.content)
        self.when_marked()


def parse(content: bytes) -> dict[str, str]:
    """The keys of an INI file with their groups, the values as they stand."""
    values, group = {}, ""
    for section, key, value in re.findall(r"(?m)^\[(.*)\]$|^([^=\n]+)=(.*)$", to_text(content)):
        if key:
            values[group + key] = value
        else:
            group = section + "/"
    return values


class Store:
    """The status store on disk."""

    def __init__(self, history: History) -> None:
        self._history = history
        self.values: dict[str, str] = {}

    def hear(self, content: bytes) -> None:
        """The whole file after a change."""
        before, self.values = self.values, parse(content)
        for key, value in sorted(self.values.items()):
            if (old := before.get(key, "-")) != value:
                self._history.note("change", f"{key}: {old} -> {value}\n")

    def expect_store(self, key: str, value: str, *more: str) -> State:
        """KEY VALUE - the status store on disk"""
        return State(lambda: self.values.get(key), lambda now: now == " ".join((value, *more)))


class Gauges:
    """What the program takes of the system, as it is shown and expected."""

    def __init__(
        self, clock: Clock, history: History, machine: Machine, process: Callable[[], int]
    ) -> None:
        self._clock, self._history, self._machine = clock, history, machine
        self._process = process
        self._marked = dict.fromkeys(GAUGES, 0.0)
        history.when_marked = lambda: self._marked.update(self._values())
        self.expects = [
            Row(name, "[growth] below N", what, partial(self._look, name))
            for name, what in GAUGES.items()
        ]

    def _values(self) -> dict[str, float]:
        process = self._process()
        return self._machine.gauges(process) if process else dict.fromkeys(GAUGES, 0.0)

    def do_show(self, file: str = "") -> None:
        """[FILE] - prints the program's memory, CPU time and file sizes in KiB; adds them to a table"""
        values = {"day": self._clock.seconds() / DAY, **self._values()}
        for name, path in (("log", places.LOG), ("csv", places.STATUS_ROWS)):
            values[name] = len(self._machine.read(path) or b"") / 1024
        self._history.note("bench", ", ".join(f"{name} {values[name]:g}" for name in values) + "\n")
        if file:
            with open(file, "a") as table:
                if table.tell() == 0:
                    table.write(",".join(values) + "\n")
                table.write(",".join(map(str, values.values())) + "\n")

    def expect_processes(self, text: str, count: str) -> State:
        """TEXT N - N processes have TEXT in their command line"""
        running = partial(self._machine.processes_with, text)
        return State(running, lambda now: now == number(count))

    def _look(self, name: str, *words: str) -> State:
        if words[-2:-1] != ("below",):
            raise Failure(f"expect {name} [growth] below N")
        limit = number(words[-1])
        base = self._marked[name] if words[0] == "growth" else 0
        return State(
            lambda: self._values()[name] - base if self._process() else math.nan,
            lambda now: now < limit,
        )


def printable(content: bytes) -> str:
    """With escapes for control bytes and bytes above ASCII; a quote stays as it is."""
    return repr(bytes(content) + b'"')[2:-2].replace("\\'", "'")


class View:
    """Prints what happens, a line each; what says nothing new as a count, every few seconds."""

    def __init__(self, clock: Clock, history: History, write: Write = print) -> None:
        self._clock, self._write, self._colours = clock, write, sys.stdout.isatty()
        self._known: dict[tuple[str, bytes], bytes] = {}  # kind and first word -> last line shown
        self._more, self._rated = Counter[str](), 0.0
        history.listeners.append(self._show)
        clock.loop.timer(self._show_more).start(RATE_INTERVAL, RATE_INTERVAL)

    def _show(self, kind: str, text: bytes) -> None:
        for line in text.split(b"\n") if kind in LINES else [text]:
            # Of the MCU's values and of the queries each is known by its word; of programs the last line.
            is_value = kind == "mcu" or kind == "serial" and b"?" in line
            word = (kind, line.split(b" ")[0] if is_value else b"")
            if (is_value or kind in LINES) and self._known.get(word) == line:
                self._more[kind] += 1
            elif line.strip(b"\r\n") or kind not in ("serial", *LINES):
                self._known[word] = line
                self._print(kind, printable(line))

    def _show_more(self) -> None:
        now = self._clock.seconds()
        for kind, count in self._more.items():
            seconds = now - self._rated
            self._print(kind, f"... {count} more in {seconds:.0f} s, unchanged")
        self._more.clear()
        self._rated = now

    def _print(self, kind: str, text: str) -> None:
        text = text if len(text) <= LONGEST else text[:LONGEST] + " ..."
        name, colour, _ = KINDS[kind]
        seconds = f"{self._clock.seconds():8.3f}"
        line = f"{name:<9} {text}"
        if self._colours:
            seconds, line = f"\033[90m{seconds}\033[0m", f"\033[{colour}m{line}\033[0m"
        self._write(f"{seconds} {line}")
        sys.stdout.flush()
