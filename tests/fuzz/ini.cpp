// SPDX-License-Identifier: LicenseRef-KT6120

// Status store and configuration file as a power cut, an editor or another program left them.

#include "fuzzworld.h"

#include "eventhandler.h"
#include "monitor.h"
#include "paths.h"
#include "testsupport.h"

#include <QCoreApplication>
#include <QFile>

void fuzz::start() {}

void fuzz::input(const QByteArray &bytes)
{
    testsupport::writeFile(paths::statusStore, bytes);
    testsupport::writeFile(paths::configuration, bytes);
    QString model("x40");
    {
        eventHandler handler;
        askEverything(handler);
        QMetaObject::invokeMethod(handler.findChild<monitor *>(), "monitor_timer_expired");
        handler.eventHandlerProcess(EVENT_CoilerModel, SOURCE_APP,
                                    payloadPointer<EVENT_CoilerModel>(model));
        QCoreApplication::processEvents(); // the configuration file is written
    }
    require(testsupport::iniValue(paths::statusStore, "Compute/SoftwareVersion")
                == "V" PROGRAM_VERSION,
            "the version is in the store");
    require(testsupport::iniValue(paths::configuration, "Coiler/Model") == model,
            "the model is in the configuration file");
    QFile::remove(paths::statusCsv);
}
