#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Kills a writing process at random moments and looks at what is left of its files.

Usage: powercut.py TST_FAULTS [KILLS]   (in the sandbox)

After each kill the status store and the configuration file must parse, hold the old or the new
value of every key that was being written and all else unchanged; log and CSV may end in one torn
line. A killed process shows what the program and the system calls do. It does not show what a
device's cache loses when the power goes: the kernel lives on and completes what it was handed.
"""

import configparser
import os
import pathlib
import random
import re
import signal
import subprocess
import sys
import time

WRITER = sys.argv[1]
KILLS = int(sys.argv[2]) if len(sys.argv) > 2 else 40
FOLDER = pathlib.Path("/home/pi/KT6120/bin")
STORE, CONFIGURATION = FOLDER / "KT6120.ini", FOLDER / "kestraConfig.ini"
LOG, CSV = FOLDER / "commands_log.log", FOLDER / "status_log.csv"
STAMP = r"\d\d-\d\d-\d{4} \d\d:\d\d:\d\d,"
LONGEST_WAIT = 0.03  # seconds; a round takes a millisecond or two

OTHERS = '[Other]\nText="a, b"\nNumber=12.5\nEmpty=\n'  # which the program does not know
STORE.write_text(OTHERS + "[Camera]\nCoilerOffset=1.25\n")
CONFIGURATION.write_text(OTHERS + "[Coiler]\nEncoderScalar=0.25\n[Lamp]\nMaxCurrent=20\n")


def check(condition, what):
    if not condition:
        sys.exit(f"kill {kill}: {what}")


def parse(path):
    """Its keys and values. What is torn or repeated is an error."""
    ini = configparser.RawConfigParser(delimiters="=", comment_prefixes=())
    ini.optionxform = str  # type: ignore[assignment]
    ini.read(path, encoding="ascii")
    return {f"{group}/{key}": ini[group][key] for group in ini.sections() for key in ini[group]}


def check_ini(path, written, before, begun):
    values = parse(path)
    for key, text in written.items():
        # As the process found it, or as one of its last two rounds wrote it.
        allowed = [text(begun - 1) if begun > 1 else before.get(key), text(begun)]
        check(values.pop(key, None) in allowed, f"{path}: {key} is none of {allowed}")
    version = values.pop("Compute/SoftwareVersion", None)
    check(path != STORE or re.fullmatch(r"V\d+\.\d+\.\d+", version or ""), f"version {version}")
    check(values == kept[path], f"{path} is left with {values}, not {kept[path]}")


def whole_lines(path):
    """All lines but one that is torn."""
    return path.read_text(encoding="ascii").split("\n")[:-1]


os.environ["PATH"] = "/nowhere"  # no log rotation
kept = {path: parse(path) for path in (STORE, CONFIGURATION)}
rounds = 0
for kill in range(1, KILLS + 1):
    LOG.unlink(missing_ok=True)
    CSV.unlink(missing_ok=True)
    before = {path: parse(path) for path in kept}
    writer = subprocess.Popen([WRITER, "write"], stdout=subprocess.PIPE)
    assert writer.stdout
    first = writer.stdout.readline()
    time.sleep(random.uniform(0, LONGEST_WAIT))
    writer.send_signal(signal.SIGKILL)
    begun = int((first + writer.stdout.read()).split()[-1])
    check(writer.wait() == -signal.SIGKILL, "the writer ended by itself")
    for lock in FOLDER.glob("*.lock"):
        os.utime(lock, (0, 0))  # a unit takes longer to start again
    rounds += begun

    check_ini(STORE, {"Battery/State": str, "Battery/Current": str}, before[STORE], begun)
    check_ini(CONFIGURATION, {"Coiler/Model": "T{}".format}, before[CONFIGURATION], begun)

    log = [line for line in whole_lines(LOG) if "Battery State" in line]
    check(all(re.match(STAMP + "[124],", line) for line in whole_lines(LOG)), "a torn log line")
    states = [int(line.rsplit(" ", 1)[1]) for line in log]
    whole = [*range(1, begun)], [*range(1, begun + 1)]
    check(states in whole, f"log of {begun} rounds: {states}")

    rows = whole_lines(CSV) if CSV.exists() else []
    check(not rows or rows[0].startswith("timestamp,"), "no CSV header")
    check(all(re.fullmatch(STAMP + "([^,]*,){11}[^,]*", row) for row in rows[1:]), "a torn row")
    currents = [int(row.split(",")[2]) for row in rows[1:]]
    check(currents in whole, f"CSV of {begun} rounds: {currents}")
print(f"{kill} kills in {rounds} rounds of writing: nothing lost")
