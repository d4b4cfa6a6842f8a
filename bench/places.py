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

# The tree as it was installed, untouched by stand-ins (see bench/sandbox); the bench's own folder, and
# programs put first on the unit's search path.
TREE = "/run/tree"
BENCH = "/run/bench"
CALLS = f"{BENCH}/calls"
PROGRAMS = f"{BENCH}/bin"


def of_caller(path: str) -> str:
    """A file of whoever has started the bench, by its path as seen from there."""
    return os.path.join("/run/caller" if os.path.isdir("/run/caller") else "", path)


def stand_ins(build: str) -> dict[str, str]:
    """Where GStreamer finds camera and encoder on the bench, and the list of all elements."""
    plugins = f"{build}/gstreamer-1.0:{build}/standins"
    return {"GST_PLUGIN_PATH": plugins, "GST_REGISTRY": f"{build}/gstreamer-registry"}
