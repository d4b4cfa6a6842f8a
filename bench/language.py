# SPDX-License-Identifier: LicenseRef-KT6120
"""The language that steers a bench: words, commands, scenarios, and expectations.

A command is words with blanks between them. A part in double quotes may hold blanks and the escapes of
Python's bytes (\\r \\n \\0 \\" \\xNN); outside quotes nothing is special. (shlex has other escapes and also
treats single quotes as quotes.)
"""

import codecs
import itertools
import os
import re
import subprocess
from collections.abc import Callable, Iterable, Sequence
from typing import Any

from bench import Failure, Row, number, rows, to_bytes, to_text
from bench.watch import KINDS, History, printable
from bench.world import Clock, Condition

QUOTED = re.compile(r'"((?:[^"\\]|\\.)*)"', re.DOTALL)
WORD = re.compile(rf'(?:[^ \t\r\n"]|{QUOTED.pattern})+|"', re.DOTALL)

TOP = os.path.join(os.path.dirname(__file__), "../CMakeLists.txt")
USUAL_BOUND = 60.0  # s, for a busy desk
LINES_SHOWN = 10
# What a command meets that cannot be carried out; numbers may be beyond all limits.
UNABLE = (OSError, ValueError, OverflowError, MemoryError, subprocess.SubprocessError)
TEXT_SHOWN = 2000  # bytes

HELP = r"""

In a scenario the lines from "repeat N" to "end" are played N times. Words are separated by blanks;
"..." may hold blanks and \r \n \t \0 \xNN; the word # begins a remark; @VERSION@ is the program's
version, @MAJOR@, @MINOR@ and @PATCH@ its parts."""

EXPECT_HELP = """expect [none|count N] WHAT [within SECONDS] [for SECONDS]

Events since the last "mark" or the start. Texts of one kind are met in order: the search
for each begins after the text that was met before it.
{}
States:
{}

Waits for it, up to a minute or the time of "within"; at a speed above 1, never less than a
minute of real time. "none": it must not happen, or hold, for the time of "for", 1 s by default;
nor may it have happened since the text that was met last (a call: since the mark). "count N":
exactly N times since the last "mark" or the start; the next search does not begin after these."""


def split(line: str) -> list[str]:
    words = (match[0] for match in WORD.finditer(line))
    found = list(itertools.takewhile(lambda word: word != "#", words))
    if '"' in found:
        raise Failure("a quote is not closed")
    return [QUOTED.sub(_unescaped, word) for word in found]


def _unescaped(part: re.Match[str]) -> str:
    try:
        return to_text(codecs.escape_decode(to_bytes(part[1]))[0])  # type: ignore[arg-type]
    except ValueError as error:
        raise Failure(str(error)) from None


def quoted(content: bytes) -> str:
    """The bytes as one word of the language."""
    return '"' + printable(content).replace('"', '\\"') + '"'


def _figure(match: re.Match[str]) -> str:
    """A part of the program's version, so that scenarios need not repeat it."""
    with open(TOP) as file:
        found = re.findall(r"project\(.* VERSION ((\d+)\.(\d+)\.(\d+))", file.read())[0]
    return str(found[("VERSION", "MAJOR", "MINOR", "PATCH").index(match[1])])


def _repeated(lines: list[str]) -> list[tuple[int, str]]:
    """Lines with their numbers, without comments; the body of a "repeat" N times."""
    bodies: list[tuple[int, list[tuple[int, str]]]] = [(1, [])]
    for place, line in enumerate(lines, 1):
        if line.startswith("repeat "):
            bodies.append((int(number(line[7:])), []))
        elif line == "end" and bodies[1:]:
            times, body = bodies.pop()
            bodies[-1][1].extend(body * times)
        elif line and not line.startswith("#"):
            bodies[-1][1].append((place, line))
    if bodies[1:]:
        raise Failure("repeat without end")
    return bodies[0][1]


def _take(words: list[str], name: str, otherwise: float) -> float:
    """Takes "NAME SECONDS" off the end of the words."""
    if len(words) < 3 or words[-2] != name:
        return otherwise
    seconds = number(words[-1])
    del words[-2:]
    return seconds


def _text_of(seen: object) -> str:
    text = to_text(seen[-TEXT_SHOWN:]) if isinstance(seen, bytes) else str(seen)
    return text if text and seen is not None else "nothing"


def _shown(table: Iterable[Sequence[Any]], width: int) -> str:
    forms = ((f"{name:<9} {arguments}", what) for name, arguments, what, *_ in table)
    return "\n".join(f"  {form:<{width}} {what}" for form, what in forms)


