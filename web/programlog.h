// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "logmessages.h"

#include <QByteArray>
#include <QFile>
#include <QList>

#include <memory>

struct LogMessage {
    const char *text; // how it begins
    int type;         // as in the program log
    const char *meaning;
    const char *remedy;
};

#define ROW(name, type, text, meaning, remedy) {messages::name, type, meaning, remedy},
inline constexpr LogMessage logMessages[] = {LOG_MESSAGES(ROW)};
#undef ROW

// Follows the program log from its last so many bytes on, also when it is rotated.
class ProgramLog
{
public:
    struct Line {
        QByteArray time;
        int type = 0;
        QByteArray text;
        const LogMessage *message = nullptr; // null: unknown
    };

    explicit ProgramLog(qint64 lastBytes);

    // The whole lines that have come since the last call.
    QList<Line> take();

    // Where the picture goes, as far as the lines taken so far tell: "PAL", "phone", "nowhere" or
    // "unknown".
    const char *picture() const;

private:
    QByteArray takeBytes(bool finished);

    qint64 start;
    bool begun = false;
    std::unique_ptr<QFile> file; // kept open: its last lines may come just before it is moved away
    qint64 position = 0;
    bool known = false; // what comes next
    bool pal = false;
    bool stream = false;
};
