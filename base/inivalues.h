// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVariant>

// The values in the content of an INI file, by "Group/Entry". QSettings parses it, but never opens
// the file itself: it does so only by name, and does not read one again whose size and time are the
// same. Thread-safe.
QMap<QString, QVariant> iniValues(const QByteArray &content);
