#include "videotestsupport.h"

#include <QProcess>
#include <QUdpSocket>

namespace
{

const char rtpCaps[] =
    "caps=application/x-rtp,media=video,encoding-name=H264,clock-rate=90000,payload=96";

} // namespace

// The unit's own scripts, run with the bench's camera and encoder.
class tst_streamscripts : public QObject
{
    Q_OBJECT

    static QStringList script(const char *name, const QStringList &arguments = {})
    {
        return QStringList{QString(SCRIPTS) + name} + arguments;
    }
    static int stop() { return QProcess::execute("sh", script("KT6120_stream_stop.sh")); }

    // True when the RTP stream at a port can be decoded.
    static bool decodes(const char *port)
    {
        return QProcess::execute("timeout",
                                 {"20", "gst-launch-1.0", "-q", "udpsrc", QString("port=") + port,
                                  rtpCaps, "!", "rtph264depay", "!", "avdec_h264", "!",
                                  "video/x-raw,width=720,height=576", "!", "identity",
                                  "eos-after=5", "!", "fakesink"})
               == 0;
    }

private slots:
    void initTestCase() { useStandIns(); }
    void init() { setStandIn("camera", "ok"); }

    void wrongArgumentsTouchNothing_data()
    {
        QTest::addColumn<QStringList>("arguments");
        // clang-format off
        const char *const rows[] = {
            "", "192.168.42.255", "192.168.42.255 0", "192.168.42.255 65536", "192.168.42.255 8001x",
            "192.168.42.255 8001 1", "192.168.42 8001", "192.168.42.256 8001", "192.168..42 8001", "phone 8001"};
        // clang-format on
        for (const char *row : rows)
            QTest::newRow(row) << QString(row).split(' ', Qt::SkipEmptyParts);
    }
    void wrongArgumentsTouchNothing()
    {
        QFETCH(QStringList, arguments);
        QProcess start;
        start.start("sh", script("KT6120_stream_start.sh", arguments));
        QVERIFY(start.waitForFinished());
        QCOMPARE(start.exitCode(), 2);
        QVERIFY(start.readAllStandardError().startsWith("usage: KT6120_stream_start.sh"));
        QVERIFY(!QFile::exists("/run/lock/KT6120_stream"));
    }

    void streamRunsUntilItIsStopped()
    {
        QCOMPARE(stop(), 0); // nothing to stop
        setStandIn("camera", "missing");
        QProcess first, second;
        first.start("sh", script("KT6120_stream_start.sh", {"127.0.0.1", "49152"}));
        QByteArray said;
        // A first start reads the whole registry of elements, which takes an emulator long.
        QTRY_VERIFY_WITH_TIMEOUT(
            (said += first.readAllStandardError()).contains("Cannot identify device"), 30000);
        setStandIn("camera", "ok"); // and tried again
        QVERIFY(decodes("49152"));

        second.start("sh", script("KT6120_stream_start.sh", {"127.255.255.255", "8001"}));
        QVERIFY(first.waitForFinished());
        QVERIFY(decodes("8001"));

        QCOMPARE(stop(), 0);
        QVERIFY(second.waitForFinished());
        QUdpSocket receiver;
        QVERIFY(receiver.bind(QHostAddress::AnyIPv4, 8001));
        QVERIFY(!receiver.waitForReadyRead(200)); // five frames' time
    }

    void streamEndsWithItsScript()
    {
        QProcess stream;
        stream.start("sh", script("KT6120_stream_start.sh", {"127.0.0.1", "49152"}));
        QVERIFY(decodes("49152"));
        stream.terminate();
        QVERIFY(stream.waitForFinished());
        QCOMPARE(stream.exitCode(), 0);
        QCOMPARE(QProcess::execute("flock", {"-n", "/run/lock/KT6120_stream", "true"}), 0);
    }

    void oneReceiverRuns()
    {
        const auto portIsTaken = [] {
            return !QUdpSocket().bind(QHostAddress::LocalHost, 8083, QUdpSocket::DontShareAddress);
        };
        QProcess first;
        first.start("sh", script("KT6120_gstreamer.sh"));
        QTRY_VERIFY(portIsTaken());
        QCOMPARE(QProcess::execute("sh", script("KT6120_gstreamer.sh")), 0);
        QVERIFY(portIsTaken());
        first.terminate();
        QVERIFY(first.waitForFinished());
        QVERIFY(!portIsTaken());
    }
};

QTEST_GUILESS_MAIN(tst_streamscripts)
#include "tst_streamscripts.moc"
