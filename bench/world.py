# SPDX-License-Identifier: LicenseRef-KT6120
"""The event loop, the unit's time, and programs that run beside the bench."""

import math
import mmap
import os
import selectors
import subprocess
from collections.abc import Callable, Sequence
from time import monotonic
from typing import IO, Any

from bench import Failure, number, to_text

Act = Callable[[], object]
Heard = Callable[[bytes], object]
Condition = Callable[[], bool]

CHECK_INTERVAL = 0.02  # s, for conditions that nothing announces
PATIENCE = 120  # s, for a slow machine
SPEED, STRIDE, SKIPPED = range(3)  # words of the page that fasttime.c shares
SECOND = 1_000_000_000  # ns, in which it counts


class Timer:
    """Calls `act` when it is due."""

    def __init__(self, act: Act) -> None:
        self._act, self.due, self._period = act, math.inf, math.inf

    def start(self, seconds: float, period: float = math.inf) -> None:
        """Replaces what was due."""
        self.due, self._period = monotonic() + seconds, period

    def stop(self) -> None:
        self.due = math.inf

    def fire(self) -> None:
        self.due = monotonic() + self._period
        self._act()


class Loop:
    """Files that become readable, timers, and waits meanwhile."""

    def __init__(self) -> None:
        self._selector = selectors.DefaultSelector()
        self._timers: list[Timer] = []

    def timer(self, act: Act) -> Timer:
        self._timers.append(Timer(act))
        return self._timers[-1]

    def reads(self, file: int, act: Act) -> None:
        """Calls `act` whenever the file has something to read, until forget()."""
        self._selector.register(file, selectors.EVENT_READ, act)

    def hears(self, file: int, heard: Heard, closed: Act = lambda: None) -> None:
        """Calls `heard` with what arrives, `closed` at the end."""

        def read() -> None:
            try:
                content = os.read(file, 65536)
            except BlockingIOError:
                return
            except OSError:
                content = b""
            if content:
                heard(content)
            else:
                self.forget(file)
                closed()

        os.set_blocking(file, False)
        self.reads(file, read)

    def forget(self, file: int) -> None:
        if file in self._selector.get_map():
            self._selector.unregister(file)

    def until(
        self, condition: Condition, seconds: float = math.inf, lost: Condition = lambda: False
    ) -> bool:
        """Runs the loop until the condition holds; False when the time was over or all lost first."""
        end = monotonic() + seconds
        while not condition():
            left = end - monotonic()
            if left <= 0 or lost():
                return False
            self._turn(min(left, CHECK_INTERVAL))
        return True

    def rest(self, seconds: float = math.inf) -> None:
        self.until(lambda: False, seconds)

    def apart(self, work: Callable[[], Any]) -> Any:
        """The result of blocking work, which a thread does while the loop runs."""
        from concurrent.futures import ThreadPoolExecutor  # takes its time to load

        with ThreadPoolExecutor(1) as thread:
            future = thread.submit(work)
            self.until(future.done)
            return future.result()

    def _turn(self, most: float) -> None:
        due = min((timer.due for timer in self._timers), default=math.inf)
        for key, _ in self._selector.select(max(0, min(most, due - monotonic()))):
            # One before it may have taken it away, or its number may be another file's by now.
            if self._selector.get_map().get(key.fd) is key:
                key.data()
        for timer in self._timers:
            if timer.due <= monotonic():
                timer.fire()


class Clock:
    """The unit's time: the wall clock's, plus the time that the program has skipped while idle."""

    def __init__(self, loop: Loop) -> None:
        self.loop, self._start, self.speed = loop, monotonic(), 1
        page = os.memfd_create("pace")
        self._page = f"/proc/{os.getpid()}/fd/{page}"
        os.truncate(page, 3 * 8)
        self._pace = memoryview(mmap.mmap(page, 3 * 8)).cast("q")
        self.set_pace(1)

    def do_speed(self, speed: str, stride: str = "0") -> None:
        """N [STRIDE] - the unit's timers run N times as fast; each idle period lasts STRIDE seconds or more"""
        self.set_pace(number(speed), number(stride))

    def set_pace(self, speed: float, stride: float = 0) -> None:
        """The program is faster only while it is idle. One that was started at speed 1 stays there."""
        self.speed = max(1, int(speed))
        self._pace[STRIDE], self._pace[SPEED] = int(stride * SECOND), self.speed

    def environment(self, library: str) -> dict[str, str]:
        """For a program that shall run at this pace."""
        return {"LD_PRELOAD": library, "BENCH_PACE": self._page} if self.speed > 1 else {}

    def seconds(self) -> float:
        return monotonic() - self._start + self._pace[SKIPPED] / SECOND

    def until(self, condition: Condition, seconds: float, lost: Condition = lambda: False) -> bool:
        """As Loop.until. On a desk in wall seconds, on a board in its own."""
        return self.loop.until(condition, seconds, lost)


def run(*command: str, stdin: bytes = b"") -> str:
    """What a command has printed. Raises Failure with that when it fails."""
    done = subprocess.run(
        command, input=stdin, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=PATIENCE
    )
    said = to_text(done.stdout).strip()
    if done.returncode != 0:
        raise Failure(f"{' '.join(command)}: {said}")
    return said


class Process:
    """A child process beside the bench; functions or a file take what it prints."""

    def __init__(
        self,
        loop: Loop,
        command: Sequence[str],
        stdout: Heard | IO[bytes] | None = None,
        stderr: Heard | None = None,
        ended: Callable[[int], object] = lambda status: None,  # its exit status, or minus a signal
        **options: object,  # of Popen
    ) -> None:
        streams = {"stdin": subprocess.DEVNULL, "stdout": stdout, "stderr": stderr}
        heard = {name: act for name, act in streams.items() if callable(act)}
        options = {**streams, **options, **dict.fromkeys(heard, subprocess.PIPE)}
        self.child: Any = subprocess.Popen(command, bufsize=0, **options)  # type: ignore[call-overload]
        self.id: int = self.child.pid
        self._loop, self._ended = loop, ended
        self._pipes = [(getattr(self.child, name), act) for name, act in heard.items()]
        for pipe, act in self._pipes:
            loop.hears(pipe.fileno(), act)
        self._end = os.pidfd_open(self.id)
        loop.reads(self._end, self._finish)

    @property
    def running(self) -> bool:
        return self.id > 0

    def stop(self) -> None:
        """Kills it, and waits for its end."""
        if self.running:
            self.child.kill()
            self._finish()

    def _finish(self) -> None:
        status, self.id = self.child.wait(), 0
        self._loop.forget(self._end)
        os.close(self._end)
        for pipe, heard in self._pipes:
            self._loop.forget(pipe.fileno())
            if rest := pipe.read():
                heard(rest)
        self._ended(status)
