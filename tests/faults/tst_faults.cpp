// SPDX-License-Identifier: LicenseRef-KT6120

// The unit's files on a disk that is full or read-only, and beside locks that a power cut left.

#include "eventhandler.h"
#include "messagehandler.h"
#include "monitor.h"

#include "testsupport.h"

#include <QtTest>

#include <sys/mount.h>

using testsupport::iniValue;
using testsupport::readFile;

namespace
{

const QString folder = "/home/pi/KT6120/bin/";
const QString store = folder + "KT6120.ini";
const QString configuration = folder + "kestraConfig.ini";
const QString programLog = folder + "commands_log.log";
const QString mcuLog = folder + "mcu_log.log";
const QString csv = folder + "status_log.csv";

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
    void initTestCase() { qputenv("PATH", "/nowhere"); } // no log rotation

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
        const bool readOnly = blocksLeft < 0;
        QFETCH(bool, fresh);
        const QtMessageHandler before = qInstallMessageHandler(MessageHandler);
        {
            eventHandler handler;
            write(handler, 1);
            if (fresh) {
                for (const QString &path : {programLog, mcuLog, csv})
                    QVERIFY(QFile::remove(path));
            }
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
            QTRY_COMPARE(iniValue(configuration, "Coiler/Model"), QString("T200"));
        }
        qInstallMessageHandler(before);
        QCOMPARE(iniValue(store, "Battery/State"), QString("200"));
        QCOMPARE(iniValue(store, "Compute/SoftwareVersion"), QString("V" BENCH_VERSION));
        QCOMPARE(readFile(mcuLog), QByteArray("T200"));
        QVERIFY(readFile(programLog).endsWith(",4,Battery State Changed to:  200\n"));
        const QByteArrayList rows = readFile(csv).split('\n');
        QVERIFY(rows.first().startsWith("timestamp,battery voltage"));
        QVERIFY(rows.last().isEmpty());
        for (int i = 1; i < rows.size() - 1; ++i)
            QCOMPARE(rows[i].count(','), 12);
    }
};

QTEST_GUILESS_MAIN(tst_faults)
#include "tst_faults.moc"
