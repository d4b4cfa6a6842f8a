#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's side of the bench, on a board: does there what the desk asks for over the console.

    python3 -m bench.board.agent CONSOLE

Each message is a line: a mark, and a Python tuple. The desk says ("ask", N, METHOD, ARGUMENTS, F), of the
methods of Unit, and says so again until it has heard the answer of that number, ("done", N, VALUE) or
("failed", N, TEXT): a line of a board that is booting is lost now and then, and the console's echo of a
question is no answer. What has been done is not done twice. Where F is no 0, it stands for a function,
the last argument, whose calls are told: ("call", F, ARGUMENTS). "ready" comes once, at the start.
"""

import ast
import os
import sys
import tty
from typing import Any

from bench.machine import Machine
from bench.video import Video
from bench.watch import History
from bench.world import Clock, Loop

MARK = b"@bench "


def encode(*message: object) -> bytes:
    """A line of its own, whatever the console has said before."""
    return b"\n" + MARK + ascii(message).encode() + b"\n"


def decode(line: bytes) -> tuple[Any, ...]:
    """Of a line that is no message, or not all of one, ("",)."""
    _, _, content = line.partition(MARK)
    try:
        message = ast.literal_eval(content.decode())
    except (ValueError, SyntaxError):
        return ("",)
    return message if isinstance(message, tuple) else ("",)


class Unit(Machine):
    """The unit's computer, and what is seen of its picture there."""

    def __init__(self, loop: Loop) -> None:
        super().__init__(loop)
        self._video = Video(loop, Clock(loop), History(), None)

    def rate(self, port: int) -> float:
        return self._video.tap(port).rate()

    def snapshot(self, name: str, file: str) -> None:
        self._video.snapshot([name, file])


class Agent:
    def __init__(self, loop: Loop, console: str, machine: object) -> None:
        self._machine, self._console = machine, os.open(console, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(self._console)
        loop.reads(self._console, self._hear)
        self._rest, self._answer = b"", b""
        self._last = 0  # the question that was taken last
        self._say(encode("ready"))

    def _hear(self) -> None:
        *lines, self._rest = (self._rest + os.read(self._console, 65536)).split(b"\n")
        for line in lines:
            word, *rest = decode(line)
            if word == "ask":
                self._take(*rest)

    def _take(self, number: int, method: str, arguments: tuple[Any, ...], function: int) -> None:
        if number != self._last:
            self._last, self._answer = number, b""
            if function:
                arguments += (lambda *told: self._say(encode("call", function, told)),)
            try:
                self._answer = encode("done", number, getattr(self._machine, method)(*arguments))
            except Exception as error:  # whatever it is, the desk hears of it
                self._answer = encode("failed", number, str(error))
        self._say(self._answer)

    def _say(self, line: bytes) -> None:
        while line:
            line = line[os.write(self._console, line) :]


if __name__ == "__main__":
    main_loop = Loop()
    Agent(main_loop, sys.argv[1], Unit(main_loop))
    main_loop.until(lambda: False)
