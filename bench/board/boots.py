# SPDX-License-Identifier: LicenseRef-KT6120
"""Boots a board for bench/board/make, until it has told on its console how a stage has ended.

    python3 -m bench.board.boots STAGE FOLDER CARD

The stages: "configure", the packages' own scripts as the first process; "ready", the unit's package,
after which the board is put away in the card. The console goes to FOLDER/console.log. Status 1 where
the board fails or takes two hours.
"""

import re
import sys

from bench.world import Loop

from .emulator import Emulator

PATIENCE = 7200  # seconds
END = rb"configured with status (\d+)|prepare has (failed)|@bench (.+)"
READY = b"('ready',)"


def boot(stage: str, folder: str, card: str) -> None:
    loop = Loop()
    ends: list[bytes] = []

    def hear(line: bytes) -> None:
        log.write(line + b"\n")
        ends.extend(found[found.lastindex or 0] for found in re.finditer(END, line))

    with open(f"{folder}/console.log", "wb", buffering=0) as log:
        board = Emulator(loop, folder, hear, card)
        board.start(free=stage == "configure")
        loop.until(lambda: bool(ends) or not board.running, PATIENCE)
        if ends == [b"0"]:
            board.command("quit")
            loop.until(lambda: not board.running, PATIENCE)
        elif ends == [READY]:
            said = board.command("human-monitor-command", **{"command-line": "savevm ready"})
            ends += [str(said).encode()] if said else []
        board.kill()
    if ends not in ([b"0"], [READY]):
        sys.exit(f"the board has failed, see build/board/console.log: {ends}")


if __name__ == "__main__":
    boot(*sys.argv[1:])
