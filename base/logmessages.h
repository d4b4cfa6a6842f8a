// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

// All messages of the program log: name, type (1 warning, 2 critical, 4 information), the beginning
// of the text, meaning and remedy. The page and its metrics parse the log with this table;
// docs/operating.md repeats it.
// clang-format off
#define LOG_MESSAGES(MESSAGE) \
    MESSAGE(starting, 4, "Starting ", \
            "the program starts; product and version follow", "") \
    MESSAGE(lampLimit, 4, "LED current limit set to ", \
            "the lamp limit in force", "") \
    MESSAGE(lampLimitInvalid, 1, "Invalid LED current limit detected, using default value ", \
            "`Lamp/MaxCurrent` is not from 1 to 30", "correct the configuration file") \
    MESSAGE(portNotOpened, 2, "MCU Serial Port Failed to Open...", \
            "no serial line: no readings, no lamp, no sonde until a restart", "check `/dev/serial0`, restart") \
    MESSAGE(writeFailed, 2, "Failed to write command: ", \
            "the MCU did not accept a text within a second, or the line is disconnected", "check the line, then restart the program, which opens it once; the command is lost, and so are earlier ones that were not sent yet") \
    MESSAGE(shutdownRequested, 2, "Running shutdown", \
            "the MCU requests power-down", "") \
    MESSAGE(shutdownStarted, 2, "Shutdown Event Triggered", \
            "the program starts the shutdown script", "") \
    MESSAGE(mcuLogNotWritten, 2, "Error Creating MCU Log File", \
            "`mcu_log.log` cannot be written", "check folder and space") \
    MESSAGE(batteryState, 4, "Battery State Changed to: ", \
            "new battery state", "") \
    MESSAGE(batteryUnder, 1, "Battery Voltage Under Threshold (", \
            "battery low", "charge; logged again only after the voltage has recovered") \
    MESSAGE(batteryOver, 1, "Battery Voltage Over Threshold (", \
            "battery voltage too high", "check the charger") \
    MESSAGE(currentOver, 1, "Battery Current Over Threshold (", \
            "current too high", "check lamp and accessories") \
    MESSAGE(temperatureOver, 1, "Compute Module Temperature Over Threshold (", \
            "hundredths of a degree", "let the unit cool down") \
    MESSAGE(temperatureUnder, 1, "Compute Module Temperature Under Threshold (", \
            "hundredths of a degree", "") \
    MESSAGE(cameraType, 4, "Camera Type Updated to ", \
            "the MCU reports the camera", "") \
    MESSAGE(lampLevel, 4, "Setting Lamp Brightness to ", \
            "lamp level changed", "") \
    MESSAGE(sondeOn, 4, "Sonde Turned On", \
            "", "") \
    MESSAGE(sondeOff, 4, "Sonde Turned Off", \
            "", "") \
    MESSAGE(coilerOffset, 4, "Coiler offset set to ", \
            "the reel was zeroed; offset in metres", "") \
    MESSAGE(mcuLogReset, 4, "Resetting Microcontroller Logs", \
            "requested through the commands file", "") \
    MESSAGE(palStarted, 4, "PAL Output Started", \
            "local picture on", "if it is dark, check the camera, then restart the program") \
    MESSAGE(palStopped, 4, "PAL Output Stopped", \
            "local picture off: a phone is connected", "") \
    MESSAGE(streamEvent, 4, "EVENT_StreamStart", \
            "a stream start was reported", "") \
    MESSAGE(streamStarted, 4, "Stream Started at ", \
            "its address and port", "") \
    MESSAGE(streamStopped, 4, "Stream Stopped", \
            "", "") \
    MESSAGE(streamNowhere, 4, "Null port / ip address", \
            "a stream start without address or port", "") \
    MESSAGE(tetheringChanged, 4, "Mobile Tethering state changed to ", \
            "true: connected to a phone's network; false: disconnected", "") \
    MESSAGE(streamStarting, 4, "Starting video stream with IP ", \
            "stream address and port", "") \
    MESSAGE(streamStopping, 4, "Stopping video stream", \
            "the phone's network is gone", "") \
    MESSAGE(broadcastInvalid, 1, "Invalid Broadcast Address Found", \
            "the network's broadcast address is not IPv4", "check the phone's network") \
    MESSAGE(appClosed, 4, "Closing TCP Socket", \
            "the app closed the connection; the unit reconnects", "") \
    MESSAGE(appSilent, 1, "TCP Connected Timed Out", \
            "the app was silent for ten seconds; the unit reconnects", "") \
    MESSAGE(appNotReading, 1, "TCP peer does not read, connection dropped", \
            "the app has left a megabyte of answers unread; the unit reconnects", "check the app") \
    MESSAGE(appUnknownCommand, 2, "TCP received unknown command: ", \
            "the app sent an unknown line", "update the app") \
    MESSAGE(usbFault, 1, "USB Fault Detected", \
            "the USB fault line is set; not checked again until a restart", "check the USB port, restart") \
    MESSAGE(noCameraModule, 1, "No camera module:", \
            "the grab module is missing in the program's folder", "reinstall the package") \
    MESSAGE(noGlib, 1, "The event loop does not serve GLib: no video pipeline will ever end", \
            "`QT_NO_GLIB` is set", "unset it")
// clang-format on

namespace messages
{

// The texts, by name.
#define TEXT(name, type, text, meaning, remedy) inline constexpr char name[] = text;
LOG_MESSAGES(TEXT)
#undef TEXT

} // namespace messages
