// What the unit's scripts and platform programs print: ADC board, temperature, GPIO line.

#include "fuzzworld.h"

#include "busybee.h"
#include "monitor.h"
#include "settings.h"

#include "paths.h"
#include "testsupport.h"

#include <QFile>

namespace
{

constexpr char printed[] = "/run/bench/printed";

} // namespace

void fuzz::start()
{
    for (const char *script :
         {paths::gpioReadScript, "/home/pi/KT6120/bin/KT6120_bb_read.sh", "/opt/vc/bin/vcgencmd"}) {
        testsupport::writeFile(script, QByteArray("#!/bin/sh\nexec /bin/cat ") + printed + '\n');
        QFile::setPermissions(script, QFile::ReadUser | QFile::WriteUser | QFile::ExeUser);
    }
}

void fuzz::input(const QByteArray &bytes)
{
    testsupport::writeFile(printed, bytes);
    settings store(nullptr);
    monitor health(nullptr, &store);
    for (const char *job :
         {"monitor_usb_check", "monitor_check_temperature", "monitor_timer_expired"})
        QMetaObject::invokeMethod(&health, job);
    // One channel stands for the nine: they differ in the conversion only.
    BusyBee board(nullptr, &store);
    const int raw = int(board.read_i2c(0x12));
    board.convertTemperature(raw, 0);
    const int millivolts = BusyBee::convertVoltage(raw, 12.82);
    BusyBee::convertCurrentIntersage(millivolts);
    BusyBee::convertCurrentLEDs(millivolts);
    QFile::remove(paths::statusCsv);
}
