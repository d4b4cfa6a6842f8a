// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QProcess>

class Journal;

// The unit's real program, unmodified, as a child of the bench; its output is noted.
class UnitProcess : public QObject
{
    Q_OBJECT

public:
    explicit UnitProcess(Journal &notes);
    ~UnitProcess() override; // ends it

    // From the next start on, its timers run at the pace that the file tells (pace.h).
    void setPace(const QString &file) { paceFile = file; }

    void start(); // throws std::runtime_error where it cannot be started
    void stop();  // ends it and waits
    void signal(int number);

    bool isRunning() const { return process.state() != QProcess::NotRunning; }
    qint64 id() const { return process.processId(); }

    // How the last run ended: "3", "signal 9"; empty while it runs or before the first start.
    QByteArray ending() const { return end; }
    // Ended by itself, and nobody has asked about it yet.
    bool endedUnasked() const { return unasked; }
    // The same, and so long ago that all it had to tell has been heard.
    bool isLost() const;
    void acknowledgeEnding() { unasked = false; }

signals:
    void ended();

private:
    void finished(int code, QProcess::ExitStatus status);

    Journal &journal;
    QProcess process;
    QString paceFile;
    QByteArray end;
    QElapsedTimer sinceEnd;
    bool unasked = false;
    bool stopping = false;
};
