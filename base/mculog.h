// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QString>

// Replaces the content of the MCU log file (paths::mcuLog) by the text, as UTF-8 without a line
// end. A failure is logged as critical.
void writeMcuLog(const QString &text);
