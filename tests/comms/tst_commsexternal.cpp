#include "commsexternal.h"

#include "recorders.h"
#include "testsupport.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QScopeGuard>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QtTest>

#include <optional>
#include <sys/socket.h>
#include <unistd.h>

using testsupport::calls;
using testsupport::LogCapture;

namespace
{

void sh(const QString &commands)
{
    if (QProcess::execute("sh", {"-ec", commands}) != 0)
        qFatal("failed: %s", qPrintable(commands));
}

QString addInterface(const QString &name, const QString &address)
{
    return QString("ip link add %1 type veth peer name far-%1; ip link set %1 up;"
                   "ip link set far-%1 up; ip addr add %2 brd + dev %1;")
        .arg(name, address);
}

// A phone on USB. Its address is local, so that a server in this process answers at it.
void plugPhone()
{
    sh(addInterface("usb0", "192.168.42.10/24")
       + "ip route add default via 192.168.42.1; ip addr add 192.168.42.1/32 dev lo");
}
void unplugAll()
{
    sh("for i in usb0 eth0 wlan0; do ip link del $i 2>/dev/null || true; done;"
       "ip addr flush to 192.168.42.1");
}

// The app's side: a server and the connection taken last.
struct Phone : QTcpServer {
    Phone() { listen(QHostAddress("192.168.42.1"), 8082); }
    bool greeted()
    {
        if (!waitForNewConnection(3000))
            return false;
        socket = nextPendingConnection();
        return hears("Connected To Kestra\r\n");
    }
    void say(const QByteArray &bytes)
    {
        socket->write(bytes);
        socket->flush();
    }
    bool hears(const QByteArray &expected)
    {
        QByteArray heard;
        (void)QTest::qWaitFor([&] {
            heard += socket->readAll();
            return heard.size() >= expected.size();
        });
        return heard == expected;
    }

    QTcpSocket *socket = nullptr;
};

// The link started, with its ticks in the test's hand, and what it raised.
struct Link : commsExternal {
    Link()
    {
        connect(this, &commsExternal::commsExternalEvent, this,
                [this](EVENT_TYPE_t event, SOURCE_TYPE_t source, void *at) {
                    const bool isText = event == EVENT_SondeFrequency || event == EVENT_CoilerModel;
                    events += source == SOURCE_APP ? int(event) : -1;
                    value = !at      ? QVariant()
                            : isText ? QVariant(*static_cast<QString *>(at))
                                     : QVariant(*static_cast<double *>(at));
                });
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
    QVariant value;
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
        recorders::install("/run/bench/bin/killall");
        qputenv("PATH", "/run/bench/bin:" + qgetenv("PATH"));
        qputenv("http_proxy", "http://127.0.0.1:1"); // not for the phone
        plugPhone();
    }
    void cleanupTestCase()
    {
        link.reset();
        phone.reset();
    }

    void init()
    {
        testsupport::freshWorld();
        for (const char *script : {"stream_start", "stream_stop", "gpio_write"})
            recorders::install(QString("/home/pi/KT6120/bin/KT6120_%1.sh").arg(script));
        if (!link || !link->isConnected()) {
            link.reset();
            phone.reset();
            phone.emplace();
            link.emplace();
            link->tick();
            QTRY_COMPARE(calls().size(), 2); // the image and the stream
            link->tick();
            QVERIFY(phone->greeted());
            recorders::clearCalls();
        }
        link->keepAlive->stop();
        link->events.clear();
        link->value.clear();
        LogCapture::clear();
    }

