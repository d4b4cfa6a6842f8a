// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>

class Bench;

// The bench's command language, the same at the prompt and in scenario files: one table of
// names, arguments, help and handlers.
namespace commands
{

// Carries out one line; blank lines and comments (#) do nothing. Returns when it is done,
// with the bench's event loop running meanwhile. Throws std::runtime_error with what went
// wrong.
void run(Bench &bench, const QByteArray &given);

} // namespace commands
