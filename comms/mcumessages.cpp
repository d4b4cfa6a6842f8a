// SPDX-License-Identifier: LicenseRef-KT6120

// The handlers of the MCU's words: each reads the argument, keeps it and emits the event.

#include "commsinternal.h"

#include "logmessages.h"
#include "mculog.h"

#include <QDebug>

#include <algorithm>

namespace
{

constexpr int syntaxError = -102; // SCPI: the argument is not a decimal integer

} // namespace

void commsInternal::addCommands()
{
    const cmd_element_t elements[] = {
        {"Corvantis", 2, &commsInternal::commsInternalIDN},
        {"LAMP:VALUE", 1, &commsInternal::commsInternalUpdateLampVal},
        {"BAT:STATE", 1, &commsInternal::commsInternalUpdateBatState},
        {"BAT:V", 1, &commsInternal::commsInternalUpdateBatV},
        {"PWR:I", 1, &commsInternal::commsInternalUpdateCurrent},
        {"COILER:VALUE", 1, &commsInternal::commsInternalUpdateCoiler},
        {"PWR:SD", 0, &commsInternal::commsInternalShutdown},
        {"CAMERA:TYPE", 1, &commsInternal::commsInternalUpdateCameraType},
        {"PWR:OT", 0, &commsInternal::commsInternalPowerOT},
        {"PWR:UT", 0, &commsInternal::commsInternalPowerUT},
        {"*CLS", 0, &commsInternal::commsInternalFifoClear},
        {"ERR?", 0, &commsInternal::commsInternalFifoGet},
        {"SONDE:EN", 1, &commsInternal::commsInternalSondeState},
        {"TEMP", 1, &commsInternal::commsInternalThermistor},
        {"TWK", 1, &commsInternal::commsInternalTallwickDetected},
        {"LOGS", 1, &commsInternal::commsInternalMCULogs},
    };
    for (const cmd_element_t &element : elements)
        commsInternalAddCommand(element.name, element.handler, element.argCount);
}

// Reads a decimal 32-bit integer. Otherwise adds an error to the queue and returns false.
bool commsInternal::readNumber(const QString &word, int &number)
{
    // toInt() alone would also take white space around the digits and other minus signs than
    // ASCII's.
    const auto isPlain = [](QChar letter) {
        return QLatin1String("+-0123456789").contains(letter);
    };
    bool ok = false;
    number = word.toInt(&ok, 10);
    ok = ok && std::all_of(word.begin(), word.end(), isPlain);
    if (!ok)
        commsInternalAddtoFifo(syntaxError);
    return ok;
}

// Keeps the low bits of the first argument that fit the member and emits the event.
template <EVENT_TYPE_t type, typename Width>
int commsInternal::updateNumber(const QStringList &words, SOURCE_TYPE_t source,
                                Payload<type> &member)
{
    int number = 0;
    if (!readNumber(words.at(1), number))
        return 1;
    member = static_cast<Width>(number);
    emit commsInternalEvent(type, source, &member);
    return 0;
}

int commsInternal::commsInternalIDN(QStringList words, SOURCE_TYPE_t source)
{
    mcuVersion = words.last();
    emit commsInternalEvent(EVENT_McuVersion, source, payloadPointer<EVENT_McuVersion>(mcuVersion));
    return 0;
}

int commsInternal::commsInternalUpdateLampVal(QStringList words, SOURCE_TYPE_t source)
{
    return updateNumber<EVENT_LampValue>(words, source, lampValue);
}

int commsInternal::commsInternalUpdateBatState(QStringList words, SOURCE_TYPE_t source)
{
    return updateNumber<EVENT_BatteryState, uint8_t>(words, source, batteryState);
}

int commsInternal::commsInternalUpdateBatV(QStringList words, SOURCE_TYPE_t source)
{
    return updateNumber<EVENT_BatteryVoltage>(words, source, batteryVoltage);
}

int commsInternal::commsInternalUpdateCurrent(QStringList words, SOURCE_TYPE_t source)
{
    return updateNumber<EVENT_Current>(words, source, batteryCurrent);
}

int commsInternal::commsInternalUpdateCoiler(QStringList words, SOURCE_TYPE_t source)
{
    return updateNumber<EVENT_CoilerValue>(words, source, coilerValue);
}

int commsInternal::commsInternalShutdown(QStringList, SOURCE_TYPE_t source)
{
    qCritical() << messages::shutdownRequested;
    emit commsInternalEvent(EVENT_Shutdown, source, nullptr);
    return 0;
}

int commsInternal::commsInternalUpdateCameraType(QStringList words, SOURCE_TYPE_t source)
{
    return updateNumber<EVENT_CameraType, uint8_t>(words, source, cameraType);
}

// Accepted without effect.
int commsInternal::commsInternalPowerOT(QStringList, SOURCE_TYPE_t)
{
    return 0;
}

int commsInternal::commsInternalPowerUT(QStringList, SOURCE_TYPE_t)
{
    return 0;
}

int commsInternal::commsInternalFifoClear(QStringList, SOURCE_TYPE_t)
{
    errorFifo.clear();
    return 0;
}

int commsInternal::commsInternalFifoGet(QStringList, SOURCE_TYPE_t source)
{
    QStringList numbers;
    for (const int number : errorFifo)
        numbers.append(QString::number(number));
    commsInternalSendCommand(numbers.join(", "), source);
    return 0;
}

// The MCU sends its state at every poll; emit an event only on a change.
int commsInternal::commsInternalSondeState(QStringList words, SOURCE_TYPE_t source)
{
    int number = 0;
    if (!readNumber(words.at(1), number))
        return 1;
    const auto state = static_cast<uint8_t>(number);
    if (state == sondeState)
        return 0;
    sondeState = state;
    emit commsInternalEvent(state == 1 ? EVENT_SondeOn : EVENT_SondeOff, source, &sondeState);
    return 0;
}

int commsInternal::commsInternalThermistor(QStringList words, SOURCE_TYPE_t source)
{
    return updateNumber<EVENT_Thermistor>(words, source, thermistorValue);
}

int commsInternal::commsInternalTallwickDetected(QStringList words, SOURCE_TYPE_t source)
{
    return updateNumber<EVENT_TallwickDetected>(words, source, tallwickDetected);
}

int commsInternal::commsInternalMCULogs(QStringList words, SOURCE_TYPE_t)
{
    mcuLogs = words.at(1);
    writeMcuLog(mcuLogs);
    return 0;
}
