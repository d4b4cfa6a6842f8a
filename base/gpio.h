// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

// The unit's GPIO lines, as its scripts take them.
namespace gpio
{

inline constexpr char startedUp[] = "19";   // driven to 1 once, some time after the start
inline constexpr char lampPower[] = "21";   // 0 is on
inline constexpr char usbBoot[] = "25";     // a pulse of 1 boots the USB side
inline constexpr char usbFault[] = "26";    // read: 1 is a fault
inline constexpr char sondeEnable[] = "43"; // 1 is on

} // namespace gpio
