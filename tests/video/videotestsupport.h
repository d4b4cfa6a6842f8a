#pragma once

#include "error_handler.h"
#include "testsupport.h"

#include <QFile>
#include <QStringList>
#include <QtTest>

#include <gst/gst.h>

using testsupport::OutputCapture;

// Makes this process see the bench's camera and encoder; before GStreamer is initialised.
inline void useStandIns()
{
    qputenv("GST_PLUGIN_PATH", BENCH_STANDINS);
    qputenv("GST_REGISTRY", BENCH_REGISTRY);
}

// What the bench's "camera" or "encoder" does from now on; empty: it works.
inline void setStandIn(const QString &name, const QByteArray &word)
{
    testsupport::writeFile("/run/bench/" + name, word);
}

// Notes every report it gets, as "operation arguments".
class NotingHandler : public VideoCaptureStatusHandler
{
public:
    explicit NotingHandler(QStringList *list = nullptr, const QString &name = {})
        : notes(list ? list : &own), prefix(name)
    {
    }
    void videoCaptureErrorHandler(bool flag, std::string text) override
    {
        note(QString("error %1 %2").arg(flag).arg(text.c_str()));
    }
    void jpegCompleteHandler(int number) override { note(QString("jpeg %1").arg(number)); }
    void jpegErrorHandler(int number, std::string text) override
    {
        note(QString("jpeg error %1 %2").arg(number).arg(text.c_str()));
    }
    void videoRecordingCompleteHandler() override { note("recording complete"); }
    void videoShutdownCompleteHandler() override { note("shutdown complete"); }
    void cameraDetachedHandler() override { note("detached"); }
    void cameraAttachedHandler() override { note("attached"); }

    QStringList *notes;

private:
    void note(const QString &text) { notes->append(prefix + text); }

    QStringList own;
    QString prefix;
};
