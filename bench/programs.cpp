// SPDX-License-Identifier: LicenseRef-KT6120
#include "programs.h"

#include <QProcess>

#include <stdexcept>

namespace
{

constexpr int patience = 120'000; // ms, for a slow board

} // namespace

namespace programs
{

void run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(patience) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0)
        throw std::runtime_error((program + ' ' + arguments.join(' ') + ": ").toStdString()
                                 + process.readAll().trimmed().toStdString());
}

} // namespace programs
