// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QString>

// Files of the world as others on the unit would leave them. All throw std::runtime_error.
namespace files
{

void create(const QString &path, const QByteArray &content);
// Writes into the file as it stands, in one step for whoever watches it.
void overwrite(const QString &path, const QByteArray &content);
// Puts another file under the same name, by a rename.
void replace(const QString &path, const QByteArray &content);
void link(const QString &target, const QString &path);
void createFolder(const QString &path);
// A file, or a folder with all that it holds.
void remove(const QString &path);

// A file of whoever has started the bench, by its path as seen from there.
QString ofCaller(const QString &path);

void setReadOnly(const QString &path, bool readOnly);

void setIniValue(const QString &path, const QString &key, const QByteArray &value);

} // namespace files
