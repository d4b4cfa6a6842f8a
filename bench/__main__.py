# SPDX-License-Identifier: LicenseRef-KT6120
"""Plays a scenario on the virtual unit, or starts the unit and takes commands; see bench/run.

    /usr/bin/python3 bench/__main__.py --build BUILD [--speed N] FILE
    /usr/bin/python3 bench/__main__.py --build BUILD [--speed N] [--address ADDRESS]
    /usr/bin/python3 bench/__main__.py --board FOLDER [FILE]

Exit status 0 when every expectation was met.
"""

import os
import signal
import sys
from threading import Event, Thread
from time import monotonic

sys.path[0] = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

from bench import Failure
from bench.desk import Around, Desk
from bench.watch import View

PROMPT = "> "


class Prompt:
    """Takes commands from the terminal; the view appears above the line that is being typed."""

    def __init__(self, desk: Around) -> None:
        import readline  # takes its time to load, and changes the terminal

        self._commands, self._line, self._idle = desk.commands, "", Event()
        self._idle.set()
        wake, self._waker = os.pipe()
        desk.loop.hears(wake, self._work)
        View(desk.loop, desk.clock, desk.history, self._write)
        readline.parse_and_bind("set enable-bracketed-paste off")
        readline.parse_and_bind("tab: complete")
        readline.set_completer(self._complete)
        self._typed = readline.get_line_buffer
        Thread(target=self._read, daemon=True).start()  # input() blocks

    def _write(self, line: str) -> None:
        if self._idle.is_set():
            line = f"\r\033[K{line}\n{PROMPT}{self._typed()}"
        else:
            line += "\n"
        sys.stdout.write(line)

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


def around(given: dict[str, str]) -> Around:
    if "--board" in given:
        from bench.board.board import Board

        return Board(given["--board"])
    return Desk(given["--build"])


def steer(desk: Around, address: str) -> None:
    desk.run("unit start")
    if isinstance(desk, Desk) and address:
        desk.page.serve()
        print(f"The unit's page: {address}")
    print('The unit runs. "help" lists the commands, "quit" or Ctrl-C ends it.')
    Prompt(desk)
    desk.loop.until(lambda: desk.commands.ended)


def main() -> int:
    given, words = {}, sys.argv[1:]
    while words and words[0].startswith("--"):
        given[words[0]], words = words[1], words[2:]
    signal.signal(signal.SIGINT, signal.SIG_DFL)  # Ctrl-C ends all
    try:
        with around(given) as desk:
            desk.clock.set_pace(int(given.get("--speed", 1)))
            if words:
                View(desk.loop, desk.clock, desk.history)
                desk.commands.play(words[0])
            else:
                steer(desk, given.get("--address", ""))
    except (Failure, OSError) as failure:
        sys.stdout.flush()
        print(failure, file=sys.stderr)
        return 1
    return 0


status = main()
sys.stdout.flush()
os._exit(status)  # does not wait for the thread that reads from the terminal