    void vocabulary_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QVector<int>>("events");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("said"); // debug, or critical for an unknown command
        const auto row = [](const char *line, const char *reply, QVector<int> events = {},
                            const QVariant &value = {}, const char *text = "") {
            QTest::newRow(line) << QByteArray(reply) << events << value << text;
        };
        row("Port 8554", "Port\r");
        row("IP 10.0.0.7", "IP\r");
        row("TolvApp 1.0", "");
        row("SondeFreq 33k", "", {6}, "33k");
        row("SondeFreq  33k", "", {6}, "");
        row("Model $(reboot);'\"", "", {35}, "$(reboot);'\"");
        row("Model M2 second", "", {35}, "M2");
        row("CoilerSet 12.5", "CoilerSet\r", {19}, 12.5);
        row("CoilerSet far", "CoilerSet\r", {19}, 0.0);
        row("CoilerSet nan", "CoilerSet\r", {19}, 0.0);
        row("CoilerSet 1e999", "CoilerSet\r", {19}, 0.0);
        row("LampUp", "LampUp\r", {12});
        row("LampDown", "LampDown\r", {13});
        row("LampValue?", "", {10});
        row("LampOff", "", {14});
        row("CoilerSet", "CoilerSet\r", {19});
        row("CoilerValue?", "", {18});
        row("StartStream", "StartStream\r");
        row("StopStream", "StopStream\r");
        row("SondeOn", "SondeOn\r", {4});
        row("SondeOff", "SondeOff\r", {5});
        row("SondeFreq?", "", {7});
        row("SondeState?", "", {8});
        row("BatteryLevel?", "", {3});
        row("BatteryState?", "", {1}, {}, "Battery state request");
        row("TallwickDetect?", "", {34}, {}, "Tallwick detect request");
        row("*IDN?", "", {28});
        row("TolvApp", "");
        row("KestraApp", "");
        row("Model?", "", {36});
        row("lampup", "ERROR\r", {}, {}, R"(("lampup"))");
        row("Port", "ERROR\r", {}, {}, R"(("Port"))");
        row("LampUp  now", "ERROR\r", {}, {}, R"(("LampUp", "", "now"))");
        row("KestraApp 1.0", "ERROR\r", {}, {}, R"(("KestraApp", "1.0"))");
    }
    void vocabulary()
    {
        QFETCH(QByteArray, reply);
        QFETCH(QString, said);
        phone->say(QByteArray(QTest::currentDataTag()) + "\r\n");
        QTRY_VERIFY(link->keepAlive->isActive());
        QTEST(link->events, "events");
        QTEST(link->value, "value");
        const bool unknown = reply == "ERROR\r";
        QCOMPARE(LogCapture::texts(QtDebugMsg).join('|'), unknown ? "" : said);
        QCOMPARE(LogCapture::texts(QtCriticalMsg).join('|'),
                 unknown ? "TCP received unknown command:  " + said : "");
        link->commsExternalSendCmd(QString::fromUtf8("Model \u00e9\r\n")); // an answer, as it is
        QVERIFY(phone->hears(reply + "Model \xc3\xa9\r\n"));
    }

    void framing_data()
    {
        QTest::addColumn<QByteArrayList>("reads");
        QTest::addColumn<QByteArrayList>("replies"); // one for each read
        for (QByteArray end : {"\n", "\r", "\n\r", "\r\n", "\r\n\r\n", "\n\n\r\r"})
            QTest::newRow(end.toHex()) << QByteArrayList{"LampUp" + end + "LampDown" + end}
                                       << QByteArrayList{"LampUp\rLampDown\r"};
        // clang-format off
        QTest::newRow("no line end") << QByteArrayList{"LampUp"} << QByteArrayList{"LampUp\r"};
        QTest::newRow("white space") << QByteArrayList{" \t SondeOn \v \r\n  \r\n\t\nLampUp\n"} << QByteArrayList{"SondeOn\rLampUp\r"};
        QTest::newRow("split command") << QByteArrayList{"Lamp", "Up\r\n"} << QByteArrayList{"ERROR\r", "ERROR\r"};
        QTest::newRow("NUL") << QByteArrayList{QByteArray("LampUp\nLamp\0Down\nLampUp\n", 24), "LampDown\n"} << QByteArrayList{"LampUp\rERROR\r", "LampDown\r"};
        QTest::newRow("invalid UTF-8") << QByteArrayList{"\xff\xfe\xc3\r\nLampUp\r\n"} << QByteArrayList{"ERROR\rLampUp\r"};
        QTest::newRow("a thousand") << QByteArrayList{QByteArray("SondeOff\r\n").repeated(1000)} << QByteArrayList{QByteArray("SondeOff\r").repeated(1000)};
        // clang-format on
    }
    void framing()
    {
        QFETCH(QByteArrayList, reads);
        QFETCH(QByteArrayList, replies);
        for (int i = 0; i < reads.size(); ++i) {
            phone->say(reads[i]);
            QVERIFY(phone->hears(replies[i]));
        }
    }

