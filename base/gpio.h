// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

// The unit's GPIO lines, as arguments of its scripts.
namespace gpio
{

inline constexpr char startedUp[] = "19";   // set to 1 once, 20 s after the start
inline constexpr char lampPower[] = "21";   // 0 is on
inline constexpr char usbBoot[] = "25";     // a pulse to 1 boots the USB hardware
inline constexpr char usbFault[] = "26";    // input: 1 is a fault
inline constexpr char sondeEnable[] = "43"; // 1 is on

} // namespace gpio
