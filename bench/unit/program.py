# SPDX-License-Identifier: LicenseRef-KT6120
"""The unit's real program, unmodified."""

import os
from collections.abc import Callable
from time import monotonic

from bench import Expect, Failure, State, Verb, number
from bench.watch.history import History
from bench.world.clock import Clock
from bench.world.loop import Loop
from bench.world.programs import Process

from . import places
from .machine import Machine

LAST_WORDS = 0.5  # s, in which all has been heard that an ended program had to tell
MARK = "BENCH_UNIT"  # in the environment of the program and of all that it starts


class Unit:
    """The program as it is started, ended and asked about, wherever it runs."""

    def __init__(self, clock: Clock) -> None:
        self._clock = clock
        # How the last run ended: "3", "signal 9", "restarted" where something started it again; empty
        # while it runs or before the first start. `unasked`: by itself, and nobody has asked about it.
        self.ending = ""
        self.unasked = False
        self.when_ended: list[Callable[[], object]] = []
        self.verbs = [
            Verb(
                "unit",
                "start|stop|restart|check|signal N",
                "the program, which does not run before its start; check fails where it ended by itself",
                self._unit,
            ),
            Verb("wait", "SECONDS", "lets the unit's time pass", self._wait),
        ]
        self.expects = [
            Expect("exit", "STATUS", 'the program has ended: 3, or "signal 9"', self._exit)
        ]

    def start(self) -> None:
        raise NotImplementedError

    def stop(self) -> None:
        raise NotImplementedError

    def signal(self, number: int) -> None:
        raise NotImplementedError

    def id(self) -> int:
        """Of its process; 0 while none runs."""
        raise NotImplementedError

    def lost(self) -> bool:
        """Ended by itself, unasked, and so long ago that all it had to tell has been heard."""
        return False

    def has_ended(self, how: str) -> None:
        self.ending = how
        for act in self.when_ended:
            act()

    def _unit(self, words: list[str]) -> None:
        if words[0] in ("stop", "restart"):
            self.stop()
        if words[0] in ("start", "restart"):
            self.start()
        elif words[0] == "signal" and len(words) == 2:
            self.signal(int(number(words[1])))
        elif words[0] == "check":
            if self.unasked:
                raise Failure(f"the program ended by itself: exit {self.ending}")
        elif words[0] != "stop":
            raise Failure("unit start, stop, restart, check or signal N?")

    def _wait(self, words: list[str]) -> None:
        seconds = number(words[0])
        end = self._clock.seconds() + seconds
        # A program that does not run skips nothing.
        bound = seconds if self.id() else seconds / self._clock.speed
        self._clock.until(lambda: self._clock.seconds() >= end or self.lost(), bound)

    def _exit(self, words: list[str]) -> State:
        status = " ".join(words)

        def met() -> bool:
            self.unasked = self.unasked and self.ending != status
            return self.ending == status

        return State(met, lambda: f"it was {self.ending}" if self.ending else "the unit runs")


class Program(Unit):
    """As a child of the bench."""

    def __init__(
        self, loop: Loop, clock: Clock, history: History, machine: Machine, build: str
    ) -> None:
        super().__init__(clock)
        self._loop = loop
        self._history = history
        self._machine = machine
        self._build = build
        self._process: Process | None = None
        self._stopping = False
        self._ended_at = 0.0

    def start(self) -> None:
        if self.id():
            raise Failure("the unit is running")
        self._machine.end_all(MARK)
        self.ending = ""
        self.unasked = self._stopping = False
        self._process = Process(
            self._loop,
            [places.PROGRAM],
            stdout=lambda text: self._history.note("stdout", text),
            stderr=lambda text: self._history.note("stderr", text),
            ended=self._finished,
            env=self._environment(),
            cwd="/",
        )
        self._history.note("bench", "unit started\n")

    def stop(self) -> None:
        """Ends all that it has started too, as the service manager does with its control group."""
        self._stopping = True
        if self._process:
            self._process.stop()
        self._machine.end_all(MARK)

    def signal(self, number: int) -> None:
        if not self.id():
            raise Failure("the unit is not running")
        os.kill(self.id(), number)

    def id(self) -> int:
        return self._process.id if self._process else 0

    def lost(self) -> bool:
        return self.unasked and monotonic() - self._ended_at > LAST_WORDS

    def _environment(self) -> dict[str, str]:
        return {
            **os.environ,
            "PATH": f"{places.PROGRAMS}:/usr/sbin:/usr/bin:/sbin:/bin",
            "GST_PLUGIN_PATH": f"{self._build}/gstreamer-1.0:{self._build}/standins",
            "GST_REGISTRY": f"{self._build}/gstreamer-registry",
            # Its components live until the process ends, which is no leak; and the address sanitizer
            # otherwise insists on being preloaded first.
            "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "")
            + ":detect_leaks=0:fast_unwind_on_malloc=1:verify_asan_link_order=0",
            MARK: "1",
            **self._clock.environment(f"{self._build}/bin/libfasttime.so"),
        }

    def _finished(self, status: int) -> None:
        self._ended_at = monotonic()
        self.unasked = not self._stopping
        how = f"signal {-status}" if status < 0 else str(status)
        self._history.note("bench", f"unit ended: exit {how}\n")
        self.has_ended(how)
