// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>

#include <limits>

// What the operating manual says of readings and log messages; made from its tables when the
// program is built.
class Catalogue
{
public:
    struct Band {
        double above = -std::numeric_limits<double>::infinity();
        double below = std::numeric_limits<double>::infinity();
    };
    struct Message {
        QByteArray text; // how it begins
        int type = 0;    // as in the program log
        QByteArray meaning;
        QByteArray remedy;
    };

    // Throws std::runtime_error where the file cannot be read.
    explicit Catalogue(const char *path);

    // Where a stored value is normal.
    Band band(const char *key) const { return bands.value(key); }
    const QList<Message> &messages() const { return known; }
    // The message that a logged text is; -1 where it is none of these.
    int find(int type, const QByteArray &text) const;

private:
    QMap<QByteArray, Band> bands;
    QList<Message> known;
};
