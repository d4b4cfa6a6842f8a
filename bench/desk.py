# SPDX-License-Identifier: LicenseRef-KT6120
"""The virtual unit on a desk, in the sandbox that bench/sandbox makes."""

import os
import re
from functools import partial
from typing import Self

from bench import places
from bench.language import Commands
from bench.machine import Machine
from bench.mcu import Mcu, PlugIn, pseudo_terminal
from bench.page import Page
from bench.phone import App, Network
from bench.unit import Program, Surroundings, Unit
from bench.video import Video
from bench.watch import Gauges, History, Store
from bench.world import Clock, Loop


class Around:
    """All that is around a unit, a desk's or a board's, and the language over it."""

    loop: Loop
    clock: Clock
    history: History
    machine: Machine
    unit: Unit
    network: Network
    video: Video

    def assemble(self, plug_in: PlugIn, *others: object) -> None:
        """The parts above and others make a unit, whose program does not run yet."""
        clock, history, machine = self.clock, self.history, self.machine
        self.commands = Commands(clock, history, self.unit.lost)
        self.run = self.commands.run
        store = Store(history)
        machine.watch(places.STORE, store.hear)
        machine.follow(places.LOG, lambda lines: history.note("log", lines))
        timed = re.compile(rb"(?m)^\S+\t")  # the recorder's lines
        machine.follow(places.CALLS, lambda lines: history.note("calls", timed.sub(b"", lines)))
        self.mcu = Mcu(clock, history, plug_in, self.commands.find)
        app = App(clock, history, self.network)
        gauges = Gauges(clock, history, machine, self.unit.id)
        parts = self.unit, self.mcu, self.network, app, self.video, store, clock, gauges
        self.commands.offer(*parts, *others)

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.unit.stop()


class Desk(Around):
    def __init__(self, build: str) -> None:
        os.environ |= places.stand_ins(build)  # for all that is started
        self.loop, self.history = Loop(), History()
        self.clock, self.machine = Clock(self.loop), Machine(self.loop)
        self.unit = program = Program(self.clock, self.history, self.machine, build)
        self.network = Network(self.history)
        self.video = Video(self.clock, self.history, self.network)
        self.page = Page(self.loop)
        line = partial(pseudo_terminal, self.loop, places.SERIAL)
        self.assemble(line, Surroundings(self.machine, self.history), self.page)
        program.when_ended = self.mcu.renew_line
