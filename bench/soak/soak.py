#!/usr/bin/env python3
"""Plays tests/scenarios/long/month.scenario and shows what the program took meanwhile.

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
SCENARIO = REPO / "tests/scenarios/long/month.scenario"
PLACE = REPO / "build/soak"

# What is sampled, in which unit it is drawn, and by how much the median of the last third may stand
# above that of the second (the first warms up): room for one more call under way, for the heap's
# own unrest and for the child-process objects that the program keeps. For the files, how much may
# be added a day: 48 rows, and the log of two phones' coming and going.
#         column         title                       scale   growth   a day
FIGURES = (("rss", "resident memory, MiB", 1, 2, None),
           ("descriptors", "open descriptors", 1, 4, None),
           ("children", "children", 1, 2, None),
           ("zombies", "zombies", 1, 0, None),
           ("threads", "threads", 1, 2, None),
           ("log", "program log, KiB", 1024, None, 8),
           ("csv", "status rows, KiB", 1024, None, 4))

WIDTH, HEIGHT, LEFT, TOP = 900, 90, 60, 30


def panel(offset, title, days, values):
    """One figure over time as a polyline with its extremes at the axis."""
    low, high = min(values), max(values)
    room = (high - low) or 1
    points = " ".join(
        f"{LEFT + (WIDTH - LEFT - 20) * d / days[-1]:.1f},"
        f"{offset + TOP + (HEIGHT - TOP - 10) * (1 - (v - low) / room):.1f}"
        for d, v in zip(days, values))
    return (f'<text x="{LEFT}" y="{offset + 18}" font-weight="bold">{title}</text>'
            f'<text x="{LEFT - 6}" y="{offset + TOP + 6}" text-anchor="end">{high:.4g}</text>'
            f'<text x="{LEFT - 6}" y="{offset + HEIGHT - 6}" text-anchor="end">{low:.4g}</text>'
            f'<line x1="{LEFT}" y1="{offset + HEIGHT - 4}" x2="{WIDTH - 20}" '
            f'y2="{offset + HEIGHT - 4}" stroke="#bbb"/>'
            f'<polyline points="{points}" fill="none" stroke="#06c" stroke-width="1.5"/>\n')


def draw(days, columns):
    """The SVG of all figures, one under the other, over the days."""
    height = HEIGHT * len(FIGURES) + 40
    picture = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" '
               'font-family="sans-serif" font-size="12">'
               f'<rect width="{WIDTH}" height="{height}" fill="#fff"/>\n']
    for i, (column, title, scale, *_) in enumerate(FIGURES):
        picture.append(panel(HEIGHT * i, title, days, [v / scale for v in columns[column]]))
    picture.append(f'<text x="{LEFT}" y="{height - 14}">0</text>'
                   f'<text x="{WIDTH - 20}" y="{height - 14}" text-anchor="end">'
                   f'{days[-1]:.0f} days</text></svg>\n')
    return "".join(picture)


def judge(days, columns):
    """One line a figure; true where all hold."""
    holds = True
    third = max(1, len(days) // 3)
    for column, title, scale, growth, a_day in FIGURES:
        values = [v / scale for v in columns[column]]
        if growth is not None:
            before = statistics.median(values[third:2 * third])
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
        bench = subprocess.Popen([REPO / "bench/run", "release", scenario], cwd=PLACE, text=True,
                                 errors="replace", stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
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
    (PLACE / "soak.svg").write_text(draw(columns["day"], columns))
    holds = judge(columns["day"], columns) and met
    print(f"verdict: {'nothing grows' if holds else 'it does not hold'} in {columns['day'][-1]:.0f} "
          "days; build/soak/soak.svg shows it")
    sys.exit(not holds)


main()
