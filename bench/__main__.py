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

sys.path[0] = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

from bench import Failure
from bench.desk import Around, Desk
from bench.watch import View


def around(given: dict[str, str]) -> Around:
    if "--board" in given:
        from bench.board.board import Board

        return Board(given["--board"])
    return Desk(given["--build"])


def steer(desk: Around, address: str) -> None:
    from bench.prompt import Prompt

    desk.run("unit start")
    if isinstance(desk, Desk) and address:
        desk.page.serve()
        print(f"The unit's page: {address}")
    print('The unit runs. "help" lists the commands, "quit" or Ctrl-C ends it.')
    prompt = Prompt(desk.loop, desk.commands)
    View(desk.loop, desk.clock, desk.history, prompt.write)
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
    except Failure as failure:
        sys.stdout.flush()
        print(failure, file=sys.stderr)
        return 1
    return 0


status = main()
sys.stdout.flush()
os._exit(status)  # does not wait for the thread that reads from the terminal
