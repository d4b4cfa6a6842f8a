# SPDX-License-Identifier: LicenseRef-KT6120
"""The places of the unit that the bench arranges and observes.

They repeat the unit's absolute paths on purpose: so the bench notices when the program uses another place.
"""

INSTALL = "/home/pi/KT6120/bin"
PROGRAM = f"{INSTALL}/KT6120"
STORE = f"{INSTALL}/KT6120.ini"
LOG = f"{INSTALL}/commands_log.log"
STATUS_ROWS = f"{INSTALL}/status_log.csv"
COMMANDS = "/var/www/html/commands.txt"
SERIAL = "/dev/serial0"

# The bench's folder; programs that come first on the unit's search path.
BENCH = "/run/bench"
CALLS = f"{BENCH}/calls"
PROGRAMS = f"{BENCH}/bin"


def stand_ins(build: str) -> dict[str, str]:
    """Where GStreamer finds camera and encoder on the bench, and the list of all elements."""
    plugins = f"{build}/gstreamer-1.0:{build}/standins"
    return {"GST_PLUGIN_PATH": plugins, "GST_REGISTRY": f"{build}/gstreamer-registry"}
