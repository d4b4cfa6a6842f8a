#include "scenario.h"

#include "bench.h"
#include "commands.h"

#include <QFile>

#include <stdexcept>

namespace scenario
{

void play(Bench &bench, const QByteArray &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("cannot read " + path.toStdString());
    int number = 0;
    bool leading = true;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        ++number;
        leading = leading && line.startsWith('#');
        if (leading || !(line.isEmpty() || line.startsWith('#')))
            bench.journal.note(Kind::Bench, line + '\n');
        try {
            commands::run(bench, line);
        } catch (const std::runtime_error &error) {
            throw std::runtime_error(path.toStdString() + ':' + std::to_string(number) + ": "
                                     + line.toStdString() + '\n' + error.what());
        }
    }
    if (bench.unit.endedUnasked())
        throw std::runtime_error(path.toStdString() + ": the program ended by itself: exit "
                                 + bench.unit.ending().toStdString());
}

} // namespace scenario
