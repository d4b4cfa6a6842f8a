# SPDX-License-Identifier: LicenseRef-KT6120
"""Boots a board for bench/board/make and writes its console to build/board/console.log.

    python3 -m bench.board.boots configure|ready CARD

configure: the first boot, in which the packages' own scripts run. ready: installs the unit's package, runs
the program once, which fills the caches, removes what it left, and saves a snapshot.
"""

import sys

from bench.watch import History
from bench.world import Loop

from .emulator import MADE
from .remote import Remote

PATIENCE = 7200  # s
CONFIGURED = b"configured with status "
PREPARE = """systemctl is-system-running --wait || true
dpkg --install /usr/lib/board/kt6120.deb
mkdir -p /var/lib/tree/home/pi/KT6120
cp -a /home/pi/KT6120/bin /var/lib/tree/home/pi/KT6120/
systemctl start kt6120
sleep 15
systemctl stop kt6120
cp -a /usr/share/kt6120/kestraConfig.ini.default /home/pi/KT6120/bin/kestraConfig.ini
cd /home/pi/KT6120/bin && rm -f *.log *.csv KT6120.ini *.lock
rm -rf /run/KT6120
sleep 2 && journalctl --rotate --quiet && journalctl --vacuum-time=1s --quiet
sync"""


def boot(stage: str, card: str) -> None:
    loop, history = Loop(), History()
    remote = Remote(loop, history, str(MADE), card)
    board = remote.emulator
    with open(MADE / "console.log", "wb", buffering=0) as log:
        history.listeners.append(lambda _, text: log.write(text))
        board.start(free=stage == "configure")
        if stage == "ready":
            for line in PREPARE.splitlines():
                remote.run("sh", "-ec", line)
            failed = board.human_command("savevm ready")
        else:
            said = history.of("bench").content
            loop.until(lambda: CONFIGURED in said or not board.running, PATIENCE)
            failed = "" if CONFIGURED + b"0" in said else "configuring failed"
            board.command("quit")
    board.kill()
    if failed:
        sys.exit(f"{failed}, see build/board/console.log")


boot(*sys.argv[1:])
