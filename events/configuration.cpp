// SPDX-License-Identifier: LicenseRef-KT6120

// The configuration file: values that describe the installation, not the unit's state.

#include "eventhandler.h"

#include "keys.h"
#include "lamp.h"
#include "logmessages.h"

#include <QDebug>

void eventHandler::readConfiguration()
{
    encoderScalar = configuration.value(keys::encoderScalar).toDouble();

    // As text: a QVariant's own conversion keeps the low 32 bits of a longer number.
    const int current = configuration.value(keys::lampMaxCurrent).toString().toInt();
    lampMaximum = uint8_t(lamp::highest(current));
    if (lampMaximum > 0) {
        qInfo() << messages::lampLimit << current << "mA";
    } else {
        const int standard = QString(keys::lampMaxCurrent.absent).toInt();
        qWarning() << messages::lampLimitInvalid << standard << "mA";
        lampMaximum = uint8_t(lamp::highest(standard));
    }
}
