# SPDX-License-Identifier: LicenseRef-KT6120
"""The virtual unit on a desk, in the sandbox that bench/sandbox makes."""

import os
from collections.abc import Callable
from typing import Self

from bench.language.commands import Commands
from bench.language.expectations import Expectations
from bench.mcu.capture import Recorder
from bench.mcu.line import Line, pseudo_terminal
from bench.mcu.simulator import Mcu
from bench.page.server import Page
from bench.phone.app import App
from bench.phone.network import Network
from bench.unit import places
from bench.unit.files import Files
from bench.unit.hardware import Hardware
from bench.unit.machine import Machine
from bench.unit.program import Program, Unit
from bench.unit.recorded import Recorded
from bench.watch.gauges import Gauges
from bench.watch.history import History
from bench.watch.store import Store
from bench.watch.video import Video
from bench.world.clock import Clock
from bench.world.loop import Loop

RECORDER = os.path.join(os.path.dirname(__file__), "recorder")


def call(lines: bytes) -> bytes:
    """Lines of the recorder's file as they are noted: without the time, blanks between."""
    return b"".join(
        line.partition(b"\t")[2].replace(b"\t", b" ") for line in lines.splitlines(keepends=True)
    )


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
        plug_in: Callable[[Callable[[bytes], object]], Line],
    ) -> None:
        """`real` are the programs of the search path that run behind their stand-ins."""
        self.loop, self.clock, self.history, self.unit = loop, clock, history, unit
        self.commands = Commands(history)
        self.run = self.commands.run
        recorded.arrange(real)
        hardware.arrange()
        machine.write(places.COMMANDS, b"")
        store = Store(history)
        machine.watch(places.STORE, store.hear)
        machine.follow(places.LOG, lambda lines: history.note("log", lines))
        machine.follow(places.CALLS, lambda lines: history.note("calls", call(lines)))
        self.mcu = Mcu(loop, lambda: clock.speed, history, plug_in, self.commands.find)
        self._expectations = Expectations(clock, history, unit.lost)
        self.commands.helps["expect"] = self._expectations.help
        app = App(loop, clock, history, network, self._expectations.expect)
        record = Recorder(clock, history, places.of_caller)
        gauges = Gauges(clock, history, machine, unit.id)
        self._offer(unit, recorded, hardware, Files(machine), store, gauges, self.mcu, record)
        self._offer(network, app, video, clock, self._expectations)

    def _offer(self, *parts: object) -> None:
        for part in parts:
            self.commands.verbs += getattr(part, "verbs", [])
            self._expectations.expects += getattr(part, "expects", [])

    def __enter__(self: Self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        raise NotImplementedError


class Desk(Around):
    def __init__(self, build: str) -> None:
        loop = Loop()
        clock = Clock(loop)
        history = History()
        machine = Machine(loop)
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
