// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QString>

// Replaces the MCU log file (paths::mcuLog) by the text, as UTF-8 and without a line end.
// A file that cannot be written is logged as critical; it keeps its old text.
void writeMcuLog(const QString &text);
