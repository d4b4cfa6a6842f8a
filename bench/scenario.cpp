// SPDX-License-Identifier: LicenseRef-KT6120
#include "scenario.h"

#include "bench.h"
#include "board/board.h"
#include "commands.h"

#include <QFile>

#include <stdexcept>

namespace
{

struct Line {
    int number; // in the file, from 1
    QByteArray text;
};

QList<Line> readLines(const QByteArray &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("cannot read " + path.toStdString());
    QList<Line> lines;
    while (!file.atEnd())
        lines.append({int(lines.size()) + 1, file.readLine().trimmed()});
    return lines;
}

void play(Bench &bench, const QList<Line> &lines);

bool isRepeat(const Line &line)
{
    return line.text.startsWith("repeat ");
}

// The lines behind "repeat N" up to its "end"; returns how many lines that were.
int repeat(Bench &bench, const QList<Line> &lines, int begin)
{
    int end = begin;
    for (int inner = 0; end < lines.size() && (inner > 0 || lines[end].text != "end"); ++end)
        inner += int(isRepeat(lines[end])) - int(lines[end].text == "end");
    if (end == lines.size())
        throw std::runtime_error("repeat without end");
    const QList<Line> body = lines.mid(begin, end - begin);
    for (int left = lines[begin - 1].text.mid(7).toInt(); left > 0; --left)
        play(bench, body);
    return int(body.size()) + 1;
}

void play(Bench &bench, const QList<Line> &lines)
{
    for (int at = 0; at < lines.size();) {
        const Line &line = lines[at++];
        if (!line.text.isEmpty() && !line.text.startsWith('#'))
            bench.journal.note(Kind::Bench, line.text + '\n');
        try {
            if (isRepeat(line))
                at += repeat(bench, lines, at);
            else
                commands::run(bench, line.text);
        } catch (const scenario::Failure &) {
            throw; // of a line inside: it has its place already
        } catch (const std::runtime_error &error) {
            throw scenario::Failure(std::to_string(line.number) + ": " + line.text.toStdString()
                                    + '\n' + error.what());
        }
    }
}

} // namespace

namespace scenario
{

void play(Bench &bench, const QByteArray &path)
{
    const QList<Line> lines = readLines(path);
    for (int at = 0; at < lines.size() && lines[at].text.startsWith('#'); ++at)
        bench.journal.note(Kind::Bench, lines[at].text + '\n');
    try {
        ::play(bench, lines);
        if (!bench.board || bench.board->isOn())
            ::play(bench, {{int(lines.size()), "unit check"}});
    } catch (const Failure &failure) {
        throw std::runtime_error(path.toStdString() + ':' + failure.what());
    }
}

} // namespace scenario
