// SPDX-License-Identifier: LicenseRef-KT6120
#include "fuzzworld.h"

#include "eventhandler.h"

#include "testsupport.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace
{

void discard(QtMsgType, const QMessageLogContext &, const QString &) {}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static QCoreApplication application(*argc, *argv);
    qInstallMessageHandler(discard);
    testsupport::freshWorld();
    fuzz::start();
    // The machine's own programs, the log rotation among them, stay out of the inputs.
    qputenv("PATH", "/run/bench/bin");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::input(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    return 0;
}

void fuzz::require(bool condition, const char *what)
{
    if (condition)
        return;
    fprintf(stderr, "not so: %s\n", what);
    abort();
}

void fuzz::askEverything(eventHandler &handler)
{
    for (const EVENT_TYPE_t request :
         {EVENT_BatteryStateRequest, EVENT_BatteryLevelRequest, EVENT_SondeFrequencyRequest,
          EVENT_SondeStateRequest, EVENT_LampValueRequest, EVENT_CoilerValueRequest,
          EVENT_IdnRequest, EVENT_ComputeTemperatureRequest, EVENT_TallwickDetectRequest,
          EVENT_CoilerModelRequest, EVENT_UnknownCommand}) {
        for (const SOURCE_TYPE_t source : {SOURCE_APP, SOURCE_FIFO})
            handler.eventHandlerProcess(request, source, nullptr);
    }
}
