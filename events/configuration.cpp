// SPDX-License-Identifier: LicenseRef-KT6120

// The configuration file: what describes the installation rather than the unit's state.

#include "eventhandler.h"

#include "inifile.h"
#include "paths.h"

#include <QDebug>

namespace
{

constexpr double defaultEncoderScalar = 0.125; // metres a count
constexpr int defaultLampCurrent = 15;         // milliamperes
constexpr int fullLampCurrent = 30;            // milliamperes at 100 percent

// Percent of full scale, a half rounded up.
constexpr uint8_t lampPercent(int milliamperes)
{
    return static_cast<uint8_t>((milliamperes * 100 + fullLampCurrent / 2) / fullLampCurrent);
}

} // namespace

void eventHandler::readConfiguration()
{
    configuration = std::make_unique<IniFile>(paths::configuration);
    encoderScalar = configuration->value("Coiler/EncoderScalar", defaultEncoderScalar).toDouble();

    const int current = configuration->value("Lamp/MaxCurrent", defaultLampCurrent).toInt();
    if (current >= 1 && current <= fullLampCurrent) {
        qInfo() << "LED current limit set to " << current << "mA";
        lampMaximum = lampPercent(current);
    } else {
        qWarning() << "Invalid LED current limit detected, using default value "
                   << defaultLampCurrent << "mA";
        lampMaximum = lampPercent(defaultLampCurrent);
    }
}
