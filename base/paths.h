// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

// All absolute paths of files and programs that the program uses.
namespace paths
{

// Files of the program, in its install directory.
inline constexpr char statusStore[] = "/home/pi/KT6120/bin/KT6120.ini";
inline constexpr char configuration[] = "/home/pi/KT6120/bin/kestraConfig.ini";
inline constexpr char programLog[] = "/home/pi/KT6120/bin/commands_log.log";
inline constexpr char mcuLog[] = "/home/pi/KT6120/bin/mcu_log.log";
inline constexpr char statusCsv[] = "/home/pi/KT6120/bin/status_log.csv";
inline constexpr char rotated[] = ".1"; // logrotate's ending of program log and status CSV

// Written by the unit's web page.
inline constexpr char commandsFile[] = "/var/www/html/commands.txt";

// What kt6120-check has found last; its timer belongs to the page's package.
inline constexpr char checkReport[] = "/run/kt6120-check/check.json";

inline constexpr char mcuSerialDevice[] = "/dev/serial0";
inline constexpr char camera[] = "/dev/video0";
inline constexpr int cameraIndex = 0; // the same, for OpenCV
inline constexpr char routeTable[] = "/proc/net/route";

// Unit scripts that are started with an argument list.
inline constexpr char gpioWriteScript[] = "/home/pi/KT6120/bin/KT6120_gpio_write.sh";
inline constexpr char gpioReadScript[] = "/home/pi/KT6120/bin/KT6120_gpio_read.sh";
inline constexpr char sondeEnableScript[] = "/home/pi/KT6120/bin/KT6120_sonde_en_write.sh";

// Unit scripts that are started as one command line.
inline constexpr char palReceiverCommand[] = "/bin/sh /home/pi/KT6120/bin/KT6120_gstreamer.sh";
inline constexpr char usbMonitorCommand[] = "/bin/sh /home/pi/KT6120/bin/KT6120_usb_monitor.sh";
inline constexpr char shutdownCommand[] = "/bin/sh /home/pi/KT6120/bin/KT6120_shutdown.sh";
inline constexpr char streamStartCommand[] =
    "/bin/sh /home/pi/KT6120/bin/KT6120_stream_start.sh %1 %2"; // address, port
inline constexpr char streamStopCommand[] = "/bin/sh /home/pi/KT6120/bin/KT6120_stream_stop.sh";
inline constexpr char adcReadCommand[] =
    "/bin/sh /home/pi/KT6120/bin/KT6120_bb_read.sh "; // channel follows as 0x..

// Programs of the operating system.
inline constexpr char temperatureCommand[] = "/opt/vc/bin/vcgencmd measure_temp";
inline constexpr char logRotateCommand[] = "logrotate -v /etc/logrotate.conf";
inline constexpr char splashViewer[] = "/home/pi/raspidmx/pngview/pngview";
inline constexpr char splashImage[] = "/home/pi/KT6120/bin/splashStream.png";

} // namespace paths
