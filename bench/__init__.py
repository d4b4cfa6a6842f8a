# SPDX-License-Identifier: LicenseRef-KT6120
"""The virtual unit: the world around the real program, and the language that steers it.

One thread runs one event loop (world.py). A verb is an ordinary function; where it waits it calls
`clock.until(condition, seconds)`, and simulators and observers go on meanwhile; blocking library calls
go through `loop.apart(work)`. A verb that fails raises `Failure`.

Rooms: world (event loop, the unit's time, child processes), machine (the unit's files and processes,
here or, through an agent, on a board), unit (the program, what it calls, what its hardware reads), mcu,
phone and page (the far ends), watch and video (what happened), language (words, verbs, scenarios), board
(the emulated board), measure, soak. A part takes what it uses in its constructor and offers two tables:
`verbs` are carried out, `expects` are waited for.

desk.py and board/ put the parts together; a program that steers a bench imports them:

    with Desk(build) as desk:
        desk.run("unit start")
        desk.run('expect log "Starting  KT6120"')
"""

import re
from collections.abc import Callable
from typing import Any, NamedTuple


class Failure(Exception):
    """A verb cannot be carried out, or an expectation was not met."""


class Row(NamedTuple):
    """A form of a verb or of an expect."""

    name: str
    arguments: str
    help: str
    act: Callable[[list[str]], Any]

    @property
    def least(self) -> int:
        """How many words must follow the name: those outside []."""
        return len(re.sub(r" ?\[[^]]*\]+", "", self.arguments).split())


class State(NamedTuple):
    """The result of an expect's `act`: `met` is polled, `seen` says what was there instead."""

    met: Callable[[], bool]
    seen: Callable[[], str]


def table(text: str, **acts: Callable[[list[str]], Any]) -> list[Row]:
    """Rows of "NAME ARGUMENTS", two blanks or more, help."""
    rows = re.findall(r"^ *(\w+) ?(.*?)  +(.*)$", text, re.MULTILINE)
    return [Row(name, arguments, what, acts[name]) for name, arguments, what in rows]


def number(word: str) -> float:
    try:
        return float(word)
    except ValueError:
        raise Failure(f'"{word}" is not a number') from None


def to_bytes(word: str) -> bytes:
    """A word of the language may stand for any bytes, also for invalid UTF-8."""
    return word.encode("utf-8", "surrogateescape")


def to_text(content: bytes) -> str:
    return content.decode("utf-8", "surrogateescape")
