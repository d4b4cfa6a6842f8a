#pragma once

#include <QString>

// Replaces the MCU log file (paths::mcuLog) by the text, as UTF-8 and without a line end.
// A file that cannot be opened is logged as critical and the text is lost.
void writeMcuLog(const QString &text);
