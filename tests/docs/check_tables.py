#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Compares the tables of the documentation with those of the code.

Usage: check_tables.py SOURCE_FOLDER. Prints a line for each difference; exit status 1 if there is one.
"""

import hashlib
import pathlib
import re
import sys

top = pathlib.Path(sys.argv[1])
rooms = ["base", "store", "health", "events", "comms", "video", "app", "web", "picture"]
differences = []


def text(path):
    return (top / path).read_text(encoding="utf-8")


def found(pattern, *paths):
    return {hit for path in paths for hit in re.findall(pattern, text(path), re.M)}


def table(path, heading):
    """First cells' code words and the rest of each row of the table under a heading."""
    section = text(path).split(f"\n## {heading}\n", 1)[1].split("\n## ", 1)[0]
    rows = [line.strip("|").split("|") for line in section.splitlines() if line.startswith("|")]
    return [
        (" ".join(re.findall(r"`([^`]*)`", cells[0])), *(c.strip() for c in cells[1:]))
        for cells in rows[2:]
    ]


def operating(heading, width=1):
    """The first cells of each row of a table of operating.md; commands without their arguments."""
    rows = [row[:width] for row in table("docs/operating.md", heading)]
    return {row[0].split()[0] if "write a" in heading else row for row in rows} - {()}


def compare(what, documented, coded):
    for one in sorted(coded ^ documented):
        place = "code" if one in coded else "documentation"
        differences.append(f"{what}: only in the {place}: {one}")


def words(cell):
    return " ".join(sorted(re.findall(r"[a-z]+", cell or "")))


sources = [str(p.relative_to(top)) for room in rooms for p in sorted((top / room).glob("*.cpp"))]

# Rooms and the rooms on which they depend.
component = r"(?s)add_component\((\w+)(?:[^)]*?DEPENDS((?:\s+[a-z]+)+))?"
coded = {(n, words(below)) for r in rooms for n, below in found(component, f"{r}/CMakeLists.txt")}
documented = {
    (row[0], words(" ".join(re.findall(r"`[^`]*`", row[1]))))
    for row in table("docs/architecture.md", "Rooms")
}
compare("rooms", documented, coded)

# Waits of the one thread.
wait = r"^constexpr auto (\w*(?:[wW]ait|[pP]ause)\w*) = (\w+);"
coded = {(f"{path} {name}", limit) for path in sources for name, limit in found(wait, path)}
documented = {row[:2] for row in table("docs/architecture.md", "What blocks the loop")}
compare("waits", documented, coded)

# Words of the MCU and their arguments; texts to it with their line ends, those of the app end otherwise.
coded = found(r'\{"([^"]+)", (\d), &commsInternal::', "comms/mcumessages.cpp")
compare("MCU words", operating("The serial line", 2), coded)
ends = {"\\n\\r": "LF CR", "\\r\\n": "CR LF"}
sent = found(r'"([*A-Z][A-Z:]+\??(?: %1| 0)?)(\\n\\r|\\r\\n)"', *sources)
coded = {(line.replace("%1", "N"), ends[end]) for line, end in sent}
compare("texts to the MCU", operating("What the unit sends", 2), coded)

# Commands of the app and of the commands file.
coded = found(r'^ +\{"([^"]+)"', "comms/appcommands.cpp")
compare("app commands", operating("For those who write an app"), coded)
coded = found(r'^ +\{"([A-Z]+)", (?:alone|withArgument)', "events/commandsfile.cpp")
compare("commands file", operating("For those who write a web page"), coded)

# Keys of the status store and of the configuration.
stored, configured = (
    dict(re.findall(r"> (\w+)\{\{\"(\w+/\w+)\"", part))
    for part in text("base/keys.h").split("// Only in")[0].split("paths::")[1:]
)
for heading, keys in (("Keys of the status store", stored), ("Configuration", configured)):
    compare("keys", {row[0] for row in table("docs/operating.md", heading)}, set(keys.values()))

# GPIO lines that the program drives and reads through its scripts.
scripts = table("docs/operating.md", "Unit scripts")
documented = {number for row in scripts for number in re.findall(r"`(\d+)`", row[1])}
coded = found(r'"(\d+)"', "base/gpio.h")
compare("GPIO lines", documented, coded)

# What programs in other languages repeat of base/: kt6120-check and kt6120-setup, the scripts, the page.
check, setup = (f"scripts/sbin/kt6120-{name}" for name in ("check", "setup"))
documented = set(re.findall(r'"(\d+)"', text(check).split("STATES")[0]))
compare("GPIO lines of kt6120-check", documented, coded)
absolute = found(r'= "(/(?:home|dev/s|dev/v|var/www)[^"]+)"$', check, setup)
known = found(r'"(/[^"]+)"', "base/paths.h") | {"/home/pi/KT6120/bin"}
compare("paths of kt6120-check and kt6120-setup", absolute, absolute & known)
ports = dict(re.findall(r'(\w+)(?:\[\])? = "?(\d+)', text("base/ports.h")))
copy = found(r"port=(808[^3])", "scripts/KT6120_gstreamer.sh")
compare("copy of the PAL packets", copy, {ports["palCopy"]})
documented = found(r"ports? (809\d)(?:-| to )(\d+)", "web/www/picture.js", "docs/web.md")
compare("viewers' ports", documented, {(ports["firstViewer"], ports["lastViewer"])})

