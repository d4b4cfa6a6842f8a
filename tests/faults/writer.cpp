// SPDX-License-Identifier: LicenseRef-KT6120

// Writes the unit's four files in a tight loop, through the program's own classes and by way of
// its own events, until it is killed. Round N writes N everywhere; "N\n" on standard output
// says that the round begins.

#include "eventhandler.h"
#include "messagehandler.h"
#include "monitor.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    qInstallMessageHandler(MessageHandler);
    eventHandler handler;
    auto *health = handler.findChild<monitor *>();
    for (int32_t round = 1;; ++round) {
        printf("%d\n", round);
        fflush(stdout);
        handler.eventHandlerProcess(EVENT_BatteryState, SOURCE_MCU,
                                    payloadPointer<EVENT_BatteryState>(round)); // store and log
        QString model = QString("M%1").arg(round);
        handler.eventHandlerProcess(EVENT_CoilerModel, SOURCE_APP,
                                    payloadPointer<EVENT_CoilerModel>(model));
        auto voltage = static_cast<uint16_t>(round);
        handler.eventHandlerProcess(EVENT_BatteryVoltage, SOURCE_MCU,
                                    payloadPointer<EVENT_BatteryVoltage>(voltage));
        QCoreApplication::processEvents();                          // the configuration file
        QMetaObject::invokeMethod(health, "monitor_timer_expired"); // the status CSV
    }
}
