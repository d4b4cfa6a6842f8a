// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QString>

// How far the reel's cable is out. The app and the page show the same digits.
namespace reel
{

// Metres; `scalar` is metres per count.
inline double distance(int count, double scalar, double offset)
{
    return count * scalar + offset;
}

inline QString text(double metres)
{
    return QString::number(metres, 'g', 6);
}

} // namespace reel
