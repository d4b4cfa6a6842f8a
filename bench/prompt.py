# SPDX-License-Identifier: LicenseRef-KT6120
"""Takes commands from a terminal while the view goes on above the line that is being typed."""

import os
import readline
import sys
from threading import Event, Thread
from time import monotonic

from bench import Failure
from bench.language import Commands
from bench.world import Loop

PROMPT = "> "


class Prompt:
    def __init__(self, loop: Loop, commands: Commands) -> None:
        self._commands, self._line, self._ready = commands, "", Event()
        self._ready.set()
        self._wake, self._waker = os.pipe()
        readline.parse_and_bind("set enable-bracketed-paste off")
        readline.parse_and_bind("tab: complete")
        readline.set_completer(self._complete)
        loop.reads(self._wake, self._work)
        # The interpreter's own input() blocks; the bench lives in the main thread.
        Thread(target=self._read, daemon=True).start()

    def write(self, line: str) -> None:
        """A line of the view, above the one that is being typed."""
        if self._ready.is_set():
            line = f"\r\033[K{line}\n{PROMPT}{readline.get_line_buffer()}"
        else:
            line += "\n"
        sys.stdout.write(line)

    def _read(self) -> None:
        while True:
            try:
                self._line = input(PROMPT)
            except EOFError:
                self._line = "quit"
            self._ready.clear()
            os.write(self._waker, b"\n")
            self._ready.wait()

    def _work(self) -> None:
        os.read(self._wake, 1)
        start = monotonic()
        try:
            self._commands.run(self._line)
            if self._line.lstrip().startswith("expect"):
                print(f"met after {monotonic() - start:.3g} s")
        except Failure as failure:
            print(failure)
        sys.stdout.flush()
        self._ready.set()

    def _complete(self, start: str, index: int) -> str | None:
        names = sorted({row.name + " " for row in self._commands.verbs})
        return [*filter(lambda name: name.startswith(start), names), None][index]
