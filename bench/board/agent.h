// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "message.h"

class Bench;

// The unit's bench on a board: carries out what the world's bench asks, and tells it all that
// happens.
class Agent : public QObject
{
    Q_OBJECT

public:
    Agent(Bench &where, const QString &console);

private:
    void carryOut(const QByteArray &command);

    Bench &bench;
    MessageLine line;
};
