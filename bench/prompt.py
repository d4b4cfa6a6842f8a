# SPDX-License-Identifier: LicenseRef-KT6120
"""Takes commands from a terminal; the view appears above the line that is being typed."""

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
        self._commands, self._line, self._idle = commands, "", Event()
        self._idle.set()
        wake, self._waker = os.pipe()
        readline.parse_and_bind("set enable-bracketed-paste off")
        readline.parse_and_bind("tab: complete")
        readline.set_completer(self._complete)
        loop.hears(wake, self._work)
        Thread(target=self._read, daemon=True).start()  # input() blocks

    def write(self, line: str) -> None:
        """A line of the view."""
        if self._idle.is_set():
            sys.stdout.write(f"\r\033[K{line}\n{PROMPT}{readline.get_line_buffer()}")
        else:
            sys.stdout.write(line + "\n")

    def _read(self) -> None:
        while True:
            try:
                self._line = input(PROMPT)
            except EOFError:
                self._line = "quit"
            self._idle.clear()
            os.write(self._waker, b"\n")
            self._idle.wait()

    def _work(self, _: bytes) -> None:
        start = monotonic()
        try:
            self._commands.run(self._line)
            if self._line.lstrip().startswith("expect"):
                print(f"met after {monotonic() - start:.3g} s")
        except Failure as failure:
            print(failure)
        sys.stdout.flush()
        self._idle.set()

    def _complete(self, start: str, index: int) -> str | None:
        names = sorted({row.name + " " for row in self._commands.verbs})
        return [*filter(lambda name: name.startswith(start), names), None][index]
