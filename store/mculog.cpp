// SPDX-License-Identifier: LicenseRef-KT6120
#include "mculog.h"

#include "paths.h"

#include <QDebug>
#include <QSaveFile>

void writeMcuLog(const QString &text)
{
    // The old text stays until the new one is on the disk, however full that is.
    QSaveFile file(paths::mcuLog);
    const bool written = file.open(QIODevice::WriteOnly | QIODevice::Text)
                         && file.write(text.toUtf8()) >= 0 && file.flush() && file.commit();
    if (!written)
        qCritical() << "Error Creating MCU Log File\n";
}
