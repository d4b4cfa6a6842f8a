// SPDX-License-Identifier: LicenseRef-KT6120
#include "commsexternal.h"
#include "network.h"

#include "testsupport.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <optional>
#include <poll.h>
#include <sys/socket.h>

using recorders::calls;
using testsupport::LogCapture;

namespace
{

// The app's side: a server and the connection taken last.
struct Phone : QTcpServer {
    Phone() { open(); }
    void open() { QVERIFY(listen(QHostAddress("192.168.42.1"), 8082)); }
    bool greeted()
    {
        if (!waitForNewConnection(testsupport::patience))
            return false;
        socket = nextPendingConnection();
        return hears("Connected To Kestra\r\n");
    }
    bool hears(const QByteArray &expected)
    {
        const auto heardAll = [&] { return socket->bytesAvailable() >= expected.size(); };
        return QTest::qWaitFor(heardAll, testsupport::patience) && socket->readAll() == expected;
    }

    QTcpSocket *socket = nullptr;
};

// The link, started, with manual ticks, and the events that it raised.
struct Link : commsExternal {
    Link()
    {
        connect(this, &commsExternal::commsExternalEvent, this,
                [this](EVENT_TYPE_t event) { events += int(event); });
        commsExternalInit();
        ticks = findChildren<QTimer *>().at(0);
        keepAlive = findChildren<QTimer *>().at(1);
        ticks->stop();
    }
    void tick() { commsExternalAttemptConnect(); }
    QAbstractSocket *socket() { return findChild<QAbstractSocket *>(); }
    bool isConnected() { return socket()->state() == QAbstractSocket::ConnectedState; }

    QTimer *ticks;
    QTimer *keepAlive;
    QVector<int> events;
};

} // namespace

class tst_commsexternal : public QObject
{
    Q_OBJECT

    std::optional<LogCapture> log; // installed after QtTest's own handler
    std::optional<Phone> phone;
    std::optional<Link> link; // connected at the start of each test

private slots:
    void initTestCase()
    {
        log.emplace();
        recorders::install("/home/pi/raspidmx/pngview/pngview");
        qputenv("http_proxy", "http://127.0.0.1:1"); // not for the phone
        // A phone on USB; the server is in this process.
        const QStringList usb = {"usb0", "192.168.42.10/24", "192.168.42.1"};
        QCOMPARE(QProcess::execute(BENCH_PLUG, usb), 0);
    }
    void init()
    {
        testsupport::freshWorld();
        if (!link || !link->isConnected()) {
            link.reset();
            phone.reset();
            phone.emplace();
            link.emplace();
            link->tick();
            QElapsedTimer waited;
            waited.start();
            TRY_COMPARE(calls().size(), 2); // the image and, 100 ms later, the stream
            QVERIFY(waited.elapsed() > 90);
            link->tick();
            QVERIFY(phone->greeted());
            recorders::clearCalls();
        }
        link->keepAlive->stop();
        link->events.clear();
        LogCapture::clear();
    }

    // However a connection ends, with unread answers: the next tick logs it, and each one after
    // that tries twice to connect. Nothing is left behind. A scenario plays it with the app's
    // silence.
    void lostConnection()
    {
        struct Counted : QTcpSocket {
            using QObject::receivers;
        };
        const auto held = [&] { // descriptors, children, objects, deliveries of what arrives
            const auto children =
                testsupport::readFile(QString("/proc/self/task/%1/children").arg(getpid()));
            return QVector<int>{testsupport::openDescriptors(), children.count(' '),
                                link->findChildren<QObject *>().size(),
                                (link->socket()->*&Counted::receivers)(SIGNAL(readyRead()))};
        };
        TRY_COMPARE(held().at(1), 0);
        const QVector<int> before = held();
        QCOMPARE(link->ticks->interval(), 1000);
        QCOMPARE(link->keepAlive->interval(), 10000);
        QCOMPARE(link->keepAlive->timerType(), Qt::PreciseTimer);
        for (int round = 0; round < 24; ++round) {
            LogCapture::clear();
            phone->socket->write("LampUp\r\n");
            QVERIFY(phone->hears("LampUp\r"));
            QCOMPARE(link->socket()->socketOption(QAbstractSocket::LowDelayOption).toInt(), 1);
            phone->socket->setReadBufferSize(1);
            link->commsExternalSendCmdByteArray(QByteArray(16 << 20, 'x'));
            QVERIFY(link->socket()->bytesToWrite() > 0);
            if (round % 3 == 0)
                phone->socket->close();
            else if (round % 3 == 1)
                ::shutdown(int(phone->socket->socketDescriptor()), SHUT_WR);
            else
                phone->socket->abort();
            TRY_VERIFY(!link->isConnected());
            link->commsExternalSendCmd("lost\r");
            link->tick();
            QCOMPARE(LogCapture::texts(QtWarningMsg) + LogCapture::texts(QtInfoMsg),
                     QStringList("Closing TCP Socket"));
            QCOMPARE(link->socket()->state(), QAbstractSocket::UnconnectedState);
            QVERIFY(!link->keepAlive->isActive());
            delete phone->socket;
            phone->close();
            link->tick();
            QCOMPARE(LogCapture::texts(QtDebugMsg).filter("Error: ").size(), 2);
            phone->open();
            link->tick();
            QVERIFY(phone->greeted());
            QVERIFY(link->keepAlive->isActive());
        }
        TRY_COMPARE(held(), before);
        QCOMPARE(link->events, QVector<int>(24, EVENT_LampUp));
    }

