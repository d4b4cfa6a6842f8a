// SPDX-License-Identifier: LicenseRef-KT6120

// The configuration file: values that describe the installation, not the unit's state.

#include "eventhandler.h"

#include "inifile.h"
#include "keys.h"
#include "logmessages.h"
#include "paths.h"

#include <QDebug>

namespace
{

constexpr int fullLampCurrent = 30; // milliamperes at 100 percent

// Percent of full scale, rounded half up.
constexpr uint8_t lampPercent(int milliamperes)
{
    return static_cast<uint8_t>((milliamperes * 100 + fullLampCurrent / 2) / fullLampCurrent);
}

} // namespace

void eventHandler::readConfiguration()
{
    configuration = std::make_unique<IniFile>(paths::configuration);
    encoderScalar =
        configuration->value(keys::encoderScalar.name, keys::encoderScalar.absent).toDouble();

    const QVariant standard = keys::lampMaxCurrent.absent;
    const int current = configuration->value(keys::lampMaxCurrent.name, standard).toInt();
    if (current >= 1 && current <= fullLampCurrent) {
        qInfo() << messages::lampLimit << current << "mA";
        lampMaximum = lampPercent(current);
    } else {
        qWarning() << messages::lampLimitInvalid << standard.toInt() << "mA";
        lampMaximum = lampPercent(standard.toInt());
    }
}
