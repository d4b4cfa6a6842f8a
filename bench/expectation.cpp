// SPDX-License-Identifier: LicenseRef-KT6120
#include "expectation.h"

#include "bench.h"
#include "board/board.h"
#include "browser.h"
#include "gauges.h"
#include "words.h"

#include <QFile>

#include <memory>
#include <stdexcept>

namespace
{

constexpr double usualBound = 60; // seconds, for a busy desk
constexpr int linesShown = 10;
constexpr int textShown = 2000; // bytes

// The kinds that are searched for a text.
struct TextKind {
    const char *name;
    Kind kind;
    Side side;
};
constexpr TextKind textKinds[] = {
    {"log", Kind::Log, Side::Unit},       {"stdout", Kind::Stdout, Side::Unit},
    {"stderr", Kind::Stderr, Side::Unit}, {"change", Kind::Store, Side::Unit},
    {"calls", Kind::Call, Side::Unit},    {"serial", Kind::Serial, Side::World},
    {"mcu", Kind::Mcu, Side::World},      {"app", Kind::App, Side::World},
    {"phone", Kind::Phone, Side::World},  {"network", Kind::Network, Side::World},
    {"bench", Kind::Bench, Side::World},
};

constexpr char palPort[] = "8083"; // on the unit itself

QByteArray fileContent(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

// What is the case, by its name; the words that follow it are left in `words`.
const Expectation::State Expectation::states[] = {
    {"call", &Expectation::lookForCall, Side::Unit},
    {"store", &Expectation::lookForStore, Side::Unit},
    {"file", &Expectation::lookForFile, Side::Unit},
    {"nofile", &Expectation::lookForNoFile, Side::Unit},
    {"lines", &Expectation::lookForLines, Side::Unit},
    {"exit", &Expectation::lookForExit, Side::Unit},
    {"processes", &Expectation::lookForProcesses, Side::Unit},
    {"rtp", &Expectation::lookForFrameRate, Side::World},
    {"page", &Expectation::lookForPage, Side::World},
    {"script", &Expectation::lookForScript, Side::World},
    {"console", &Expectation::lookForConsole, Side::World},
    {"gpio", &Expectation::lookForLevel, Side::World},
    {"power", &Expectation::lookForPower, Side::World},
};

QByteArray Expectation::help()
{
    return R"(expect [none|count N] WHAT [within SECONDS] [for SECONDS]

What has happened since the last "mark" or the start. Texts of one kind are met in order:
each is searched from where the one before it was found.
  log TEXT        the program log
  stdout TEXT     the program's standard output     stderr TEXT   its standard error
  serial TEXT     bytes of the unit to the MCU      mcu TEXT      of the MCU to the unit
  app TEXT        bytes of the unit to the phone    phone TEXT    of the phone to the unit
  change TEXT     changes of the status store: "Battery/Voltage: 6260 -> 4695"
  network TEXT    changes of the network            bench TEXT    the bench's own remarks
  calls TEXT      calls of recorded programs, in order
  call NAME [ARGUMENT...]   the same in any order; each is met once
What is the case:
  store KEY VALUE   the status store on disk    file PATH TEXT   the file holds the text
  exit STATUS       the program has ended: 3, or "signal 9"
  processes TEXT N  so many programs run whose command line holds the text
  nofile PATH       there is no such file       lines PATH N     the file has N lines
  page TEXT         what the unit's page shows, any white space as one blank
  script EXPRESSION     the JavaScript expression is true on the page
  console clean         its console has told nothing so far
  rtp PORT rate A..B   frames a second at a port of the video: 8083, 49152, 8001
  gpio LINE LEVEL       what a pin of a board shows: gpio 21 1
  power on|off          whether a board has switched itself off
  rss|descriptors|children|zombies|threads|cpu|family below N   what the program takes
                    (MiB resident, counts, CPU seconds since its start: its own; with those of its
                    ended children); "growth below N" is counted from the last mark

Without more, waits up to a minute for it. "none": it is not so for the whole time of "for",
1 s by default, and has not been since the mark. "count N": exactly N times since the last
"mark" or the start; does not move on.
)";
}

Expectation::Expectation(Bench &where, QList<QByteArray> given)
    : bench(where), words(std::move(given)), told(words.join(' '))
{
    if (words.value(0) == "none") {
        none = true;
        words.removeFirst();
    } else if (words.value(0) == "count") {
        count = words.value(1).toInt();
        words = words.mid(2);
    }
}

Side Expectation::sideOf(const QList<QByteArray> &given)
{
    const int at = given.value(0) == "none" ? 1 : given.value(0) == "count" ? 2 : 0;
    const QByteArray kind = given.value(at);
    if (kind == "rtp" && given.value(at + 1) == palPort)
        return Side::Unit;
    for (const TextKind &known : textKinds) {
        if (kind == known.name)
            return known.side;
    }
    for (const State &known : states) {
        if (kind == known.name)
            return known.side;
    }
    return Side::Unit; // what the program takes
}

double Expectation::takeSeconds(const QByteArray &word, double otherwise)
{
    if (words.size() < 3 || words[words.size() - 2] != word)
        return otherwise;
    bool ok = false;
    const double seconds = words.last().toDouble(&ok);
    if (!ok)
        throw std::runtime_error(word.toStdString() + " wants a number of seconds");
    words = words.mid(0, words.size() - 2);
    return seconds;
}

void Expectation::wait()
{
    const double bound = takeSeconds("within", usualBound);
    const double quiet = takeSeconds("for", 1);
    if (words.size() < 2)
        throw std::runtime_error("expect what?");

    const QByteArray kind = words.takeFirst();
    for (const TextKind &known : textKinds) {
        if (kind == known.name)
            lookForText(known.kind, words.join(' '));
    }
    for (const State &known : states) {
        if (kind == known.name)
            (this->*known.look)();
    }
    if (!met)
        lookForGauge(kind);

    // Seconds are the unit's; a bound is not cut below what a busy desk needs.
    const double speed = bench.clock.speed();
    if (none) {
        if (bench.runUntil(met, quiet / speed))
            throw std::runtime_error("did happen: " + told.toStdString());
        return;
    }
    const double limit = speed > 1 ? qMax(usualBound, bound / speed) : bound;
    bool done = false;
    bench.runUntil([&] { return (done = met()) || bench.isUnitLost(); }, limit);
    if (!done)
        throw std::runtime_error("not met within " + QByteArray::number(bound).toStdString()
                                 + " s: " + words::printable(told).toStdString() + '\n'
                                 + seen().toStdString());
}

void Expectation::lookForText(Kind kind, const QByteArray &pattern)
{
    Journal &journal = bench.journal;
    if (count) {
        met = [this, &journal, kind, pattern] {
            return journal.stream(kind).mid(journal.firstMark(kind)).count(pattern) == *count;
        };
    } else {
        met = [this, &journal, kind, pattern] {
            const int at = int(journal.stream(kind).indexOf(pattern, journal.mark(kind)));
            if (at >= 0 && !none)
                journal.setMark(kind, at + int(pattern.size()));
            return at >= 0;
        };
    }
    seen = [this, kind] { return lastLines(kind); };
}

// A call is a line of its own: the name, and the arguments as far as they are given.
void Expectation::lookForCall()
{
    const QByteArray pattern = words.join(' ');
    met = [this, pattern] {
        Journal &journal = bench.journal;
        const QByteArray &all = journal.stream(Kind::Call);
        int found = 0;
        int begin = journal.firstMark(Kind::Call);
        for (int end = 0; (end = int(all.indexOf('\n', begin))) >= 0; begin = end + 1) {
            const QByteArray line = all.mid(begin, end - begin);
            if (line != pattern && !line.startsWith(pattern + ' '))
                continue;
            ++found;
            if (count || journal.isTaken(begin))
                continue;
            if (!none)
                journal.take(begin);
            return true;
        }
        return count && found == *count;
    };
    seen = [this] { return lastLines(Kind::Call); };
}

void Expectation::lookForStore()
{
    const QByteArray key = words[0];
    const QByteArray value = words.mid(1).join(' ');
    met = [this, key, value] { return bench.store->value(key) == value; };
    seen = [this, key] { return key + " is " + bench.store->value(key).toUtf8(); };
}

void Expectation::lookForFile()
{
    const QByteArray path = words[0];
    const QByteArray text = words.mid(1).join(' ');
    met = [path, text] { return fileContent(path).contains(text); };
    seen = [path] { return path + " holds:\n" + fileContent(path).right(textShown); };
}

void Expectation::lookForNoFile()
{
    const QByteArray path = words[0];
    met = [path] { return !QFile::exists(path); };
    seen = [path] { return path + " is there"; };
}

void Expectation::lookForLines()
{
    const QByteArray path = words[0];
    const int number = words.value(1).toInt();
    met = [path, number] { return fileContent(path).count('\n') == number; };
    seen = [path] { return path + " has " + QByteArray::number(fileContent(path).count('\n')); };
}

void Expectation::lookForProcesses()
{
    const QByteArray text = words[0];
    const int number = words.value(1).toInt();
    met = [text, number] { return gauges::processesWith(text) == number; };
    seen = [text] { return QByteArray::number(gauges::processesWith(text)) + " run"; };
}

void Expectation::lookForExit()
{
    const QByteArray status = words.join(' ');
    met = [this, status] {
        if (bench.unit->ending() != status)
            return false;
        bench.unit->acknowledgeEnding();
        return true;
    };
    seen = [this] {
        return bench.unit->isRunning() ? "the unit runs" : "it was " + bench.unit->ending();
    };
}

void Expectation::lookForFrameRate()
{
    const QList<QByteArray> range = words.value(2).split('.');
    if (words.value(1) != "rate" || range.size() != 3)
        throw std::runtime_error("rtp PORT rate A..B");
    const double least = range[0].toDouble();
    const double most = range[2].toDouble();
    RtpTap &tap = bench.tap(words[0].toUShort());
    met = [&tap, least, most] { return tap.rate() >= least && tap.rate() <= most; };
    seen = [&tap] { return QByteArray::number(tap.rate()) + " frames a second"; };
}

void Expectation::lookForPage()
{
    const QByteArray text = words.join(' ');
    Browser &browser = bench.browser();
    const auto shown = [&browser] {
        return browser.ask("document.body.innerText.replace(/\\s+/g, ' ')").toString().toUtf8();
    };
    met = [shown, text] { return shown().contains(text); };
    seen = [shown] { return "the page shows: " + shown().left(textShown); };
}

void Expectation::lookForScript()
{
    const QByteArray expression = words.join(' ');
    Browser &browser = bench.browser();
    met = [&browser, expression] { return browser.ask(expression) == QJsonValue(true); };
    seen = [&browser, expression] {
        return "it is " + browser.ask(expression).toVariant().toString().toUtf8();
    };
}

void Expectation::lookForConsole()
{
    Browser &browser = bench.browser();
    met = [&browser] { return browser.isConsoleClean(); };
    seen = [&browser] { return browser.complaints(); };
}

void Expectation::lookForLevel()
{
    if (!bench.board)
        throw std::runtime_error("a desk has no pins");
    const int line = words[0].toInt();
    const auto level = [this, line] {
        return QByteArray::number(int(bench.board->emulator.level(line)));
    };
    met = [level, wanted = words.value(1)] { return level() == wanted; };
    seen = [level] { return "it is " + level(); };
}

void Expectation::lookForPower()
{
    if (!bench.board)
        throw std::runtime_error("a desk has no switch");
    const auto state = [this] { return bench.board->emulator.isRunning() ? "on" : "off"; };
    met = [state, wanted = words[0]] { return wanted == state(); };
    seen = [state] { return QByteArray("it is ") + state(); };
}

void Expectation::lookForGauge(const QByteArray &name)
{
    if (!gauges::read(name, bench.unit->id()) || words.value(words.size() - 2) != "below")
        throw std::runtime_error("there is nothing to expect of \"" + name.toStdString() + '"');
    const double limit = words.last().toDouble();
    const double base = words[0] == "growth" ? bench.markedGauge(name) : 0;
    met = [this, name, limit, base] {
        return bench.unit->isRunning() && *gauges::read(name, bench.unit->id()) - base < limit;
    };
    seen = [this, name, base] {
        return name + " is " + QByteArray::number(*gauges::read(name, bench.unit->id()))
               + ", at the mark it was " + QByteArray::number(base);
    };
}

QByteArray Expectation::lastLines(Kind kind) const
{
    const QByteArray &all = bench.journal.stream(kind);
    const QByteArray since = all.mid(bench.journal.mark(kind));
    const QByteArray &shown = since.isEmpty() ? all : since;
    QByteArray text =
        since.isEmpty() ? "nothing since the last one found; before it:\n" : "seen instead:\n";
    const QList<QByteArray> lines = shown.right(textShown).split('\n');
    for (const QByteArray &line : lines.mid(qMax(0, int(lines.size()) - linesShown)))
        text += "    " + words::printable(line) + '\n';
    return text;
}
