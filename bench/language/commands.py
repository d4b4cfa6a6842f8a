# SPDX-License-Identifier: LicenseRef-KT6120
"""Carries out commands and scenarios: what the parts of a bench offer as verbs, and a few of its own."""

import os
import re
from collections.abc import Callable

from bench import Failure, Verb, number, to_text
from bench.unit.places import of_caller
from bench.watch.history import History

from . import words as language

FOOT = r"""
Words are separated by blanks; "..." may hold blanks and \r \n \t \0 \xNN;
@VERSION@ is the program's version, @MAJOR@, @MINOR@ and @PATCH@ its parts."""

TOP = os.path.join(os.path.dirname(__file__), "../../CMakeLists.txt")


class PlaceFailure(Failure):
    """A line of a scenario that failed: its number, its text and what went wrong."""


def figures() -> dict[str, str]:
    """The program's version, which scenarios need not repeat."""
    with open(TOP) as file:
        version = re.search(r"project\(.* VERSION ((\d+)\.(\d+)\.(\d+))", file.read())
    assert version
    return {
        "@VERSION@": version[1],
        "@MAJOR@": version[2],
        "@MINOR@": version[3],
        "@PATCH@": version[4],
    }


class Commands:
    def __init__(self, history: History, may_check: Callable[[], bool] = lambda: True) -> None:
        self._history = history
        self._may_check = may_check
        self._figures: dict[str, str] = {}
        self._folder = ""  # of the scenario
        self.ended = False
        self.verbs: list[Verb] = [
            Verb("echo", "TEXT", "a remark in the output", self._echo),
            Verb(
                "play",
                "FILE",
                "plays a scenario file",
                lambda words: self.play(self.find(words[0])),
            ),
            Verb(
                "repeat",
                "N ... end",
                'in a scenario: the lines up to "end", N times',
                self._repeat_alone,
            ),
            Verb("mark", "", "later expects look only at what happens from now on", self._mark, 0),
            Verb("help", "[expect]", "this", self._help, 0),
            Verb("quit", "", "ends everything", self._quit, 0),
        ]
        self.helps: dict[str, Callable[[], str]] = {}

    def run(self, line: str) -> None:
        """Raises Failure where it cannot be done."""
        if "@" in line:
            self._figures = self._figures or figures()
            for name, value in self._figures.items():
                line = line.replace(name, value)
        given = [] if line.lstrip().startswith("#") else language.split(line)
        if not given:
            return
        verb = next((verb for verb in self.verbs if verb.name == given[0]), None)
        if not verb or not verb.act:
            raise Failure(f'unknown command "{given[0]}" (help lists them)')
        if len(given) - 1 < verb.least:
            raise Failure(f"{verb.name} {verb.arguments}")
        try:
            verb.act(given[1:])
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
        numbered = list(enumerate(lines, 1))
        for line in lines:
            if not line.startswith("#"):
                break
            self._history.note("bench", line + "\n")
        outer, self._folder = self._folder, os.path.dirname(path)
        try:
            self._play(numbered)
            if self._may_check():
                self._play([(len(lines), "unit check")])
        except PlaceFailure as failure:
            raise Failure(f"{path}:{failure}") from None
        finally:
            self._folder = outer

    def find(self, path: str) -> str:
        """A file that a command names: beside the scenario, or as whoever has started the bench sees it."""
        beside = os.path.join(self._folder, path)
        return beside if os.path.exists(beside) else of_caller(path)

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

    def _echo(self, words: list[str]) -> None:
        self._history.note("bench", " ".join(words) + "\n")

    def _mark(self, _: list[str]) -> None:
        self._history.mark()

    def _help(self, words: list[str]) -> None:
        if words:
            print(self.helps[words[0]](), flush=True)
            return
        for verb in self.verbs:
            print(f"  {verb.name:<9} {verb.arguments:<48} {verb.help}")
        print(FOOT, flush=True)

    def _quit(self, _: list[str]) -> None:
        self.ended = True
