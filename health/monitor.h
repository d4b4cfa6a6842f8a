// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QObject>
#include <QString>

class QTimer;
class settings;

// The unit's periodic checks. Every 10 s it stores the processor temperature (Temperature/Internal,
// degrees Celsius as text). Every 5 s it reads the USB fault line, until it has logged a fault.
// Every 30 minutes it appends a row of stored readings to the status CSV (paths::statusCsv). If a
// command fails or times out, its output so far is used; a row that cannot be written is lost.
// Neither is reported.
class monitor : public QObject
{
    Q_OBJECT

public:
    // Starts the timers and runs logrotate once; blocks for up to 5 s.
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
