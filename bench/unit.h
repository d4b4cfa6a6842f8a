// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

// The unit's program as the bench starts, ends and hears it.
class Unit : public QObject
{
    Q_OBJECT

public:
    virtual void start() = 0; // throws std::runtime_error where it cannot be started
    virtual void stop() = 0;  // ends it and waits
    virtual void signal(int number) = 0;

    // From the next start on, its timers run at the pace that the file tells (pace.h).
    virtual void setPace(const QString &file) = 0;

    bool isRunning() const { return id() > 0; }
    virtual qint64 id() const = 0; // of its process; 0 while none runs

    // How the last run ended: "3", "signal 9", "restarted" where something started it again;
    // empty while it runs or before the first start.
    QByteArray ending() const { return end; }
    // Ended by itself, and nobody has asked about it yet.
    bool endedUnasked() const { return unasked; }
    // The same, and so long ago that all it had to tell has been heard.
    virtual bool isLost() const { return false; }
    void acknowledgeEnding() { unasked = false; }

signals:
    void ended();

protected:
    QByteArray end;
    bool unasked = false;
};
