#include "mculog.h"

#include "paths.h"

#include <QDebug>
#include <QFile>

void writeMcuLog(const QString &text)
{
    QFile file(paths::mcuLog);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text)) {
        qCritical() << "Error Creating MCU Log File\n";
        return;
    }
    file.write(text.toUtf8());
}
