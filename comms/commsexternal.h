#pragma once

#include "eventtypes.h"

#include <QByteArray>
#include <QObject>
#include <QString>

class commsExternal : public QObject
{
    Q_OBJECT

public:
    explicit commsExternal(QObject *parent = nullptr);

signals:
    void commsExternalEvent(EVENT_TYPE_t event, SOURCE_TYPE_t source, void *ptr);
    void commsExternalSetPort(QString port);
    void commsExternalSetIP(QString ip);
    void commsExternalStartStream(QString ip, QString port);

public slots:
    void commsExternalInit();
    void commsExternalSendCmd(QString text);
    void commsExternalNullParams();
};
