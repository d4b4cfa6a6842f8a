// SPDX-License-Identifier: LicenseRef-KT6120

// The unit's files on a disk that is full or read-only, and with something other than a file in
// their place or that of their lock.

#include "eventhandler.h"
#include "messagehandler.h"
#include "monitor.h"

#include "paths.h"
#include "settings.h"
#include "testsupport.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

using namespace testsupport;

namespace
{

const char folder[] = "/home/pi/KT6120/bin";
const QString store = paths::statusStore;
const QString configuration = paths::configuration;

// Full up to some blocks, read-only (readOnly blocks), or emptied again (wide).
constexpr int readOnly = -1;
constexpr int wide = -2;
void leave(int blocks, const QString &disk = folder)
{
    QFile ballast(disk + "/ballast");
    const unsigned long flags = MS_REMOUNT | (blocks == readOnly ? MS_RDONLY : 0);
    mount("disk", folder, "tmpfs", flags, "size=256k");
    ballast.remove();
    if (blocks < 0)
        return;
    QVERIFY(ballast.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    for (int size = 65536; size > 0; size /= 2) {
        while (ballast.write(QByteArray(size, 'x')) == size)
            ;
    }
    ballast.resize(ballast.size() - qint64(blocks) * 4096);
}

// A text without its numbers: a rewrite may succeed after another file has shrunk.
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
    // As old as a unit needs to start again, or newer than a clock that was set back by an hour.
    const timespec made = {time(nullptr) + (state == "garbled" ? 3600 : -10), 0};
    const timespec times[] = {made, made};
    return state == "new" || utimensat(AT_FDCWD, name, times, 0) == 0;
}

// The file type, of a symlink its own and its target's; empty if there is nothing.
QList<mode_t> kinds(const QString &path)
{
    struct stat own = {};
    struct stat target = {};
    if (lstat(path.toLocal8Bit(), &own) != 0)
        return {};
    stat(path.toLocal8Bit(), &target);
    return {own.st_mode, target.st_mode};
}

bool clear(const QString &path)
{
    heldLocks.clear();
    return QFile::remove(path) || QDir().rmdir(path) || kinds(path).isEmpty();
}

// Writes a number to all five files.
void write(eventHandler &handler, int32_t number)
{
    QString text = QString("T%1").arg(number);
    auto current = static_cast<uint16_t>(number);
    handler.eventHandlerProcess(EVENT_BatteryState, SOURCE_MCU,
                                payloadPointer<EVENT_BatteryState>(number));
    handler.eventHandlerProcess(EVENT_Current, SOURCE_MCU, payloadPointer<EVENT_Current>(current));
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
        QCOMPARE(mount("disk", folder, "tmpfs", 0, "size=256k"), 0);
        qInstallMessageHandler(MessageHandler);
    }
    void cleanup()
    {
        heldLocks.clear();
        QVERIFY(openDescriptors() < 40);
        QCOMPARE(umount2(folder, MNT_DETACH), 0); // a child may still end
    }

    // An unchanged value is written again after a while, and at once where the file lacks it.
    void unchangedValuesSpareTheCard()
    {
        settings values(nullptr);
        const auto inodeAfterWrite = [&] {
            values.settingsSetValue(keys::batteryState, 7);
            struct stat status = {};
            stat(qPrintable(store), &status);
            return status.st_ino;
        };
        const ino_t first = inodeAfterWrite();
        QCOMPARE(inodeAfterWrite(), first);
        TRY_VERIFY(inodeAfterWrite() != first);
        for (const bool amongOthers : {false, true}) {
            writeFile(store, "[Battery]\nState=8\n");
            if (amongOthers)
                values.settingsSetValue(keys::cameraType, 1);
            inodeAfterWrite();
            QCOMPARE(iniValue(store, "Battery/State"), QString("7"));
        }
    }

