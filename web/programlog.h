// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "logmessages.h"

#include <QByteArray>
#include <QFile>
#include <QList>

#include <memory>
#include <optional>

struct LogMessage {
    const char *text; // its beginning
    int type;         // as in the program log
    const char *meaning;
    const char *remedy;
};

#define ROW(name, type, text, meaning, remedy) {messages::name, type, meaning, remedy},
inline constexpr LogMessage logMessages[] = {LOG_MESSAGES(ROW)};
#undef ROW

// Follows the program log across rotations, beginning with the last `lastBytes` bytes, some of
// which may be in the rotated file.
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

    // The complete lines added since the last call.
    QList<Line> take();

    // Where the picture goes according to the lines so far: "PAL", "phone", "nowhere" or "unknown".
    const char *picture() const;

    // Whether the sonde is on; null if the lines so far do not tell.
    std::optional<bool> sonde() const { return sondeOn; }

    // When the program started; empty if the lines so far do not tell.
    QByteArray started() const { return startTime; }

private:
    QByteArray takeBytes(bool finished);

    qint64 start;
    bool begun = false;
    std::unique_ptr<QFile> file; // open across a rotation, for the last lines before it
    qint64 position = 0;
    std::optional<bool> pal;
    std::optional<bool> stream;
    std::optional<bool> sondeOn;
    QByteArray startTime;
};
