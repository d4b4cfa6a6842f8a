# SPDX-License-Identifier: LicenseRef-KT6120
"""Plays month.scenario and shows whether the program's use of resources grows.

Usage, in the sandbox: python3 -m bench.soak.soak BUILD DAYS. Writes into the caller's folder soak.csv (two
samples a day), soak.svg (each figure over time) and soak.log (the whole view). Prints a verdict; status 1
when something grows or the scenario fails.
"""

import csv
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path
from statistics import median

from bench import Failure
from bench.desk import Desk
from bench.places import of_caller
from bench.watch import View

SCENARIO = Path(__file__).with_name("month.scenario")
Statistic = Callable[[list[float]], float]
TABLE, PICTURE, LOG = map(of_caller, ("soak.csv", "soak.svg", "soak.log"))

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


def play(build: str, days: str) -> bool:
    """Whether the scenario passes."""
    Path(TABLE).unlink(missing_ok=True)
    scenario = Path("/tmp/soak.scenario")
    scenario.write_text(SCENARIO.read_text().replace("\nrepeat 30\n", f"\nrepeat {days}\n"))

    def show_sample(kind: str, text: bytes) -> None:
        if kind == "bench" and text.startswith(b"day "):
            print(text.decode(), end="", flush=True)

    with open(LOG, "w", buffering=1) as log, Desk(build) as desk:
        View(desk.loop, desk.clock, desk.history, lambda line: log.write(line + "\n"))
        desk.history.listeners.append(show_sample)
        try:
            desk.commands.play(str(scenario))
        except Failure as failure:
            print(f"the scenario fails (build/soak/soak.log): {failure}")
            return False
    return True


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


passed = play(*sys.argv[1:])
with open(TABLE) as table:
    rows = list(csv.DictReader(table))
columns = {name: [float(row[name]) for row in rows] for name in rows[0]}
draw(columns)
passed = judge(columns) and passed
print(f"verdict: {'nothing grows' if passed else 'not passed'} in", end=" ")
print(f"{columns['day'][-1]:.0f} days; build/soak/soak.svg shows it")
sys.exit(not passed)
