// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QStringList>

// Programs of the system that the bench calls.
namespace programs
{

// Runs it to its end. Throws std::runtime_error with what it said where that is no success.
void run(const QString &program, const QStringList &arguments);

} // namespace programs
