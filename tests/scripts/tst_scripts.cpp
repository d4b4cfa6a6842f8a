// SPDX-License-Identifier: LicenseRef-KT6120

// The unit's scripts in a world whose tools are recorded stand-ins.

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

#include <csignal>
#include <sys/stat.h>

using recorders::calls;
using testsupport::readFile;
using testsupport::writeFile;

namespace
{

const QString installed = "/home/pi/KT6120/bin/";
const QString tools = "/tmp/tools/";

struct Outcome {
    int status;
    QByteArray printed;
    QByteArray complaint;
};

Outcome run(const QString &script, const QStringList &arguments)
{
    QProcess process;
    process.start(installed + script, arguments);
    if (!process.waitForFinished(testsupport::patience)
        || process.exitStatus() != QProcess::NormalExit)
        qFatal("%s does not end", qPrintable(script));
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

// libgpiod's tools of a version, or none.
void installGpiod(const QByteArray &version)
{
    for (const char *tool : {"gpioset", "gpioget"}) {
        QFile::remove(tools + tool);
        if (version.isEmpty())
            continue;
        recorders::install(tools + tool);
        recorders::setReply(QString(tool) + " --version",
                            QByteArray(tool) + " (libgpiod) v" + version + "\nCopyright\n");
    }
}

bool isRunning(int pid)
{
    return kill(pid, 0) == 0;
}

} // namespace

class tst_scripts : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QDir().mkpath(tools);
        // The search path holds these and the stand-ins only, whatever the desk has installed.
        for (const QString tool : {"cat", "cut", "dirname", "flock", "grep", "sh", "timeout"})
            QVERIFY(QFile::link(QStandardPaths::findExecutable(tool), tools + tool));
        // Waits between two looks pass quickly.
        writeFile(tools + "sleep", "#!/bin/sh\nexec /bin/sleep 0.02\n");
        QFile::setPermissions(tools + "sleep", QFile::ReadOwner | QFile::ExeOwner);
        for (const char *tool : {"i2cget", "systemctl", "logger"})
            recorders::install(tools + tool);
        qputenv("PATH", tools.toLocal8Bit());
    }
    void init()
    {
        testsupport::freshWorld();
        const QDir source(UNIT_SCRIPTS);
        for (const QString &script : source.entryList({"KT6120_*.sh"}))
            QVERIFY(QFile::copy(source.filePath(script), installed + script));
        installGpiod("1.6.3");
    }

    void chores()
    {
        const struct {
            QByteArray gpiod;
            QString command, tool; // the call that it makes
            QByteArray reply;
            int toolStatus, status;
        } rows[] = {
            // clang-format off
            {"1.6.3", "gpio_write.sh 21 1", "gpioset --mode=signal --background gpiochip0 21=1", "", 0, 0},
            {"2.2.1", "gpio_write.sh 25 0", "gpioset --daemonize --chip gpiochip0 25=0", "", 0, 0},
            {"2.2.1", "gpio_write.sh 19 1", "gpioset --daemonize --chip gpiochip0 19=1", "busy", 3, 1},
            {"1.6.3", "sonde_en_write.sh 43 0", "gpioset --mode=signal --background gpiochip0 43=0", "", 0, 0},
            {"1.6.3", "gpio_read.sh 26", "gpioget gpiochip0 26", "1\n", 0, 0},
            {"2.2.1", "gpio_read.sh 26", "gpioget --numeric --chip gpiochip0 26", "0\n", 0, 0},
            {"1.6.3", "gpio_read.sh 26", "gpioget gpiochip0 26", "", 4, 1},
            {"", "bb_read.sh 0x12", "i2cget -y 1 0x48 0x12", "0x64\n", 0, 0},
            {"", "bb_read.sh 0x7", "i2cget -y 1 0x48 0x7", "0x00\n", 2, 1},
            {"", "bb_read.sh 0x7", "i2cget -y 1 0x48 0x7", "Warning\n", 0, 1},
            {"", "shutdown.sh", "systemctl poweroff", "", 0, 0},
            {"", "shutdown.sh", "systemctl poweroff", "", 5, 5},
            // clang-format on
        };
        for (const auto &row : rows) {
            installGpiod(row.gpiod);
            recorders::clearCalls();
            recorders::setReply(row.tool, row.reply, 0, row.toolStatus);
            QStringList words = row.command.split(' ');
            const Outcome outcome = run("KT6120_" + words.takeFirst(), words);
            QCOMPARE(outcome.status, row.status);
            QCOMPARE(outcome.printed, outcome.status == 0 ? row.reply : QByteArray());
            const QStringList made = calls().filter(QRegularExpression("^(?!\\S+ --version$)"));
            QCOMPARE(made, QStringList(row.tool));
        }
    }

    void wrongArguments()
    {
        QStringList commands = {"shutdown.sh now",  "usb_monitor.sh 1-1", "bb_read.sh",
                                "bb_read.sh ",      "bb_read.sh 12",      "bb_read.sh 0x",
                                "bb_read.sh 0x123", "bb_read.sh 0xG",     "bb_read.sh 0x1 0x2"};
        for (const char *script : {"gpio_read.sh", "gpio_write.sh", "sonde_en_write.sh"}) {
            for (const char *noLine : {"", " ", " 54", " 026", " -1", " 26 1 1"})
                commands += QString(script) + noLine;
        }
        for (const char *noLevel : {" 21", " 21 2", " 21 01"})
            commands << QString("gpio_write.sh") + noLevel
                     << QString("sonde_en_write.sh") + noLevel;
        for (const QString &command : commands) {
            QStringList words = command.split(' ');
            const QString script = "KT6120_" + words.takeFirst();
            const auto [status, printed, complaint] = run(script, words);
            const bool refused = status == 2 && printed.isEmpty() && calls().isEmpty();
            QVERIFY2(refused && complaint.count('\n') == 1
                         && complaint.startsWith("usage: KT6120_"),
                     qPrintable(command + ": " + complaint));
        }
    }

    // A line stays driven by a process; a new level replaces it and nobody else's.
    void drivenLinesAreHeld()
    {
        QFile::remove(tools + "gpioset");
        writeFile(tools + "gpioset", "#!/bin/sh\n/bin/sleep 600 <&- >&- 2>&- &\n"
                                     "echo $! >>/tmp/holders\n");
        recorders::install(tools + "gpioset");
        QVERIFY(QProcess::execute(tools + "gpioset", {"21=1"}) == 0);
        for (const char *level : {"21 1", "19 1", "21 1", "21 0"}) // the third is there already
            QCOMPARE(run("KT6120_gpio_write.sh", QString(level).split(' ')).status, 0);
        const QByteArrayList ids = readFile("/tmp/holders").trimmed().split('\n');
        QCOMPARE(ids.size(), 4);
        for (int i = 0; i < ids.size(); ++i)
            TRY_COMPARE(isRunning(ids[i].toInt()), i != 1);
        for (const QByteArray &id : ids)
            kill(id.toInt(), SIGKILL);
        TRY_VERIFY(!isRunning(ids.last().toInt()));
        QVERIFY(QFile::remove("/run/bench/real/gpioset"));
    }

    // Without the tools lines go through sysfs, which makes a line's folder when told to.
    void sysfsInstead()
    {
        installGpiod("");
        const QString gpio = "/sys/class/gpio/";
        for (const char *chip : {"gpiochip512", "gpiochip566"})
            QVERIFY(QDir().mkpath(gpio + chip));
        writeFile(gpio + "gpiochip512/label", "other\n");
        writeFile(gpio + "gpiochip512/base", "512\n");
        writeFile(gpio + "gpiochip566/label", "pinctrl-bcm2835\n");
        writeFile(gpio + "gpiochip566/base", "566\n");
        QCOMPARE(mkfifo(qPrintable(gpio + "export"), 0600), 0);
        QProcess kernel;
        kernel.start("/bin/sh", {"-c", "cd " + gpio
                                           + "; exec 3<>export; for line in 1 2; do read -r n <&3;"
                                             " /bin/mkdir new; echo 1 >new/value;"
                                             " echo in >new/direction; /bin/mv new gpio$n; done"});
        QCOMPARE(run("KT6120_gpio_write.sh", {"21", "1"}).status, 0);
        QCOMPARE(readFile(gpio + "gpio587/direction"), QByteArray("high\n"));
        QCOMPARE(run("KT6120_gpio_write.sh", {"21", "0"}).status, 0);
        QCOMPARE(readFile(gpio + "gpio587/direction"), QByteArray("low\n"));
        const Outcome read = run("KT6120_gpio_read.sh", {"26"});
        QCOMPARE(read.printed, QByteArray("1\n"));
        QCOMPARE(read.status, 0);
        QCOMPARE(readFile(gpio + "gpio592/direction"), QByteArray("in\n"));
        QVERIFY(kernel.waitForFinished());

        QVERIFY(QDir(gpio).removeRecursively());
        const Outcome none = run("KT6120_gpio_read.sh", {"26"});
        QCOMPARE(none.printed, QByteArray());
        QCOMPARE(none.status, 1);
    }

    void usbDevicesAreLogged()
    {
        const QString devices = "/sys/bus/usb/devices/";
        const auto plug = [&](const QString &port, const QList<QByteArray> &attributes) {
            QDir().mkpath("/sys/bus/usb/new");
            for (const QByteArray &attribute : attributes)
                writeFile("/sys/bus/usb/new/" + attribute.split('=')[0],
                          attribute.split('=')[1] + '\n');
            QDir().mkpath(devices);
            QVERIFY(QDir().rename("/sys/bus/usb/new", devices + port));
        };
        plug("usb1", {"idVendor=1d6b", "idProduct=0002", "bDeviceClass=09"});
        plug("1-1:1.0", {"bInterfaceClass=e0"});

        QProcess program;
        program.start("/bin/sh",
                      {"-c", "/bin/sh " + installed + "KT6120_usb_monitor.sh & echo $!; wait"});
        QVERIFY(program.waitForReadyRead());
        const int script = program.readLine().toInt();

        plug("1-1", {"product=Phone * $(x)", "manufacturer=Maker", "idProduct=5678",
                     "idVendor=1234", "bDeviceClass=00"});
        const QString logged =
            "logger -t KT6120 -- USB device %1: 1-1 1234:5678 Maker Phone * $(x)";
        TRY_COMPARE(calls(), QStringList(logged.arg("connected")));
        QVERIFY(QDir(devices + "1-1").removeRecursively());
        TRY_COMPARE(calls(), QStringList({logged.arg("connected"), logged.arg("disconnected")}));

        // It ends with the program that started it.
        QVERIFY(isRunning(script));
        program.kill();
        QVERIFY(program.waitForFinished());
        TRY_VERIFY(!isRunning(script));
        QVERIFY(QDir("/sys/bus/usb").removeRecursively());
    }
};

QTEST_GUILESS_MAIN(tst_scripts)
#include "tst_scripts.moc"
