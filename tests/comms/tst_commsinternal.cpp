// SPDX-License-Identifier: LicenseRef-KT6120
#include "commsinternal.h"

#include "gauges.h"
#include "paths.h"
#include "pty.h"
#include "testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSerialPort>
#include <QTimer>
#include <QtTest>

#include <functional>
#include <memory>
#include <optional>

using testsupport::LogCapture;

namespace
{

struct Seen {
    EVENT_TYPE_t event;
    SOURCE_TYPE_t source;
    QString value; // as the event's reader takes it; empty for a null pointer
};

QString payload(EVENT_TYPE_t event, const void *ptr)
{
    if (carries<QString>(event))
        return *static_cast<const QString *>(ptr);
    if (carries<int32_t>(event))
        return QString::number(*static_cast<const int32_t *>(ptr));
    if (carries<uint16_t>(event))
        return QString::number(*static_cast<const uint16_t *>(ptr));
    if (carries<int16_t>(event))
        return QString::number(*static_cast<const int16_t *>(ptr));
    if (carries<uint8_t>(event))
        return QString::number(*static_cast<const uint8_t *>(ptr));
    return ptr ? "not null" : "";
}

} // namespace

class tst_commsInternal : public QObject
{
    Q_OBJECT

private:
    // The link under test, its far end and what it raised; made once, since the announcements
    // take two seconds.
    std::optional<LogCapture> log; // installed after QtTest's own handler
    std::unique_ptr<Pty> mcu;
    std::unique_ptr<commsInternal> link;
    QList<Seen> seen;
    std::function<void()> insideEvent;

    void waitForSeen(int count)
    {
        if (!QTest::qWaitFor([&] { return seen.size() >= count; }, testsupport::patience))
            qWarning("too few events");
    }

private slots:
    void initTestCase()
    {
        log.emplace();
        testsupport::freshWorld();
        mcu = std::make_unique<Pty>();
        link = std::make_unique<commsInternal>();
        connect(link.get(), &commsInternal::commsInternalEvent, this,
                [this](EVENT_TYPE_t event, SOURCE_TYPE_t source, void *ptr) {
                    seen.append({event, source, payload(event, ptr)});
                    if (const auto act = std::exchange(insideEvent, nullptr))
                        act();
                });
        // A reply that comes during the announcements is read afterwards.
        mcu->send("TEMP 77\r\n");
        link->commsInternalInit();
        QVERIFY(seen.isEmpty());
        waitForSeen(1);
        QCOMPARE(seen.first().value, QString("77"));
        QCOMPARE(link->findChild<QTimer *>()->interval(), 150);
    }

    void cleanupTestCase()
    {
        link.reset();
        mcu.reset();
    }

    void init()
    {
        LogCapture::clear();
        seen.clear();
    }

    void linesBecomeEvents_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<int>("event");
        QTest::addColumn<QString>("value");

