# SPDX-License-Identifier: LicenseRef-KT6120
"""The board's own computer as machine.py has it on a desk: its agent does there what is asked."""

import itertools
import time
from collections.abc import Callable
from functools import partial
from itertools import takewhile
from typing import Any

from bench import Failure, to_text
from bench.watch import History
from bench.world import Heard, Loop

from .agent import decode, encode
from .emulator import Emulator

AGAIN = 1  # s, until a question that has no answer yet is asked again
PATIENCE = 300  # s, for an answer: of a board that boots on a busy desk


class Followed:
    """A file of lines; a power cut may have taken its last ones."""

    def __init__(self, heard: Heard) -> None:
        self.anew = False  # it will be told from its start
        self._heard, self._known = heard, b""

    def take(self, content: bytes) -> None:
        if self.anew:
            same = takewhile(lambda pair: pair[0] == pair[1], zip(self._known, content))
            common = content.rfind(b"\n", 0, sum(1 for _ in same)) + 1
            self._known, content = self._known[:common], content[common:]
            self.anew = False
        self._known += content
        if content:
            self._heard(content)


class Remote:
    def __init__(self, loop: Loop, history: History, folder: str) -> None:
        self.emulator = Emulator(loop, folder, self._hear)
        self._loop, self._history = loop, history
        self._numbers = itertools.count(time.time_ns())  # none that an agent has had before
        self._answers: dict[int, tuple[str, Any]] = {}
        self._functions: dict[int, Callable[..., object]] = {}
        self._followed: list[Followed] = []
        self._standing: list[tuple[Any, ...]] = []  # what a board that boots is asked anew

    def __getattr__(self, name: str) -> Callable[..., Any]:
        return partial(self._do, name)

    def follow(self, path: str, heard: Heard) -> None:
        """As Machine's; of a board that was switched on again, what the file has more than before."""
        self._followed.append(Followed(heard))
        self._do("follow", path, self._followed[-1].take)

    def resume(self) -> None:
        """Of a board that has been switched on again: waits for its agent, has it follow as before."""
        for file in self._followed:
            file.anew = True
        for question in self._standing:
            self._ask(*question)

    def _do(self, name: str, *arguments: Any) -> Any:
        if not arguments or not callable(arguments[-1]):
            return self._ask(name, arguments, 0)
        function = next(self._numbers)
        self._functions[function] = arguments[-1]
        self._standing.append((name, arguments[:-1], function))
        return self._ask(*self._standing[-1])

    def _ask(self, *question: Any) -> Any:
        if not self.emulator.running:
            raise Failure("the board has no power")
        number = next(self._numbers)
        self._answers[number] = ("", None)
        for _ in range(PATIENCE // AGAIN):
            self.emulator.say(encode("ask", number, *question))
            if self._loop.until(lambda: self._has_come(number), AGAIN):
                break
        word, value = self._answers.pop(number)
        if word != "done":
            raise Failure(value or f"the board does not answer: {question}")
        return value

    def _has_come(self, number: int) -> bool:
        if not self.emulator.running:
            raise Failure("the board has gone")
        return self._answers[number][0] != ""

    def _hear(self, line: bytes) -> None:
        word, *rest = decode(line)
        if word in ("done", "failed") and rest[0] in self._answers:
            self._answers[rest[0]] = (word, rest[1])
        elif word == "call":
            self._functions[rest[0]](*rest[1])
        elif word in ("", "ready") and line.strip():
            self._history.note("bench", "console: " + to_text(line).strip() + "\n")
