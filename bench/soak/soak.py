#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Plays month.scenario and shows what the program took meanwhile.

Usage: soak.py DAYS. Leaves under build/soak: soak.csv (two samples a day), soak.svg (each figure
over time), soak.log (all that the bench showed). Prints a verdict; status 1 where it is that
something grows, or where the scenario was not met.
"""

import csv
import pathlib
import statistics
import subprocess
import sys

REPO = pathlib.Path(__file__).resolve().parents[2]
SCENARIO = REPO / "bench/soak/month.scenario"
PLACE = REPO / "build/soak"

# What is sampled, in which unit it is drawn, and by how much the median of the last third may stand
# above that of the second (the first warms up): room for one more call under way, for the heap's
# own unrest and for the child-process objects that the program keeps. For the files, how much may
# be added a day: 48 rows, and the log of two phones' coming and going.
#         column         title                       scale   growth   a day
FIGURES = (
    ("rss", "resident memory, MiB", 1, 2, None),
    ("descriptors", "open descriptors", 1, 4, None),
    ("children", "children", 1, 2, None),
    ("zombies", "zombies", 1, 0, None),
    ("threads", "threads", 1, 2, None),
    ("log", "program log, KiB", 1024, None, 8),
    ("csv", "status rows, KiB", 1024, None, 4),
)


def draw(columns, table, picture):
    """The SVG of all figures, one under the other, over the days, with their extremes at the axis."""
    commands = [
        f"set terminal svg size 900,{90 * len(FIGURES)} background 'white'",
        f"set output '{picture}'",
        "set datafile separator comma columnheaders",
        f"set multiplot layout {len(FIGURES)},1",
        "set grid; unset key; set lmargin 9; set rmargin 3; set tmargin 1.6; set bmargin 1.6",
        "set title offset 0,-0.8; set xtics offset 0,0.5; set border 3; set tics nomirror",
    ]
    for column, title, scale, *_ in FIGURES:
        low, high = min(columns[column]) / scale, max(columns[column]) / scale
        commands += [
            f"set title '{title}'; set ytics ({low:.4g}, {high:.4g})",
            f"set yrange [{low - (low == high)}:{high + (low == high)}]",
            f"plot '{table}' using 'day':(column('{column}') / {scale}) with lines lw 1.5",
        ]
    subprocess.run(["gnuplot"], input="\n".join(commands), text=True, check=True)


def judge(days, columns):
    """One line a figure; true where all hold."""
    holds = True
    third = max(1, len(days) // 3)
    for column, title, scale, growth, a_day in FIGURES:
        values = [v / scale for v in columns[column]]
        if growth is not None:
            before = statistics.median(values[third : 2 * third])
            after = statistics.median(values[-third:])
            ok = after - before <= growth
            told = f"{before:.4g} -> {after:.4g} (may grow by {growth})"
        else:
            added = (values[-1] - values[0]) / (days[-1] - days[0])
            ok = added <= a_day
            told = f"{added:.1f} a day (may be {a_day})"
        print(f"{'ok' if ok else 'GROWS':<6} {title:<24} {told}")
        holds = holds and ok
    return holds


def play(days):
    """The scenario's exit status; its samples are in soak.csv afterwards."""
    PLACE.mkdir(parents=True, exist_ok=True)
    (PLACE / "soak.csv").unlink(missing_ok=True)
    scenario = PLACE / "soak.scenario"
    scenario.write_text(SCENARIO.read_text().replace("\nrepeat 30\n", f"\nrepeat {days}\n"))
    with open(PLACE / "soak.log", "w", buffering=1) as log:
        bench = subprocess.Popen(
            [REPO / "bench/run", "release", scenario],
            cwd=PLACE,
            text=True,
            errors="replace",
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
        )
        last = ""
        for line in bench.stdout:
            log.write(line)
            last = line
            if "bench     sample " in line and "soak.csv" not in line:
                day, resident, descriptors = line.split()[-1].split(",")[:3]
                print(f"day {day}: {resident} MiB, {descriptors} descriptors", flush=True)
    status = bench.wait()
    if status != 0:
        print(f"the scenario was not met (build/soak/soak.log): {last.strip()}")
    return status


def main():
    days = int(sys.argv[1])
    met = play(days) == 0
    with open(PLACE / "soak.csv") as table:
        rows = list(csv.DictReader(table))
    columns = {name: [float(row[name]) for row in rows] for name in rows[0]}
    draw(columns, PLACE / "soak.csv", PLACE / "soak.svg")
    holds = judge(columns["day"], columns) and met
    print(
        f"verdict: {'nothing grows' if holds else 'it does not hold'} in {columns['day'][-1]:.0f} "
        "days; build/soak/soak.svg shows it"
    )
    sys.exit(not holds)


main()
