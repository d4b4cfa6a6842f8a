// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QProcess>

#include <memory>

class Bench;
class Panel;

// The unit's page as the unit serves it, with the bench's panel on it: at port 80 of the world, and
// at a socket in /run/desk where the desk has given that folder.
class WebServer
{
public:
    // Returns when the page answers. Throws std::runtime_error where it does not.
    explicit WebServer(Bench &bench);
    ~WebServer();

    qint64 answererId() const { return answerer.processId(); }
    qint64 serverId() const { return server.processId(); }

private:
    QProcess answerer;
    QProcess server;
    std::unique_ptr<Panel> panel;
};
