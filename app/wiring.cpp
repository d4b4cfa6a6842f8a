// SPDX-License-Identifier: LicenseRef-KT6120
#include "wiring.h"

#include "commsexternal.h"
#include "commsinternal.h"
#include "eventhandler.h"
#include "eventtypes.h"
#include "videolibrary.h"

#include <QDebug>

std::vector<QMetaObject::Connection> connectComponents(const Components &components)
{
    const auto [events, mcu, app, video] = components;

    qRegisterMetaType<EVENT_TYPE_t>("EVENT_TYPE_t");
    qRegisterMetaType<SOURCE_TYPE_t>("SOURCE_TYPE_t");

    struct Row {
        const QObject *sender;
        const char *signal;
        const QObject *receiver;
        const char *slot;
        Qt::ConnectionType type;
    };
    // Automatic connections within one thread are direct calls: an event is handled completely
    // inside the emit, so its payload pointer stays valid. The slots of the video facade run after
    // the event, from the event loop.
    const Row rows[] = {
        {events, SIGNAL(eventHandlerSendInternalCmd(QString, SOURCE_TYPE_t)), mcu,
         SLOT(commsInternalSendCommand(QString, SOURCE_TYPE_t)), Qt::AutoConnection},
        {events, SIGNAL(eventHandlerUpdateLogs()), mcu, SLOT(commsInternalRequestLogs()),
         Qt::AutoConnection},
        {events, SIGNAL(eventHandlerSendExternalCmd(QString)), app,
         SLOT(commsExternalSendCmd(QString)), Qt::AutoConnection},
        {events, SIGNAL(eventHandlerNullParams()), app, SLOT(commsExternalNullParams()),
         Qt::AutoConnection},
        {mcu, SIGNAL(commsInternalEvent(EVENT_TYPE_t, SOURCE_TYPE_t, void *)), events,
         SLOT(eventHandlerProcess(EVENT_TYPE_t, SOURCE_TYPE_t, void *)), Qt::AutoConnection},
        {app, SIGNAL(commsExternalEvent(EVENT_TYPE_t, SOURCE_TYPE_t, void *)), events,
         SLOT(eventHandlerProcess(EVENT_TYPE_t, SOURCE_TYPE_t, void *)), Qt::AutoConnection},
        {app, SIGNAL(commsExternalSetIP(QString)), events, SLOT(eventHandlerSetIPAddress(QString)),
         Qt::AutoConnection},
        {app, SIGNAL(commsExternalSetPort(QString)), events, SLOT(eventHandlerSetPort(QString)),
         Qt::AutoConnection},
        {app, SIGNAL(commsExternalStartStream(QString, QString)), video,
         SLOT(startStreaming(QString, QString)), Qt::QueuedConnection},
        {events, SIGNAL(eventHandlerStartStreaming(QString, QString)), video,
         SLOT(startStreaming(QString, QString)), Qt::QueuedConnection},
        {events, SIGNAL(eventHandlerStopStreaming()), video, SLOT(stopStreaming()),
         Qt::QueuedConnection},
        {events, SIGNAL(eventHandlerStartPAL()), video, SLOT(startVideo()), Qt::QueuedConnection},
        {events, SIGNAL(eventHandlerStopPAL()), video, SLOT(stopVideo()), Qt::QueuedConnection},
    };

    std::vector<QMetaObject::Connection> made;
    for (const Row &row : rows)
        made.push_back(QObject::connect(row.sender, row.signal, row.receiver, row.slot, row.type));
    qDebug() << "stop connection state:" << bool(made.back());
    return made;
}
