// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QString>

class Bench;

// Decodes one picture of the real RTP stream at a port and writes it as a PNG file. Throws
// std::runtime_error where no picture comes.
void takeSnapshot(Bench &bench, quint16 port, const QString &file);
