# SPDX-License-Identifier: LicenseRef-KT6120
"""What the program takes of the system, as it is shown, sampled and expected."""

from collections.abc import Callable
from functools import partial

from bench import Expect, Failure, State, Verb, number
from bench.unit import places
from bench.unit.machine import GAUGES, Machine
from bench.world.clock import Clock

from .history import History

DAY = 86400  # s
# Files of the unit whose size is sampled.
COUNTED = {"log": places.LOG, "csv": places.STATUS_ROWS}
MEANINGS = {
    "rss": "resident MiB of the program",
    "cpu": "seconds of processor since its start",
    "family": "the same, with its ended children",
}


class Gauges:
    def __init__(
        self, clock: Clock, history: History, machine: Machine, process: Callable[[], int]
    ) -> None:
        self._clock = clock
        self._history = history
        self._machine = machine
        self._process = process
        self._marked = dict.fromkeys(GAUGES, 0.0)
        history.when_marked.append(self._mark)
        self.verbs = [
            Verb(
                "show",
                "",
                "what the program takes: memory, descriptors, children, CPU time",
                self._show,
                0,
            ),
            Verb("sample", "FILE", "adds a row of the same to a table", self._sample),
        ]
        self.expects = [
            Expect(
                name,
                "[growth] below N",
                MEANINGS.get(name, f"its {name}") + "; growth is counted from the last mark",
                partial(self._look, name),
            )
            for name in GAUGES
        ] + [Expect("processes", "TEXT N", "so many have it in their command line", self._count)]

    def values(self) -> dict[str, float]:
        process = self._process()
        return self._machine.gauges(process) if process else dict.fromkeys(GAUGES, 0.0)

    def _mark(self) -> None:
        self._marked = self.values()

    def _show(self, _: list[str]) -> None:
        for name, value in self.values().items():
            self._history.note("bench", f"{name} {value:g}\n")

    def _sample(self, words: list[str]) -> None:
        columns = {"day": f"{self._clock.seconds() / DAY:.3f}"}
        columns |= {name: f"{value:g}" for name, value in self.values().items()}
        columns |= {name: str(self._machine.size(path)) for name, path in COUNTED.items()}
        row = ",".join(columns.values()) + "\n"
        with open(places.of_caller(words[0]), "a") as table:
            if table.tell() == 0:
                table.write(",".join(columns) + "\n")
            table.write(row)
        self._history.note("bench", f"sample {row}")

    def _look(self, name: str, words: list[str]) -> State:
        if words[-2:-1] != ["below"]:
            raise Failure(f"expect {name} [growth] below N")
        limit = number(words[-1])
        base = self._marked[name] if words[0] == "growth" else 0
        return State(
            lambda: self._process() > 0 and self.values()[name] - base < limit,
            lambda: f"{name} is {self.values()[name]:g}, at the mark it was {base:g}",
        )

    def _count(self, words: list[str]) -> State:
        wanted = int(number(words[1]))
        return State(
            lambda: self._machine.processes_with(words[0]) == wanted,
            lambda: f"{self._machine.processes_with(words[0])} run",
        )
