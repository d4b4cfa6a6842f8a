// SPDX-License-Identifier: LicenseRef-KT6120
#include "network.h"

#include "logmessages.h"

#include <QDebug>
#include <QHostAddress>

namespace network
{

namespace
{

constexpr int broadcastLineWords = 6;

// Columns of the route table, separated by tabs.
constexpr int destinationColumn = 1;
constexpr int gatewayColumn = 2;
constexpr int maskColumn = 7;

// The table prints an address as a little-endian hexadecimal word, so the dotted form takes the
// pairs of digits from the end. A pair that does not parse counts as 0.
QString dotted(const QByteArray &digits)
{
    const auto byteAt = [&](int offset) { return digits.mid(offset, 2).toUInt(nullptr, 16); };
    return QString("%1.%2.%3.%4").arg(byteAt(6)).arg(byteAt(4)).arg(byteAt(2)).arg(byteAt(0));
}

} // namespace

QString broadcastAddress(const QByteArray &listing)
{
    // The text ends at the first NUL byte. No regular expression: PCRE alone takes half a megabyte.
    const QList<QByteArray> words = QByteArray(listing.constData()).simplified().split(' ');
    if (words.size() != broadcastLineWords)
        return {};
    QString address = QString::fromUtf8(words.last());
    if (!isIPv4(address)) {
        qWarning() << messages::broadcastInvalid;
        return {};
    }
    return address;
}

QString defaultGateway(const QByteArray &routeTable)
{
    for (const QByteArray &line : routeTable.split('\n')) {
        const QList<QByteArray> fields = line.split('\t');
        if (fields.size() > maskColumn && fields[destinationColumn] == "00000000"
            && fields[maskColumn] == "00000000")
            return dotted(fields[gatewayColumn]);
    }
    return {};
}

bool isIPv4(const QString &address)
{
    return QHostAddress(address).protocol() == QAbstractSocket::IPv4Protocol;
}

} // namespace network
