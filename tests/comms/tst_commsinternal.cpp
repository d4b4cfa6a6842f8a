// SPDX-License-Identifier: LicenseRef-KT6120
#include "commsinternal.h"

#include "testsupport.h"

#include <QSerialPort>

#include <functional>
#include <memory>
#include <optional>

using testsupport::LogCapture;

class tst_commsInternal : public QObject
{
    Q_OBJECT

    // The link under test, its far end and what it raised; created once, since the announcements
    // take two seconds.
    std::optional<LogCapture> log; // installed after QtTest's own handler
    std::unique_ptr<testsupport::Pty> mcu;
    std::unique_ptr<commsInternal> link;
    QVector<int> events, temperatures;
    std::function<void()> insideEvent;

private slots:
    void initTestCase()
    {
        log.emplace();
        testsupport::freshWorld();
        mcu = std::make_unique<testsupport::Pty>();
        link = std::make_unique<commsInternal>();
        connect(link.get(), &commsInternal::commsInternalEvent, this,
                [this](EVENT_TYPE_t event, SOURCE_TYPE_t, void *ptr) {
                    events += int(event);
                    if (event == EVENT_Thermistor)
                        temperatures += *static_cast<Payload<EVENT_Thermistor> *>(ptr);
                    if (const auto act = std::exchange(insideEvent, nullptr))
                        act();
                });
        // A reply that comes during the announcements is read afterwards.
        mcu->send("TEMP 77\r\n");
        link->commsInternalInit();
        QVERIFY(events.isEmpty());
        TRY_COMPARE(temperatures, QVector<int>{77});
        QCOMPARE(link->findChild<QTimer *>()->interval(), 150);
        QCOMPARE(link->findChild<QTimer *>()->timerType(), Qt::PreciseTimer);
        QCOMPARE(link->findChild<QSerialPort *>()->baudRate(), 115200);
    }

    void init()
    {
        LogCapture::clear();
        events.clear();
        temperatures.clear();
    }

    void sondeStateIsAnEventOnChangeOnly()
    {
        for (const char *state : {"1", "1", "0", "2", "257", "x", "256"})
            QCOMPARE(link->commsInternalParseCmd(QString("SONDE:EN ") + state, SOURCE_MCU), 0);
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
            interrupted = events.size() > 1;
        };
        mcu->send("BAT:V 1\n");
        TRY_COMPARE(events, QVector<int>({EVENT_BatteryVoltage, EVENT_Thermistor}));
        QVERIFY(!interrupted);
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
            TRY_COMPARE(events.size(), arrived.size());
            QCOMPARE(port->bytesAvailable(), 0);
        };
        QVector<int> sent;
        for (; sent.size() < 100; sent += sent.size())
            deliver(QString("BAT:V 1\nTEMP %1\n").arg(sent.size()).toUtf8());
        while (temperatures.size() < sent.size())
            deliver("#");
        mcu->send("\n");
        QCOMPARE(temperatures, sent);
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
