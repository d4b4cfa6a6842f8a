# SPDX-License-Identifier: LicenseRef-KT6120
"""The virtual unit: the world around the real program, and the language that steers it.

One thread runs one event loop (world.py). A verb is an ordinary function; where it waits it calls
`clock.until(condition, seconds)`, in which simulators and observers go on; work of a library that blocks
goes through `loop.apart(work)`. What a verb cannot do it tells by raising `Failure`.

Rooms: world (loop, the unit's time, programs), machine (the unit's files and processes, here or, over
an agent, on a board), unit (the program, what it calls, what its hardware reads), mcu, phone and page
(what is at its far ends), watch and video (what happened, and what can be expected of it), language
(words, verbs, scenarios), board (the emulated board), measure, soak. A part takes what it uses in its
constructor and offers two tables: `verbs`, what is carried out, and `expects`, what is waited for.

desk.py and board/ put the parts together; a program that steers a bench imports them:

    with Desk(build) as desk:
        desk.run("unit start")
        desk.run('expect log "Starting  KT6120"')
"""

import re
from collections.abc import Callable
from typing import Any, NamedTuple


class Failure(Exception):
    """What was asked cannot be done, or did not come true."""


class Row(NamedTuple):
    """Of a table of verbs or expects. A row without `act` is a further form of the row before it."""

    name: str
    arguments: str
    help: str
    act: Callable[[list[str]], Any] | None
    least: int  # words after the name: those outside [] in the shortest form


class State(NamedTuple):
    """What an expect's `act` returns: `met` is asked again and again, `seen` tells what was instead."""

    met: Callable[[], bool]
    seen: Callable[[], str]


def table(text: str, **acts: Callable[[list[str]], Any]) -> list[Row]:
    """Rows of "NAME ARGUMENTS", two blanks or more, help."""
    forms = re.findall(r"^ *(\w+) ?(.*?)  +(.*)$", text, re.MULTILINE)
    least: dict[str, int] = {}
    for name, arguments, _ in forms:
        needed = len(re.sub(r" ?\[[^]]*\]+", "", arguments).split())
        least[name] = min(needed, least.get(name, needed))
    return [
        Row(name, arguments, told, acts.pop(name, None), least[name])
        for name, arguments, told in forms
    ]


def number(word: str) -> float:
    try:
        return float(word)
    except ValueError:
        raise Failure(f'"{word}" is not a number') from None


def to_bytes(word: str) -> bytes:
    """The bytes that a word stands for: any, also such that are no text."""
    return word.encode("utf-8", "surrogateescape")


def to_text(content: bytes) -> str:
    return content.decode("utf-8", "surrogateescape")
