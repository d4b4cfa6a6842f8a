// SPDX-License-Identifier: LicenseRef-KT6120
#include "unitservice.h"

#include "../journal.h"
#include "../programs.h"
#include "../world.h"

#include <QFile>
#include <QFileInfo>

namespace
{

constexpr char service[] = "kt6120.service";
constexpr char processes[] = "/sys/fs/cgroup/system.slice/kt6120.service/cgroup.procs";
constexpr char restartNote[] = "Scheduled restart job";
void systemctl(const QStringList &arguments)
{
    programs::run("/usr/bin/systemctl", arguments);
}

} // namespace

UnitService::UnitService(Journal &notes) : journal(notes)
{
    connect(&reader, &QProcess::readyReadStandardOutput, this, &UnitService::hear);
    reader.start("/usr/bin/journalctl",
                 {"--follow", "--lines=0", "--output=cat", "--unit", service});
}

UnitService::~UnitService()
{
    reader.kill();
    reader.waitForFinished();
}

void UnitService::hear()
{
    while (reader.canReadLine()) {
        const QByteArray line = reader.readLine();
        journal.note(Kind::Stdout, line);
        if (line.contains(restartNote)) {
            end = "restarted";
            unasked = true;
            emit ended();
        }
    }
}

// Returns at once, as the program's start does elsewhere.
void UnitService::start()
{
    end.clear();
    unasked = false;
    systemctl({"start", "--no-block", service});
    journal.note(Kind::Bench, "unit started\n");
}

void UnitService::stop()
{
    systemctl({"stop", service});
}

void UnitService::signal(int number)
{
    systemctl({"kill", "--kill-whom=main", "--signal=" + QString::number(number), service});
}

qint64 UnitService::id() const
{
    QFile file(processes);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &process : file.readAll().split('\n')) {
        if (QFileInfo("/proc/" + process + "/exe").symLinkTarget() == world::program)
            return process.toLongLong();
    }
    return 0;
}
