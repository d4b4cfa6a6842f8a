# SPDX-License-Identifier: LicenseRef-KT6120
"""Shows whether the program's use of resources has grown while month.scenario was played.

Usage: soak.py FOLDER. Reads soak.csv in it (two samples a day), draws soak.svg (each figure over time) and
prints a verdict; status 1 when something grows.
"""

import csv
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path
from statistics import median

Statistic = Callable[[list[float]], float]
TABLE, PICTURE = (Path(sys.argv[1], name) for name in ("soak.csv", "soak.svg"))

# The limit of each figure: by how much the last third of the run may exceed the second (the first warms up),
# for a child process that runs during a sample, variation of the heap, and the process objects that the
# program keeps. The two files may grow by 48 rows and the log of two phones a day. Medians are compared, but
# maxima of the figures that are smaller while the picture is off.
FIGURES: dict[str, tuple[str, int, Statistic]] = {
    "rss": ("resident memory, MiB", 2, median),
    "descriptors": ("open descriptors", 4, max),
    "children": ("children", 2, median),
    "zombies": ("zombies", 0, median),
    "threads": ("threads", 2, max),
    "log": ("program log, KiB", 8, median),
    "csv": ("status rows, KiB", 4, median),
}
A_DAY = ("log", "csv")


def draw(columns: dict[str, list[float]]) -> None:
    """All figures over the days, one below the other, with their extremes at the axis."""
    commands = [
        f"set terminal svg size 900,{90 * len(FIGURES)} background 'white'; set output '{PICTURE}'",
        f"set datafile separator comma columnheaders; set multiplot layout {len(FIGURES)},1",
        "set grid; unset key; set lmargin 9; set rmargin 3; set tmargin 1.6; set bmargin 1.6",
        "set title offset 0,-0.8; set xtics offset 0,0.5; set offsets 0, 0, 0.5, 0.5",
    ]
    for name, (title, *_) in FIGURES.items():
        low, high = min(columns[name]), max(columns[name])
        commands.append(f"set title '{title}'; set ytics ({low:.4g}, {high:.4g})")
        commands.append(f"plot '{TABLE}' using 'day':'{name}' with lines")
    subprocess.run(["gnuplot"], input="\n".join(commands), text=True, check=True)


def thirds(values: list[float], of: Statistic) -> tuple[float, float]:
    """The second and the last."""
    third = max(1, len(values) // 3)
    return of(values[third : 2 * third]), of(values[-third:])


def judge(columns: dict[str, list[float]]) -> bool:
    """One line for each figure; true when none grows too much."""
    passed, (begin, end) = True, thirds(columns["day"], median)
    for name, (title, limit, of) in FIGURES.items():
        before, after = thirds(columns[name], of)
        days, unit = (end - begin or 1, " a day") if name in A_DAY else (1, "")
        grows = (after - before) / days > limit
        passed = passed and not grows
        print(f"{'GROWS' if grows else 'ok':<6} {title:<24} {before:.4g} -> {after:.4g}", end=" ")
        print(f"(may grow by {limit}{unit})")
    return passed


with open(TABLE) as table:
    rows = list(csv.DictReader(table))
columns = {name: [float(row[name]) for row in rows] for name in rows[0]}
draw(columns)
passed = judge(columns)
print(f"verdict: {'nothing grows' if passed else 'not passed'} in", end=" ")
print(f"{columns['day'][-1]:.0f} days; build/soak/soak.svg shows it")
sys.exit(not passed)
