# SPDX-License-Identifier: LicenseRef-KT6120
"""The bench's end of the console: calls methods of the board's agent as if it were a Machine."""

import itertools
import os.path
import time
from collections.abc import Callable
from functools import partial
from typing import Any

from bench import Failure, to_text
from bench.watch import History
from bench.world import Heard, Loop

from .agent import MARK, decode, encode
from .emulator import Emulator

RETRY_INTERVAL = 2  # s
PATIENCE = 300  # s of the board's time


class Remote:
    def __init__(self, loop: Loop, history: History, folder: str, card: str = "card.qcow2") -> None:
        self.emulator = Emulator(loop, folder, self._hear, card)
        self._loop, self._history = loop, history
        self._numbers = itertools.count(time.time_ns())  # new to an agent of a snapshot too
        self._answer: tuple[Any, ...] = ()
        self._hearers: dict[int, tuple[Heard, str, tuple[Any, ...]]] = {}
        self._boots = 0

    def __getattr__(self, method: str) -> Callable[..., Any]:
        return partial(self._call, method)

    def follow(self, path: str, heard: Heard) -> None:
        """As Machine does. After a new boot, what the file holds more than before."""
        known, boots = b"", 0

        def take(content: bytes) -> None:
            nonlocal known, boots
            if boots != self._boots:  # all of the file; a power cut may have taken its last lines
                same = len(os.path.commonprefix([known, content]))
                known = known[: known.rfind(b"\n", 0, same) + 1]
                content, boots = content[len(known) :], self._boots
            known += content
            if content:
                heard(content)

        self._call("follow", path, take)

    def resume(self) -> None:
        """After a new boot: waits for the agent and has it follow the same as before."""
        self._boots += 1
        for number, (_, method, arguments) in self._hearers.items():
            self._ask(number, method, arguments)

    def _call(self, method: str, *arguments: Any) -> Any:
        number = next(self._numbers)
        if arguments and callable(arguments[-1]):
            *others, heard = arguments
            arguments = tuple(others)
            self._hearers[number] = (heard, method, arguments)
        return self._ask(number, method, arguments)

    def _ask(self, number: int, method: str, arguments: tuple[Any, ...]) -> Any:
        def has_come() -> bool:
            return self._answer[1:2] == (number,)

        end = self.emulator.seconds + PATIENCE
        while not has_come():
            if not self.emulator.running:
                raise Failure("the board has no power")
            if self.emulator.seconds > end:
                raise Failure(f"the board does not answer: {method} {arguments}")
            self.emulator.say(encode("ask", number, method, arguments))
            self._loop.until(has_come, RETRY_INTERVAL, lambda: not self.emulator.running)
        word, _, value = self._answer
        if word == "failed":
            raise Failure(value)
        return value

    def _hear(self, line: bytes) -> None:
        message = decode(line)
        if message[0] in ("done", "failed"):
            self._answer = message
        elif message[0] == "heard":
            self._hearers[message[1]][0](message[2])
        elif message[0] == "" and line.strip() and MARK not in line:
            self._history.note("bench", "console: " + to_text(line).strip() + "\n")
