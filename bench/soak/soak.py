#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Plays month.scenario and shows what the program took meanwhile.

Usage, in the sandbox: soak.py BUILD DAYS. Leaves in the caller's folder: soak.csv (two samples a
day), soak.svg (each figure over time), soak.log (all that the bench showed). Prints a verdict; status
1 where it is that something grows, or where the scenario was not met.
"""

import csv
import pathlib
import statistics
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))

from bench import Failure
from bench.desk import Desk
from bench.places import of_caller
from bench.watch import View

SCENARIO = pathlib.Path(__file__).with_name("month.scenario")
TABLE, PICTURE, LOG = map(of_caller, ("soak.csv", "soak.svg", "soak.log"))
Columns = dict[str, list[float]]

# What is sampled, in which unit it is drawn, and how much it may grow. By how much the median of the
# last third may stand above that of the second (the first warms up): room for one more call under
# way, for the heap's own unrest and for the child-process objects that the program keeps. Of a file,
# how much may be added a day: 48 rows, and the log of two phones' coming and going.
FIGURES = (
    ("rss", "resident memory, MiB", 1, 2, False),
    ("descriptors", "open descriptors", 1, 4, False),
    ("children", "children", 1, 2, False),
    ("zombies", "zombies", 1, 0, False),
    ("threads", "threads", 1, 2, False),
    ("log", "program log, KiB", 1024, 8, True),
    ("csv", "status rows, KiB", 1024, 4, True),
)


def draw(columns: Columns) -> None:
    """The SVG of all figures, one under the other, over the days, with their extremes at the axis."""
    commands = [
        f"set terminal svg size 900,{90 * len(FIGURES)} background 'white'; set output '{PICTURE}'",
        f"set datafile separator comma columnheaders; set multiplot layout {len(FIGURES)},1",
        "set grid; unset key; set lmargin 9; set rmargin 3; set tmargin 1.6; set bmargin 1.6",
        "set title offset 0,-0.8; set xtics offset 0,0.5; set border 3; set tics nomirror",
    ]
    for column, title, scale, *_ in FIGURES:
        low, high = min(columns[column]) / scale, max(columns[column]) / scale
        commands += [
            f"set title '{title}'; set ytics ({low:.4g}, {high:.4g})",
            f"set yrange [{low - (low == high)}:{high + (low == high)}]",
            f"plot '{TABLE}' using 'day':(column('{column}') / {scale}) with lines lw 1.5",
        ]
    subprocess.run(["gnuplot"], input="\n".join(commands), text=True, check=True)


def judge(columns: Columns) -> bool:
    """One line a figure; true where all hold."""
    holds = True
    days = columns["day"]
    third = max(1, len(days) // 3)
    for column, title, scale, growth, of_file in FIGURES:
        values = [v / scale for v in columns[column]]
        before, after = values[0], values[-1]
        if not of_file:
            before = statistics.median(values[third : 2 * third])
            after = statistics.median(values[-third:])
        grown = (after - before) / (days[-1] - days[0] if of_file else 1)
        told = f"{grown:.1f} a day" if of_file else f"{before:.4g} -> {after:.4g}"
        print(
            f"{'ok' if grown <= growth else 'GROWS':<6} {title:<24} {told} (may be {growth} more)"
        )
        holds = holds and grown <= growth
    return holds


def play(build: str, days: str) -> bool:
    """Whether the scenario was met; its samples are in the table afterwards."""
    pathlib.Path(TABLE).unlink(missing_ok=True)
    scenario = pathlib.Path("/tmp/soak.scenario")
    scenario.write_text(SCENARIO.read_text().replace("\nrepeat 30\n", f"\nrepeat {days}\n"))

    def tell(kind: str, text: bytes) -> None:
        if text.startswith(b"sample ") and kind == "bench" and b"," in text:
            day, resident, descriptors = text.decode().split()[1].split(",")[:3]
            print(f"day {day}: {resident} MiB, {descriptors} descriptors", flush=True)

    with open(LOG, "w", buffering=1) as log, Desk(build) as desk:
        View(desk.loop, desk.clock, desk.history, lambda line: log.write(line + "\n"))
        desk.history.listeners.append(tell)
        try:
            desk.commands.play(str(scenario))
        except Failure as failure:
            print(f"the scenario was not met (build/soak/soak.log): {failure}")
            return False
    return True


def main() -> int:
    met = play(*sys.argv[1:])
    with open(TABLE) as table:
        rows = list(csv.DictReader(table))
    columns = {name: [float(row[name]) for row in rows] for name in rows[0]}
    draw(columns)
    holds = judge(columns) and met
    print(f"verdict: {'nothing grows' if holds else 'it does not hold'} in", end=" ")
    print(f"{columns['day'][-1]:.0f} days; build/soak/soak.svg shows it")
    return 0 if holds else 1


sys.exit(main())
