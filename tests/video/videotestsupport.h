// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "error_handler.h"
#include "testsupport.h"

#include <QStringList>
#include <QtTest>

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
    void videoCaptureErrorHandler(bool flag, std::string text) override
    {
        notes << QString("error %1 %2").arg(flag).arg(text.c_str());
    }
    void jpegCompleteHandler(int number) override { notes << QString("jpeg %1").arg(number); }
    void jpegErrorHandler(int number, std::string text) override
    {
        notes << QString("jpeg error %1 %2").arg(number).arg(text.c_str());
    }
    void videoRecordingCompleteHandler() override { notes << "recording complete"; }
    void videoShutdownCompleteHandler() override { notes << "shutdown complete"; }
    void cameraDetachedHandler() override { notes << "detached"; }
    void cameraAttachedHandler() override { notes << "attached"; }

    QStringList notes;
};
