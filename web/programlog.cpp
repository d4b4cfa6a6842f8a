// SPDX-License-Identifier: LicenseRef-KT6120
#include "programlog.h"

#include "paths.h"
#include "safefile.h"

#include <sys/stat.h>

namespace
{

constexpr qint64 mostAtOnce = 1 << 20; // bytes; older ones are skipped

struct Sign {
    const char *message;
    std::optional<bool> pal;
    std::optional<bool> stream;
    std::optional<bool> sonde;
};
constexpr Sign signs[] = {
    {messages::starting, true, false, false},
    {messages::palStarted, true, std::nullopt, std::nullopt},
    {messages::palStopped, false, std::nullopt, std::nullopt},
    {messages::streamStarting, std::nullopt, true, std::nullopt},
    {messages::streamStopping, std::nullopt, false, std::nullopt},
    {messages::sondeOn, std::nullopt, std::nullopt, true},
    {messages::sondeOff, std::nullopt, std::nullopt, false},
};

// The longest match: some texts are the beginning of others.
const LogMessage *find(int type, const QByteArray &text)
{
    const LogMessage *best = nullptr;
    for (const LogMessage &message : logMessages) {
        if (message.type == type && text.startsWith(message.text)
            && (!best || qstrlen(message.text) > qstrlen(best->text)))
            best = &message;
    }
    return best;
}

// dd-MM-yyyy HH:mm:ss,TYPE,TEXT; a continuation after a line feed in the text has no type.
ProgramLog::Line parse(const QByteArray &line)
{
    constexpr int timeLength = 19;
    const int comma = int(line.indexOf(',', timeLength + 1));
    if (line.size() <= timeLength || line[timeLength] != ',' || comma < 0)
        return {{}, 0, line, nullptr};
    const int type = line.mid(timeLength + 1, comma - timeLength - 1).toInt();
    const QByteArray text = line.mid(comma + 1);
    return {line.left(timeLength), type, text, find(type, text)};
}

} // namespace

ProgramLog::ProgramLog(qint64 lastBytes) : start(lastBytes) {}

const char *ProgramLog::picture() const
{
    if (!pal && !stream)
        return "unknown";
    return stream.value_or(false) ? "phone" : pal.value_or(false) ? "PAL" : "nowhere";
}

// The bytes of complete lines from the position on. A rotated file's last line may lack its line
// feed.
QByteArray ProgramLog::takeBytes(bool finished)
{
    position = qMax(position, file->size() - mostAtOnce);
    file->seek(position);
    QByteArray bytes = file->read(mostAtOnce);
    if (!finished)
        bytes.truncate(bytes.lastIndexOf('\n') + 1); // still being written
    position += bytes.size();
    return bytes.isEmpty() || bytes.endsWith('\n') ? bytes : bytes + '\n';
}

QList<ProgramLog::Line> ProgramLog::take()
{
    struct stat there = {};
    struct stat held = {};
    const bool isThere = stat(paths::programLog, &there) == 0;
    const bool isHeld = file && fstat(file->handle(), &held) == 0;
    const bool isNew =
        isThere && !(isHeld && there.st_ino == held.st_ino && there.st_dev == held.st_dev);
    QByteArray bytes;
    bool amidst = false;
    if (!begun) // what was logged before a rotation; empty if the present file is long enough
        bytes =
            safefile::readEnd(QString(paths::programLog) + paths::rotated, start - there.st_size);
    if (!bytes.isEmpty() && !bytes.endsWith('\n')) // cut off by a power cut
        bytes += '\n';
    if (isHeld && held.st_size < position)
        position = 0;
    if (isHeld && held.st_size > position)
        bytes = takeBytes(isNew); // also of a rotated file
    if (isNew) {
        auto next = std::make_unique<QFile>(paths::programLog);
        if (safefile::open(*next, QIODevice::ReadOnly | QIODevice::Unbuffered)) {
            file = std::move(next);
            position = begun ? 0 : qMax(0LL, file->size() - start);
            amidst = !begun && position > 0;
            bytes += takeBytes(false);
        }
    }
    begun = true; // a file that appears later is read from its start
    QList<QByteArray> lines = bytes.split('\n');
    lines.removeLast();
    if (amidst && !lines.isEmpty() && start > 0)
        lines.removeFirst(); // incomplete

    QList<Line> found;
    for (const QByteArray &line : qAsConst(lines)) {
        found.append(parse(line));
        if (found.last().message && found.last().message->text == messages::starting)
            startTime = found.last().time;
        for (const Sign &sign : signs) {
            if (!found.last().message || found.last().message->text != sign.message)
                continue;
            pal = sign.pal ? sign.pal : pal;
            stream = sign.stream ? sign.stream : stream;
            sondeOn = sign.sonde ? sign.sonde : sondeOn;
        }
    }
    return found;
}
