// SPDX-License-Identifier: LicenseRef-KT6120
#include "programlog.h"

#include "paths.h"

#include <QFile>

#include <optional>
#include <sys/stat.h>

namespace
{

constexpr qint64 mostAtOnce = 1 << 20; // bytes; of more than that the oldest are left out

struct Sign {
    const char *text;
    std::optional<bool> pal;
    std::optional<bool> stream;
};
constexpr Sign signs[] = {
    {"Starting  KT6120", true, false},
    {"PAL Output Started", true, std::nullopt},
    {"PAL Output Stopped", false, std::nullopt},
    {"Starting video stream with IP ", std::nullopt, true},
    {"Stopping video stream", std::nullopt, false},
};

// dd-MM-yyyy HH:mm:ss,TYPE,TEXT; what a text with line feeds of its own continues with has no type.
ProgramLog::Line parse(const QByteArray &line)
{
    constexpr int timeLength = 19;
    const int comma = int(line.indexOf(',', timeLength + 1));
    if (line.size() <= timeLength || line[timeLength] != ',' || comma < 0)
        return {{}, 0, line};
    return {line.left(timeLength), line.mid(timeLength + 1, comma - timeLength - 1).toInt(),
            line.mid(comma + 1)};
}

} // namespace

ProgramLog::ProgramLog(qint64 lastBytes) : start(lastBytes) {}

const char *ProgramLog::picture() const
{
    if (!known)
        return "unknown";
    return stream ? "phone" : pal ? "PAL" : "nowhere";
}

QList<ProgramLog::Line> ProgramLog::take()
{
    struct stat state = {};
    if (stat(paths::programLog, &state) != 0) {
        opened = true; // one that comes later is new from its start
        inode = 0;
        position = 0;
        return {};
    }
    if (opened && state.st_ino == inode && state.st_size == position)
        return {};
    QFile file(paths::programLog);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    if (state.st_ino != inode || state.st_size < position)
        position = opened ? 0 : qMax(0LL, qint64(state.st_size) - start);
    const bool amidst = !opened && position > 0;
    opened = true;
    inode = state.st_ino;
    position = qMax(position, qint64(state.st_size) - mostAtOnce);
    file.seek(position);
    QByteArray bytes = file.read(mostAtOnce);
    bytes.truncate(bytes.lastIndexOf('\n') + 1); // the rest is being written
    position += bytes.size();
    QList<QByteArray> lines = bytes.split('\n');
    lines.removeLast();
    if (amidst && !lines.isEmpty() && start > 0)
        lines.removeFirst(); // half a line

    QList<Line> found;
    for (const QByteArray &line : lines) {
        found.append(parse(line));
        for (const Sign &sign : signs) {
            if (!found.last().text.startsWith(sign.text))
                continue;
            known = true;
            pal = sign.pal.value_or(pal);
            stream = sign.stream.value_or(stream);
        }
    }
    return found;
}
