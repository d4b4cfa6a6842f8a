// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>

#include <chrono>
#include <functional>

struct FCGX_Request;

// Requests that the web server hands on through a socket of the file system.
namespace fastcgi
{

class Exchange
{
public:
    explicit Exchange(FCGX_Request &of) : request(of) {}

    // A variable of the request, such as REQUEST_METHOD or HTTP_ORIGIN; empty where there is none.
    QByteArray variable(const char *name) const;
    // The body, and one byte more than the limit where it is longer.
    QByteArray body(int limit) const;

    // The whole answer.
    void answer(int status, const char *type, const QByteArray &content);
    // An answer that goes on: begin, then pieces.
    void begin(const char *type);
    // Sent at once; false when nobody takes it any more.
    bool send(const QByteArray &piece);
    // Lets the time pass; false as soon as whoever asked has gone.
    bool rest(std::chrono::milliseconds time) const;

private:
    FCGX_Request &request;
};

// Handles requests with so many threads for the life of the process. Throws std::runtime_error
// where the socket cannot be made.
void serve(const QByteArray &socket, int threads, const std::function<void(Exchange &)> &handler);

} // namespace fastcgi
