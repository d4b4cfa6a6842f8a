// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <string_view>

// Writes a piece of text to standard output, at once: the video's progress is followed live,
// also through a pipe.
void print(std::string_view text);
