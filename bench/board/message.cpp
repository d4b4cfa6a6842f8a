// SPDX-License-Identifier: LicenseRef-KT6120
#include "message.h"

namespace
{

constexpr char mark[] = "@bench ";
constexpr char readable[] = ":/?=,()[]<>\"*"; // left as they are, for whoever watches the console

} // namespace

MessageLine::MessageLine(std::unique_ptr<SerialLine> console) : line(std::move(console))
{
    connect(line.get(), &SerialLine::arrived, this, &MessageLine::read);
}

void MessageLine::send(const QByteArray &word, const QByteArray &text)
{
    // A line of its own, whatever the console has said before.
    line->send('\n' + QByteArray(mark) + word + ' ' + text.toPercentEncoding(readable) + '\n');
}

void MessageLine::read(const QByteArray &bytes)
{
    gathered += bytes;
    for (int end = 0; (end = int(gathered.indexOf('\n'))) >= 0;) {
        const QByteArray whole = gathered.left(end);
        gathered.remove(0, end + 1); // before anybody hears of it, who may come back here
        const int begin = int(whole.indexOf(mark));
        const QByteArray told = whole.mid(begin + int(sizeof mark) - 1).trimmed() + ' ';
        const int blank = int(told.indexOf(' '));
        if (begin >= 0)
            emit arrived(
                {told.left(blank), QByteArray::fromPercentEncoding(told.mid(blank + 1).trimmed())});
        else if (!whole.trimmed().isEmpty())
            emit babbled(whole.trimmed());
    }
}
