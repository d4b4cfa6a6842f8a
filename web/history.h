// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>

namespace history
{

// The rows of the status CSV from the given number of days before its last row on, as JSON:
// {"columns": [names], "rows": [[seconds since 1970 by the unit's clock, value, ...]]}. A field
// that is not a number is null; malformed lines are skipped. A second caller waits for the first.
QByteArray read(int days);

} // namespace history
