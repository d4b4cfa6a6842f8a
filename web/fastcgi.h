// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>

#include <chrono>
#include <functional>

struct FCGX_Request;

// FastCGI: requests that the web server passes on through a Unix socket.
namespace fastcgi
{

class Exchange
{
public:
    explicit Exchange(FCGX_Request &of) : request(of) {}

    // A variable of the request, such as REQUEST_METHOD or HTTP_ORIGIN; empty if it is not set.
    QByteArray variable(const char *name) const;
    // The body, cut to one byte more than the limit.
    QByteArray body(int limit) const;

    // Sends a complete answer; `location`: value of the Location header; empty: none.
    void answer(int status, const char *type, const QByteArray &content,
                const QByteArray &location = {});
    // Starts a stream, which send() continues.
    void begin(const char *type);
    // Flushes; false once the client is gone.
    bool send(const QByteArray &piece);
    // Waits; false as soon as the client is gone.
    bool wait(std::chrono::milliseconds time) const;

private:
    FCGX_Request &request;
};

// Handles requests in the given number of threads and does not return; ends the process when it
// cannot accept a connection. Throws std::runtime_error if it cannot create the socket.
void serve(const QByteArray &socket, int threads, const std::function<void(Exchange &)> &handler);

// Waits for the next request at a listening socket and handles it; false if there is no such
// socket.
bool serveNext(int listening, const std::function<void(Exchange &)> &handler);

} // namespace fastcgi
