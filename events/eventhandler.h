#pragma once
#include "eventtypes.h"
#include <QObject>
class eventHandler : public QObject
{
    Q_OBJECT
public:
    explicit eventHandler(QObject *parent = nullptr) : QObject(parent) {}
};
