// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>

namespace timestamp
{

// Date and time as log and status rows have it, in the digits 0 to 9 whatever the locale.
inline QString text(const QDateTime &time)
{
    return QLocale::c().toString(time, "dd-MM-yyyy HH:mm:ss");
}

// Of now, in the unit's zone.
inline QString now()
{
    return text(QDateTime::currentDateTime());
}

} // namespace timestamp
