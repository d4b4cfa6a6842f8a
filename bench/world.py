# SPDX-License-Identifier: LicenseRef-KT6120
"""The event loop, the unit's time, and programs that run beside the bench."""

import heapq
import itertools
import math
import mmap
import os
import selectors
import subprocess
from collections.abc import Callable, Sequence
from functools import partial
from time import monotonic
from typing import TypeVar

from bench import Failure, number, table, to_text

T = TypeVar("T")
Act = Callable[[], object]
Heard = Callable[[bytes], object]

CHECK_INTERVAL = 0.02  # s, for conditions that nothing announces
PATIENCE = 120  # s, for a slow machine
SPEED, STRIDE, SKIPPED = range(3)  # words of the page that fasttime.c shares
SECOND = 1_000_000_000  # ns, in which it counts


class Timer:
    def __init__(self, due: list[tuple[float, int, "Timer"]], act: Act) -> None:
        self._due, self._act, self._period, self._entry = due, act, 0.0, -1

    def start(self, seconds: float, period: float = 0) -> None:
        """Takes the place of what was due."""
        self._period, self._entry = period, next(Loop.entries)
        heapq.heappush(self._due, (monotonic() + seconds, self._entry, self))

    def every(self, seconds: float) -> None:
        self.start(seconds, seconds)

    def stop(self) -> None:
        self._entry = -1

    def fire(self, entry: int) -> None:
        if entry == self._entry:  # neither stopped nor started anew since
            self._entry = -1
            if self._period:
                self.every(self._period)
            self._act()


class Loop:
    """Files that have something to read, times that come, and waits meanwhile."""

    entries = itertools.count()

    def __init__(self) -> None:
        self._selector = selectors.DefaultSelector()
        self._due: list[tuple[float, int, Timer]] = []

    def timer(self, act: Act) -> Timer:
        return Timer(self._due, act)

    def reads(self, file: int, act: Act) -> None:
        """Calls `act` whenever the file has something to read, until forget()."""
        self._selector.register(file, selectors.EVENT_READ, act)

    def forget(self, file: int) -> None:
        if file in self._selector.get_map():
            self._selector.unregister(file)

    def until(self, condition: Callable[[], bool], seconds: float = math.inf) -> bool:
        """Lets everything go on until the condition holds; False when the time was over first."""
        end = monotonic() + seconds
        while not condition():
            left = end - monotonic()
            if left <= 0:
                return False
            self._turn(min(left, CHECK_INTERVAL))
        return True

    def apart(self, work: Callable[[], T]) -> T:
        """The result of work that blocks: in a thread of its own, while everything else goes on."""
        from concurrent.futures import ThreadPoolExecutor  # takes its time to load

        with ThreadPoolExecutor(1) as thread:
            future = thread.submit(work)
            self.until(future.done)
            return future.result()

    def _turn(self, most: float) -> None:
        if self._due:
            most = min(most, self._due[0][0] - monotonic())
        for key, _ in self._selector.select(max(0, most)):
            # One before it may have taken it away, or its number may be another file's by now.
            if self._selector.get_map().get(key.fd) is key:
                key.data()
        now = monotonic()
        while self._due and self._due[0][0] <= now:
            _, entry, timer = heapq.heappop(self._due)
            timer.fire(entry)


class Clock:
    """The unit's time: the wall clock's, and what the program has skipped of it while it rested."""

    def __init__(self, loop: Loop) -> None:
        self._loop, self._start, self.speed = loop, monotonic(), 1
        self._periods: list[tuple[Timer, float]] = []
        page = os.memfd_create("pace")
        self._page = f"/proc/{os.getpid()}/fd/{page}"
        os.truncate(page, 3 * 8)
        self._pace = memoryview(mmap.mmap(page, 3 * 8)).cast("q")
        self.set_pace(1)
        self.verbs = table(
            "speed N [STRIDE]  its timers run N times as fast; each rest lasts STRIDE seconds at least",
            speed=lambda words: self.set_pace(*map(number, words[:2])),
        )

    def set_pace(self, speed: float, stride: float = 0) -> None:
        """While the program rests. One that was started at speed 1 stays there."""
        self.speed = max(1, int(speed))
        self._pace[STRIDE], self._pace[SPEED] = int(stride * SECOND), self.speed
        for timer, period in self._periods:
            timer.every(max(period / self.speed, 0.001))

    def environment(self, library: str) -> dict[str, str]:
        """What makes a program run at this pace."""
        return {"LD_PRELOAD": library, "BENCH_PACE": self._page} if self.speed > 1 else {}

    def seconds(self) -> float:
        return monotonic() - self._start + self._pace[SKIPPED] / SECOND

    def every(self, seconds: float, act: Act) -> None:
        """A simulator's period, which the speed makes shorter."""
        timer = self._loop.timer(act)
        self._periods.append((timer, seconds))
        timer.every(seconds / self.speed)

    def until(self, condition: Callable[[], bool], seconds: float) -> bool:
        """As Loop.until. Of a desk these are wall seconds, of a board its own."""
        return self._loop.until(condition, seconds)


def run(*command: str) -> str:
    """Runs it to its end; what it said. Raises Failure with that where it is no success."""
    pipe, merged = subprocess.PIPE, subprocess.STDOUT
    done = subprocess.run(command, stdout=pipe, stderr=merged, timeout=PATIENCE)
    said = to_text(done.stdout).strip()
    if done.returncode != 0:
        raise Failure(f"{' '.join(command)}: {said}")
    return said


class Process:
    """A program that runs beside the bench, heard by functions that take its bytes."""

    def __init__(
        self,
        loop: Loop,
        command: Sequence[str],
        stdout: Heard | None = None,
        stderr: Heard | None = None,
        ended: Callable[[int], object] = lambda status: None,  # its exit status, or minus a signal
        **options: object,  # of Popen
    ) -> None:
        heard = {name: act for name, act in (("stdout", stdout), ("stderr", stderr)) if act}
        pipes = dict.fromkeys(heard, subprocess.PIPE)
        options = {"stdin": subprocess.DEVNULL, **options, **pipes}
        try:
            self.child = subprocess.Popen(command, **options)  # type: ignore[call-overload]
        except OSError as error:
            raise Failure(f"cannot start {command[0]}: {error.strerror}") from None
        self.id: int = self.child.pid
        self._loop, self._ended = loop, ended
        self._reads: dict[int, Callable[[], bool]] = {}
        for name, act in heard.items():
            pipe = getattr(self.child, name).fileno()
            os.set_blocking(pipe, False)
            self._reads[pipe] = partial(self._read, pipe, act)
            loop.reads(pipe, self._reads[pipe])
        self._end = os.pidfd_open(self.id)
        loop.reads(self._end, self._finish)

    @property
    def running(self) -> bool:
        return self.id > 0

    def stop(self) -> None:
        """Ends it, and waits for that."""
        if self.running:
            self.child.kill()
            self._finish()

    def _read(self, pipe: int, heard: Heard) -> bool:
        try:
            said = os.read(pipe, 65536)
        except BlockingIOError:
            return False
        if said:
            heard(said)
        else:
            self._loop.forget(pipe)
        return bool(said)

    def _finish(self) -> None:
        status, self.id = self.child.wait(), 0
        self._loop.forget(self._end)
        os.close(self._end)
        for pipe, read in self._reads.items():
            while read():
                pass
            self._loop.forget(pipe)
        self._ended(status)
