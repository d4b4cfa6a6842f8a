// SPDX-License-Identifier: LicenseRef-KT6120
#include "fastcgi.h"

#include <fcgiapp.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

constexpr int backlog = 16;

void initialise()
{
    FCGX_Init();
    std::signal(SIGTERM, SIG_DFL); // the library's handler exits only after one more request
}

void work(int socket, const std::function<void(fastcgi::Exchange &)> &handler)
{
    FCGX_Request request;
    FCGX_InitRequest(&request, socket, 0);
    while (FCGX_Accept_r(&request) == 0) {
        fastcgi::Exchange exchange(request);
        handler(exchange);
        FCGX_Finish_r(&request);
    }
    fprintf(stderr, "kt6120-web: cannot accept a connection\n");
    std::_Exit(1); // the service restarts with all threads
}

} // namespace

namespace fastcgi
{

QByteArray Exchange::variable(const char *name) const
{
    return {FCGX_GetParam(name, request.envp)};
}

QByteArray Exchange::body(int limit) const
{
    QByteArray bytes(limit + 1, '\0');
    bytes.resize(FCGX_GetStr(bytes.data(), int(bytes.size()), request.in));
    return bytes;
}

void Exchange::answer(int status, const char *type, const QByteArray &content,
                      const QByteArray &location)
{
    const QByteArray head = "Status: " + QByteArray::number(status) + "\r\nContent-Type: " + type
                            + "\r\nContent-Length: " + QByteArray::number(content.size())
                            + (location.isEmpty() ? QByteArray() : "\r\nLocation: " + location)
                            + "\r\nCache-Control: no-store\r\n\r\n";
    FCGX_PutStr(head.constData(), int(head.size()), request.out);
    FCGX_PutStr(content.constData(), int(content.size()), request.out);
}

void Exchange::begin(const char *type)
{
    send(QByteArray("Status: 200\r\nCache-Control: no-store\r\nContent-Type: ") + type
         + "\r\n\r\n");
}

bool Exchange::send(const QByteArray &piece)
{
    return FCGX_PutStr(piece.constData(), int(piece.size()), request.out) == piece.size()
           && FCGX_FFlush(request.out) == 0;
}

bool Exchange::wait(std::chrono::milliseconds time) const
{
    // After the request, the only event on this connection is that the web server closes it.
    pollfd connection = {request.ipcFd, POLLRDHUP, 0};
    return poll(&connection, 1, int(time.count())) == 0;
}

void serve(const QByteArray &socket, int threads, const std::function<void(Exchange &)> &handler)
{
    initialise();
    unlink(socket.constData()); // left over after SIGKILL
    const int listening = FCGX_OpenSocket(socket.constData(), backlog);
    if (listening < 0)
        throw std::runtime_error("cannot listen at " + socket.toStdString());
    std::vector<std::thread> workers;
    workers.reserve(size_t(threads));
    for (int count = 0; count < threads; ++count)
        workers.emplace_back(work, listening, std::cref(handler));
    for (std::thread &worker : workers)
        worker.join();
}

bool serveNext(int listening, const std::function<void(Exchange &)> &handler)
{
    initialise();
    FCGX_Request request;
    FCGX_InitRequest(&request, listening, 0);
    const bool taken = FCGX_Accept_r(&request) == 0;
    if (taken) {
        Exchange exchange(request);
        handler(exchange);
        FCGX_Finish_r(&request);
    }
    FCGX_Free(&request, 1);
    return taken;
}

} // namespace fastcgi
