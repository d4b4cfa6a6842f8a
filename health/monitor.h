#pragma once

#include <QObject>

class QTimer;
class settings;

class monitor : public QObject
{
    Q_OBJECT

public:
    monitor(QObject *parent, settings *store);
};
