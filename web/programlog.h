// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>

// Follows the program log from its last so many bytes on, also when it is rotated.
class ProgramLog
{
public:
    struct Line {
        QByteArray time;
        int type = 0;
        QByteArray text;
    };

    explicit ProgramLog(qint64 lastBytes);

    // The whole lines that have come since the last call.
    QList<Line> take();

    // Where the picture goes, as far as the lines taken so far tell: "PAL", "phone", "nowhere" or
    // "unknown".
    const char *picture() const;

private:
    qint64 start;
    bool opened = false;
    quint64 inode = 0;
    qint64 position = 0;
    bool known = false; // what comes next
    bool pal = false;
    bool stream = false;
};
