# SPDX-License-Identifier: LicenseRef-KT6120
"""Plays a scenario on the virtual unit, or starts the unit and takes commands; see bench/run.

    /usr/bin/python3 bench --build BUILD [--speed N] FILE
    /usr/bin/python3 bench --build BUILD [--speed N] [--address ADDRESS]
    /usr/bin/python3 bench --board FOLDER [FILE]

Status 0 when all that the scenario expects is met.
"""

import argparse
import os
import signal
import sys

sys.path[0] = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

from bench import Failure
from bench.desk import Around, Desk
from bench.watch import View


def main() -> int:
    options = argparse.ArgumentParser(prog="bench")
    options.add_argument("--board", help="a folder of an emulated board's, in place of a build")
    options.add_argument("--build", help="where the program's build is")
    options.add_argument("--speed", type=int, default=1, help="the unit's timers run so fast")
    options.add_argument("--address", help="where the desk finds the unit's page")
    options.add_argument("file", nargs="?", help="a scenario to play")
    given = options.parse_args()
    signal.signal(signal.SIGINT, signal.SIG_DFL)  # Ctrl-C ends all
    try:
        with around(given.board, given.build) as desk:
            desk.clock.set_pace(given.speed)
            if given.file:
                View(desk.loop, desk.clock, desk.history)
                desk.commands.play(given.file)
            else:
                steer(desk, given.address)
    except Failure as failure:
        sys.stdout.flush()
        print(failure, file=sys.stderr)
        return 1
    return 0


def around(board: str, build: str) -> Around:
    if not board:
        return Desk(build)
    from bench.board.board import Board

    return Board(board)


def steer(desk: Around, address: str | None) -> None:
    from bench.prompt import Prompt

    desk.run("unit start")
    if address and isinstance(desk, Desk):
        desk.page.serve()
        print(f"The unit's page: {address}")
    print('The unit runs. "help" lists the commands, "quit" or Ctrl-C ends it.')
    prompt = Prompt(desk.loop, desk.commands)
    View(desk.loop, desk.clock, desk.history, prompt.write)
    desk.loop.until(lambda: desk.commands.ended)


sys.exit(main())
