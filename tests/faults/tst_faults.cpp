// SPDX-License-Identifier: LicenseRef-KT6120

// The unit's files on a disk that is full or read-only, and where something else than a file has
// their place or that of their lock.

#include "eventhandler.h"
#include "messagehandler.h"
#include "monitor.h"

#include "testsupport.h"

#include <QtTest>

#include <sys/mount.h>
#include <sys/stat.h>

using testsupport::iniValue;
using testsupport::OutputCapture;
using testsupport::readFile;
using testsupport::writeFile;

namespace
{

const QString folder = "/home/pi/KT6120/bin/";
const QString store = folder + "KT6120.ini";
const QString configuration = folder + "kestraConfig.ini";
const QString programLog = folder + "commands_log.log";
const QString mcuLog = folder + "mcu_log.log";
const QString csv = folder + "status_log.csv";
const QString commandsFile = "/var/www/html/commands.txt";

void fillDisk(int blocksLeft)
{
    QFile ballast(folder + "ballast");
    if (!ballast.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        qFatal("no ballast");
    for (int size = 65536; size > 0; size /= 2) {
        while (ballast.write(QByteArray(size, 'x')) == size)
            ;
    }
    ballast.resize(ballast.size() - qint64(blocksLeft) * 4096);
}

void setReadOnly(bool readOnly)
{
    const unsigned long flags = MS_REMOUNT | (readOnly ? MS_RDONLY : 0);
    if (mount("disk", folder.toLocal8Bit(), "tmpfs", flags, "size=256k") != 0)
        qFatal("cannot mount again: %s", strerror(errno));
}

// A text, its numbers aside: a rewrite may find room after all when a file beside it gave some up.
QString shape(const QByteArray &text)
{
    return QString(text).replace(QRegularExpression("[0-9]+"), "N");
}

std::unique_ptr<QLockFile> heldLock;

bool make(const QString &path, const QString &state)
{
    const QByteArray name = path.toLocal8Bit();
    if (state == "folder")
        return QDir().mkdir(path);
    if (state == "pipe")
        return mkfifo(name, 0600) == 0;
    if (state.startsWith('/'))
        return symlink(state.toLocal8Bit(), name) == 0;
    if (state == "held") {
        heldLock = std::make_unique<QLockFile>(path);
        return heldLock->lock();
    }
    writeFile(path, state == "garbled" ? QByteArray(40, '\0') : QByteArray());
    return true;
}

// What kind of thing has the name, and what kind it leads to.
using Kinds = std::pair<mode_t, mode_t>;
Kinds kinds(const QString &path)
{
    struct stat own = {};
    struct stat target = {};
    lstat(path.toLocal8Bit(), &own);
    stat(path.toLocal8Bit(), &target);
    return {own.st_mode, target.st_mode};
}

bool clear(const QString &path)
{
    heldLock.reset();
    return QFile::remove(path) || QDir().rmdir(path) || kinds(path) == Kinds();
}

// One round of writing, in all five files.
void write(eventHandler &handler, int32_t number)
{
    QString text = QString("T%1").arg(number);
    handler.eventHandlerProcess(EVENT_BatteryState, SOURCE_MCU,
                                payloadPointer<EVENT_BatteryState>(number));
    handler.eventHandlerProcess(EVENT_CoilerModel, SOURCE_APP,
                                payloadPointer<EVENT_CoilerModel>(text));
    handler.eventHandlerProcess(EVENT_WriteLogs, SOURCE_MCU, payloadPointer<EVENT_WriteLogs>(text));
    QMetaObject::invokeMethod(handler.findChild<monitor *>(), "monitor_timer_expired");
    QCoreApplication::processEvents(); // the configuration file
}

} // namespace

class tst_faults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("PATH", "/nowhere"); // no log rotation
        QCOMPARE(mkfifo("/tmp/pipe", 0600), 0);
    }

    void init()
    {
        testsupport::freshWorld();
        QCOMPARE(mount("disk", folder.toLocal8Bit(), "tmpfs", 0, "size=256k"), 0);
    }
    void cleanup() { QCOMPARE(umount(folder.toLocal8Bit()), 0); }

    void diskThatTakesNothing_data()
    {
        QTest::addColumn<int>("blocksLeft"); // -1: read-only
        QTest::addColumn<bool>("fresh");     // log, CSV and MCU log are not there yet
        QTest::newRow("full") << 0 << false;
        QTest::newRow("full from the start") << 0 << true;
        QTest::newRow("one block left") << 1 << false; // the lock takes it, not the file
        QTest::newRow("two blocks left") << 2 << false;
        QTest::newRow("read-only") << -1 << false;
        QTest::newRow("read-only from the start") << -1 << true;
    }
    void diskThatTakesNothing()
    {
        QFETCH(int, blocksLeft);
        QFETCH(bool, fresh);
        const bool readOnly = blocksLeft < 0;
        const OutputCapture printed;
        const QtMessageHandler before = qInstallMessageHandler(MessageHandler);
        {
            eventHandler handler;
            write(handler, 1);
            for (const QString &path : {programLog, mcuLog, csv})
                QVERIFY(!fresh || QFile::remove(path));
            const QStringList all = {store, configuration, programLog, mcuLog, csv};
            QByteArrayList old;
            for (const QString &path : all)
                old += readFile(path);
            if (readOnly)
                setReadOnly(true);
            else
                fillDisk(blocksLeft);
            // Enough to fill what is left of the last block of log and CSV.
            for (int32_t number = 2; number < 200; ++number)
                write(handler, number);
            QVERIFY(!readFile(store).contains("State=199")); // it was full
            for (int i = 0; i < all.size(); ++i) {
                const bool appended = all[i] == programLog || all[i] == csv;
                const QByteArray now = readFile(all[i]);
                QVERIFY2(appended ? now.startsWith(old[i]) : shape(now) == shape(old[i]),
                         qPrintable(all[i] + " holds: " + now));
            }
            if (readOnly)
                setReadOnly(false);
            else
                QVERIFY(QFile::remove(folder + "ballast"));
            write(handler, 200);
            TRY_COMPARE(iniValue(configuration, "Coiler/Model"), QString("T200"));
        }
        qInstallMessageHandler(before);
        QCOMPARE(iniValue(store, "Battery/State"), QString("200"));
        QCOMPARE(iniValue(store, "Compute/SoftwareVersion"), QString("V" PROGRAM_VERSION));
        QCOMPARE(readFile(mcuLog), QByteArray("T200"));
        QVERIFY(printed.text().contains("Error Creating File\n"));
        // No line of the log and no row is torn or glued to another.
        const QRegularExpression wholeLines(
            "^([-0-9]{10} [:0-9]{8},(4,[A-Z][^,\n]* [0-9]+( mA)?|2,Error[^\n]*)?\n)+$");
        QVERIFY(wholeLines.match(readFile(programLog)).hasMatch());
        QVERIFY(readFile(programLog).endsWith(",4,Battery State Changed to:  200\n"));
        const QRegularExpression wholeRows("^timestamp,[^\n]*\n([^,\n]*(,[^,\n]*){12}\n)+$");
        QVERIFY(wholeRows.match(readFile(csv)).hasMatch());
    }

    // Whoever reads it by another name or has it open sees each new text.
    void theMcuLogStaysTheSameFile()
    {
        const testsupport::LogCapture quiet;
        writeFile(mcuLog, "as it was");
        QCOMPARE(link(mcuLog.toLocal8Bit(), (mcuLog + ".too").toLocal8Bit()), 0);
        eventHandler handler;
        for (const char *text : {"a longer text than it was", "short", ""}) {
            QString log(text);
            handler.eventHandlerProcess(EVENT_WriteLogs, SOURCE_MCU, &log);
            QCOMPARE(readFile(mcuLog + ".too"), QByteArray(text));
        }
    }

    // Opening, reading or locking what is not a regular file could take for ever, and a new file
    // in the place of a device would be the end of the device.
    void somethingElseInAFilesPlace_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("state"); // with a slash: a link to there
        const QString places[] = {
            store,  configuration, store + ".lock", configuration + ".lock", programLog,
            mcuLog, csv,           commandsFile};
        for (const QString &place : places) {
            for (const char *state : {"folder", "pipe", "/nowhere/file", "/tmp/pipe", "/dev/zero"})
                QTest::addRow("%s: %s", qPrintable(QFileInfo(place).fileName()), state)
                    << place << state;
        }
        // A lock that a power cut left, and one of another program that hangs.
        for (const char *state : {"empty", "garbled", "held"}) {
            for (const QString &place : {store, configuration})
                QTest::addRow("%s.lock: %s", qPrintable(QFileInfo(place).fileName()), state)
                    << place + ".lock" << state;
        }
    }
    void somethingElseInAFilesPlace()
    {
        QFETCH(QString, path);
        QFETCH(QString, state);
        writeFile(commandsFile, "");
        if (path == commandsFile)
            QVERIFY(QFile::remove(path));
        QVERIFY(make(path, state));
        const Kinds before = kinds(path);
        const OutputCapture printed;
        const QtMessageHandler handlerBefore = qInstallMessageHandler(MessageHandler);
        {
            eventHandler handler;
            for (const int32_t round : {1, 3}) {
                write(handler, round);
                handler.eventHandlerFIFOChanged(commandsFile);
                if (path.endsWith(".lock") && state != "folder" && state != "held") {
                    QVERIFY(kinds(path) == Kinds()); // removed
                } else {
                    QVERIFY(kinds(path) == before);
                    QVERIFY(clear(path));
                }
                write(handler, round + 1); // what waited is written, too
                const QString text = QString("T%1").arg(round + 1);
                QCOMPARE(iniValue(store, "Battery/State"), QString::number(round + 1));
                QCOMPARE(iniValue(configuration, "Coiler/Model"), text);
                QCOMPARE(readFile(mcuLog), text.toUtf8());
                QVERIFY(readFile(csv).startsWith("timestamp,"));
                if (round == 1) { // and once more while it runs
                    QCOMPARE(iniValue(store, "Compute/SoftwareVersion"),
                             QString("V" PROGRAM_VERSION));
                    QVERIFY(clear(path) && make(path, state));
                }
            }
        }
        qInstallMessageHandler(handlerBefore);
        QVERIFY(readFile(programLog).endsWith(",4,Battery State Changed to:  4\n"));
        QCOMPARE(printed.text().contains("Error Creating File"), path == programLog);
    }
};

QTEST_GUILESS_MAIN(tst_faults)
#include "tst_faults.moc"
