// SPDX-License-Identifier: LicenseRef-KT6120
#include "videotestsupport.h"

#include <QProcess>
#include <QUdpSocket>

#include <csignal>

namespace
{

const char rtpCaps[] =
    "caps=application/x-rtp,media=video,encoding-name=H264,clock-rate=90000,payload=96";

QStringList script(const char *name, const QStringList &arguments = {})
{
    return QStringList{QString(SCRIPTS) + name} + arguments;
}

// A run of the start script.
struct Stream : QProcess {
    explicit Stream(const QStringList &arguments)
    {
        start("sh", script("KT6120_stream_start.sh", arguments));
    }
};
const QStringList toThisDesk = {"127.0.0.1", "49152"};

} // namespace

// The unit's own scripts, run with the bench's camera and encoder.
class tst_streamscripts : public QObject
{
    Q_OBJECT

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

    static bool cameraIsFree()
    {
        return QProcess::execute("gst-launch-1.0",
                                 {"-q", "v4l2src", "!", "fakesink", "num-buffers=1"})
               == 0;
    }

    // Launched, and kept from its first line until it is sent SIGCONT.
    static void launchFrozen(QProcess &process, const QStringList &command)
    {
        process.start("sh", QStringList{"-c", "kill -STOP $$; exec sh \"$@\"", "sh"} + command);
        QVERIFY(process.waitForStarted());
        const QString stat = QString("/proc/%1/stat").arg(process.processId());
        TRY_VERIFY(testsupport::readFile(stat).contains(") T "));
    }
    static void thaw(const QProcess &process) { kill(pid_t(process.processId()), SIGCONT); }

    static void ip(const QString &arguments)
    {
        QCOMPARE(QProcess::execute("ip", arguments.split(' ')), 0);
    }

private slots:
    void initTestCase()
    {
        useStandIns();
        // Where everybody may lay a file of their name, the scripts look for nothing.
        QVERIFY(QDir("/run").rmdir("lock"));
    }
    void init() { setStandIn("camera", "ok"); }

    void wrongArgumentsTouchNothing()
    {
        for (const char *arguments :
             {"", "192.168.42.255", "192.168.42.255 0", "192.168.42.255 65536",
              "192.168.42.255 8001x", "192.168.42.255 8001 1", "192.168.42 8001",
              "192.168.42.256 8001", "192.168..42 8001", "phone 8001"}) {
            Stream start(QString(arguments).split(' ', Qt::SkipEmptyParts));
            QVERIFY(start.waitForFinished());
            QCOMPARE(start.exitCode(), 2);
            QVERIFY(start.readAllStandardError().startsWith("usage: KT6120_stream_start.sh"));
            QVERIFY(!QFile::exists("/run/KT6120"));
        }
    }

    void streamRunsUntilItIsStopped()
    {
        QCOMPARE(stop(), 0); // nothing to stop
        setStandIn("camera", "missing");
        Stream first(toThisDesk);
        QByteArray said;
        // A first start reads the whole registry of elements, which takes an emulator long.
        QTRY_VERIFY_WITH_TIMEOUT(
            (said += first.readAllStandardError()).contains("Cannot identify device"), 30000);
        setStandIn("camera", "ok"); // and tried again
        QVERIFY(decodes("49152"));

        // Without the unit's own element in sight, the kernel's encoder is taken as it is.
        qputenv("GST_PLUGIN_PATH", QByteArray(BENCH_STANDINS).split(':').last());
        qputenv("GST_REGISTRY", "/tmp/registry");
        Stream second({"127.255.255.255", "8001"});
        useStandIns();
        QVERIFY(first.waitForFinished());
        QVERIFY(decodes("8001"));

        QCOMPARE(stop(), 0);
        QVERIFY(second.waitForFinished());
        QUdpSocket receiver;
        QVERIFY(receiver.bind(QHostAddress::AnyIPv4, 8001));
        QVERIFY(!receiver.waitForReadyRead(200)); // five frames' time
    }

