#include "commsexternal.h"

commsExternal::commsExternal(QObject *parent) : QObject(parent) {}
void commsExternal::commsExternalInit() {}
void commsExternal::commsExternalSendCmd(QString) {}
void commsExternal::commsExternalNullParams() {}
