// SPDX-License-Identifier: LicenseRef-KT6120
#include "bench.h"

#include "browser.h"
#include "files.h"
#include "gauges.h"
#include "recorders.h"
#include "webserver.h"
#include "world.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTimer>

#include <stdexcept>

namespace
{

constexpr quint16 palPort = 8083; // of the unit itself; any other is the phone's
constexpr int checkInterval = 20; // ms, for conditions that no note announces

// Programs at fixed places that a desk does not have; real scripts of the tree run behind
// their stand-ins.
constexpr const char *standIns[] = {
    "/home/pi/KT6120/bin/KT6120_gstreamer.sh",
    "/home/pi/KT6120/bin/KT6120_usb_monitor.sh",
    "/home/pi/KT6120/bin/KT6120_gpio_write.sh",
    "/home/pi/KT6120/bin/KT6120_gpio_read.sh",
    "/home/pi/KT6120/bin/KT6120_sonde_en_write.sh",
    "/home/pi/KT6120/bin/KT6120_shutdown.sh",
    "/home/pi/KT6120/bin/KT6120_stream_start.sh",
    "/home/pi/KT6120/bin/KT6120_stream_stop.sh",
    "/home/pi/KT6120/bin/KT6120_bb_read.sh",
    "/opt/vc/bin/vcgencmd",
    "/home/pi/raspidmx/pngview/pngview",
};

// Programs of the search path that would reach for hardware or for the desk itself.
constexpr const char *searchPathStandIns[] = {"killall",  "logrotate", "gpioset",   "gpioget",
                                              "gpioinfo", "i2cget",    "systemctl", "logger"};

// The converter's channels by what they measure, with a healthy unit's readings.
struct Channel {
    const char *name;
    const char *number;
    const char *reading;
};
constexpr Channel channels[] = {
    {"Boost", "0x12", "0x70"},  {"LED", "0x15", "0x62"},      {"Inter", "0x11", "0x49"},
    {"Encoder", "0x1", "0x2f"}, {"Camera", "0x13", "0x70"},   {"Sonde", "0x14", "0x70"},
    {"LedOut", "0x7", "0x0"},   {"LedInter", "0x10", "0x40"}, {"LedTallwick", "0x16", "0x0"},
};

QByteArray call(QByteArray line)
{
    // seconds since boot, name, arguments, tabs between
    return line.mid(line.indexOf('\t') + 1).replace('\t', ' ');
}

QByteArray unchanged(QByteArray line)
{
    return line;
}

} // namespace

Bench::Bench()
    : mcu(journal), network(journal), phone(journal, network), unit(journal), store(journal),
      log(journal, Kind::Log, world::programLog, unchanged),
      calls(journal, Kind::Call, QString(world::benchFolder) + "/calls", call)
{
    arrange();
    QObject::connect(&unit, &UnitProcess::ended, &mcu, &McuSimulator::renewLine);
}

Bench::~Bench() = default;

void Bench::arrange()
{
    for (const char *path : standIns) {
        recorders::install(path);
        const QString original = world::installedTree + QString(path);
        if (QFile::exists(original))
            recorders::setReal(QFileInfo(path).fileName(), original);
    }
    for (const char *name : searchPathStandIns)
        recorders::install(QString(world::programFolder) + '/' + name);
    recorders::setReal("killall", "/usr/bin/killall");

    recorders::setOutput("vcgencmd", "temp=48.3'C\n");
    recorders::setDelay("pngview", 3600); // shows its image until it is killed
    for (const Channel &channel : channels)
        setAdc(channel.name, channel.reading);
    setUsbFault(false);

    files::create(world::commandsFile, QByteArray());
    files::create(world::cameraState, "ok\n");
    files::create(world::encoderState, "ok\n");
}

QString Bench::placeOf(const QString &program)
{
    for (const char *path : standIns) {
        if (QFileInfo(path).fileName() == program)
            return path;
    }
    return QString(world::programFolder) + '/' + program;
}

void Bench::record(const QString &name)
{
    const QString place = placeOf(name);
    if (QFile::exists(place))
        return;
    recorders::install(place);
    const QString real = QStandardPaths::findExecutable(name, {"/usr/sbin", "/usr/bin"});
    if (place.startsWith(world::programFolder) && !real.isEmpty())
        recorders::setReal(name, real);
}

void Bench::setAdc(const QByteArray &name, const QByteArray &reading)
{
    for (const Channel &channel : channels) {
        if (name == channel.name) {
            recorders::setOutput("KT6120_bb_read.sh " + QString(channel.number), reading + '\n');
            return;
        }
    }
    throw std::runtime_error("the converter has no channel " + name.toStdString());
}

void Bench::setUsbFault(bool fault)
{
    recorders::setOutput("KT6120_gpio_read.sh 26", fault ? "1\n" : "0\n");
}

void Bench::setSpeed(int times, double stride)
{
    clock.setPace(times, stride);
    unit.setPace(times > 1 ? clock.file() : QString());
    phone.setSpeed(times);
    mcu.setSpeed(times);
}

void Bench::mark()
{
    journal.markAll();
    for (const char *name : gauges::names)
        markedGauges[name] = gauges::read(name, unit.id()).value_or(0);
}

RtpTap &Bench::tap(quint16 port)
{
    std::unique_ptr<RtpTap> &place = taps[port];
    if (!place)
        place = std::make_unique<RtpTap>(port, port == palPort ? nullptr : &network);
    return *place;
}

WebServer &Bench::webServer()
{
    if (!page)
        page = std::make_unique<WebServer>(*this);
    return *page;
}

Browser &Bench::browser()
{
    webServer();
    if (!viewer)
        viewer = std::make_unique<Browser>(*this);
    return *viewer;
}

bool Bench::runUntil(const std::function<bool()> &condition, double seconds)
{
    if (condition())
        return true;
    QEventLoop loop;
    QTimer check;
    QTimer bound;
    bool met = false;
    const auto look = [&] {
        if (!met && (met = condition()))
            loop.quit();
    };
    QObject::connect(&check, &QTimer::timeout, &loop, look);
    // Not from within the note: it may come from the middle of somebody's work.
    QObject::connect(&journal, &Journal::noted, &loop, look, Qt::QueuedConnection);
    QObject::connect(&bound, &QTimer::timeout, &loop, &QEventLoop::quit);
    check.start(checkInterval);
    bound.setTimerType(Qt::PreciseTimer);
    bound.start(int(seconds * 1000));
    loop.exec();
    return met || condition();
}

void Bench::runFor(double seconds)
{
    // A program that does not run skips nothing.
    const double end = clock.seconds() + seconds;
    const double bound = unit.isRunning() ? seconds : seconds / clock.speed();
    runUntil([&] { return clock.seconds() >= end || unit.isLost(); }, bound);
}
