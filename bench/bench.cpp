// SPDX-License-Identifier: LicenseRef-KT6120
#include "bench.h"

#include "board/board.h"
#include "board/boardnetwork.h"
#include "board/unitservice.h"
#include "browser.h"
#include "files.h"
#include "gauges.h"
#include "programs.h"
#include "pty.h"
#include "recorders.h"
#include "unitprocess.h"
#include "webserver.h"
#include "world.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTimer>

#include <algorithm>
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

// Those of them that a board has; what would end it stays recorded only.
constexpr const char *boardsOwn[] = {"killall", "logrotate", "gpioset",
                                     "gpioget", "gpioinfo",  "i2cget"};

const QStringList searchPath = {"/usr/sbin", "/usr/bin"};

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

Bench::Bench(Side side, const QString &boardFolder) : onBoard(side == Side::Unit)
{
    if (side == Side::World) {
        board = std::make_unique<Board>(journal, boardFolder);
        network = std::make_unique<BoardNetwork>(journal, *board);
        board->start(*network);
        clock.follow([this] { return board->emulator.seconds(); });
        mcu = std::make_unique<McuSimulator>(
            journal, [this] { return SerialLine::toSocket(board->emulator.mcuLine()); });
    } else {
        arrange();
        store = std::make_unique<StoreWatch>(journal);
        log = std::make_unique<FileTail>(journal, Kind::Log, world::programLog, unchanged);
        calls = std::make_unique<FileTail>(journal, Kind::Call,
                                           QString(world::benchFolder) + "/calls", call);
    }
    if (side == Side::Unit)
        unit = std::make_unique<UnitService>(journal);
    if (side == Side::Both) {
        unit = std::make_unique<UnitProcess>(journal);
        network = std::make_unique<PhoneNetwork>(journal);
        mcu = std::make_unique<McuSimulator>(journal, [] { return std::make_unique<Pty>(); });
        QObject::connect(unit.get(), &Unit::ended, mcu.get(), &McuSimulator::renewLine);
    }
    if (network)
        phone = std::make_unique<PhoneSimulator>(journal, *network);
}

Bench::~Bench() = default;

void Bench::arrange() const
{
    setHealthyAdc();
    const QString arranged = QString(world::benchFolder) + "/arranged";
    if (QFile::exists(arranged))
        return; // a board was, before its power was cut
    for (const char *path : standIns) {
        recorders::install(path);
        const QString original = world::installedTree + QString(path);
        if (QFile::exists(original))
            recorders::setReal(QFileInfo(path).fileName(), original);
    }
    for (const char *name : searchPathStandIns)
        recorders::install(QString(world::programFolder) + '/' + name);
    if (onBoard) {
        for (const char *name : boardsOwn)
            recorders::setReal(name, QStandardPaths::findExecutable(name, searchPath));
    } else {
        recorders::setReal("killall", "/usr/bin/killall");
        setUsbFault(false);
        files::create(world::cameraState, "ok\n");
        files::create(world::encoderState, "ok\n");
    }
    recorders::setOutput("vcgencmd", "temp=48.3'C\n");
    recorders::setDelay("pngview", 3600); // shows its image until it is killed
    files::create(world::commandsFile, QByteArray());
    files::create(arranged, QByteArray());
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
    const QString real = QStandardPaths::findExecutable(name, searchPath);
    if (place.startsWith(world::programFolder) && !real.isEmpty())
        recorders::setReal(name, real);
}

void Bench::setAdc(const QByteArray &name, const QByteArray &reading) const
{
    const auto *channel = std::find_if(std::begin(channels), std::end(channels),
                                       [&](const Channel &row) { return name == row.name; });
    if (channel == std::end(channels))
        throw std::runtime_error("the converter has no channel " + name.toStdString());
    const QString key = QString("KT6120_bb_read.sh ") + channel->number;
    // A board's converter holds bytes; any other answer is a stand-in's.
    if (onBoard && reading.startsWith("0x")) {
        recorders::clearReply(key);
        programs::run("i2cset", {"-y", "1", "0x48", channel->number, reading, "b"});
    } else {
        recorders::setOutput(key, reading + '\n');
    }
}

void Bench::setHealthyAdc() const
{
    for (const Channel &channel : channels)
        setAdc(channel.name, channel.reading);
}

void Bench::setUsbFault(bool fault) const
{
    const QString key = "KT6120_gpio_read.sh 26";
    if (onBoard && !fault)
        recorders::clearReply(key); // the line itself reads so
    else
        recorders::setOutput(key, fault ? "1\n" : "0\n");
}

void Bench::setCamera(const QByteArray &state) const
{
    if (!onBoard)
        files::create(world::cameraState, state + '\n');
    else if (state == "ok")
        programs::run("modprobe", {"vivid"});
    else
        programs::run("modprobe", {"--remove", "vivid"});
}

void Bench::setSpeed(int times, double stride)
{
    if (board)
        return; // its time runs as it does
    clock.setPace(times, stride);
    unit->setPace(times > 1 ? clock.file() : QString());
    phone->setSpeed(times);
    mcu->setSpeed(times);
}

void Bench::mark()
{
    journal.markAll();
    for (const char *name : gauges::names)
        markedGauges[name] = unit ? gauges::read(name, unit->id()).value_or(0) : 0;
}

RtpTap &Bench::tap(quint16 port)
{
    std::unique_ptr<RtpTap> &place = taps[port];
    if (!place)
        place = std::make_unique<RtpTap>(port, port == palPort ? nullptr : network.get());
    return *place;
}

WebServer &Bench::webServer()
{
    if (board)
        throw std::runtime_error("the bench serves no page of a board");
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
    const double end = clock.seconds() + seconds;
    const auto look = [&] {
        if ((!met && (met = condition())) || (board && isOver(end)))
            loop.quit();
    };
    QObject::connect(&check, &QTimer::timeout, &loop, look);
    // Not from within the note: it may come from the middle of somebody's work.
    QObject::connect(&journal, &Journal::noted, &loop, look, Qt::QueuedConnection);
    QObject::connect(&bound, &QTimer::timeout, &loop, &QEventLoop::quit);
    check.start(checkInterval);
    if (!board) { // whose seconds are its own
        bound.setTimerType(Qt::PreciseTimer);
        bound.start(int(seconds * 1000));
    }
    loop.exec();
    return met || condition();
}

void Bench::runFor(double seconds)
{
    // A program that does not run skips nothing.
    const double end = clock.seconds() + seconds;
    const double bound = !unit || unit->isRunning() ? seconds : seconds / clock.speed();
    runUntil([&] { return clock.seconds() >= end || isUnitLost(); }, bound);
}

bool Bench::isOver(double end)
{
    return !board->emulator.isRunning() || clock.seconds() >= end;
}

void Bench::cutPower()
{
    board->cut();
}

void Bench::switchOn()
{
    board->switchOn(*network);
    mcu->renewLine(); // before the program talks on it
    board->waitForHello();
}
