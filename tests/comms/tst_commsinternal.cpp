// SPDX-License-Identifier: LicenseRef-KT6120
#include "commsinternal.h"

#include "paths.h"
#include "testsupport.h"

#include <QSerialPort>

#include <functional>
#include <memory>
#include <optional>
#include <tuple>

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
    QString text = ptr ? "not null" : "";
    const auto take = [&](auto type) {
        if (carries<decltype(type)>(event))
            text = QString("%1").arg(*static_cast<const decltype(type) *>(ptr));
    };
    std::apply([&](auto... types) { (take(types), ...); },
               std::tuple<QString, int32_t, uint16_t, int16_t, uint8_t>());
    return text;
}

} // namespace

class tst_commsInternal : public QObject
{
    Q_OBJECT

    // The link under test, its far end and what it raised; created once, since the announcements
    // take two seconds.
    std::optional<LogCapture> log; // installed after QtTest's own handler
    std::unique_ptr<testsupport::Pty> mcu;
    std::unique_ptr<commsInternal> link;
    QList<Seen> seen;
    std::function<void()> insideEvent;

    void waitForSeen(int count) { TRY_VERIFY(seen.size() >= count); }

private slots:
    void initTestCase()
    {
        log.emplace();
        testsupport::freshWorld();
        mcu = std::make_unique<testsupport::Pty>();
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

    void init()
    {
        LogCapture::clear();
        seen.clear();
    }

    void linesBecomeEvents()
    {
        const std::tuple<QByteArray, EVENT_TYPE_t, QString> rows[] = {
            {"Corvantis X V1.0,3\r\n", EVENT_McuVersion, "V1.0,3"},
            {"LAMP:VALUE 300\r\n", EVENT_LampValue, "44"}, // 8 bits of it
            {"BAT:STATE 257\r\n", EVENT_BatteryState, "1"},
            {"BAT:V 65537\r\n", EVENT_BatteryVoltage, "1"}, // 16 bits of it
            {"PWR:I 1500\r\n", EVENT_Current, "1500"},
            {"COILER:VALUE 65535\r\n", EVENT_CoilerValue, "-1"},
            {"PWR:SD\r\n", EVENT_Shutdown, ""},
            {"CAMERA:TYPE 258\r\n", EVENT_CameraType, "2"},
            {"TEMP -250\n\r", EVENT_Thermistor, "-250"},
            {"TWK 1\n", EVENT_TallwickDetected, "1"},
            {QByteArray("TE\tMP 8\0 9 9\n", 13), EVENT_Thermistor, "8"}, // NUL ends the text
        };
        for (const auto &[line, event, value] : rows) {
            seen.clear();
            mcu->send(line);
            waitForSeen(1);
            QCOMPARE(seen.first().event, event);
            QCOMPARE(seen.first().source, SOURCE_MCU);
            QCOMPARE(seen.first().value, value);
        }
    }

    void sondeStateIsAnEventOnChangeOnly()
    {
        for (const char *state : {"1", "1", "0", "2", "257", "x", "256"})
            QCOMPARE(link->commsInternalParseCmd(QString("SONDE:EN ") + state, SOURCE_MCU), 0);
        QVector<int> events;
        for (const Seen &one : qAsConst(seen))
            events += int(one.event);
        QCOMPARE(events, QVector<int>({EVENT_SondeOn, EVENT_SondeOff, EVENT_SondeOff, EVENT_SondeOn,
                                       EVENT_SondeOff}));
    }

    // Waiting for a write also reads from the port; what arrives is handled after the handler, and
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

    // One line is handled for each notification; those that wait leave the port.
    void aBacklogWaits()
    {
        auto *port = link->findChild<QSerialPort *>();
        const QSignalSpy arrived(port, &QSerialPort::readyRead);
        const auto deliver = [&](const QByteArray &bytes) {
            const int already = arrived.size();
            mcu->send(bytes);
            TRY_VERIFY(arrived.size() > already);
            TRY_COMPARE(seen.size(), arrived.size());
            QCOMPARE(port->bytesAvailable(), 0);
        };
        QStringList sent, taken;
        for (; sent.size() < 200; sent += {"1", QString::number(sent.size())})
            deliver(QString("BAT:V 1\nTEMP %1\n").arg(sent.size()).toUtf8());
        while (seen.size() < sent.size())
            deliver("#");
        mcu->send("\n");
        for (const Seen &one : qAsConst(seen))
            taken += one.value;
        QCOMPARE(taken, sent);
    }

    void aFolderInTheMcuLogsPlaceIsLogged()
    {
        QVERIFY(QDir().mkdir(paths::mcuLog));
        QCOMPARE(link->commsInternalParseCmd("LOGS lost", SOURCE_MCU), 0);
        QCOMPARE(LogCapture::texts(QtCriticalMsg), QStringList("Error Creating MCU Log File\n"));
        QVERIFY(seen.isEmpty());
    }

    // The poll timer starts again.
    void theLogRequestTakesAPollsPlace()
    {
        auto *polls = link->findChild<QTimer *>();
        TRY_VERIFY(polls->remainingTime() < polls->interval() / 2);
        const QSignalSpy polled(polls, &QTimer::timeout);
        QElapsedTimer waited;
        waited.start();
        link->commsInternalRequestLogs();
        TRY_COMPARE(polled.size(), 1);
        QVERIFY(waited.elapsed() >= polls->interval() - 1);
    }

    // Only commands to the MCU are written. A write may take a second; then its rest is discarded.
    void aWriteToADeafMcuIsGivenUp()
    {
        link->findChild<QTimer *>()->stop();
        mcu->take();
        QElapsedTimer waited;
        waited.start();
        link->commsInternalSendCommand(QString(100'000, 'x'), SOURCE_MCU);
        QVERIFY(waited.elapsed() >= 990);
        QCOMPARE(LogCapture::texts(QtCriticalMsg).size(), 1);
        QVERIFY(LogCapture::texts(QtCriticalMsg)[0].startsWith("Failed to write command:  \"xxx"));
        QByteArray received = mcu->take();
        for (const SOURCE_TYPE_t other : {SOURCE_DEBUG, SOURCE_APP, SOURCE_FIFO})
            link->commsInternalSendCommand("not for the line", other);
        link->commsInternalSendCommand("next", SOURCE_MCU);
        TRY_VERIFY(received.append(mcu->take()).endsWith("xnext"));
        QVERIFY(received.size() < 100'000);
    }
};

QTEST_GUILESS_MAIN(tst_commsInternal)
#include "tst_commsinternal.moc"
