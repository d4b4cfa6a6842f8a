# SPDX-License-Identifier: LicenseRef-KT6120
"""`expect`: waits until something has happened or stands as told, and explains itself when it does not."""

from collections.abc import Callable, Iterator

from bench import Expect, Failure, State, Verb, number, to_bytes
from bench.watch.history import KINDS, History
from bench.world.clock import Clock

from .words import printable

USUAL_BOUND = 60.0  # s, for a busy desk
LINES_SHOWN = 10
TEXT_SHOWN = 2000  # bytes

HEAD = """expect [none|count N] WHAT [within SECONDS] [for SECONDS]

What has happened since the last "mark" or the start. Texts of one kind are met in order:
each is searched from where the one before it was found."""
FOOT = """
Without more, waits up to a minute for it. "none": it is not so for the whole time of "for",
1 s by default, and has not been since the mark. "count N": exactly N times since the last
"mark" or the start; does not move on."""


class Expectations:
    def __init__(self, clock: Clock, history: History, lost: Callable[[], bool]) -> None:
        """`lost` tells that there is no use in waiting longer."""
        self._clock = clock
        self._history = history
        self._lost = lost
        self.expects: list[Expect] = []
        what = "waits for it, and says what was seen instead: help expect"
        self.verbs = [Verb("expect", "WHAT...", what, self.expect, 2)]

    def help(self) -> str:
        rows = [(f"{kind} TEXT", told) for kind, told in KINDS.items()]
        rows.append(("call NAME [ARGUMENT...]", "the same in any order; each is met once"))
        states = [(f"{row.name} {row.arguments}", row.help) for row in self.expects]
        lines = [f"  {name:<25} {told}" for name, told in rows]
        lines += ["What is the case:"] + [f"  {name:<25} {told}" for name, told in states]
        return "\n".join([HEAD, *lines, FOOT])

    def expect(self, given: list[str]) -> None:
        words = list(given)
        none = words[0] == "none"
        count = int(number(words[1])) if words[0] == "count" else None
        del words[: 1 if none else 2 if count is not None else 0]
        bound = self._take(words, "within", USUAL_BOUND)
        quiet = self._take(words, "for", 1)
        if len(words) < 2:
            raise Failure("expect what?")
        met, seen = self._look(words[0], words[1:], none, count)

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

    def _take(self, words: list[str], name: str, otherwise: float) -> float:
        if len(words) < 3 or words[-2] != name:
            return otherwise
        seconds = number(words[-1])
        del words[-2:]
        return seconds

    def _look(self, kind: str, words: list[str], none: bool, count: int | None) -> State:
        pattern = to_bytes(" ".join(words))
        if kind in KINDS:
            return State(self._text(kind, pattern, none, count), lambda: self._last_lines(kind))
        if kind == "call":
            return State(self._call(pattern, none, count), lambda: self._last_lines("calls"))
        for row in self.expects:
            if row.name == kind:
                if len(words) < sum(not word.startswith("[") for word in row.arguments.split()):
                    raise Failure(f"expect {kind} {row.arguments}")
                return row.look(words)
        raise Failure(f'there is nothing to expect of "{kind}"')

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
            at = next((at for at in found() if at not in self._history.met_calls), None)
            if at is not None and not none:
                self._history.met_calls.add(at)
            return at is not None

        return met

    def _last_lines(self, kind: str) -> str:
        stream = self._history.of(kind)
        since = stream.content[stream.found :]
        lines = (since or stream.content)[-TEXT_SHOWN:].split(b"\n")[-LINES_SHOWN:]
        head = "seen instead:" if since else "nothing since the last one found; before it:"
        return "\n".join([head] + [f"    {printable(line)}" for line in lines])