class Commands:
    """Carries out commands and scenarios: those of the bench's parts, and a few more."""

    def __init__(self, clock: Clock, history: History, lost: Callable[[], bool]) -> None:
        """`lost` is true when it is no use to wait longer."""
        self._clock, self._history, self._lost = clock, history, lost
        self._folder = ""  # of the scenario
        self.ended = False
        self.verbs, self.expects = rows(self, "do_"), list[Row]()

    def offer(self, *parts: object) -> None:
        for part in parts:
            self.verbs += rows(part, "do_")
            self.expects += rows(part, "expect_") + getattr(part, "expects", [])

    def run(self, line: str) -> None:
        """Raises Failure where it cannot be done."""
        line = re.sub("@(VERSION|MAJOR|MINOR|PATCH)@", _figure, line)
        words = [] if line.lstrip().startswith("#") else split(line)
        try:
            if words:
                self._act("", self.verbs, words)
        except UNABLE as error:
            raise Failure(str(error) or "too large") from None

    def play(self, path: str) -> None:
        """Prints the leading comment and carries out every line, up to the first that fails."""
        with open(path, "rb") as file:
            lines = [line.strip() for line in to_text(file.read()).split("\n")]
        for line in itertools.takewhile(lambda line: line.startswith("#"), lines):
            self._history.note("bench", line + "\n")
        self._folder = os.path.dirname(path)
        place, text = len(lines), ""
        try:
            for place, text in [*_repeated(lines), (len(lines), "unit check")]:
                if self.ended:
                    break
                self._history.note("bench", text + "\n")
                self.run(text)
        except Failure as failure:
            raise Failure(f"{path}:{place}: {text}\n{failure}") from None

    def find(self, path: str) -> str:
        """A file that a command names: beside the scenario, or as the caller of the bench sees it."""
        beside = os.path.join(self._folder, path)
        return beside if os.path.exists(beside) else path

    def do_expect(self, *given: str) -> None:
        """KIND WHAT... - waits for it, and says what was seen instead: help expect"""
        words = list(given)
        none = given[:1] == ("none",)
        count = int(number(words[1])) if given[:1] == ("count",) and given[1:] else None
        del words[: 1 if none else 2 if count is not None else 0]
        bound = _take(words, "within", USUAL_BOUND)
        quiet = _take(words, "for", 1)
        if words and words[0] in (*KINDS, "call"):
            if len(words) < 2:
                raise Failure(f"expect {words[0]} TEXT")
            met, seen = self._happened(words[0], to_bytes(" ".join(words[1:])), none, count)
        else:
            look, fits = self._act("expect ", self.expects, words)
            met, seen = lambda: bool(fits(look())), lambda: f"seen instead: {_text_of(look())}"

        # Seconds are the unit's; a bound is not cut below what a busy desk needs.
        what, speed = printable(to_bytes(" ".join(given))), self._clock.speed
        if none:
            if self._clock.until(met, quiet / speed):
                raise Failure(f"did happen: {what}")
            return
        limit = max(USUAL_BOUND, bound / speed) if speed > 1 else bound
        if not self._clock.until(met, limit, self._lost):
            raise Failure(f"not met within {bound:g} s: {what}\n{seen()}")

    def do_ask(self, *words: str) -> None:
        """LINE ANSWER - the app sends the line and gets the answer: ask TWK? "TWK 0\\r\" """
        self._act("", self.verbs, ["app", *words[:-1]])
        self.do_expect("app", words[-1])

    def do_mark(self) -> None:
        """later expects look only at what happens from now on"""
        self._history.mark()

    def do_quit(self) -> None:
        """ends everything"""
        self.ended = True

    def do_help(self, what: str = "") -> None:
        """[expect] - lists the commands; the forms of expect"""
        kinds = [(kind, "TEXT", KINDS[kind][2]) for kind in KINDS]
        kinds.append(("call", "NAME [ARGUMENT...]", "in any order; each once"))
        expects = EXPECT_HELP.format(_shown(kinds, 28), _shown(self.expects, 28))
        print(expects if what == "expect" else _shown(self.verbs, 57) + HELP, flush=True)

    @staticmethod
    def _act(what: str, table: list[Row], given: list[str]) -> Any:
        name, *words = given or [""]
        forms = [row for row in table if row.name == name]
        if not forms:
            raise Failure(f'unknown {what or "command "}"{name}" (help lists them)')
        try:
            return forms[0].act(*words)
        except TypeError as error:
            if error.__traceback__ and error.__traceback__.tb_next:  # not of this call's words
                raise
            raise Failure("\n".join(f"{what}{name} {row.arguments}" for row in forms)) from None

    def _happened(
        self, kind: str, text: bytes, none: bool, count: int | None
    ) -> tuple[Condition, Callable[[], str]]:
        """Whether it has, and what did instead. Texts of a kind are met in order. A call, a line with its
        first arguments, is met once.
        """
        call, pattern = kind == "call", re.escape(text)
        stream = self._history.of("calls" if call else kind)
        wanted = re.compile(rb"(?m)^" + pattern + rb"(?=[ \n])" if call else pattern)

        def met() -> bool:
            start = stream.mark if call or count is not None else stream.found
            matches = list(wanted.finditer(stream.content, start))
            if count is not None:
                return len(matches) == count
            matches = [match for match in matches if not call or match.start() not in stream.met]
            if matches and call and not none:
                stream.met.add(matches[0].start())
            elif matches and not none:
                stream.found = matches[0].end()
            return bool(matches)

        def seen() -> str:
            since = stream.content[stream.found :]
            lines = (since or stream.content)[-TEXT_SHOWN:].split(b"\n")[-LINES_SHOWN:]
            head = "seen instead:" if since else "nothing since the last one found; before it:"
            return "\n".join([head] + [f"    {printable(line)}" for line in lines])

        return met, seen