    // An event may take seconds to handle: the phone hears before it has been.
    void acknowledgementDoesNotWaitForTheEvent()
    {
        QByteArray heardMeanwhile;
        const QObject untilTheEnd;
        connect(&*link, &commsExternal::commsExternalEvent, &untilTheEnd, [&] {
            if (phone->socket->waitForReadyRead(3000))
                heardMeanwhile = phone->socket->readAll();
        });
        phone->say("LampUp\r\n");
        QTRY_COMPARE(link->events.size(), 1);
        QCOMPARE(heardMeanwhile, QByteArray("LampUp\r"));
        QCOMPARE(link->socket()->socketOption(QAbstractSocket::LowDelayOption).toInt(), 1);
    }

    // Without a stream or a route to a phone nothing is tried; with nobody there, twice a tick.
    void attempts()
    {
        link.emplace();
        QCOMPARE(link->ticks->interval(), 1000);
        QVERIFY(!link->keepAlive->isActive());
        link->commsExternalSendCmd("nobody hears\r");
        link->commsExternalTCPConnect();
        QCOMPARE(LogCapture::texts(QtDebugMsg).size(), 1);
        QVERIFY(LogCapture::texts(QtDebugMsg)[0].startsWith("External Comms Thread ID:  0x"));

        link->commsExternaldelayedStart();
        const std::pair<QString, int> routes[] = {
            // the second: a phone with no app yet
            {"ip route del default", 0},
            {"ip route add default via 192.168.42.7; ip addr add 192.168.42.7/32 dev lo", 4}};
        for (const auto &[change, tries] : routes) {
            sh(change);
            LogCapture::clear();
            link->tick();
            link->tick();
            QCOMPARE(LogCapture::texts(QtDebugMsg),
                     QVector<QString>(tries, "Error:  QAbstractSocket::ConnectionRefusedError")
                         .toList());
        }
        unplugAll();
        sh("ip addr flush to 192.168.42.7");
        plugPhone();
        link->tick();
        QVERIFY(phone->greeted());
        QVERIFY(link->keepAlive->isActive());
        QCOMPARE(link->keepAlive->interval(), 10000);
        QCOMPARE(LogCapture::texts(QtWarningMsg), QStringList());
    }

    // However a connection ends, the tick after tells and the one after that has a new one.
    void lostConnection_data()
    {
        QTest::addColumn<QString>("way");
        QTest::addColumn<bool>("full"); // unsent bytes wait for a peer that does not read
        for (const char *way : {"closes", "half-closes", "resets", "silent"}) {
            QTest::addRow("%s", way) << way << false;
            QTest::addRow("%s, not reading", way) << way << true;
        }
    }
    void lostConnection()
    {
        QFETCH(QString, way);
        QFETCH(bool, full);
        link->keepAlive->start();
        if (full) {
            phone->socket->setReadBufferSize(1);
            link->commsExternalSendCmdByteArray(QByteArray(16 << 20, 'x'));
            QVERIFY(link->socket()->bytesToWrite() > 0);
        }
        if (way == "silent") {
            link->commsExternalKeepAliveTimeout();
        } else {
            if (way == "closes")
                phone->socket->close();
            else if (way == "half-closes")
                ::shutdown(int(phone->socket->socketDescriptor()), SHUT_WR);
            else
                phone->socket->abort();
            QTRY_VERIFY(!link->isConnected());
            link->commsExternalSendCmd("lost\r");
            link->tick();
        }
        QCOMPARE(LogCapture::texts(QtWarningMsg) + LogCapture::texts(QtInfoMsg),
                 QStringList(way == "silent" ? "TCP Connected Timed Out" : "Closing TCP Socket"));
        QCOMPARE(link->socket()->state(), QAbstractSocket::UnconnectedState);
        QVERIFY(!link->keepAlive->isActive());
        LogCapture::clear();
        link->tick();
        QVERIFY(phone->greeted());
        QVERIFY(link->keepAlive->isActive());
        QCOMPARE(LogCapture::texts(QtWarningMsg) + LogCapture::texts(QtInfoMsg), QStringList());
    }