    void diskThatTakesNothing_data()
    {
        QTest::addColumn<int>("blocks");
        QTest::addColumn<bool>("fresh"); // log, CSV and MCU log do not exist yet
        QTest::newRow("full") << 0 << false;
        QTest::newRow("full from the start") << 0 << true;
        QTest::newRow("one block left") << 1 << false; // the lock takes it, not the file
        QTest::newRow("two blocks left") << 2 << false;
        QTest::newRow("read-only") << readOnly << false;
    }
    void diskThatTakesNothing()
    {
        QFETCH(int, blocks);
        QFETCH(bool, fresh);
        const OutputCapture printed;
        {
            eventHandler handler;
            write(handler, 1);
            const QStringList appended = {paths::programLog, paths::statusCsv};
            const QStringList rewritten = {store, configuration, paths::mcuLog};
            for (const QString &path : appended + rewritten.mid(2))
                QVERIFY(!fresh || QFile::remove(path));
            QHash<QString, QByteArray> old;
            for (const QString &path : appended + rewritten)
                old[path] = readFile(path);
            leave(blocks);
            // Enough to fill what is left of the last block of log and CSV.
            for (int32_t number = 2; number < 200; ++number)
                write(handler, number);
            QVERIFY(!readFile(store).contains("State=199")); // it was full
            QVERIFY(printed.text().contains("Error Creating File\n"));
            for (const QString &path : appended)
                QVERIFY2(readFile(path).startsWith(old[path]), qPrintable(path));
            for (const QString &path : rewritten)
                QCOMPARE(shape(readFile(path)), shape(old[path]));
            leave(wide);
            TRY_VERIFY(readFile(configuration).contains("Model=T199\n")); // retried
            write(handler, 200);
            TRY_COMPARE(iniValue(configuration, "Coiler/Model"), QString("T200"));
        }
        QCOMPARE(iniValue(store, "Battery/State"), QString("200"));
        QCOMPARE(readFile(paths::mcuLog), QByteArray("T200"));
        // No line of the log and no row is torn or joined to another.
        const QRegularExpression wholeLines(
            "^([-0-9]{10} [:0-9]{8},(4,[A-Z][^,\n]* [0-9]+( mA)?|2,Error[^\n]*)?\n)+$");
        QVERIFY(wholeLines.match(readFile(paths::programLog)).hasMatch());
        QVERIFY(readFile(paths::programLog).endsWith(",4,Battery State Changed to:  200\n"));
        const QRegularExpression wholeRows("^timestamp,[^\n]*\n([^,\n]*(,[^,\n]*){12}\n)+$");
        QVERIFY(wholeRows.match(readFile(paths::statusCsv)).hasMatch());
    }

    // The files are read at the start, whatever the state of their locks and their disk. The count
    // of unknown commands has 16 bits. The MCU log stays the same file for who has it open.
    void startsAsConfigured_data()
    {
        QTest::addColumn<QString>("lock");
        QTest::addColumn<int>("blocks");
        QTest::newRow("folder at the lock") << "folder" << 9;
        QTest::newRow("held") << "held" << 9;
        QTest::newRow("read-only") << "empty" << readOnly;
        QTest::newRow("full") << "" << 0;
        QTest::newRow("four blocks left") << "" << 4;
    }
    void startsAsConfigured()
    {
        QFETCH(QString, lock);
        QFETCH(int, blocks);
        const testsupport::LogCapture log;
        writeFile(store, "[Camera]\nCoilerOffset=2.5\n[Commands]\nUnknown=65534\n"
                         "[Sonde]\nFrequency=\"33, k\"\n");
        writeFile(configuration, "[Coiler]\nEncoderScalar=0.5\nModel=\"\\xe4, %2\"\n"
                                 "[Lamp]\nMaxCurrent=5\n");
        writeFile(paths::mcuLog, "as it was");
        const QString sameFile = paths::mcuLog + QString(".too");
        QCOMPARE(link(paths::mcuLog, sameFile.toLocal8Bit()), 0);
        for (const QString &path : {store, configuration})
            QVERIFY(lock.isEmpty() || make(path + ".lock", lock));
        leave(blocks);
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
        leave(wide);
        QVERIFY(lock.isEmpty() || clear(store + ".lock"));
        TRY_VERIFY(readFile(store).contains("Unknown=65535\n"));
        handler.eventHandlerProcess(EVENT_UnknownCommand, SOURCE_APP, nullptr);
        TRY_VERIFY(readFile(store).contains("Unknown=0\n"));
        QString text("short");
        handler.eventHandlerProcess(EVENT_WriteLogs, SOURCE_MCU, &text);
        QCOMPARE(readFile(sameFile), QByteArray("short"));
    }

