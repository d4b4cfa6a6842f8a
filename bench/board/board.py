# SPDX-License-Identifier: LicenseRef-KT6120
"""The virtual unit on an emulated board; the world around it is the desk's."""

import random
from collections.abc import Callable
from typing import cast

from bench import Failure, State, number, table
from bench.desk import Around
from bench.machine import Machine
from bench.mcu import to_socket
from bench.unit import Recorded
from bench.watch import History
from bench.world import Clock, Loop

from .emulator import Emulator
from .network import BoardNetwork
from .remote import Remote
from .unit import BoardHardware, BoardVideo, Service

RECORDER = "/usr/lib/board/bench/recorder"
# What a board has of the programs that are recorded; what would end it stays recorded only.
REAL = ["killall", "logrotate", "gpioset", "gpioget", "gpioinfo", "i2cget"]


class BoardClock(Clock):
    """The board's own time: its clock counts instructions, and nothing makes it faster."""

    def __init__(self, loop: Loop, emulator: Emulator) -> None:
        super().__init__(loop)
        self._emulator = emulator

    def set_pace(self, speed: float, stride: float = 0) -> None:
        pass

    def seconds(self) -> float:
        return self._emulator.seconds

    def until(self, condition: Callable[[], bool], seconds: float) -> bool:
        end = self.seconds() + seconds
        met = False

        def is_over() -> bool:
            nonlocal met
            met = condition()
            return met or not self._emulator.running or self.seconds() >= end

        self._loop.until(is_over)
        return met

    def rest(self, seconds: float) -> None:
        self.until(lambda: False, seconds)


class Board(Around):
    def __init__(self, folder: str) -> None:
        """Keeps card and sockets of the machine in the folder."""
        loop, history = Loop(), History()
        self._remote = Remote(loop, history, folder)
        self._emulator = self._remote.emulator
        machine = cast(Machine, self._remote)
        clock = BoardClock(loop, self._emulator)
        self._rest = clock.rest
        self._network = BoardNetwork(loop, history, clock.rest, self._remote)
        self._switch_on()
        recorded = Recorded(machine, RECORDER)
        super().__init__(
            loop,
            clock,
            history,
            machine,
            Service(clock, history, self._remote),
            BoardHardware(machine, recorded),
            recorded,
            REAL,
            self._network,
            BoardVideo(self._remote, loop, clock, history, self._network),
            lambda heard: to_socket(loop, f"{folder}/mcu", heard),
        )
        self.verbs = table(
            """
            power cut [SECONDS]  within so many, without a word
            power on             it boots from its card
            """,
            power=self._power,
        )
        self.expects = table(
            """
            gpio LINE LEVEL  what a pin shows: gpio 21 1
            power on|off     whether it has switched itself off
            """,
            gpio=self._pin,
            power=self._switch,
        )
        self._offer(self)

    def __exit__(self, *_: object) -> None:
        self._emulator.kill()

    def _switch_on(self) -> None:
        self._emulator.start(where=self._network.in_phone())  # where its adapters' far ends are

    def _power(self, words: list[str]) -> None:
        if words[0] == "cut":
            self._rest(random.uniform(0, number(words[1]) if words[1:] else 0))
            self._emulator.kill()
        elif words == ["on"]:
            self._switch_on()
            self.mcu.renew_line()  # before the program talks on it
            self._remote.resume()
        else:
            raise Failure("cut or on?")

    def _pin(self, words: list[str]) -> State:
        line, wanted = int(number(words[0])), words[1:]
        level = self._emulator.level
        return State(lambda: [str(level(line))] == wanted, lambda: f"it is {level(line)}")

    def _switch(self, words: list[str]) -> State:
        def state() -> str:
            return "on" if self._emulator.running else "off"

        return State(lambda: words == [state()], lambda: f"it is {state()}")
