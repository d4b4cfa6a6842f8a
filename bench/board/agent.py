# SPDX-License-Identifier: LicenseRef-KT6120
"""The agent: runs on the board and does there what the bench asks for over the console.

    python3 -m bench.board.agent CONSOLE

A message is a line: a mark and a Python tuple. The bench sends ("ask", N, METHOD, ARGUMENTS), a method of
Unit, and repeats it until it gets ("done", N, VALUE) or ("failed", N, TEXT), because a board that boots
loses lines. The agent carries out each number once. Methods of HEARING send ("heard", N, CONTENT) too.
"""

import ast
import os
import sys
import tty
from collections.abc import Callable
from functools import cached_property
from typing import Any

from bench.machine import Machine
from bench.video import PORTS, Tap, listen
from bench.world import Clock, Heard, Loop

MARK = b"@bench "
HEARING = ("follow", "spawn", "watch")  # their last argument is a function


def encode(*message: object) -> bytes:
    """On a new line, whatever the console has printed before."""
    return b"\n" + MARK + ascii(message).encode() + b"\n"


def decode(line: bytes) -> tuple[Any, ...]:
    """("",) for a line that is no message, or not all of one."""
    try:
        message = ast.literal_eval(line.partition(MARK)[2].decode())
    except (ValueError, SyntaxError):
        return ("",)
    return message if isinstance(message, tuple) else ("",)


def by_line(take: Callable[[bytes], object]) -> Heard:
    rest = b""

    def hear(content: bytes) -> None:
        nonlocal rest
        *lines, rest = (rest + content).split(b"\n")
        for line in lines:
            take(line)

    return hear


class Unit(Machine):
    """The unit's computer and the PAL picture that passes on it."""

    @cached_property
    def _tap(self) -> Tap:
        return listen(self._loop, PORTS["pal"])

    def rate(self) -> float:
        return self._tap.rate()

    def write_picture(self, file: str) -> None:
        self._tap.write_picture(Clock(self._loop), file)


class Agent:
    def __init__(self, loop: Loop, console: str) -> None:
        self._unit, self._console = Unit(loop), os.open(console, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(self._console)
        hear = by_line(self._take)
        loop.reads(self._console, lambda: hear(os.read(self._console, 65536)))
        self._last, self._answer = 0, b""

    def _take(self, line: bytes) -> None:
        word, *question = decode(line)
        if word != "ask":
            return
        number, method, arguments = question
        if number != self._last:
            self._last = number
            if method in HEARING:
                arguments += (lambda content: self._say(encode("heard", number, content)),)
            try:
                self._answer = encode("done", number, getattr(self._unit, method)(*arguments))
            except Exception as error:  # of any kind: the bench reports it
                self._answer = encode("failed", number, str(error))
        self._say(self._answer)

    def _say(self, line: bytes) -> None:
        while line:
            line = line[os.write(self._console, line) :]


if __name__ == "__main__":
    main_loop = Loop()
    Agent(main_loop, sys.argv[1])
    main_loop.rest()
