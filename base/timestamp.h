// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>

namespace timestamp
{

// The format of program log and status CSV; ASCII digits in every locale.
inline QString text(const QDateTime &time)
{
    return QLocale::c().toString(time, "dd-MM-yyyy HH:mm:ss");
}

// The current time in the unit's time zone.
inline QString now()
{
    return text(QDateTime::currentDateTime());
}

} // namespace timestamp
