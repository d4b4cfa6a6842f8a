// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "unit.h"

#include <QElapsedTimer>
#include <QProcess>

class Journal;

// The unit's real program, unmodified, as a child of the bench; its output is noted.
class UnitProcess : public Unit
{
    Q_OBJECT

public:
    explicit UnitProcess(Journal &notes);
    ~UnitProcess() override; // ends it

    void start() override;
    void stop() override;
    void signal(int number) override;
    void setPace(const QString &file) override { paceFile = file; }
    qint64 id() const override { return process.processId(); }
    bool isLost() const override;

private:
    void finish();
    void finished(int code, QProcess::ExitStatus status);

    Journal &journal;
    QProcess process;
    QString paceFile;
    QElapsedTimer sinceEnd;
    bool stopping = false;
};
