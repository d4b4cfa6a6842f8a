// SPDX-License-Identifier: LicenseRef-KT6120
#include "console.h"

#include <cstdio>

void print(std::string_view text)
{
    fwrite(text.data(), 1, text.size(), stdout);
    fflush(stdout);
}
