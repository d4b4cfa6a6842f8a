# SPDX-License-Identifier: LicenseRef-KT6120
"""The virtual unit on a desk, in the sandbox that bench/sandbox makes."""

import os
from collections.abc import Callable

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
from bench.unit.program import Program
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


class Desk:
    """As a healthy unit finds it; the program does not run yet."""

    def __init__(self, build: str) -> None:
        loop = self.loop = Loop()
        clock = self.clock = Clock(loop)
        history = self.history = History()
        machine = Machine(loop)
        recorded = Recorded(machine, RECORDER)
        hardware = Hardware(machine, recorded)
        recorded.arrange(real=["killall"])
        hardware.arrange()
        machine.write(places.COMMANDS, b"")

        store = Store(history)
        machine.watch(places.STORE, store.hear)
        machine.follow(places.LOG, lambda lines: history.note("log", lines))
        machine.follow(places.CALLS, lambda lines: history.note("calls", call(lines)))

        self.unit = Program(loop, clock, history, machine, build)
        self.commands = Commands(history)
        self.run = self.commands.run

        def plug_in(heard: Callable[[bytes], object]) -> Line:
            return pseudo_terminal(loop, places.SERIAL, heard)

        mcu = Mcu(loop, clock, history, plug_in, self.commands.find)
        self.unit.when_ended.append(mcu.renew_line)
        expectations = Expectations(clock, history, self.unit.lost)
        self.commands.helps["expect"] = expectations.help
        network = Network(history, lambda seconds: self.run(f"wait {seconds}"))
        app = App(loop, clock, history, network, expectations.expect)
        video = Video(loop, clock, history, network)
        self.page = Page(loop, history, video, self.run)
        record = Recorder(clock, history, places.of_caller)
        gauges = Gauges(clock, history, machine, self.unit.id)
        unit = (self.unit, recorded, hardware, Files(machine), store, gauges)
        for part in (*unit, mcu, record, network, app, video, self.page, clock, expectations):
            self.commands.verbs += getattr(part, "verbs", [])
            expectations.expects += getattr(part, "expects", [])

    def __enter__(self) -> "Desk":
        return self

    def __exit__(self, *_: object) -> None:
        self.unit.stop()