    // A wait is twenty sleeps, each of them a voluntary context switch.
    void aHeldLockIsWaitedForOnce()
    {
        QVERIFY(make(store + ".lock", "held"));
        rusage before = {}, after = {};
        getrusage(RUSAGE_SELF, &before);
        settings values(nullptr);
        for (int i = 0; i < 20; ++i) {
            values.settingsSetValue(keys::batteryState, i);
            QCOMPARE(values.settingsGetValue(keys::batteryState).toInt(), i);
        }
        getrusage(RUSAGE_SELF, &after);
        QCOMPARE((after.ru_nvcsw - before.ru_nvcsw) / 20, 1);
    }

    // The free space that counts is that of the symlink's target.
    void aLinkedStoreOnAFullDisk()
    {
        const testsupport::LogCapture quiet;
        const QString disk = "/tmp/disk";
        QVERIFY(QDir().mkpath(disk));
        QCOMPARE(mount("disk", disk.toLocal8Bit(), "tmpfs", 0, "size=64k"), 0);
        writeFile(disk + "/store", "[Sonde]\nFrequency=33k\n");
        leave(0, disk);
        QVERIFY(make("/tmp/link", disk + "/store") && make(store, "/tmp/link"));
        eventHandler handler;
        QCOMPARE(readFile(store), QByteArray("[Sonde]\nFrequency=33k\n"));
        QCOMPARE(umount2(disk.toLocal8Bit(), MNT_DETACH), 0);
    }

    // Opening, reading or locking what is not a regular file could block, and replacing it would
    // destroy a device.
    void somethingElseInAFilesPlace_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("state"); // with a slash: a symlink to there
        const auto add = [](const QString &path, const char *state) {
            QTest::addRow("%s: %s", qPrintable(QFileInfo(path).fileName()), state) << path << state;
        };
        for (const QString &path : {store, configuration, store + ".lock", configuration + ".lock",
                                    QString(paths::programLog), QString(paths::mcuLog),
                                    QString(paths::statusCsv), QString(paths::commandsFile)}) {
            for (const char *state : {"folder", "pipe", "/nowhere/file", "/tmp/pipe", "/dev/zero"})
                add(path, state);
        }
        // A lock file that a power cut left, that of another program that hangs, and one that
        // another program has just created and not yet locked.
        for (const char *state : {"empty", "garbled", "held", "new"}) {
            for (const QString &path : {store, configuration})
                add(path + ".lock", state);
        }
    }
    void somethingElseInAFilesPlace()
    {
        QFETCH(QString, path);
        QFETCH(QString, state);
        const bool stale =
            path.endsWith(".lock") && !QStringList({"folder", "held", "new"}).contains(state);
        writeFile(paths::commandsFile, "");
        QVERIFY(clear(path) && make(path, state));
        const auto before = kinds(path);
        const OutputCapture printed;
        {
            eventHandler handler;
            for (const int32_t round : {1, 3}) {
                write(handler, round);
                handler.eventHandlerFIFOChanged(paths::commandsFile);
                QCOMPARE(kinds(path), stale ? QList<mode_t>() : before);
                QVERIFY(clear(path));
                write(handler, round + 1); // with what was postponed
                const QString text = QString("T%1").arg(round + 1);
                QCOMPARE(iniValue(store, "Battery/State"), QString::number(round + 1));
                QCOMPARE(iniValue(configuration, "Coiler/Model"), text);
                QCOMPARE(readFile(paths::mcuLog), text.toUtf8());
                QVERIFY(readFile(paths::statusCsv).startsWith("timestamp,"));
                if (round == 1) { // and once more while it runs
                    QCOMPARE(iniValue(store, "Compute/SoftwareVersion"),
                             QString("V" PROGRAM_VERSION));
                    QVERIFY(clear(path) && make(path, state));
                }
            }
        }
        QVERIFY(readFile(paths::programLog).endsWith(",4,Battery State Changed to:  4\n"));
        QCOMPARE(readFile(paths::programLog).contains(",2,Error Creating MCU Log File\n"),
                 path == paths::mcuLog);
        QCOMPARE(printed.text().contains("Error Creating File"), path == paths::programLog);
    }
};

// For powercut.py, with the argument "write": round N writes N to all files, until it is killed.
// "N\n" on standard output says that the round begins.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    if (!QCoreApplication::arguments().contains("write")) {
        tst_faults tests;
        return QTest::qExec(&tests, argc, argv);
    }
    qInstallMessageHandler(MessageHandler);
    eventHandler handler;
    for (int32_t round = 1;; ++round) {
        printf("%d\n", round);
        fflush(stdout);
        write(handler, round);
    }
}

#include "tst_faults.moc"
