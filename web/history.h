// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>

namespace history
{

// The rows of the status CSV of the days before its last row, as JSON: {"columns": [names], "rows":
// [[seconds since 1970 by the unit's clock, value, ...]]}. A field that is no number is null; a
// line that is no row is left out. One is read at a time: a second caller waits.
QByteArray read(int days);

} // namespace history
