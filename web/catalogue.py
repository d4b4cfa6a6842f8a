#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Makes the page's catalogue from the operating manual: bands of readings, meanings of messages.

Usage: catalogue.py OPERATING.MD CATALOGUE.JSON
"""

import json
import re
import sys


def rows(text, heading):
    section = text.split(f"\n## {heading}\n", 1)[1].split("\n## ", 1)[0]
    lines = [line for line in section.splitlines() if line.startswith("|")][2:]
    return [[cell.strip() for cell in line.strip("|").split("|")] for line in lines]


def band(text):
    """The limits between which a reading is normal, each null where there is none."""
    number = r"(-?\d+)"
    if found := re.search(f"normal from {number} to {number}", text):
        return {"above": int(found[1]) - 1, "below": int(found[2]) + 1}
    limits = {}
    for side in ("above", "below"):
        if found := re.search(f"(?:normal|and) {side} {number}", text):
            limits[side] = int(found[1])
    return limits


def main():
    with open(sys.argv[1], encoding="utf-8") as manual:
        text = manual.read()
    bands = {}
    for key, meaning in rows(text, "Keys of the status store"):
        if limits := band(meaning):
            bands[key.strip("`")] = limits
        elif "normal" in meaning:
            sys.exit(f"{key}: this band cannot be read: {meaning}")
    messages = []
    for message, kind, meaning, remedy in rows(text, "Log messages"):
        # Within the table's cell a blank at the end belongs to the text.
        start = message.split("`")[1]
        messages.append(
            {
                "text": start,
                "type": int(kind),
                "meaning": meaning.replace("`", ""),
                "remedy": remedy.replace("`", ""),
            }
        )
    with open(sys.argv[2], "w", encoding="utf-8") as catalogue:
        json.dump({"bands": bands, "messages": messages}, catalogue, indent=1)


main()
