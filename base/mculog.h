// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QString>

// Makes the text, as UTF-8 and without a line end, the content of the MCU log file
// (paths::mcuLog). A file that cannot be written is logged as critical.
void writeMcuLog(const QString &text);
