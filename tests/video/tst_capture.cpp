#include "capture.h"
#include "videotestsupport.h"

#include <QProcess>

#include <mutex>
#include <thread>

namespace
{

const QByteArray withoutCamera =
    "Could not open\ncapture openerror\nCannot read frame from video\n";

std::mutex &lockOf(GStreamerPipeline &pipeline)
{
    struct Inside : GStreamerPipeline {
        static std::mutex GStreamerPipeline::*place() { return &Inside::lock; }
    };
    return pipeline.*Inside::place();
}

} // namespace

class tst_capture : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        useStandIns();
        qputenv("OPENCV_VIDEOIO_PRIORITY_GPHOTO2", "0"); // not a desk's photo cameras
    }

    void grabsNothingWithoutACamera()
    {
        const QString module = QCoreApplication::applicationDirPath() + "/KT6120_grab.so";
        setStandIn("camera", QFile::exists(module) ? "missing" : "ok");
        const testsupport::LogCapture log;
        OutputCapture output;
        capture camera;
        camera.startCapture();
        QCOMPARE(output.text(), withoutCamera);
        QCOMPARE(log.texts(QtDebugMsg), QStringList({"starting capture"}));
    }

    // The same, seen by a copy of this test that has no module beside it.
    void grabsNothingWithoutTheModule()
    {
        const QString copy = "/tmp/tst_capture";
        QVERIFY(QFile::exists(copy) || QFile::copy(QCoreApplication::applicationFilePath(), copy));
        QCOMPARE(QProcess::execute(copy, {"-silent", "grabsNothingWithoutACamera"}), 0);
    }

    // Both pipelines are offered the frames, and idle, take none.
    void grabsUntilTheCameraIsLost()
    {
        setStandIn("camera", "ok");
        OutputCapture output;
        capture camera;
        std::thread grabbing([&] { camera.startCapture(); });
        for (GStreamerPipeline *pipeline :
             {static_cast<GStreamerPipeline *>(&camera.palPipeline),
              static_cast<GStreamerPipeline *>(&camera.streamPipeline)}) {
            const std::lock_guard<std::mutex> busy(lockOf(*pipeline));
            output.take();
            QTRY_VERIFY(output.text().contains("Wait for record lock timed out\n"));
        }
        setStandIn("camera", "lost");
        grabbing.join();
        QCOMPARE(camera.palPipeline.getPosition(), std::uint64_t(0));
        QCOMPARE(camera.streamPipeline.getPosition(), std::uint64_t(0));
        QVERIFY(output.text().endsWith("timed out\nCannot read frame from video\n"));
    }
};

QTEST_GUILESS_MAIN(tst_capture)
#include "tst_capture.moc"
