#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Keeps stills and a recording of the page's picture, with the list of where they were taken.

Usage, in the sandbox with an installed tree: kept.py BUILD. The browser saves the files; ffmpeg reads them.
"""

import csv
import json
import os
import re
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2]))

from bench.desk import Desk
from bench.page import SAVED

ASKS = (
    "(e => (dispatchEvent(e), e.defaultPrevented))(new Event('beforeunload', {cancelable: true}))"
)
# While the picture is there: a busy machine may miss two seconds of it.
PRESS = (
    "expect script \"byId('video').videoWidth > 0 && byId('video-state').textContent === ''"
    " && (byId('{}').click(), true)\""
)


def run(*command):
    return subprocess.run(command, check=True, capture_output=True).stdout


def pixels(still):
    """Rows of grey pixels."""
    grey = run("ffmpeg", "-v", "error", "-i", still, "-f", "rawvideo", "-pix_fmt", "gray", "-")
    assert len(grey) == 720 * 576, f"{still.name}: {len(grey)} pixels"
    return [grey[at : at + 720] for at in range(0, len(grey), 720)]


def saved(desk, ending, count):
    def files():
        return sorted(Path(SAVED).glob(f"*.{ending}"), key=os.path.getmtime)

    assert desk.loop.until(lambda: len(files()) == count, 60), f"saved: {files()}"
    return files()[-1]


def keep_still(desk, count, counter, distance):
    desk.run(f"mcu COILER:VALUE {counter}")
    desk.run(f'expect page "Distance {distance} m"')
    desk.run(PRESS.format("still"))
    still = saved(desk, "png", count)
    name = rf"\d{{4}}-\d\d-\d\d_\d\d-\d\d-\d\d_{re.escape(distance)}m(_2)?\.png"
    assert re.fullmatch(name, still.name), still.name
    rows = pixels(still)
    assert len(set(rows[100])) > 5, "no picture"
    return [pixel > 128 for row in rows[-46:] for pixel in row[:90]]  # where the distance is drawn


def unlike(one, other):
    return sum(a != b for a, b in zip(one, other))


def record(desk):
    desk.run(PRESS.format("record"))
    began = time.monotonic()
    desk.run(
        "expect script \"/^recording \\\\d+:(0[4-9]|[1-9]\\\\d), [1-9]/.test(byId('recording').textContent) || byId('recording').textContent + byId('answer').textContent\""
    )
    desk.run(f'expect script "{ASKS}"')
    desk.run('page click "Stop recording"')
    took = time.monotonic() - began
    recording = saved(desk, "mp4", 1)
    run("ffmpeg", "-v", "error", "-xerror", "-i", recording, "-f", "null", "-")
    seen = json.loads(run("ffprobe", "-v", "error", "-of", "json", "-show_format", recording))
    length = float(seen["format"]["duration"])
    assert abs(length - took) < 1 + took / 3, f"{length} s of {took} s"


def main():
    with Desk(sys.argv[1]) as desk:
        desk.run("unit start")
        desk.run('expect serial "BAT:V?"')
        desk.run("page open")
        record(desk)
        desk.run(f'expect script "{ASKS}"')
        first, same, other = (
            keep_still(desk, 1, 100, "12.5"),
            keep_still(desk, 2, 100, "12.5"),
            keep_still(desk, 3, 84, "10.5"),
        )
        seen = unlike(first, same), unlike(first, other)
        assert seen[0] * 2 < seen[1], f"the distance is not in the picture: {seen}"
        desk.run(
            "expect script \"document.querySelectorAll('#kept input')[2].focus() === undefined\""
        )
        desk.run("page press =joint")
        desk.run('page click "Download the list"')
        desk.run(f'expect script "!{ASKS}"')
        with saved(desk, "csv", 1).open(encoding="utf-8-sig", newline="") as file:
            rows = list(csv.DictReader(file))
        assert [row["distance [m]"] for row in rows] == ["0", "12.5", "12.5", "10.5"], rows
        assert [row["note"] for row in rows] == ["", "'=joint", "", ""], rows
        assert {row["file"] for row in rows} == {file.name for file in Path(SAVED).glob("2*")}, rows
        desk.run("expect console clean")
        desk.run("unit signal 19")
        desk.run("expect script \"byId('video-state').textContent !== ''\"")
        desk.run("page click Still")
        desk.run('expect page "There is no picture to keep"')


main()