    // After a script that blocked the event loop. Not all that waits is read at once.
    void linesThatWaitKeepTheConnection()
    {
        phone->socket->write(QByteArray(50'000, 'x') + '\n');
        QVERIFY(phone->socket->waitForBytesWritten(testsupport::patience));
        QCOMPARE(phone->socket->bytesToWrite(), 0);
        pollfd arrived = {int(link->socket()->socketDescriptor()), POLLIN, 0};
        QCOMPARE(poll(&arrived, 1, testsupport::patience), 1);
        link->commsExternalKeepAliveTimeout();
        QVERIFY(link->isConnected() && link->keepAlive->isActive());
        TRY_COMPARE(LogCapture::texts(QtCriticalMsg).size(), 2);
        link->commsExternalKeepAliveTimeout();
        QCOMPARE(LogCapture::texts(QtWarningMsg), QStringList("TCP Connected Timed Out"));
    }

    // Answers that are not read are kept up to a bound.
    void aPhoneThatNeverReadsIsDropped()
    {
        phone->socket->setReadBufferSize(1);
        const QString answer(64 << 10, 'x');
        qint64 most = 0;
        for (int i = 0; i < 1024 && link->isConnected(); ++i) {
            link->commsExternalSendCmd(answer);
            most = std::max(most, link->socket()->bytesToWrite());
        }
        QVERIFY(!link->isConnected());
        link->commsExternalSendCmd("lost\r");
        QVERIFY(most <= (1 << 20) + answer.size());
        QCOMPARE(LogCapture::texts(QtWarningMsg),
                 QStringList("TCP peer does not read, connection dropped"));
    }

    void usbBootPulse()
    {
        link->commsExternalBootUSB();
        QCOMPARE(calls(), QStringList({"KT6120_gpio_write.sh 25 1", "KT6120_gpio_write.sh 25 0"}));
    }

    void broadcastAddress()
    {
        const QByteArray usb = "        inet 192.168.42.10  netmask 255.255.255.0  broadcast ";
        const std::tuple<QByteArray, QString, bool> rows[] = {
            {"inet A netmask M broadcast\n", "", false}, // five words
            {usb + "$(reboot)\n", "", true},
            {usb + "10.0.0.255\n" + '\0' + usb, "10.0.0.255", false},
        };
        for (const auto &[listing, address, warned] : rows) {
            LogCapture::clear();
            QCOMPARE(network::broadcastAddress(listing), address);
            QCOMPARE(LogCapture::texts(QtWarningMsg),
                     warned ? QStringList("Invalid Broadcast Address Found") : QStringList());
        }
    }

    // The first line counts that is whole and has neither destination nor mask.
    void defaultGateway()
    {
        const QByteArray table =
            "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
            "usb0\t00000000\t012AA8C0\n"
            "usb0\t002AA8C0\t012AA8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0 \n"
            "usb0\t00000000\t012AA8C0\t0003\t0\t0\t100\tFFFFFFFF\t0\t0\t0 \n"
            "usb0\t00000000\tFFZZFDFC\t0003\t0\t0\t100\t00000000\t0\t0\t0 \n"
            "usb0\t00000000\t012AA8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0 \n";
        QCOMPARE(network::defaultGateway(table), QString("252.253.0.255"));
        QCOMPARE(network::defaultGateway({}), QString());
    }
};

QTEST_GUILESS_MAIN(tst_commsexternal)
#include "tst_commsexternal.moc"
