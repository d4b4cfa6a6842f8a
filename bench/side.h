// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

// Where something is. A desk has the unit and the world around it in one bench; a board has a
// bench for each, the unit's on the board itself.
enum class Side {
    Unit,  // program, files, processes
    World, // MCU, phone, networks, what the board's pins do
    Both,
};
