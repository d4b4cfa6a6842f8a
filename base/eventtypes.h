// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QMetaType>
#include <QString>

#include <cstdint>
#include <type_traits>

// All events: name, number, and payload type, which is the type that the event's pointer points at,
// or void. The numbers are fixed; 22, 23, 31 and 32 are unused. The enumeration, Payload and
// carries() are generated from this table.
// clang-format off
#define UNIT_EVENTS(EVENT)                                                                    \
    EVENT(EVENT_BatteryState,               0, int32_t)                                       \
    EVENT(EVENT_BatteryStateRequest,        1, void)                                          \
    EVENT(EVENT_BatteryVoltage,             2, uint16_t)                                      \
    EVENT(EVENT_BatteryLevelRequest,        3, void)                                          \
    EVENT(EVENT_SondeOn,                    4, void)                                          \
    EVENT(EVENT_SondeOff,                   5, void)                                          \
    EVENT(EVENT_SondeFrequency,             6, QString)                                       \
    EVENT(EVENT_SondeFrequencyRequest,      7, void)                                          \
    EVENT(EVENT_SondeStateRequest,          8, void)                                          \
    EVENT(EVENT_Current,                    9, uint16_t)                                      \
    EVENT(EVENT_LampValueRequest,          10, void)                                          \
    EVENT(EVENT_LampValue,                 11, uint8_t)                                       \
    EVENT(EVENT_LampUp,                    12, void)                                          \
    EVENT(EVENT_LampDown,                  13, void)                                          \
    EVENT(EVENT_LampOff,                   14, void)                                          \
    EVENT(EVENT_Shutdown,                  15, void)                                          \
    EVENT(EVENT_CameraType,                16, int32_t)                                       \
    EVENT(EVENT_CoilerValue,               17, int16_t)                                       \
    EVENT(EVENT_CoilerValueRequest,        18, void)                                          \
    EVENT(EVENT_CoilerSet,                 19, double)   /* metres; a null pointer is 0 */    \
    EVENT(EVENT_EncoderValue,              20, uint16_t)                                      \
    EVENT(EVENT_McuVersion,                21, QString)                                       \
    EVENT(EVENT_StreamStart,               24, void)                                          \
    EVENT(EVENT_StreamStop,                25, void)                                          \
    EVENT(EVENT_PALStart,                  26, void)                                          \
    EVENT(EVENT_PALStop,                   27, void)                                          \
    EVENT(EVENT_IdnRequest,                28, void)                                          \
    EVENT(EVENT_Thermistor,                29, int16_t)  /* hundredths of a degree Celsius */ \
    EVENT(EVENT_ComputeTemperatureRequest, 30, void)                                          \
    EVENT(EVENT_TallwickDetected,          33, uint8_t)                                       \
    EVENT(EVENT_TallwickDetectRequest,     34, void)                                          \
    EVENT(EVENT_CoilerModel,               35, QString)                                       \
    EVENT(EVENT_CoilerModelRequest,        36, void)                                          \
    EVENT(EVENT_WriteLogs,                 37, QString)                                       \
    EVENT(EVENT_ResetLogs,                 38, void)                                          \
    EVENT(EVENT_UnknownCommand,            39, void)
// clang-format on

enum EVENT_TYPE_t : int {
#define NUMBERED(name, number, payload) name = (number),
    UNIT_EVENTS(NUMBERED)
#undef NUMBERED
};

inline constexpr EVENT_TYPE_t allEvents[] = {
#define NAMED(name, number, payload) name,
    UNIT_EVENTS(NAMED)
#undef NAMED
};

// The source of an event, or the destination of an answer.
enum SOURCE_TYPE_t : int {
    SOURCE_MCU = 0,
    SOURCE_DEBUG = 1, // goes to the MCU link, which ignores it
    SOURCE_APP = 2,
    SOURCE_FIFO = 3, // the commands file; answers to it are dropped
};

static_assert(sizeof(EVENT_TYPE_t) == 4 && sizeof(SOURCE_TYPE_t) == 4);

Q_DECLARE_METATYPE(EVENT_TYPE_t)
Q_DECLARE_METATYPE(SOURCE_TYPE_t)

// The payload type of an event.
template <EVENT_TYPE_t event>
struct PayloadOf;
#define PAYLOAD(name, number, payload)                                                             \
    template <>                                                                                    \
    struct PayloadOf<name> {                                                                       \
        using Type = payload;                                                                      \
    };
UNIT_EVENTS(PAYLOAD)
#undef PAYLOAD
template <EVENT_TYPE_t event>
using Payload = typename PayloadOf<event>::Type;

// Whether an event has the payload type T; for events that are not known at compile time.
template <typename T>
constexpr bool carries(EVENT_TYPE_t event)
{
#define OR_THIS(name, number, payload) || (event == (name) && std::is_same_v<payload, T>)
    return false UNIT_EVENTS(OR_THIS);
#undef OR_THIS
}

// The pointer for emitting an event. Compiles only if the value has the event's payload type. The
// emitter owns the value.
template <EVENT_TYPE_t event>
void *payloadPointer(Payload<event> &value)
{
    return &value;
}
