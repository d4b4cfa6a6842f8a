#pragma once

#include <QMetaType>

// What happened. The numbers are fixed; 22, 23, 31 and 32 are unused.
enum EVENT_TYPE_t : int {
    EVENT_BatteryState = 0,
    EVENT_BatteryStateRequest = 1,
    EVENT_BatteryVoltage = 2,
    EVENT_BatteryLevelRequest = 3,
    EVENT_SondeOn = 4,
    EVENT_SondeOff = 5,
    EVENT_SondeFrequency = 6,
    EVENT_SondeFrequencyRequest = 7,
    EVENT_SondeStateRequest = 8,
    EVENT_Current = 9,
    EVENT_LampValueRequest = 10,
    EVENT_LampValue = 11,
    EVENT_LampUp = 12,
    EVENT_LampDown = 13,
    EVENT_LampOff = 14,
    EVENT_Shutdown = 15,
    EVENT_CameraType = 16,
    EVENT_CoilerValue = 17,
    EVENT_CoilerValueRequest = 18,
    EVENT_CoilerSet = 19,
    EVENT_EncoderValue = 20,
    EVENT_McuVersion = 21,
    EVENT_StreamStart = 24,
    EVENT_StreamStop = 25,
    EVENT_PALStart = 26,
    EVENT_PALStop = 27,
    EVENT_IdnRequest = 28,
    EVENT_Thermistor = 29,
    EVENT_ComputeTemperatureRequest = 30,
    EVENT_TallwickDetected = 33,
    EVENT_TallwickDetectRequest = 34,
    EVENT_CoilerModel = 35,
    EVENT_CoilerModelRequest = 36,
    EVENT_WriteLogs = 37,
    EVENT_ResetLogs = 38,
    EVENT_UnknownCommand = 39,
};

// Where an event came from; as a destination, where an answer goes.
enum SOURCE_TYPE_t : int {
    SOURCE_MCU = 0,
    SOURCE_DEBUG = 1, // reaches the MCU link, which writes nothing for it
    SOURCE_APP = 2,
    SOURCE_FIFO = 3, // the commands file; answers to it are dropped
};

static_assert(sizeof(EVENT_TYPE_t) == 4 && sizeof(SOURCE_TYPE_t) == 4);

Q_DECLARE_METATYPE(EVENT_TYPE_t)
Q_DECLARE_METATYPE(SOURCE_TYPE_t)
