// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>

#include <optional>

// What the system tells about a running program.
namespace gauges
{

// "rss" (resident MiB), "descriptors" (open), "zombies" (children ended and not reaped),
// "children", "threads", "cpu" and "family" (seconds of processor since its start: its own; its own
// and those of its children that have ended); nothing for another name.
std::optional<double> read(const QByteArray &name, qint64 process);

// Running programs whose command line holds the text, its words with blanks between them.
int processesWith(const QByteArray &text);

// The names, in the order for a table.
inline constexpr const char *names[] = {"rss",     "descriptors", "children", "zombies",
                                        "threads", "cpu",         "family"};

} // namespace gauges
