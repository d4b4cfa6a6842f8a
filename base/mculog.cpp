// SPDX-License-Identifier: LicenseRef-KT6120
#include "mculog.h"

#include "logmessages.h"
#include "paths.h"
#include "safefile.h"

#include <QDebug>

void writeMcuLog(const QString &text)
{
    if (!safefile::overwrite(paths::mcuLog, text.toUtf8()))
        qCritical() << qPrintable(QString(messages::mcuLogNotWritten) + '\n');
}
