#pragma once

#include <QObject>

class settings;

class BusyBee : public QObject
{
    Q_OBJECT

public:
    BusyBee(QObject *parent, settings *store);
};
