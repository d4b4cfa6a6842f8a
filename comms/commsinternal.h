#pragma once
#include "eventtypes.h"
#include <QObject>
class commsInternal : public QObject
{
    Q_OBJECT
public:
    explicit commsInternal(QObject *parent = nullptr) : QObject(parent) {}
public slots:
    void commsInternalInit() {}
};
