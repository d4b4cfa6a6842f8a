#include "busybee.h"

BusyBee::BusyBee(QObject *parent, settings *) : QObject(parent) {}
