// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QObject>
#include <QString>

class QTimer;
class settings;

// The unit's periodic checks: the processor temperature every 10 s into the store
// (Temperature/Internal, degrees Celsius as text), the USB fault line every 5 s until its
// first fault is logged, and every 30 minutes one row of the stored readings appended to the
// status CSV (paths::statusCsv). A command that is missing, fails or outlasts its wait counts
// with what it has printed so far; a row that cannot be written is lost. Neither is reported.
class monitor : public QObject
{
    Q_OBJECT

public:
    // Starts the timers and runs the system's log rotation once, which blocks for up to 5 s.
    monitor(QObject *parent, settings *store);

private slots:
    void monitor_timer_expired();
    void monitor_write_file(const QString &row);
    void monitor_usb_check();
    void monitor_check_temperature();

private:
    QTimer *tickTimer;
    QTimer *usbTimer;
    QTimer *temperatureTimer;
    settings *settingsStore;
    bool usbFaultReported = false;
};
