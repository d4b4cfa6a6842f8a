// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QObject>
#include <QSet>

#include <array>

// What can happen on the bench. Everything is noted under one of these.
enum class Kind {
    Serial,  // unit -> MCU
    Mcu,     // MCU -> unit
    Log,     // lines of the program log
    Stdout,  // the program's standard output
    Stderr,  // the program's standard error
    Call,    // a recorded program was started
    App,     // unit -> phone
    Phone,   // phone -> unit
    Store,   // a key of the status store changed
    Network, // interfaces and routes
    Bench,   // the bench's own remarks
};
constexpr int kindCount = int(Kind::Bench) + 1;
Q_DECLARE_METATYPE(Kind)

// Everything that happened on the bench, in order, as one byte stream a kind: what `expect`
// searches and what the live view shows. Each kind has a mark, from which the next `expect`
// of that kind searches on.
class Journal : public QObject
{
    Q_OBJECT

public:
    Journal();

    // Texts of the line-wise kinds carry their line feed.
    void note(Kind kind, const QByteArray &text);

    const QByteArray &stream(Kind kind) const { return logs[size_t(kind)].bytes; }
    int mark(Kind kind) const { return logs[size_t(kind)].mark; }
    // Where the last markAll() set this kind's mark.
    int firstMark(Kind kind) const { return logs[size_t(kind)].firstMark; }
    void setMark(Kind kind, int offset) { logs[size_t(kind)].mark = offset; }
    // Calls of programs that run side by side come in any order: each is taken by itself.
    bool isTaken(int callOffset) const { return taken.contains(callOffset); }
    void take(int callOffset) { taken.insert(callOffset); }
    // Forgets everything so far for later expects.
    void markAll();

signals:
    void noted(Kind kind, const QByteArray &text);

private:
    struct Stream {
        QByteArray bytes;
        int mark = 0;
        int firstMark = 0;
    };
    std::array<Stream, size_t(kindCount)> logs;
    QSet<int> taken; // offsets in the stream of calls
};
