// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>

#include <stdexcept>

class Bench;

// A scenario file: commands, one a line, led by a comment that tells what it shows. The lines
// between "repeat N" and "end" are carried out N times.
namespace scenario
{

// A line that failed: its number, its text and what went wrong.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Prints the leading comment and carries out every line. Throws std::runtime_error, with the
// line's place, at the first that fails, and at the end when the program has ended by itself
// and no line expected it.
void play(Bench &bench, const QByteArray &path);

} // namespace scenario
