#include "capture.h"
#include "videotestsupport.h"

#include <QProcess>

#include <thread>

namespace
{

const QByteArray withoutCamera =
    "Could not open\ncapture openerror\nCannot read frame from video\n";

} // namespace

class tst_capture : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useStandIns(); }

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

    // Nobody takes the frames: both pipelines are idle.
    void grabsUntilTheCameraIsLost()
    {
        setStandIn("camera", "ok");
        OutputCapture output;
        capture camera;
        std::thread grabbing([&] { camera.startCapture(); });
        QTRY_VERIFY(output.text().contains("capture open"));
        setStandIn("camera", "lost");
        grabbing.join();
        QCOMPARE(camera.palPipeline.getPosition(), std::uint64_t(0));
        QCOMPARE(camera.streamPipeline.getPosition(), std::uint64_t(0));
        QCOMPARE(output.text(), QByteArray("capture openCannot read frame from video\n"));
    }
};

QTEST_GUILESS_MAIN(tst_capture)
#include "tst_capture.moc"