    // The program takes the camera back 100 ms later, however slow the outside programs are.
    void stopNeedsTheShellAlone()
    {
        const QString hanging = "/tmp/hanging/";
        QVERIFY(QDir().mkpath(hanging + "bin"));
        testsupport::writeFile(hanging + "program", "#!/bin/sh\nexec /bin/sleep 60\n");
        QFile::setPermissions(hanging + "program", QFile::ReadOwner | QFile::ExeOwner);
        for (const char *folder : {"/usr/bin", "/usr/sbin"}) {
            for (const QString &name : QDir(folder).entryList(QDir::Files | QDir::System))
                QFile::link(hanging + "program", hanging + "bin/" + name);
        }
        Stream stream(toThisDesk);
        QVERIFY(decodes("49152"));
        QVERIFY(!cameraIsFree());
        QProcess slowStop;
        slowStop.start("env", QStringList{"PATH=" + hanging + "bin", "/bin/sh"}
                                  + script("KT6120_stream_stop.sh"));
        QVERIFY(stream.waitForFinished());
        TRY_VERIFY(cameraIsFree());
        slowStop.kill();
        QVERIFY(slowStop.waitForFinished());
    }

    void streamEndsWithItsScript()
    {
        for (const int signal : {SIGTERM, SIGKILL}) {
            Stream stream(toThisDesk);
            QVERIFY(decodes("49152"));
            kill(pid_t(stream.processId()), signal);
            QVERIFY(stream.waitForFinished());
            QCOMPARE(stream.exitCode(), signal == SIGTERM ? 0 : SIGKILL);
            TRY_VERIFY(cameraIsFree());
        }
    }

    // Whichever comes to its first line when: the younger one holds.
    void orderOfLaunchHolds()
    {
        QProcess olderStart, olderStop;
        launchFrozen(olderStart, script("KT6120_stream_start.sh", toThisDesk));
        QCOMPARE(stop(), 0);
        thaw(olderStart);
        QVERIFY(olderStart.waitForFinished());
        QVERIFY(cameraIsFree());

        launchFrozen(olderStop, script("KT6120_stream_stop.sh"));
        Stream stream(toThisDesk);
        QVERIFY(decodes("49152"));
        thaw(olderStop);
        QVERIFY(olderStop.waitForFinished());
        QVERIFY(decodes("49152"));
        QCOMPARE(stop(), 0);
        QVERIFY(stream.waitForFinished());
    }

    // A process that has got the number of a stream that is gone.
    void strangersAreLeftAlone()
    {
        QCOMPARE(stop(), 0); // which makes the folder
        QProcess stranger;
        stranger.start("setsid", {"sleep", "60"});
        QVERIFY(stranger.waitForStarted());
        const QString mark = QString("/run/KT6120/1.%1.start.sh").arg(stranger.processId());
        testsupport::writeFile(mark, {});
        QCOMPARE(stop(), 0);
        QVERIFY(!QFile::exists(mark));
        QVERIFY(!stranger.waitForFinished(100));
        stranger.kill();
        QVERIFY(stranger.waitForFinished());
    }

    // Launched behind a stop nobody ends it but itself.
    void streamEndsWithItsNetwork()
    {
        QCOMPARE(stop(), 0);
        Stream lost({"192.168.42.255", "49152"});
        QVERIFY(lost.waitForFinished());
        QCOMPARE(lost.exitCode(), 0);

        ip("link add usb0 type veth peer name phone0");
        ip("addr add 192.168.42.10/24 broadcast + dev usb0");
        ip("link set phone0 up");
        ip("link set usb0 up");
        QCOMPARE(stop(), 0);
        Stream stream({"192.168.42.255", "49152"});
        QVERIFY(decodes("49152"));
        ip("link del usb0");
        QVERIFY(stream.waitForFinished());
        QCOMPARE(stream.exitCode(), 0);
        QVERIFY(cameraIsFree());
    }

    void oneReceiverRuns()
    {
        const auto portIsTaken = [] {
            return !QUdpSocket().bind(QHostAddress::LocalHost, 8083, QUdpSocket::DontShareAddress);
        };
        QProcess first;
        first.start("sh", script("KT6120_gstreamer.sh"));
        TRY_VERIFY(portIsTaken());
        QCOMPARE(QProcess::execute("sh", script("KT6120_gstreamer.sh")), 0);
        QVERIFY(portIsTaken());
        first.terminate();
        QVERIFY(first.waitForFinished());
        QVERIFY(!portIsTaken());
    }
};

QTEST_GUILESS_MAIN(tst_streamscripts)
#include "tst_streamscripts.moc"
