# SPDX-License-Identifier: LicenseRef-KT6120
"""The microcontroller alone, for whoever tries the program without the rest of the bench.

    PYTHONPATH=. /usr/bin/python3 -m bench.mcu [LINK]

Its serial line is linked at LINK (/dev/serial0). Writes "ready", then what it hears, until it is killed.
"""

import math
import sys

from bench.unit import places
from bench.watch.history import History
from bench.world.loop import Loop

from .line import pseudo_terminal
from .simulator import Mcu

link = sys.argv[1] if len(sys.argv) > 1 else places.SERIAL
loop, history = Loop(), History()


def write(kind: str, text: bytes) -> None:
    if kind == "serial":
        sys.stdout.buffer.write(text)
        sys.stdout.flush()


history.listeners.append(write)
Mcu(loop, lambda: 1, history, lambda heard: pseudo_terminal(loop, link, heard), str)
print("ready", flush=True)
loop.until(lambda: False, math.inf)
