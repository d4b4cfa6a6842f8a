// SPDX-License-Identifier: LicenseRef-KT6120
#include "view.h"

#include "clock.h"
#include "journal.h"
#include "words.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

using namespace std::chrono_literals;

namespace
{

constexpr auto rateInterval = 5s;
constexpr int longest = 500; // bytes of a line

// Name and terminal colour of each kind, in the order of Kind.
struct Style {
    const char *name;
    const char *colour;
};
constexpr std::array<Style, size_t(kindCount)> styles = {{
    {"serial >", "36"}, // cyan
    {"serial <", "34"}, // blue
    {"log", "1"},       // bold
    {"stdout", "37"},
    {"stderr", "31"}, // red
    {"call", "35"},   // magenta
    {"app <", "32"},  // green
    {"app >", "92"},
    {"store", "33"}, // yellow
    {"network", "95"},
    {"bench", "90"}, // grey
}};

} // namespace

View::View(Journal &notes, const Clock &unitsTime, bool withColours)
    : journal(notes), clock(unitsTime), colours(withColours)
{
    connect(&journal, &Journal::noted, this, &View::show);
    connect(&rate, &QTimer::timeout, this, &View::printRate);
    rate.start(rateInterval);
}

void View::show(Kind kind, const QByteArray &text)
{
    if (kind == Kind::Serial) {
        const QByteArray line = takeLine(text);
        if (!line.isEmpty() && !isRoutine(kind, line))
            print(kind, words::printable(line));
        return;
    }
    if (kind == Kind::Mcu || kind == Kind::App || kind == Kind::Phone) {
        if (!isRoutine(kind, text))
            print(kind, words::printable(text));
        return;
    }
    // What a program prints over and over is told once, and how often more.
    for (const QByteArray &line : text.split('\n')) {
        if (line.isEmpty())
            continue;
        if (kind == repeatedKind && line == repeated) {
            ++repeats;
            continue;
        }
        print(kind, words::printable(line));
        repeatedKind = kind;
        repeated = line;
    }
}

// A board's line brings single bytes: they are gathered up to the first byte of a line's end, and
// the second is passed over.
QByteArray View::takeLine(const QByteArray &text)
{
    const auto isEnd = [](char byte) { return byte == '\r' || byte == '\n'; };
    const bool onlyEnd = std::all_of(text.begin(), text.end(), isEnd);
    if (partial.isEmpty() && onlyEnd)
        return {};
    partial += text;
    return std::any_of(text.begin(), text.end(), isEnd) ? std::exchange(partial, {}) : QByteArray();
}

void View::printRepeats()
{
    const int more = std::exchange(repeats, 0);
    repeated.clear();
    if (more > 0)
        print(repeatedKind, "... " + QByteArray::number(more) + " times more");
}

bool View::isRoutine(Kind kind, const QByteArray &text)
{
    const bool query = kind == Kind::Serial && text.contains('?');
    if (!query && kind != Kind::Mcu)
        return false;
    QByteArray &last = known[query ? text : text.left(text.indexOf(' '))];
    if (last != text) {
        last = text;
        return false;
    }
    ++(query ? queries : answers);
    return true;
}

void View::printRate()
{
    printRepeats();
    if (!partial.isEmpty())
        print(Kind::Serial, words::printable(std::exchange(partial, {})));
    const double now = clock.seconds();
    const double seconds = now - std::exchange(rated, now);
    if ((queries == 0 && answers == 0) || seconds <= 0)
        return;
    print(Kind::Serial, "... " + QByteArray::number(queries / seconds, 'f', 1) + " polls/s, "
                            + QByteArray::number(answers / seconds, 'f', 1)
                            + " answers/s that tell nothing new");
    queries = answers = 0;
}

void View::print(Kind kind, const QByteArray &whole)
{
    printRepeats();
    const QByteArray text = whole.size() > longest ? whole.left(longest) + " ..." : whole;
    const Style &style = styles[size_t(kind)];
    emit printing();
    if (colours)
        printf("\033[90m%8.3f\033[0m \033[%sm%-9s %s\033[0m\n", clock.seconds(), style.colour,
               style.name, text.constData());
    else
        printf("%8.3f %-9s %s\n", clock.seconds(), style.name, text.constData());
    fflush(stdout);
    emit printed();
}