    // A phone that asks and asks and never reads must not cost memory without end.
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
        QVERIFY(most <= (1 << 20) + answer.size());
        QCOMPARE(LogCapture::texts(QtWarningMsg),
                 QStringList("TCP peer does not read, connection dropped"));
        link->tick();
        link->tick();
        QVERIFY(phone->greeted());
    }

    void fiftyLossesLeaveNothingBehind()
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
        QTRY_COMPARE(held().at(1), 0);
        const QVector<int> before = held();
        for (int i = 0; i < 50; ++i) {
            phone->say("LampUp\r\n");
            QVERIFY(phone->hears("LampUp\r"));
            delete phone->socket;
            QTRY_VERIFY(!link->isConnected());
            link->tick();
            link->tick();
            QVERIFY(phone->greeted());
        }
        QTRY_COMPARE(held(), before);
        QCOMPARE(link->events, QVector<int>(50, EVENT_LampUp));
    }

    // The switch to the stream and back, as the networks come and go.
    void streamFollowsTheNetwork_data()
    {
        QTest::addColumn<QString>("setUp");
        QTest::addColumn<QString>("destination");
        const QString eth0 = addInterface("eth0", "10.1.2.3/8");
        const QString wlan0 = addInterface("wlan0", "10.1.2.3/8");
        // clang-format off
        QTest::newRow("USB") << "true" << "192.168.42.255 49152";
        QTest::newRow("Ethernet") << "ip link del usb0;" + eth0 << "10.255.255.255 8001";
        QTest::newRow("Ethernet beside a bare USB") << "ip addr flush dev usb0;" + eth0 << "10.255.255.255 49152";
        QTest::newRow("wireless") << "ip link del usb0;" + wlan0 << "10.255.255.255 49152";
        QTest::newRow("two at once") << eth0 << "";
        QTest::newRow("none") << "ip link del usb0" << "";
        // clang-format on
    }
    void streamFollowsTheNetwork()
    {
        QFETCH(QString, setUp);
        QFETCH(QString, destination);
        const auto restore = qScopeGuard([] {
            unplugAll();
            plugPhone();
        });
        sh(setUp);
        link.emplace();
        link->commsExternalMonitorTethering();
        link->commsExternalMonitorTethering();
        if (destination.isEmpty()) {
            QCOMPARE(LogCapture::texts(QtInfoMsg) + calls(), QStringList());
            return;
        }
        QStringList expected = {
            "pngview -d 3 -l 9 -b 0x000F /home/pi/KT6120/bin/splashStream.png -n",
            "KT6120_stream_start.sh " + destination};
        QTRY_COMPARE(calls(), expected);
        QVERIFY(recorders::calls()[1].uptime - recorders::calls()[0].uptime > 0.085);

        unplugAll();
        link->commsExternalMonitorTethering();
        link->commsExternalMonitorTethering();
        QCOMPARE(link->events, QVector<int>{EVENT_PALStop});
        expected += QStringList{"KT6120_stream_stop.sh", "killall pngview"};
        QTRY_COMPARE(calls(), expected);
        QCOMPARE(link->events, (QVector<int>{EVENT_PALStop, EVENT_PALStart}));
        const QString quoted = '"' + destination.replace(" ", "\"  and port  \"") + '"';
        QCOMPARE(
            LogCapture::texts(QtInfoMsg),
            QStringList({"Mobile Tethering state changed to  true",
                         "Starting video stream with IP  " + quoted,
                         "Mobile Tethering state changed to  false", "Stopping video stream"}));
    }

    // The viewer outlasts its wait and stays, and the operation goes on.
    void viewerRunsOn()
    {
        recorders::setReply("pngview", "", 30);
        link.emplace();
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!link->setStreamSplashScreenState(true));
        QVERIFY(clock.elapsed() >= 1000);
        QCOMPARE(link->findChild<QProcess *>()->state(), QProcess::Running);
        QVERIFY(link->setStreamSplashScreenState(false));
    }

    void usbBootPulse()
    {
        link->commsExternalBootUSB();
        QCOMPARE(calls(), QStringList({"KT6120_gpio_write.sh 25 1", "KT6120_gpio_write.sh 25 0"}));
    }
};

QTEST_GUILESS_MAIN(tst_commsexternal)
#include "tst_commsexternal.moc"
