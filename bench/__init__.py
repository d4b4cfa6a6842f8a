# SPDX-License-Identifier: LicenseRef-KT6120
"""The virtual unit: the world around the real program, and the language that steers it.

One thread runs one event loop (world.py). While a verb waits in `clock.until(condition, seconds)`,
simulators and observers go on; blocking library calls go through `loop.apart(work)`.

Rooms: world (event loop, the unit's time, child processes), machine (the unit's files and processes,
here or, through an agent, on a board), unit (the program, what it calls, what its hardware reads), mcu,
phone and page (the far ends), watch and video (what happened), language (words, verbs, scenarios), places
(the unit's paths), desk and board (all of it around a unit here and on the emulated board), measure, soak.
A part takes what it uses in its constructor. Its methods `do_NAME` are verbs, which raise Failure; its
methods `expect_NAME` return what is to be waited for. Their docstrings are the help: a line of
"ARGUMENTS - help" for each form, or the help alone.

desk.py and board/ put the parts together; a program that steers a bench imports them:

    with Desk(build) as desk:
        desk.run("unit start")
        desk.run('expect log "Starting  KT6120"')
"""

from collections.abc import Callable
from typing import Any, NamedTuple


class Failure(Exception):
    """A verb cannot be carried out, or an expectation was not met."""


class State(NamedTuple):
    """An expected state: `look` returns the present one, `fits` whether it is the expected one."""

    look: Callable[[], Any]
    fits: Callable[[Any], object]


class Row(NamedTuple):
    """A form of a verb or of an expect."""

    name: str
    arguments: str
    help: str
    act: Callable[..., Any]


def rows(part: object, prefix: str) -> list[Row]:
    """The rows of the part's methods whose names begin with the prefix."""
    found = []
    for name in dir(part):
        if name.startswith(prefix):
            act = getattr(part, name)
            forms = (line.strip().rpartition(" - ") for line in act.__doc__.splitlines())
            found += [Row(name.removeprefix(prefix), form[0], form[2], act) for form in forms]
    return found


def number(word: str) -> float:
    try:
        return float(word)
    except ValueError:
        raise Failure(f'"{word}" is not a number') from None


def span(word: str) -> tuple[float, float]:
    """Both limits of A..B; a single number is both."""
    least, _, most = word.partition("..")
    return number(least), number(most or least)


def to_bytes(word: str) -> bytes:
    """A word of the language may stand for any bytes, also for invalid UTF-8."""
    return word.encode("utf-8", "surrogateescape")


def to_text(content: bytes) -> str:
    return content.decode("utf-8", "surrogateescape")
