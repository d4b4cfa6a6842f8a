// SPDX-License-Identifier: LicenseRef-KT6120
#include "panel.h"

#include "bench.h"
#include "commands.h"
#include "fastcgi.h"
#include "words.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>
#include <stdexcept>
#include <thread>

using namespace std::chrono_literals;

namespace
{

constexpr int threads = 12;
constexpr auto patience = 1s;
constexpr int longestBody = 200; // bytes

// A button each, and the bench's word that it stands for.
struct Fault {
    const char *label;
    const char *command;
};
constexpr Fault faults[] = {
    {"Plug the phone in", "usb up"},          {"Unplug the phone", "usb down"},
    {"Battery low", "mcu BAT:V 1500"},        {"Battery full", "mcu BAT:V 2400"},
    {"Current too high", "mcu PWR:I 1800"},   {"Current as usual", "mcu PWR:I 620"},
    {"Compute module hot", "mcu TEMP 7500"},  {"Compute module cool", "mcu TEMP 3150"},
    {"Turn the reel", "mcu COILER:VALUE 80"}, {"Attach a Tallwick probe", "mcu TWK 1"},
    {"Detach the probe", "mcu TWK 0"},        {"MCU falls silent", "mcu silent"},
    {"MCU talks again", "mcu talk"},          {"Camera is lost", "camera lost"},
    {"Camera is back", "camera back"},        {"USB fault", "usbfault on"},
    {"Kill the program", "unit stop"},        {"Start the program", "unit start"},
};

QByteArray json(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

void sendImages(fastcgi::Exchange &exchange, LivePicture &picture)
{
    ++picture.viewers;
    exchange.begin("multipart/x-mixed-replace; boundary=image");
    quint64 seen = 0;
    while (exchange.rest(0ms)) {
        const std::optional<QByteArray> image = picture.images.take(seen, patience);
        if (image
            && !exchange.send("--image\r\nContent-Type: image/jpeg\r\nContent-Length: "
                              + QByteArray::number(image->size()) + "\r\n\r\n" + *image + "\r\n"))
            break;
    }
    --picture.viewers;
}

} // namespace

Panel::Panel(Bench &where, const QByteArray &socket)
    : bench(where), pal(where, 8083), phone(where, 49152)
{
    connect(&bench.journal, &Journal::noted, this, [this](Kind kind, const QByteArray &text) {
        if (kind == Kind::Serial || kind == Kind::Mcu)
            serial.put((kind == Kind::Serial ? "> " : "< ") + words::printable(text));
    });
    std::thread([this, socket] {
        fastcgi::serve(socket, threads, [this](fastcgi::Exchange &exchange) { handle(exchange); });
    }).detach();
}

void Panel::handle(fastcgi::Exchange &exchange)
{
    const QByteArray path = exchange.variable("SCRIPT_NAME") + exchange.variable("PATH_INFO");
    const bool posts = exchange.variable("REQUEST_METHOD") == "POST";
    if (path == "/bench/events") {
        sendEvents(exchange);
    } else if (path == "/bench/pal.mjpeg") {
        sendImages(exchange, pal);
    } else if (path == "/bench/phone.mjpeg") {
        sendImages(exchange, phone);
    } else if (path == "/bench/faults" && posts) {
        takeFault(exchange);
    } else if (path == "/bench/faults") {
        QJsonArray labels;
        for (const Fault &fault : faults)
            labels.append(fault.label);
        exchange.answer(200, "application/json", json({{"faults", labels}}));
    } else {
        exchange.answer(404, "text/plain", "no such thing on the bench\n");
    }
}

void Panel::sendEvents(fastcgi::Exchange &exchange)
{
    exchange.begin("text/event-stream");
    quint64 seen = 0;
    while (exchange.rest(200ms)) {
        QJsonArray lines;
        while (const std::optional<QByteArray> line = serial.take(seen, 0ms))
            lines.append(QString::fromLatin1(*line));
        QJsonObject rates;
        QMetaObject::invokeMethod(
            this,
            [&] {
                rates = {{"pal", pal.rate()}, {"phone", phone.rate()}};
            },
            Qt::BlockingQueuedConnection);
        if (!exchange.send("data: " + json({{"serial", lines}, {"rates", rates}}) + "\n\n"))
            return;
    }
}

void Panel::takeFault(fastcgi::Exchange &exchange)
{
    if (exchange.variable("HTTP_ORIGIN") != "http://" + exchange.variable("HTTP_HOST"))
        return exchange.answer(403, "text/plain", "only from the page\n");
    const QJsonObject request = QJsonDocument::fromJson(exchange.body(longestBody)).object();
    QByteArray said = "there is no such fault";
    for (const Fault &fault : faults) {
        if (request.value("fault").toString() != fault.label)
            continue;
        said = fault.command;
        QMetaObject::invokeMethod(
            this,
            [&] {
                try {
                    commands::run(bench, fault.command);
                } catch (const std::runtime_error &error) {
                    said += QByteArray(": ") + error.what();
                }
            },
            Qt::BlockingQueuedConnection);
    }
    exchange.answer(200, "application/json", json({{"said", QString::fromUtf8(said)}}));
}
