# SPDX-License-Identifier: LicenseRef-KT6120
"""The language that steers a bench: words, commands, scenarios, and what is expected.

A command is words with blanks between them. A part in double quotes may hold blanks and the escapes
\\r \\n \\t \\0 \\" \\\\ and \\xNN; outside quotes nothing is special. (shlex has other escapes and takes
more characters for quotes.)
"""

import os
import re
from collections.abc import Callable, Iterator

from bench import Failure, Row, State, number, table, to_bytes, to_text
from bench.places import of_caller
from bench.watch import ESCAPES, KINDS, History, printable
from bench.world import Clock

QUOTED = re.compile(r'"((?:[^"\\]|\\.)*)"', re.DOTALL)
WORD = re.compile(rf'(?:[^ \t\r\n"]|{QUOTED.pattern})+|"', re.DOTALL)
ESCAPE = re.compile(r"\\(x[0-9a-fA-F]{2}|.)", re.DOTALL)

TOP = os.path.join(os.path.dirname(__file__), "../CMakeLists.txt")
USUAL_BOUND = 60.0  # s, for a busy desk
LINES_SHOWN = 10
TEXT_SHOWN = 2000  # bytes

HELP = r"""

Words are separated by blanks; "..." may hold blanks and \r \n \t \0 \xNN;
@VERSION@ is the program's version, @MAJOR@, @MINOR@ and @PATCH@ its parts."""

EXPECT_HELP = """expect [none|count N] WHAT [within SECONDS] [for SECONDS]

What has happened since the last "mark" or the start. Texts of one kind are met in order:
each is searched from where the one before it was found.
{happened}
What is the case:
{case}

Without more, waits up to a minute for it. "none": it is not so for the whole time of "for",
1 s by default, and has not been since the mark. "count N": exactly N times since the last
"mark" or the start; does not move on."""


def _unescape(match: re.Match[str]) -> str:
    escape = match[1]
    if escape not in ESCAPES and escape[0] != "x":
        raise Failure(f"unknown escape \\{escape}")
    if escape == "x":
        raise Failure("\\x wants two hexadecimal digits")
    return ESCAPES.get(escape) or to_text(bytes.fromhex(escape[1:]))


def split(line: str) -> list[str]:
    found = [match[0] for match in WORD.finditer(line)]
    if '"' in found:
        raise Failure("a quote is not closed")
    return [QUOTED.sub(lambda part: ESCAPE.sub(_unescape, part[1]), word) for word in found]


def quoted(content: bytes) -> str:
    """As one word that can be read again."""
    return '"' + printable(content).replace('"', '\\"') + '"'


class PlaceFailure(Failure):
    """A line of a scenario that failed: its number, its text and what went wrong."""


