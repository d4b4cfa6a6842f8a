// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "../unit.h"

#include <QProcess>

class Journal;

// The unit's program as a board runs it: a service of systemd's, with what the system's journal
// holds of it.
class UnitService : public Unit
{
    Q_OBJECT

public:
    explicit UnitService(Journal &notes);
    ~UnitService() override;

    void start() override;
    void stop() override;
    void signal(int number) override;
    void setPace(const QString &) override {} // a board's time runs as it does
    qint64 id() const override;

private:
    void hear();

    Journal &journal;
    QProcess reader;
};