        const auto taken = [](const char *name, const QByteArray &line, int event,
                              const char *value) { QTest::newRow(name) << line << event << value; };
        taken("version", "Corvantis X V1.0,3\r\n", EVENT_McuVersion, "V1.0,3");
        taken("lamp", "LAMP:VALUE 41\r\n", EVENT_LampValue, "41");
        taken("lamp keeps 8 bits", "LAMP:VALUE 300\r\n", EVENT_LampValue, "44");
        taken("battery state", "BAT:STATE 257\r\n", EVENT_BatteryState, "1");
        taken("lamp below zero", "LAMP:VALUE -1\r\n", EVENT_LampValue, "255");
        taken("voltage", "BAT:V 2000\r\n", EVENT_BatteryVoltage, "2000");
        taken("voltage keeps 16 bits", "BAT:V 65537\r\n", EVENT_BatteryVoltage, "1");
        taken("current", "PWR:I 1500\r\n", EVENT_Current, "1500");
        taken("coiler", "COILER:VALUE -1\r\n", EVENT_CoilerValue, "-1");
        taken("coiler wraps", "COILER:VALUE 65535\r\n", EVENT_CoilerValue, "-1");
        taken("shutdown", "PWR:SD\r\n", EVENT_Shutdown, "");
        taken("camera", "CAMERA:TYPE 258\r\n", EVENT_CameraType, "2");
        taken("temperature", "TEMP -250\r\n", EVENT_Thermistor, "-250");
        taken("probe", "TWK 1\r\n", EVENT_TallwickDetected, "1");
        taken("LF CR", "TEMP 5\n\r", EVENT_Thermistor, "5");
        taken("LF only", "TEMP 6\n", EVENT_Thermistor, "6");
        taken("tab inside", "TE\tMP 7\n", EVENT_Thermistor, "7");
        taken("NUL ends the text", QByteArray("TEMP 8\0 9 9\n", 12), EVENT_Thermistor, "8");
    }
    void linesBecomeEvents()
    {
        QFETCH(QByteArray, line);
        QFETCH(int, event);
        QFETCH(QString, value);
        mcu->send(line);
        waitForSeen(1);
        QCOMPARE(int(seen.first().event), event);
        QCOMPARE(seen.first().source, SOURCE_MCU);
        QCOMPARE(seen.first().value, value);
    }

    void sondeStateIsAnEventOnChangeOnly()
    {
        const QPair<const char *, std::optional<EVENT_TYPE_t>> steps[] = {
            {"SONDE:EN 1", EVENT_SondeOn},    {"SONDE:EN 1", {}},
            {"SONDE:EN 0", EVENT_SondeOff},   {"SONDE:EN 2", EVENT_SondeOff},
            {"SONDE:EN 257", EVENT_SondeOn},  {"SONDE:EN x", {}},
            {"SONDE:EN 256", EVENT_SondeOff},
        };
        for (const auto &[line, event] : steps) {
            seen.clear();
            QCOMPARE(link->commsInternalParseCmd(line, SOURCE_MCU), 0);
            QCOMPARE(seen.size(), event ? 1 : 0);
            if (event)
                QCOMPARE(seen.first().event, *event);
        }
    }

    // The wait of a write reads from the port; what it brings is taken up afterwards, and
    // without waiting for further bytes.
    void aLineNeverInterruptsAHandler()
    {
        bool interrupted = false;
        insideEvent = [&] {
            const QSignalSpy arrived(link->findChild<QSerialPort *>(), &QSerialPort::readyRead);
            for (const char *piece : {"TEM", "P 5\n"}) {
                const int before = arrived.size();
                mcu->send(piece);
                while (arrived.size() == before)
                    link->commsInternalSendCommand("LAMP:SET 5\r\n", SOURCE_MCU);
            }
            interrupted = seen.size() > 1;
        };
        mcu->send("BAT:V 1\n");
        waitForSeen(2);
        QVERIFY(!interrupted);
        QCOMPARE(seen.last().event, EVENT_Thermistor);
        QCoreApplication::processEvents();
        QCOMPARE(LogCapture::texts(QtWarningMsg), QStringList()); // of a notification too many
    }

    // A line that talks without pause: one line a notification, and the rest costs its bytes.
    void aBacklogCostsItsBytes()
    {
        constexpr int lines = 4000;
        const QSignalSpy arrived(link->findChild<QSerialPort *>(), &QSerialPort::readyRead);
        const auto deliver = [&](const QByteArray &bytes) {
            const int already = arrived.size();
            mcu->send(bytes);
            QTRY_VERIFY(arrived.size() > already);
        };
        const double before = *gauges::read("rss", getpid());
        for (int i = 0; i < lines; i += 2) {
            deliver("TEMP " + QByteArray::number(i) + "\nBAT:V 1\n");
            QTRY_COMPARE(seen.size(), arrived.size());
        }
        QVERIFY(*gauges::read("rss", getpid()) - before < 4); // MiB
        while (seen.size() < lines) {
            deliver("#");
            QTRY_COMPARE(seen.size(), arrived.size());
        }
        deliver("\n");
        for (int i = 0; i < lines; i += 2) {
            QCOMPARE(seen[i].value, QString::number(i));
            QCOMPARE(seen[i + 1].event, EVENT_BatteryVoltage);
        }
    }

    void theMcuLogIsReplaced()
    {
        testsupport::writeFile(paths::mcuLog, "a longer text from before");
        QCOMPARE(link->commsInternalParseCmd("LOGS boot;ok", SOURCE_MCU), 0);
        QCOMPARE(testsupport::readFile("/home/pi/KT6120/bin/mcu_log.log"), QByteArray("boot;ok"));

        QVERIFY(QFile::remove(paths::mcuLog));
        QVERIFY(QDir().mkdir(paths::mcuLog));
        QCOMPARE(link->commsInternalParseCmd("LOGS lost", SOURCE_MCU), 0);
        QCOMPARE(LogCapture::texts(QtCriticalMsg), QStringList("Error Creating MCU Log File\n"));
        QVERIFY(seen.isEmpty());
    }

    // A write has a second at most; what it has not sent by then is given up for good.
    void aWriteToADeafMcuIsGivenUp()
    {
        link->findChild<QTimer *>()->stop();
        mcu->setDeaf(true);
        mcu->clear();
        QElapsedTimer waited;
        waited.start();
        link->commsInternalSendCommand(QString(100'000, 'x'), SOURCE_MCU);
        QVERIFY(waited.elapsed() >= 990);
        QCOMPARE(LogCapture::texts(QtCriticalMsg).size(), 1);
        QVERIFY(LogCapture::texts(QtCriticalMsg)[0].startsWith("Failed to write command:  \"xxx"));
        mcu->setDeaf(false);
        link->commsInternalSendCommand("next", SOURCE_MCU);
        QTRY_VERIFY(mcu->received().endsWith("next"));
        QVERIFY(mcu->received().size() < 100'000);
    }

    void onlyTheMcuIsWrittenTo()
    {
        link->findChild<QTimer *>()->stop();
        mcu->clear();
        for (const SOURCE_TYPE_t other : {SOURCE_DEBUG, SOURCE_APP, SOURCE_FIFO})
            link->commsInternalSendCommand("not for the line", other);
        link->commsInternalSendCommand("end", SOURCE_MCU);
        QTRY_COMPARE(mcu->received(), QByteArray("end"));
    }
};

QTEST_GUILESS_MAIN(tst_commsInternal)
#include "tst_commsinternal.moc"