class Commands:
    """Carries out commands and scenarios: what the parts of a bench offer, and a few of its own."""

    def __init__(self, clock: Clock, history: History, lost: Callable[[], bool]) -> None:
        """`lost` tells that there is no use in waiting longer."""
        self._clock, self._history, self._lost = clock, history, lost
        self._figures: dict[str, str] = {}
        self._folder = ""  # of the scenario
        self._met_calls: set[int] = set()  # by their offset: each is met by itself, in any order
        self.ended = False
        self.expects: list[Row] = []
        self.verbs = table(
            """
            expect KIND WHAT...  waits for it, and says what was seen instead: help expect
            echo TEXT       a remark in the output
            play FILE       plays a scenario file
            repeat N ... end  in a scenario: the lines up to "end", N times
            mark            later expects look only at what happens from now on
            help [expect]   this
            quit            ends everything
            """,
            expect=self.expect,
            echo=lambda words: history.note("bench", " ".join(words) + "\n"),
            play=lambda words: self.play(self.find(words[0])),
            repeat=self._repeat_alone,
            mark=lambda _: history.mark(),
            help=self._help,
            quit=lambda _: setattr(self, "ended", True),
        )

    def offer(self, *parts: object) -> None:
        for part in parts:
            self.verbs += getattr(part, "verbs", [])
            self.expects += getattr(part, "expects", [])

    def run(self, line: str) -> None:
        """Raises Failure where it cannot be done."""
        if "@" in line:
            line = re.sub("@(VERSION|MAJOR|MINOR|PATCH)@", self._figure, line)
        given = [] if line.lstrip().startswith("#") else split(line)
        if given:
            try:
                self._act("", self.verbs, given)
            except OSError as error:
                raise Failure(str(error)) from None

    def play(self, path: str) -> None:
        """Tells the leading comment and carries out every line, up to the first that fails.

        At the end it looks whether the program has ended by itself and no line expected it.
        """
        try:
            with open(path, "rb") as file:
                lines = [line.strip() for line in to_text(file.read()).split("\n")]
        except OSError:
            raise Failure(f"cannot read {path}") from None
        code = next((at for at, line in enumerate(lines) if not line.startswith("#")), 0)
        for line in lines[:code]:
            self._history.note("bench", line + "\n")
        outer, self._folder = self._folder, os.path.dirname(path)
        try:
            self._play([*enumerate(lines, 1), (len(lines), "unit check")])
        except PlaceFailure as failure:
            raise Failure(f"{path}:{failure}") from None
        finally:
            self._folder = outer

    def find(self, path: str) -> str:
        """A file that a command names: beside the scenario, or as the caller of the bench sees it."""
        beside = os.path.join(self._folder, path)
        return beside if os.path.exists(beside) else of_caller(path)

    def expect(self, given: list[str]) -> None:
        words = list(given)
        none = words[0] == "none"
        count = int(number(words[1])) if words[0] == "count" else None
        del words[: 1 if none else 2 if count is not None else 0]
        bound = self._take(words, "within", USUAL_BOUND)
        quiet = self._take(words, "for", 1)
        met, seen = self._look(words, none, count)

        # Seconds are the unit's; a bound is not cut below what a busy desk needs.
        speed = self._clock.speed
        if none:
            if self._clock.until(met, quiet / speed):
                raise Failure(f"did happen: {' '.join(given)}")
            return
        limit = max(USUAL_BOUND, bound / speed) if speed > 1 else bound
        done = False

        def over() -> bool:
            nonlocal done
            done = met()
            return done or self._lost()

        self._clock.until(over, limit)
        if not done:
            told = printable(to_bytes(" ".join(given)))
            raise Failure(f"not met within {bound:g} s: {told}\n{seen()}")

    @staticmethod
    def _act(what: str, rows: list[Row], given: list[str]) -> State:
        name, *words = given
        row = next((row for row in rows if row.name == name), None)
        if not row or not row.act:
            raise Failure(f'unknown {what or "command"} "{name}" (help lists them)')
        if len(words) < row.least:
            raise Failure(f"{what}{name} {row.arguments}")
        state: State = row.act(words)
        return state

    def _figure(self, match: re.Match[str]) -> str:
        """The program's version, which scenarios need not repeat."""
        if not self._figures:
            with open(TOP) as file:
                version = re.search(r"project\(.* VERSION ((\d+)\.(\d+)\.(\d+))", file.read())
            names = ("VERSION", "MAJOR", "MINOR", "PATCH")
            self._figures = dict(zip(names, version.groups() if version else ()))
        return self._figures[match[1]]

    def _play(self, lines: list[tuple[int, str]]) -> None:
        at = 0
        while at < len(lines):
            place, text = lines[at]
            at += 1
            if text and not text.startswith("#"):
                self._history.note("bench", text + "\n")
            try:
                if text.startswith("repeat "):
                    at += self._repeat(int(number(text[7:])), lines[at:])
                else:
                    self.run(text)
            except PlaceFailure:
                raise  # of a line inside: it has its place already
            except Failure as failure:
                raise PlaceFailure(f"{place}: {text}\n{failure}") from None

    def _repeat(self, times: int, lines: list[tuple[int, str]]) -> int:
        """The lines up to the "end"; returns how many lines that were."""
        depth = 1
        for length, (_, text) in enumerate(lines):
            depth += text.startswith("repeat ") - (text == "end")
            if depth == 0:
                for _ in range(times):
                    self._play(lines[:length])
                return length + 1
        raise Failure("repeat without end")

    def _repeat_alone(self, _: list[str]) -> None:
        raise Failure("repeat stands in a scenario file")

    def _help(self, words: list[str]) -> None:
        def shown(rows: list[Row], width: int) -> str:
            forms = (f"{row.name:<9} {row.arguments}" for row in rows)
            return "\n".join(f"  {form:<{width}} {row.help}" for form, row in zip(forms, rows))

        if words != ["expect"]:
            print(shown(self.verbs, 57) + HELP, flush=True)
            return
        happened = [Row(kind, "TEXT", what, None, 1) for kind, (_, _, what) in KINDS.items()]
        happened.append(Row("call", "NAME [ARGUMENT...]", "in any order; each once", None, 1))
        texts = {"happened": shown(happened, 28), "case": shown(self.expects, 28)}
        print(EXPECT_HELP.format(**texts), flush=True)

    def _take(self, words: list[str], name: str, otherwise: float) -> float:
        if len(words) < 3 or words[-2] != name:
            return otherwise
        seconds = number(words[-1])
        del words[-2:]
        return seconds

    def _look(self, words: list[str], none: bool, count: int | None) -> State:
        kind, pattern = words[0] if words else "", to_bytes(" ".join(words[1:]))
        if kind in KINDS:
            return State(self._text(kind, pattern, none, count), lambda: self._last_lines(kind))
        if kind == "call":
            return State(self._call(pattern, none, count), lambda: self._last_lines("calls"))
        return self._act("expect ", self.expects, words)

    def _text(self, kind: str, pattern: bytes, none: bool, count: int | None) -> Callable[[], bool]:
        stream = self._history.of(kind)

        def met() -> bool:
            if count is not None:
                return stream.content.count(pattern, stream.mark) == count
            at = stream.content.find(pattern, stream.found)
            if at >= 0 and not none:
                stream.found = at + len(pattern)
            return at >= 0

        return met

    def _call(self, pattern: bytes, none: bool, count: int | None) -> Callable[[], bool]:
        """A call is a line of its own: the name, and the arguments as far as they are given."""
        calls = self._history.of("calls")

        def found() -> Iterator[int]:
            at = calls.mark
            for line in calls.content[calls.mark :].splitlines(keepends=True):
                if line.rstrip(b"\n") == pattern or line.startswith(pattern + b" "):
                    yield at
                at += len(line)

        def met() -> bool:
            if count is not None:
                return sum(1 for _ in found()) == count
            at = next((at for at in found() if at not in self._met_calls), None)
            if at is not None and not none:
                self._met_calls.add(at)
            return at is not None

        return met

    def _last_lines(self, kind: str) -> str:
        stream = self._history.of(kind)
        since = stream.content[stream.found :]
        lines = (since or stream.content)[-TEXT_SHOWN:].split(b"\n")[-LINES_SHOWN:]
        head = "seen instead:" if since else "nothing since the last one found; before it:"
        return "\n".join([head] + [f"    {printable(line)}" for line in lines])
