// SPDX-License-Identifier: LicenseRef-KT6120
#include "journal.h"

Journal::Journal()
{
    qRegisterMetaType<Kind>("Kind");
}

void Journal::note(Kind kind, const QByteArray &text)
{
    logs[size_t(kind)].bytes += text;
    emit noted(kind, text);
}

void Journal::markAll()
{
    for (Stream &stream : logs)
        stream.mark = stream.firstMark = stream.bytes.size();
}
