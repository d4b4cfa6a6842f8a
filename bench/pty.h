// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "serialline.h"

// The far end of the unit's serial line on a desk: a pseudo-terminal whose slave is linked at a
// place, the unit's serial device where no other is given.
class Pty : public SerialLine
{
    Q_OBJECT

public:
    static constexpr char serialDevice[] = "/dev/serial0";

    // Makes the terminal and the link. Throws std::runtime_error where either fails.
    explicit Pty(const QString &place = serialDevice);
    ~Pty() override; // the link is removed

private:
    QString link;
};
