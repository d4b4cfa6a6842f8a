// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <string_view>

// Writes text to standard output and flushes it, so that progress is visible through a pipe too.
void print(std::string_view text);
