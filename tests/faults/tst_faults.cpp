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
#include <vector>

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

void fillDisk(int blocksLeft, const QString &disk = folder)
{
    QFile ballast(disk + "ballast");
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

std::vector<std::unique_ptr<QLockFile>> heldLocks;

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
        heldLocks.push_back(std::make_unique<QLockFile>(path));
        heldLocks.back()->lock();
    } else {
        writeFile(path, state == "garbled" ? QByteArray(40, '\0') : QByteArray());
    }
    if (state == "new")
        return true;
    // Older than the unit's start, or ahead of a clock that lost an hour.
    const timespec made = {state == "garbled" ? time(nullptr) + 3600 : 0, 0};
    const timespec times[] = {made, made};
    return utimensat(AT_FDCWD, name, times, 0) == 0;
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
    heldLocks.clear();
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
    void cleanup()
    {
        heldLocks.clear();
        QCOMPARE(umount(folder.toLocal8Bit()), 0);
    }

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
            TRY_VERIFY(readFile(configuration).contains("Model=T199\n")); // tried again
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

    // What the files say counts from the start, whatever their locks and their disk are like.
    void startsAsConfigured_data()
    {
        QTest::addColumn<QString>("lock");
        QTest::addColumn<int>("blocksLeft"); // -1: read-only
        QTest::newRow("folder at the lock") << "folder" << 9;
        QTest::newRow("held") << "held" << 9;
        QTest::newRow("read-only") << "empty" << -1;
        QTest::newRow("full") << "" << 0;
        QTest::newRow("four blocks left") << "" << 4;
    }
    void startsAsConfigured()
    {
        QFETCH(QString, lock);
        QFETCH(int, blocksLeft);
        const testsupport::LogCapture log;
        writeFile(store, "[Camera]\nCoilerOffset=2.5\n[Commands]\nUnknown=7\n"
                         "[Sonde]\nFrequency=\"33, k\"\n");
        writeFile(configuration, "[Coiler]\nEncoderScalar=0.5\nModel=\"\\xe4, %2\"\n"
                                 "[Lamp]\nMaxCurrent=5\n");
        for (const QString &path : {store, configuration})
            QVERIFY(lock.isEmpty() || make(path + ".lock", lock));
        if (blocksLeft < 0)
            setReadOnly(true);
        else
            fillDisk(blocksLeft);
        eventHandler handler;
        QVERIFY(log.texts(QtInfoMsg).contains("LED current limit set to  5 mA"));
        QString answers;
        connect(&handler, &eventHandler::eventHandlerSendExternalCmd, &handler,
                [&answers](const QString &text) { answers += text; });
        int16_t counts = 80;
        handler.eventHandlerProcess(EVENT_CoilerValue, SOURCE_MCU, &counts);
        for (const EVENT_TYPE_t event :
             {EVENT_CoilerValueRequest, EVENT_SondeFrequencyRequest, EVENT_CoilerModelRequest,
              EVENT_LampUp, EVENT_LampUp, EVENT_LampValueRequest, EVENT_UnknownCommand})
            handler.eventHandlerProcess(event, SOURCE_APP, nullptr);
        QCOMPARE(answers, QString::fromUtf8(
                              "CoilerValue 42.5\rSondeFreq 33, kModel ä, %2\r\nLampValue 17\r\n"));
        if (blocksLeft < 0)
            setReadOnly(false);
        QFile::remove(folder + "ballast");
        QVERIFY(lock.isEmpty() || clear(store + ".lock"));
        TRY_VERIFY(readFile(store).contains("Unknown=8\n"));
    }

    // Room is looked for where a link leads.
    void aLinkedStoreOnAFullDisk()
    {
        const testsupport::LogCapture quiet;
        const QString disk = "/tmp/disk/";
        QVERIFY(QDir().mkpath(disk));
        QCOMPARE(mount("disk", disk.toLocal8Bit(), "tmpfs", 0, "size=64k"), 0);
        writeFile(disk + "store", "[Sonde]\nFrequency=33k\n");
        fillDisk(0, disk);
        QVERIFY(make("/tmp/link", disk + "store") && make(store, "/tmp/link"));
        eventHandler handler;
        QCOMPARE(readFile(store), QByteArray("[Sonde]\nFrequency=33k\n"));
        QCOMPARE(umount(disk.toLocal8Bit()), 0);
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
        // Or one that another program has just made and not yet taken.
        for (const char *state : {"empty", "garbled", "held", "new"}) {
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
                if (path.endsWith(".lock") && state != "folder" && state != "held"
                    && state != "new") {
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