# Log messages: the whole table, the function that logs each, and no text outside the table.
types = {"qWarning": "1", "qCritical": "2", "qInfo": "4"}
message = r'MESSAGE\((\w+), (\d), "(.*)", \\\s+"(.*)",\s+(?:\\\s+)?"(.*)"\)'
rows = found(message, "base/logmessages.h")
logged = table("docs/operating.md", "Log messages")
compare("log messages", {(k, first, *rest) for first, k, *rest in logged}, {r[1:] for r in rows})
kinds = {name: kind for name, kind, *_ in rows}
for call, first in found(r"\b(q\w+)\(\)\s*<<\s*(.*)", *sources):
    name = re.match(r"(?:qPrintable\(QString\()?messages::(\w+)", first)
    if call in types and (first.startswith('"') or name and kinds[name[1]] != types[call]):
        differences.append(f"log message not as in base/logmessages.h: {call}() << {first}")

# The default configuration is the defaults of the program.
default = "packaging/root/kt6120/usr/share/kt6120/kestraConfig.ini.default"
coded = found(r'\{"(?:Coiler|Lamp)/(\w+)", "([^"]+)"\}\}', "base/keys.h")
compare("default configuration", found(r"^(\w+)=(.+)$", default), coded - {("Offset", "0")})

# Groups of the page's readings, each a part of its table.
groups = found(r'^constexpr char \w+\[\] = "([A-Z][a-z ]+)";', "web/readings.cpp")
compare(
    "groups of readings",
    found(r'rowgroup">(\w[\w ]*)<', "web/www/index.html") - {"Attention"},
    groups,
)

# Readings that the page shows, and alerts: those of the bands, in the words of the table of keys.
coded = found(r"\{keys::(\w+), \"", "web/readings.cpp") - {"coilerModel"}
compare("readings of the page; documentation is base/keys.h", set(stored), coded)
warnings = {row[0] for row in logged if "Threshold (" in row[0]}
compare("alerts", warnings, found(r"message: (.* Threshold \()", "web/fleet/alerts.yml"))
rows = [row for row in table("docs/web.md", "Monitoring a fleet") if row[0].startswith("kt6120_")]
documented = {row[0][7:] for row in rows} | {
    w for row in rows for w in re.findall(r"`(\w+)`", row[1])
}
coded = found(r'"(\w+)", (?:""|R"\S+),\s*(?:"[A-Z0-9]|nullptr)', "web/readings.cpp")
coded |= {word for label in found(r'R"\((\w+)="(\w+)"', "web/readings.cpp") for word in label}
coded |= found(r'(?:family|sample|std::pair)\("(\w+)"', "web/metrics.cpp")
compare("metrics", documented, coded)
limits, normal = set(), set()
band = r"Band (\w+) = \{(-?\d+), (\d+), (\w+)"
for key, lower, upper, under in found(band, "base/bands.h"):
    unit, scale = (100, 100) if key == "computeTemperature" else (1000, 1)
    both = [int(upper)] if under == "nullptr" else [int(lower), int(upper)]
    limits |= {limit / unit for limit in both}
    normal |= {f"{stored[key]} {limit / scale:g}" for limit in both}
alerts = found(r"expr: kt6120_\S+ [<>]= (-?[\d.]+)", "web/fleet/alerts.yml")
compare("limits of the alerts", {float(limit) for limit in alerts}, limits)
documented_bands = {
    f"{key} {int(number) + {'from': -1, 'to': 1}.get(side, 0)}"
    for key, meaning, *_ in table("docs/operating.md", "Keys of the status store")
    for side, number in re.findall(r"(from|to|above|below) (-?\d+)", meaning.partition("normal")[2])
}
compare("bands", documented_bands, normal)

# What the page repeats of its backend: an error that it explains, and the names of reel models.
error = found(r'unchanged = "([^"]+)"', "web/www/page.js")
compare("error", error, found(r'refuse\(exchange, 504, "([^"]+)"', "web/httpapi.cpp"))
# The page waits longer than a Lamp off may take: for the lock, then for the unit and its store.
waits = found(r"(?:seconds patience|storePatience) = (\d+)s;", "web/commandwriter.cpp")
(longest,) = found(r"longest = (\d+)000;", "web/www/page.js")
compare("wait for a Lamp off", {True}, {int(longest) > 2 * sum(map(int, waits))})
pattern = {one.replace("\\-", "-") for one in found(r'pattern="([^"]+)"', "web/www/index.html")}
compare("reel model names", pattern, found(r'modelName\[\] = "([^"]+)"', "web/commandwriter.cpp"))

# The SVG was drawn from the present DOT file.
digest = hashlib.sha256((top / "docs/architecture.dot").read_bytes()).hexdigest()
compare("architecture.svg (./dev docs)", found(r"sha256 (\w+)", "docs/architecture.svg"), {digest})

print("\n".join(differences) or "tables agree")
sys.exit(1 if differences else 0)
