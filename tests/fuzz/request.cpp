// SPDX-License-Identifier: LicenseRef-KT6120

// Bodies of the page's requests: whatever comes, one line of the commands file's own words leaves.
// The same bytes as a store only have to be read to their end.

#include "fuzzworld.h"

#include "commands.h"
#include "readings.h"

#include <algorithm>

void fuzz::start() {}

void fuzz::input(const QByteArray &bytes)
{
    readings::parse(bytes);
    const QByteArray line = commands::parse(bytes).line;
    require(line.size() <= 40, "a line is short");
    require(
        std::all_of(line.begin(), line.end(), [](char byte) { return byte >= ' ' && byte < 0x7f; }),
        "a line is one line of plain letters");
    require(line.count(' ') <= 1, "a line is a word and an argument");
}
