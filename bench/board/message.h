// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "../serialline.h"

#include <QByteArray>

// What the two benches of a board tell each other over the board's console: a line each, led by a
// mark that tells it from what else a console says.
//
//   ask COMMAND        the world's to the unit's: carry this out; one at a time
//   done, failed WHY   the unit's answer
//   note KIND TEXT     something has happened at the unit (the kind by its number)
//   hello              the unit's bench has started; the world's asks so whether it hears
struct Message {
    QByteArray word;
    QByteArray text; // any bytes
};

// One end of it.
class MessageLine : public QObject
{
    Q_OBJECT

public:
    explicit MessageLine(std::unique_ptr<SerialLine> console);

    void send(const QByteArray &word, const QByteArray &text = {});
    void hear() { line->hear(); } // what has come by now

signals:
    void arrived(const Message &message);
    void babbled(const QByteArray &line); // a line that is no message

private:
    void read(const QByteArray &bytes);

    std::unique_ptr<SerialLine> line;
    QByteArray gathered; // since the last line feed
};
