// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QString>

#include <cstdint>

// A key of the status store or of the configuration file.
struct AnyKey {
    const char *name;   // "Group/Entry": section and entry of the INI file
    const char *absent; // default value of a missing key; null if the program does not read it
};

// A key with the type of its value.
template <typename T>
struct Key : AnyKey {
};

// All keys. Program and page contain no other key names.
namespace keys
{

// Status store, paths::statusStore.
inline constexpr Key<QString> softwareVersion{{"Compute/SoftwareVersion", nullptr}};
inline constexpr Key<QString> mcuVersion{{"MCU/Version", nullptr}};
inline constexpr Key<uint16_t> batteryVoltage{{"Battery/Voltage", "0"}}; // millivolts
inline constexpr Key<uint16_t> batteryCurrent{{"Battery/Current", "0"}}; // milliamperes
inline constexpr Key<int> batteryState{{"Battery/State", nullptr}};
inline constexpr Key<double> computeTemperature{{"Temperature/CM3", "0"}}; // degrees Celsius
inline constexpr Key<QString> processorTemperature{{"Temperature/Internal", "0"}}; // the same
inline constexpr Key<int> boostTemperature{{"Temperature/Boost", "0"}};  // hundredths of a degree
inline constexpr Key<int> ledTemperature{{"Temperature/LED", nullptr}};  // hundredths of a degree
inline constexpr Key<int> interstageVoltage{{"Voltage/Inter", nullptr}}; // millivolts
inline constexpr Key<int> encoderVoltage{{"Voltage/Encoder", nullptr}};
inline constexpr Key<int> cameraVoltage{{"Voltage/Camera", nullptr}};
inline constexpr Key<int> sondeVoltage{{"Voltage/Sonde", nullptr}};
inline constexpr Key<int> ledCurrent{{"Current/LedOut", "0"}}; // milliamperes
inline constexpr Key<int> interstageCurrent{{"Current/Inter", "0"}};
inline constexpr Key<int> tallwickLedCurrent{{"Current/LedTallwick", "0"}};
inline constexpr Key<int> cameraType{{"Camera/Type", nullptr}};
inline constexpr Key<int> lampLevel{{"Camera/Lamp", "0"}}; // percent; -1 after lamp off
inline constexpr Key<int> coilerCount{{"Camera/Coiler", "0"}};
inline constexpr Key<double> coilerOffset{{"Camera/CoilerOffset", "0"}}; // metres
inline constexpr Key<int> sondeEnabled{{"Sonde/Enabled", "0"}};
inline constexpr Key<QString> sondeFrequency{{"Sonde/Frequency", "512"}};
inline constexpr Key<int> tallwickDetected{{"Tallwick/Detected", "false"}};
inline constexpr Key<uint16_t> unknownCommands{{"Commands/Unknown", "0"}};

// Boost and LED temperature of a channel that cannot be read; hundredths of a degree, as theirs.
inline constexpr int noTemperature = -9999;

// Configuration file, paths::configuration.
inline constexpr Key<double> encoderScalar{{"Coiler/EncoderScalar", "0.125"}}; // metres per count
inline constexpr Key<int> lampMaxCurrent{{"Lamp/MaxCurrent", "15"}};           // milliamperes
inline constexpr Key<QString> coilerModel{{"Coiler/Model", "x40"}};
inline constexpr Key<QString> coilerModels{{"Coiler/Models", nullptr}}; // the page offers these

// Only in the snapshot of eventHandlerParseSettingsFile().
inline constexpr Key<QString> streamAddress{{"Video/IP", nullptr}};
inline constexpr Key<QString> streamPort{{"Video/Port", nullptr}};
inline constexpr Key<int> sondeState{{"Sonde/State", nullptr}};

} // namespace keys
