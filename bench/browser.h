// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QMap>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QSet>

class Bench;

// A real browser without a window that has the unit's page open, driven through WebDriver. Every
// failure is a std::runtime_error.
class Browser
{
public:
    explicit Browser(Bench &where);
    ~Browser();

    // "page WORD...", see the bench's help.
    void command(const QList<QByteArray> &words);

    // What a JavaScript expression was when last asked, and asks again; undefined at first. Does
    // not wait.
    QJsonValue ask(const QByteArray &expression);
    // Whether its console has told nothing so far; false until that is known. Does not wait either.
    bool isConsoleClean();
    QByteArray complaints() const { return complained; }

private:
    QJsonValue call(const QByteArray &method, const QString &path, const QJsonObject &body = {});
    QNetworkReply *send(const QByteArray &method, const QString &path, const QJsonObject &body);
    void askInto(const QByteArray &what, QNetworkReply *reply);
    QString find(const QString &place);
    void snapshot(const QByteArray &file);

    Bench &bench;
    QProcess driver;
    QNetworkAccessManager network;
    QString session; // its path at the driver
    QMap<QByteArray, QJsonValue> answers;
    QSet<QByteArray> asked; // and not answered yet
    QByteArray complained;
};
