#include "monitor.h"

monitor::monitor(QObject *parent, settings *) : QObject(parent) {}
