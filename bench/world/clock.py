# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's time: the wall clock's, and what the program has skipped of it while it rested."""

import mmap
import os
from collections.abc import Callable
from time import monotonic

from bench import Verb, number

from .loop import Loop, Timer

# The words of the page that fasttime.c shares, and the nanoseconds it counts in.
SPEED, STRIDE, SKIPPED = range(3)
SECOND = 1_000_000_000
PAGE = f"/run/bench/pace.{os.getpid()}"


class Clock:
    def __init__(self, loop: Loop) -> None:
        self._loop = loop
        with open(PAGE, "w+b") as page:
            page.truncate(3 * 8)
            self._pace = memoryview(mmap.mmap(page.fileno(), 3 * 8)).cast("q")
        self._periods: list[tuple[Timer, float]] = []
        self._start = monotonic()
        self.speed = 1
        self.set_pace(1)
        self.verbs = [
            Verb(
                "speed",
                "N [STRIDE]",
                "the program's timers run N times as fast; those shorter than STRIDE s come once in it",
                lambda words: self.set_pace(*map(number, words[:2])),
            )
        ]

    def set_pace(self, speed: float, stride: float = 0) -> None:
        """So many times as fast as the wall clock while the program rests, at least `stride` s a rest.

        A program that was started at speed 1 stays there.
        """
        self.speed = max(1, int(speed))
        self._pace[STRIDE] = int(stride * SECOND)
        self._pace[SPEED] = self.speed
        for timer, period in self._periods:
            timer.every(max(period / self.speed, 0.001))

    def environment(self, library: str) -> dict[str, str]:
        """What makes a program run at this pace."""
        return {"LD_PRELOAD": library, "BENCH_PACE": PAGE} if self.speed > 1 else {}

    def seconds(self) -> float:
        """Of the unit's time since the start of the bench."""
        return monotonic() - self._start + self._pace[SKIPPED] / SECOND

    def every(self, seconds: float, act: Callable[[], object]) -> None:
        """A simulator's period, which the speed makes shorter."""
        timer = self._loop.timer(act)
        self._periods.append((timer, seconds))
        timer.every(seconds / self.speed)

    def until(self, condition: Callable[[], bool], seconds: float) -> bool:
        """As Loop.until. Of a desk these are wall seconds, of a board its own."""
        return self._loop.until(condition, seconds)
