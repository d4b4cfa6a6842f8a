#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Holds the tables of the documentation against the tables of the code.

Usage: check_tables.py SOURCE_FOLDER. Prints a line per difference; ends with 1 where there is one.
"""

import hashlib
import pathlib
import re
import sys

top = pathlib.Path(sys.argv[1])
rooms = ["base", "store", "health", "events", "comms", "video", "app", "web"]
differences = []


def text(path):
    return (top / path).read_text(encoding="utf-8")


def table(path, heading):
    """First cells' code words and the rest of each row of the table under a heading."""
    section = text(path).split(f"\n## {heading}\n", 1)[1].split("\n## ", 1)[0]
    rows = [line.strip("|").split("|") for line in section.splitlines() if line.startswith("|")]
    found = []
    for cells in rows[2:]:
        found.append([" ".join(re.findall(r"`([^`]*)`", cells[0]))] + [c.strip() for c in cells[1:]])
    return found


def compare(what, documented, coded):
    for missing in sorted(coded - documented):
        differences.append(f"{what}: in the code, not in the documentation: {missing}")
    for extra in sorted(documented - coded):
        differences.append(f"{what}: in the documentation, not in the code: {extra}")


def sources():
    for room in rooms:
        for path in sorted((top / room).glob("*.cpp")):
            yield path.read_text(encoding="utf-8")


# Rooms and what they stand on.
coded = set()
for room in rooms:
    match = re.search(r"add_component\((\w+)(.*?)\)", text(f"{room}/CMakeLists.txt"), re.S)
    below = re.search(r"DEPENDS((?:\s+[a-z]+)+)", match.group(2))
    coded.add((match.group(1), " ".join(sorted(below.group(1).split())) if below else ""))
documented = {
    (row[0], " ".join(sorted(re.findall(r"`([^`]*)`", row[1]))))
    for row in table("docs/architecture.md", "Rooms")
}
compare("rooms", documented, coded)

# Waits of the one thread.
coded = set()
for room in rooms:
    for path in sorted((top / room).glob("*.cpp")):
        for name, limit in re.findall(r"^constexpr auto (\w*(?:[wW]ait|[pP]ause)\w*) = (\w+);",
                                      path.read_text(encoding="utf-8"), re.M):
            coded.add((f"{room}/{path.name} {name}", limit))
documented = {(r[0], r[1]) for r in table("docs/architecture.md", "What blocks the loop")}
compare("waits", documented, coded)

# Words of the MCU and their arguments.
coded = set(re.findall(r'\{"([^"]+)", (\d), &commsInternal::', text("comms/mcumessages.cpp")))
compare("MCU words", {(r[0], r[1]) for r in table("docs/operating.md", "The serial line")}, coded)

# Texts to the MCU with their line ends; those of the app end otherwise.
ends = {"\\n\\r": "LF CR", "\\r\\n": "CR LF"}
coded = set()
for source in sources():
    for sent, end in re.findall(r'"([*A-Z][A-Z:]+\??(?: %1| 0)?)(\\n\\r|\\r\\n)"', source):
        coded.add((sent.replace("%1", "N"), ends[end]))
documented = {(r[0], r[1]) for r in table("docs/operating.md", "What the unit sends")}
compare("texts to the MCU", documented, coded)

# Commands of the app and of the commands file.
app = text("comms/appcommands.cpp")
coded = set(re.findall(r'^ +\{"([^"]+)"', app, re.M))
documented = {r[0].split()[0] for r in table("docs/operating.md", "For those who write an app")}
compare("app commands", documented, coded)
coded = set(re.findall(r'^ +\{"([A-Z]+)", Argument', text("events/commandsfile.cpp"), re.M))
documented = {r[0].split()[0] for r in table("docs/operating.md", "For those who write a web page")}
compare("commands file", documented, coded)

# Keys of the status store: those that are written with a literal, and the ADC board's.
coded = set()
for source in sources():
    coded |= set(re.findall(r'settingsSetValue\(\s*"(\w+/\w+)"', source))
coded |= set(re.findall(r'"((?:Temperature|Voltage|Current)/\w+)"', text("health/busybee.cpp")))
compare("store keys", {r[0] for r in table("docs/operating.md", "Keys of the status store")}, coded)

# GPIO lines that the program drives and reads through its scripts.
coded = set(re.findall(r'"(\d+)"', text("base/gpio.h")))
scripts = table("docs/operating.md", "Unit scripts")
compare("GPIO lines", {n for r in scripts for n in re.findall(r"`(\d+)`", r[1])}, coded)

# Log messages by their first literal, with their type.
types = {"qWarning": "1", "qCritical": "2", "qInfo": "4"}
coded = set()
for source in sources():
    for function, first in re.findall(r'\b(q\w+)\(\)\s*<<\s*"((?:[^"\\]|\\.)*)"', source):
        if function in types:
            coded.add((first.replace("\\n", ""), types[function]))
    # Texts that a table or a condition chooses.
    coded |= {(t, "1") for t in re.findall(r'"((?:Battery|Compute)[^"]* Threshold \()"', source)}
    coded |= {(t, "4") for t in re.findall(r'"(Sonde Turned O\w+|Resetting Micro[^"]*)"', source)}
documented = {(r[0], r[1]) for r in table("docs/operating.md", "Log messages")}
compare("log messages", documented, coded)

# Readings that the page shows, and alerts: those of the bands of the table of keys, in its words.
keys = {r[0] for r in table("docs/operating.md", "Keys of the status store")}
coded = set(re.findall(r'\{"(\w+/\w+)", "', text("web/readings.cpp"))) - {"Coiler/Model"}
compare("readings of the page", keys, coded)
alerts = text("web/fleet/alerts.yml")
coded = set(re.findall(r"message: (.* Threshold \()", alerts))
documented = {r[0] for r in table("docs/operating.md", "Log messages") if "Threshold (" in r[0]}
compare("alerts", documented, coded)
limits = re.findall(r"expr: kt6120_(\w+)\S* [<>]= (-?[\d.]+)", alerts)
coded = {f"{name} {float(limit):g}" for name, limit in limits}
documented = set()
units = {"Battery/Voltage": ("battery_voltage_volts", 1000),
         "Battery/Current": ("battery_current_amperes", 1000),
         "Temperature/CM3": ("temperature_celsius", 1)}
for key, meaning in (r[:2] for r in table("docs/operating.md", "Keys of the status store")):
    for side, number in re.findall(r"(from|to|above|below) (-?\d+)", meaning.partition("normal")[2]):
        limit = int(number) + {"from": -1, "to": 1}.get(side, 0)
        name, scale = units[key]
        documented.add(f"{name} {limit / scale:g}")
compare("limits of the alerts", documented, coded)

# The picture is that of its text.
digest = hashlib.sha256((top / "docs/architecture.dot").read_bytes()).hexdigest()
drawn = set(re.findall("sha256 (\\w+)", text("docs/architecture.svg")))
compare("architecture.svg (./dev docs draws it)", drawn, {digest})

# The package comes under the same licence as the tree.
paragraphs = text("LICENSE").split("\n\n", 2)[2].split()
packaged = text("packaging/debian/copyright").split("License: LicenseRef-KT6120\n", 1)[1].split()
compare("licence", {" ".join(w for w in packaged if w != ".")}, {" ".join(paragraphs)})

print("\n".join(differences) or "tables agree")
sys.exit(1 if differences else 0)
