# SPDX-License-Identifier: LicenseRef-KT6120
"""The virtual unit: the world around the real program, and the language that steers it.

One thread runs one event loop (world/loop.py). A verb is an ordinary function; where it waits, it
calls `loop.until(condition, seconds)`, in which simulators and observers go on. Work of a library that
blocks goes through `loop.apart(work)`. What a verb cannot do it tells by raising `Failure`.

Rooms: world (loop, the unit's time, programs, network), unit (its files and processes, the program,
recorded programs, hardware), mcu and phone (simulators), watch (the history of what happened, and what
can be expected of it), language (words, verbs, scenarios, prompt, view), board (the emulated board),
measure. A part takes what it uses in its constructor, and offers:

  verbs    a list of Verb: name, arguments, help, act(words), least number of words. A row without
           `act` describes a further form of the row before it.
  expects  a list of Expect: name, arguments, help, look(words) -> State(met, seen). `met()` is asked
           again and again and does not block; `seen()` tells what was the case instead. The words are
           at least as many as the arguments outside [].

Who wants to hear what happens appends a function to `History.listeners`; who makes it happen calls
`History.note(kind, bytes)`. All that is done to the unit's own files and processes goes through
unit/system.py, which has the same methods here and, over an agent, on a board.

desk.py and board/ put the parts together; a program that steers a bench imports them:

    with Desk(build) as desk:
        desk.run("unit start")
        desk.run('expect log "Starting  KT6120"')
"""

from collections.abc import Callable
from typing import NamedTuple


class Failure(Exception):
    """What was asked cannot be done, or did not come true."""


class Verb(NamedTuple):
    name: str
    arguments: str
    help: str
    act: Callable[[list[str]], object] | None = None
    least: int = 1


class State(NamedTuple):
    met: Callable[[], bool]
    seen: Callable[[], str]


class Expect(NamedTuple):
    name: str
    arguments: str
    help: str
    look: Callable[[list[str]], State]


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
