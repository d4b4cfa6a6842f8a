# SPDX-License-Identifier: LicenseRef-KT6120
"""The places of the unit that the bench arranges and observes.

They are the unit's own absolute paths, told a second time on purpose: the bench stands for the outside
world and notices when the program uses another place.
"""

import os

INSTALL = "/home/pi/KT6120/bin"
PROGRAM = f"{INSTALL}/KT6120"
STORE = f"{INSTALL}/KT6120.ini"
CONFIGURATION = f"{INSTALL}/kestraConfig.ini"
LOG = f"{INSTALL}/commands_log.log"
STATUS_ROWS = f"{INSTALL}/status_log.csv"
COMMANDS = "/var/www/html/commands.txt"
SERIAL = "/dev/serial0"

# The tree as it was installed, untouched by stand-ins, and the folder of whoever has started the
# bench, where it may be written to (see bench/sandbox).
TREE = "/run/tree"
CALLER = "/run/caller"

# The bench's own folder, and programs put first on the unit's search path.
BENCH = "/run/bench"
CALLS = f"{BENCH}/calls"
PROGRAMS = f"{BENCH}/bin"


def of_caller(path: str) -> str:
    """A file of whoever has started the bench, by its path as seen from there."""
    return os.path.join(CALLER if os.path.isdir(CALLER) else "", path)
