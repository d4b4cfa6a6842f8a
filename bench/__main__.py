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
from functools import partial
from time import monotonic

sys.path[0] = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

from bench import Failure, number
from bench.desk import Around, Desk
from bench.watch import View

PROMPT = "> "


class Prompt:
    """Takes commands from the terminal; the view appears above the line that is being typed."""

    def __init__(self, desk: Around) -> None:
        import readline  # takes its time to load, and changes the terminal

        self._desk, self._typing = desk, False
        View(desk.clock, desk.history, self._write)
        readline.parse_and_bind("set enable-bracketed-paste off")
        readline.parse_and_bind("tab: complete")
        readline.set_completer(self._complete)
        self._typed = readline.get_line_buffer

    def take(self) -> None:
        """The commands, up to the end."""
        while not self._desk.commands.ended:
            self._typing = True
            try:
                line = self._desk.loop.apart(partial(input, PROMPT))
            except EOFError:
                return
            self._typing = False
            self._work(line)

    def _write(self, line: str) -> None:
        if self._typing:
            line = f"\r\033[K{line}\n{PROMPT}{self._typed()}"
        else:
            line += "\n"
        sys.stdout.write(line)

    def _work(self, line: str) -> None:
        start = monotonic()
        try:
            self._desk.run(line)
            if line.lstrip().startswith("expect"):
                print(f"met after {monotonic() - start:.3g} s")
        except Failure as failure:
            print(failure)
        sys.stdout.flush()

    def _complete(self, start: str, index: int) -> str | None:
        names = sorted({row.name + " " for row in self._desk.commands.verbs})
        return [*filter(lambda name: name.startswith(start), names), None][index]


def around(given: dict[str, str]) -> Around:
    if "--board" in given:
        from bench.board.board import Board

        return Board(given["--board"])
    return Desk(given["--build"])


def steer(desk: Around, address: str) -> None:
    prompt = Prompt(desk)
    desk.run("unit start")
    if isinstance(desk, Desk) and address:
        desk.page.serve()
        print(f"The unit's page: {address}")
    print('The unit runs. "help" lists the commands, "quit" or Ctrl-C ends it.')
    prompt.take()


def main() -> int:
    given, words = {}, sys.argv[1:]
    while words and words[0].startswith("--"):
        given[words[0]], words = words[1], words[2:]
    signal.signal(signal.SIGINT, signal.SIG_DFL)  # Ctrl-C ends all
    try:
        with around(given) as desk:
            desk.clock.set_pace(number(given.get("--speed", "1")))
            if words:
                View(desk.clock, desk.history)
                desk.commands.play(words[0])
            else:
                steer(desk, given.get("--address", ""))
    except (Failure, OSError) as failure:
        sys.stdout.flush()
        print(failure, file=sys.stderr)
        return 1
    return 0


sys.exit(main())
