# SPDX-License-Identifier: LicenseRef-KT6120
"""The event loop: files that have something to read, times that come, and waits meanwhile."""

import heapq
import itertools
import math
import selectors
from collections.abc import Callable
from time import monotonic
from typing import TypeVar

T = TypeVar("T")

CHECK_INTERVAL = 0.02  # s, for conditions that nothing announces


class Timer:
    def __init__(self, loop: "Loop", act: Callable[[], object]) -> None:
        self._loop = loop
        self._act = act
        self._period: float | None = None
        self._entry = -1

    def start(self, seconds: float) -> None:
        """Once, so many seconds from now; takes the place of what was due."""
        self._period = None
        self._entry = self._loop.enter(monotonic() + seconds, self)

    def every(self, seconds: float) -> None:
        self.start(seconds)
        self._period = seconds

    def stop(self) -> None:
        self._entry = -1

    def fire(self, entry: int) -> None:
        if entry != self._entry:
            return  # stopped or started anew since
        self._entry = -1
        if self._period is not None:
            self.every(self._period)
        self._act()


class Loop:
    def __init__(self) -> None:
        self._selector = selectors.DefaultSelector()
        self._due: list[tuple[float, int, Timer]] = []
        self._entries = itertools.count()

    def enter(self, due: float, timer: Timer) -> int:
        entry = next(self._entries)
        heapq.heappush(self._due, (due, entry, timer))
        return entry

    def timer(self, act: Callable[[], object]) -> Timer:
        return Timer(self, act)

    def reads(self, file: int, act: Callable[[], object]) -> None:
        """Calls `act` whenever the file has something to read, until forget()."""
        self._selector.register(file, selectors.EVENT_READ, act)

    def forget(self, file: int) -> None:
        if file in self._selector.get_map():
            self._selector.unregister(file)

    def turn(self, most: float) -> None:
        """What is due by now; waits so many seconds at most where nothing is."""
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

    def until(self, condition: Callable[[], bool], seconds: float) -> bool:
        """Lets everything go on until the condition holds; False when the time was over first."""
        end = monotonic() + seconds
        while not condition():
            left = end - monotonic()
            if left <= 0:
                return False
            self.turn(min(left, CHECK_INTERVAL))
        return True

    def apart(self, work: Callable[[], T]) -> T:
        """The result of work that blocks: in a thread of its own, while everything else goes on."""
        from concurrent.futures import ThreadPoolExecutor  # takes its time to load

        with ThreadPoolExecutor(1) as thread:
            future = thread.submit(work)
            self.until(future.done, math.inf)
            return future.result()
