# SPDX-License-Identifier: LicenseRef-KT6120
"""The virtual unit on a desk, in the sandbox that bench/sandbox makes."""

import os
from collections.abc import Callable
from typing import Self

from bench import places
from bench.language import Commands
from bench.machine import Machine
from bench.mcu import Line, Mcu, Recorder, pseudo_terminal
from bench.page import Page
from bench.phone import App, Network
from bench.unit import Files, Hardware, Program, Recorded, Unit
from bench.video import Video
from bench.watch import Gauges, History, Store
from bench.world import Clock, Heard, Loop

RECORDER = os.path.join(os.path.dirname(__file__), "recorder")


def call(lines: bytes) -> bytes:
    """Lines of the recorder's file as they are noted: without the time, blanks between."""
    calls = (line.partition(b"\t")[2] for line in lines.splitlines(keepends=True))
    return b"".join(calls).replace(b"\t", b" ")


class Around:
    """All that is around a unit, a desk's or a board's, and the language over it.

    As a healthy unit finds it; the program does not run yet.
    """

    def __init__(
        self,
        loop: Loop,
        clock: Clock,
        history: History,
        machine: Machine,
        unit: Unit,
        hardware: Hardware,
        recorded: Recorded,
        real: list[str],
        network: Network,
        video: Video,
        plug_in: Callable[[Heard], Line],
    ) -> None:
        """`real` are the programs of the search path that run behind their stand-ins."""
        self.loop, self.clock, self.history, self.unit = loop, clock, history, unit
        self.commands = Commands(clock, history, unit.lost)
        self.run, self._offer = self.commands.run, self.commands.offer
        recorded.arrange(real)
        hardware.arrange()
        machine.write(places.COMMANDS, b"")
        store = Store(history)
        machine.watch(places.STORE, store.hear)
        machine.follow(places.LOG, lambda lines: history.note("log", lines))
        machine.follow(places.CALLS, lambda lines: history.note("calls", call(lines)))
        self.mcu = Mcu(loop, lambda: clock.speed, history, plug_in, self.commands.find)
        app = App(loop, clock, history, network, self.commands.do_expect)
        gauges = Gauges(clock, history, machine, unit.id)
        self._offer(unit, self.mcu, recorded, hardware, network, app, video, Files(machine), store)
        self._offer(clock, gauges, Recorder(clock, history))

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        raise NotImplementedError


class Desk(Around):
    def __init__(self, build: str) -> None:
        os.environ |= places.stand_ins(build)  # for all that is started
        loop, history = Loop(), History()
        clock, machine = Clock(loop), Machine(loop)
        recorded = Recorded(machine, RECORDER)
        network = Network(history, lambda seconds: self.run(f"wait {seconds}"))
        video = Video(loop, clock, history, network)
        super().__init__(
            loop,
            clock,
            history,
            machine,
            Program(loop, clock, history, machine, build),
            Hardware(machine, recorded),
            recorded,
            ["killall"],
            network,
            video,
            lambda heard: pseudo_terminal(loop, places.SERIAL, heard),
        )
        self.unit.when_ended.append(self.mcu.renew_line)
        self.page = Page(loop, history, video, self.run)
        self._offer(self.page)

    def __exit__(self, *_: object) -> None:
        self.unit.stop()
