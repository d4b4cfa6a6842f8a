// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

// UDP ports of the picture. The unit's scripts, the page and its documentation repeat some of them,
// which the tests compare.
namespace ports
{

inline constexpr char usbStream[] = "49152";     // to a phone over USB
inline constexpr char ethernetStream[] = "8001"; // and over Ethernet
inline constexpr char palCopy[] = "8084";        // sent by KT6120_gstreamer.sh for the page

// WebRTC: one for each viewer of the page, and some for those that are just ending.
inline constexpr unsigned firstViewer = 8090;
inline constexpr unsigned lastViewer = 8097;

} // namespace ports
