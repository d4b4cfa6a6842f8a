// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

// The places of the sandboxed world that the bench arranges and observes. They are the unit's
// own absolute paths, told a second time on purpose: the bench stands for the outside world
// and notices when the program uses another place.
namespace world
{

inline constexpr char installFolder[] = "/home/pi/KT6120/bin";
inline constexpr char program[] = "/home/pi/KT6120/bin/KT6120";
inline constexpr char statusStore[] = "/home/pi/KT6120/bin/KT6120.ini";
inline constexpr char configuration[] = "/home/pi/KT6120/bin/kestraConfig.ini";
inline constexpr char programLog[] = "/home/pi/KT6120/bin/commands_log.log";
inline constexpr char statusCsv[] = "/home/pi/KT6120/bin/status_log.csv";
inline constexpr char commandsFile[] = "/var/www/html/commands.txt";

// The tree as it was installed, untouched by stand-ins (see bench/sandbox).
inline constexpr char installedTree[] = "/run/tree";

// The folder of whoever has started the bench, where it may be written to (see bench/sandbox).
inline constexpr char callerFolder[] = "/run/caller";

// The bench's own folder, and programs put first on the unit's search path.
inline constexpr char benchFolder[] = "/run/bench";
inline constexpr char cameraState[] = "/run/bench/camera";   // ok, missing or lost
inline constexpr char encoderState[] = "/run/bench/encoder"; // ok or fails
inline constexpr char programFolder[] = "/run/bench/bin";

} // namespace world
