// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "eventhandler.h"

#include "paths.h"
#include "testsupport.h"

#include <QSignalSpy>

#include <memory>

// An event handler in a fresh world whose scripts are recorded, and what it sends.
class UnitUnderEvents
{
public:
    // configuration: content of the configuration file; none without it.
    explicit UnitUnderEvents(const QByteArray &configuration = {})
    {
        testsupport::freshWorld();
        for (const char *script : {paths::gpioWriteScript, paths::sondeEnableScript,
                                   "/home/pi/KT6120/bin/KT6120_shutdown.sh"})
            recorders::install(script);
        if (!configuration.isEmpty())
            testsupport::writeFile(paths::configuration, configuration);
        testsupport::writeFile(paths::commandsFile, {});
        testsupport::LogCapture::clear();
        handler = std::make_unique<eventHandler>();
        QObject::connect(handler.get(), &eventHandler::eventHandlerSendInternalCmd, handler.get(),
                         [this](const QString &text, SOURCE_TYPE_t destination) {
                             (destination == SOURCE_MCU ? serial : debug).append(text);
                         });
        QObject::connect(handler.get(), &eventHandler::eventHandlerSendExternalCmd, handler.get(),
                         [this](const QString &text) { app.append(text); });
    }

    void raise(EVENT_TYPE_t event, SOURCE_TYPE_t source = SOURCE_APP, void *payload = nullptr) const
    {
        handler->eventHandlerProcess(event, source, payload);
    }
    template <EVENT_TYPE_t event>
    void report(Payload<event> value, SOURCE_TYPE_t source = SOURCE_MCU) const
    {
        raise(event, source, &value);
    }

    static QString stored(const QString &key)
    {
        return testsupport::iniValue(paths::statusStore, key);
    }

    // Forgets what was sent, called and logged.
    void forget()
    {
        serial.clear();
        debug.clear();
        app.clear();
        recorders::clearCalls();
        testsupport::LogCapture::clear();
    }

    std::unique_ptr<eventHandler> handler;
    QStringList serial, debug, app;
};
