// SPDX-License-Identifier: LicenseRef-KT6120
#include "monitor.h"

#include "childprocess.h"
#include "gpio.h"
#include "keys.h"
#include "logmessages.h"
#include "paths.h"
#include "safefile.h"
#include "settings.h"
#include "timestamp.h"

#include <QDebug>
#include <QFile>
#include <QStringList>
#include <QTimer>
#include <QVariant>

#include <chrono>

using namespace std::chrono_literals;

namespace
{

constexpr auto rowInterval = 30min;
constexpr auto usbInterval = 5s;
constexpr auto temperatureInterval = 10s;

constexpr auto commandWait = 1000ms;
constexpr auto logRotateWait = 5000ms;

// One field of a status row, in the order of the row.
struct Field {
    AnyKey key;
    QString (*convert)(const QVariant &stored);
};

// Converts through text, so that a value written by this process and one read from the file give
// the same result: 0 if it is not an integer.
QString integer(const QVariant &stored)
{
    return QString::number(stored.toString().toInt());
}

QString text(const QVariant &stored)
{
    return stored.toString();
}

QString hundredths(const QVariant &stored)
{
    return QString::number(stored.toDouble() / 100.0, 'g', 6);
}

constexpr char csvHeader[] =
    "timestamp,battery voltage [mV],battery current [mA],internal temperature [Deg C],"
    "cm3 temperature [Deg C],coiler value,led current [mA],interstage current [mA],"
    "tallwick led current [mA],sonde state,lamp value [%],encoder temperature [Deg C],"
    "tallwick status";

constexpr Field csvFields[] = {
    {keys::batteryVoltage, integer},      {keys::batteryCurrent, integer},
    {keys::processorTemperature, text},   {keys::computeTemperature, text},
    {keys::coilerCount, integer},         {keys::ledCurrent, integer},
    {keys::interstageCurrent, integer},   {keys::tallwickLedCurrent, integer},
    {keys::sondeEnabled, integer},        {keys::lampLevel, integer},
    {keys::boostTemperature, hundredths}, {keys::tallwickDetected, integer},
};

QTimer *startPeriodic(monitor *owner, void (monitor::*job)(), std::chrono::milliseconds interval)
{
    auto *timer = new QTimer(owner);
    QObject::connect(timer, &QTimer::timeout, owner, job);
    timer->start(interval);
    return timer;
}

} // namespace

monitor::monitor(QObject *parent, settings *store)
    : QObject(parent), tickTimer(startPeriodic(this, &monitor::monitor_timer_expired, rowInterval)),
      usbTimer(startPeriodic(this, &monitor::monitor_usb_check, usbInterval)),
      temperatureTimer(
          startPeriodic(this, &monitor::monitor_check_temperature, temperatureInterval)),
      settingsStore(store)
{
    childprocess::run(this, childprocess::fromLine(paths::logRotateCommand), logRotateWait);
}

void monitor::monitor_timer_expired()
{
    QStringList row;
    for (const Field &field : csvFields)
        row += field.convert(settingsStore->settingsGetValue(field.key));
    monitor_write_file(row.join(','));
}

// Opens the file for each row, so that it can be rotated at any time. If the disk is full, no new
// file remains, so that a later one gets its header.
void monitor::monitor_write_file(const QString &row)
{
    QString lines;
    if (!QFile::exists(paths::statusCsv))
        lines += QString(csvHeader) + '\n';
    lines += timestamp::now() + ',' + row + '\n';
    safefile::append(paths::statusCsv, lines.toUtf8());
    safefile::startWriteOut(paths::statusCsv);
}

void monitor::monitor_usb_check()
{
    const QByteArray printed =
        childprocess::output(this, {paths::gpioReadScript, {gpio::usbFault}}, commandWait);
    // With the length, so that a text with a NUL byte is not a number.
    const int level = QString::fromLatin1(printed.constData(), printed.size()).trimmed().toInt();
    if (level != 1 || usbFaultReported)
        return;
    usbTimer->stop();
    qWarning() << messages::usbFault;
    usbFaultReported = true;
}

// The command prints a line such as temp=48.3'C.
void monitor::monitor_check_temperature()
{
    const QByteArray printed =
        childprocess::output(this, childprocess::fromLine(paths::temperatureCommand), commandWait);
    QString temperature = QString::fromLatin1(printed.constData()); // ends at a NUL byte
    temperature.remove(0, temperature.indexOf('=') + 1);
    temperature.remove("'C");
    settingsStore->settingsSetValue(keys::processorTemperature, temperature.trimmed());
}
