#pragma once

#include <QByteArray>

class Bench;

// A scenario file: commands, one a line, led by a comment that tells what it shows.
namespace scenario
{

// Prints the leading comment and carries out every line. Throws std::runtime_error, with the
// line's place, at the first that fails, and at the end when the program has ended by itself
// and no line expected it.
void play(Bench &bench, const QByteArray &path);

} // namespace scenario
