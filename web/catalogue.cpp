// SPDX-License-Identifier: LicenseRef-KT6120
#include "catalogue.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <stdexcept>

Catalogue::Catalogue(const char *path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error(std::string("cannot read ") + path);
    const QJsonObject content = QJsonDocument::fromJson(file.readAll()).object();
    const QJsonObject limits = content.value("bands").toObject();
    for (auto entry = limits.begin(); entry != limits.end(); ++entry) {
        const QJsonObject given = entry.value().toObject();
        Band band;
        band.above = given.value("above").toDouble(band.above);
        band.below = given.value("below").toDouble(band.below);
        bands.insert(entry.key().toUtf8(), band);
    }
    const QJsonArray rows = content.value("messages").toArray();
    for (const QJsonValue &row : rows)
        known.append({row["text"].toString().toUtf8(), row["type"].toInt(),
                      row["meaning"].toString().toUtf8(), row["remedy"].toString().toUtf8()});
}

int Catalogue::find(int type, const QByteArray &text) const
{
    int best = -1;
    for (int at = 0; at < known.size(); ++at) {
        const Message &message = known[at];
        if (message.type == type && text.startsWith(message.text)
            && (best < 0 || message.text.size() > known[best].text.size()))
            best = at;
    }
    return best;
}
