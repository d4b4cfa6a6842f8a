// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>

namespace timestamp
{

// Local date and time as log and status rows have it, in the digits 0 to 9 whatever the locale.
inline QString now()
{
    return QLocale::c().toString(QDateTime::currentDateTime(), "dd-MM-yyyy HH:mm:ss");
}

} // namespace timestamp
