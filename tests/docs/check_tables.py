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

# Keys of the status store and of the configuration.
stored, configured = (
    dict(re.findall(r"> (\w+)\{\{\"(\w+/\w+)\"", part))
    for part in text("base/keys.h").split("// Only in")[0].split("paths::")[1:]
)
for heading, keys in (("Keys of the status store", stored), ("Configuration", configured)):
    compare("keys", {r[0] for r in table("docs/operating.md", heading)}, set(keys.values()))

# GPIO lines that the program drives and reads through its scripts.
coded = set(re.findall(r'"(\d+)"', text("base/gpio.h")))
scripts = table("docs/operating.md", "Unit scripts")
compare("GPIO lines", {n for r in scripts for n in re.findall(r"`(\d+)`", r[1])}, coded)

# Log messages: the whole table, the function that logs each, and no text outside the table.
types = {"qWarning": "1", "qCritical": "2", "qInfo": "4"}
rows = re.findall(r'MESSAGE\((\w+), (\d), "(.*)", \\\s+"(.*)",\s+(?:\\\s+)?"(.*)"\)',
                  text("base/logmessages.h"))
coded = {tuple(row[1:]) for row in rows}
section = text("docs/operating.md").split("\n## Log messages\n", 1)[1].split("\n## ", 1)[0]
documented = {
    (kind, found, meaning.strip(), remedy.strip())
    for found, kind, meaning, remedy in re.findall(r"^\| `(.*?)` \| (\d) \|(.*)\|(.*)\|$", section, re.M)
}
compare("log messages", documented, coded)
kinds = {name: kind for name, kind, *_ in rows}
for source in sources():
    for function, first in re.findall(r"\b(q\w+)\(\)\s*<<\s*(.*)", source):
        name = re.match(r"(?:qPrintable\(QString\()?messages::(\w+)", first)
        if function in types and (first.startswith('"') or name and kinds[name[1]] != types[function]):
            differences.append(f"log message not as in base/logmessages.h: {function}() << {first}")

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
in_bands = {"batteryVoltage": ("battery_voltage_volts", 1000, 1),
            "batteryCurrent": ("battery_current_amperes", 1000, 1),
            "computeTemperature": ("temperature_celsius", 100, 100)}
limits, normal = set(), set()
for name, lower, upper, under in re.findall(r"Band (\w+) = \{(-?\d+), (\d+), (\w+)",
                                            text("base/bands.h")):
    metric, unit, scale = in_bands[name]
    both = [int(upper)] if under == "nullptr" else [int(lower), int(upper)]
    limits |= {f"{metric} {limit / unit:g}" for limit in both}
    normal |= {f"{stored[name]} {limit / scale:g}" for limit in both}
for key, meaning in (r[:2] for r in table("docs/operating.md", "Keys of the status store")):
    for side, number in re.findall(r"(from|to|above|below) (-?\d+)", meaning.partition("normal")[2]):
        documented.add(f"{key} {int(number) + {'from': -1, 'to': 1}.get(side, 0)}")
compare("limits of the alerts", coded, limits)
compare("bands", documented, normal)

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
