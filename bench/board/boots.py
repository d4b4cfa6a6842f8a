#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Boots a board for bench/board/make, until it has done on its console what a stage wants.

boots.py configure FOLDER CARD   the packages' own scripts, as the first process
boots.py ready FOLDER CARD       the unit's package; then puts the board away in the card, as "ready"

The console goes to FOLDER/console.log. Status 1 when the board says that it failed, or says
nothing for ten minutes.
"""
import json
import os
import re
import select
import signal
import socket
import subprocess
import sys
import time

SILENCE = 600  # seconds
HERE = os.path.dirname(os.path.abspath(__file__))


class Board:
    def __init__(self, folder, command):
        self.folder = folder
        for name in ("mcu", "console", "qmp", "qtest"):
            if os.path.exists(f"{folder}/{name}"):
                os.unlink(f"{folder}/{name}")
        self.process = subprocess.Popen([f"{HERE}/emulate", *command], stdin=subprocess.DEVNULL)
        self.console = self.connect("console")
        self.heard = b""
        self.log = open(f"{folder}/console.log", "wb", buffering=0)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def connect(self, name):
        end = time.monotonic() + 60
        while True:
            try:
                line = socket.socket(socket.AF_UNIX)
                line.connect(f"{self.folder}/{name}")
                return line
            except OSError:
                if time.monotonic() > end or self.process.poll() is not None:
                    raise
                time.sleep(0.05)

    def expect(self, pattern):
        """Waits for a text of the console, and forgets everything up to it."""
        while True:
            found = re.search(pattern, self.heard)
            if found:
                self.heard = self.heard[found.end() :]
                return found
            if not select.select([self.console], [], [], SILENCE)[0]:
                raise TimeoutError(f"the board does not say {pattern}")
            data = self.console.recv(65536)
            if not data:
                raise ConnectionError("the board has gone")
            self.heard += data
            self.log.write(data)

    def monitor(self, line):
        """A command of QEMU's monitor; what it says, which is nothing when all is well."""
        with self.connect("qmp") as qmp, qmp.makefile("rwb", buffering=0) as file:
            file.readline()
            for told in (
                {"execute": "qmp_capabilities"},
                {"execute": "human-monitor-command", "arguments": {"command-line": line}},
            ):
                file.write(json.dumps(told).encode() + b"\n")
                answer = {}
                while not answer.keys() & {"return", "error"}:
                    answer = json.loads(file.readline() or b'{"error": "gone"}')
        return answer.get("return", answer)


def configure(board):
    status = board.expect(rb"configured with status (\d+)").group(1)
    if status != b"0":
        sys.exit("the packages could not be configured")
    board.monitor("quit")
    board.process.wait()


def ready(board):
    if board.expect(rb"@bench hello|prepare has failed").group(0) != b"@bench hello":
        sys.exit("the unit's package could not be installed")
    said = board.monitor("savevm ready")
    if said:
        sys.exit(f"the board cannot be put away: {said}")


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    stage, place, image = sys.argv[1:]
    if stage == "configure":
        with Board(
            place, ["--free", "--init", "/usr/lib/board/configure", place, image]
        ) as machine:
            configure(machine)
    else:
        with Board(place, [place, image]) as machine:
            ready(machine)
