// SPDX-License-Identifier: LicenseRef-KT6120
#include "browser.h"

#include "bench.h"
#include "files.h"

#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkReply>
#include <QTcpSocket>

#include <stdexcept>

namespace
{

constexpr char driverPlace[] = "http://127.0.0.1:9515";
constexpr char page[] = "http://127.0.0.1/";
constexpr double patience = 60;  // seconds
constexpr int stopLimit = 5000;  // ms
constexpr int findLimit = 10000; // ms, for what a click or a text needs to be there
constexpr char elementKey[] = "element-6066-11e4-a52e-4f735466cecf"; // of the WebDriver standard

constexpr const char *browserOptions[] = {
    "--headless=new",
    "--no-sandbox",
    "--disable-gpu",
    "--disable-quic",
    "--no-first-run",
    "--disable-background-networking",
    "--disable-component-update",
    "--disable-sync",
    "--disable-dev-shm-usage",
    "--user-data-dir=/tmp/browser",
    "--hide-scrollbars",
};

// What a label, a button's text or a summary names; of selects, their option.
constexpr char buttonPlace[] =
    "//button[normalize-space()='%1'] | //summary[normalize-space()='%1']";
constexpr char inputPlace[] = "//input[@id=//label[normalize-space()='%1']/@for]";
constexpr char optionPlace[] =
    "//label[starts-with(normalize-space(),'%1')]/select/option[normalize-space()='%2']";

} // namespace

Browser::Browser(Bench &where) : bench(where)
{
    driver.start("chromedriver", {"--port=9515"});
    const auto listens = [] {
        QTcpSocket probe;
        probe.connectToHost("127.0.0.1", 9515);
        return probe.waitForConnected(100);
    };
    if (!bench.runUntil(listens, patience))
        throw std::runtime_error("no browser: chromium-driver is not installed");
    QJsonArray options;
    for (const char *option : browserOptions)
        options.append(option);
    const QJsonObject wanted = {
        {"goog:chromeOptions", QJsonObject{{"args", options}}},
        {"goog:loggingPrefs", QJsonObject{{"browser", "ALL"}}},
        {"timeouts", QJsonObject{{"implicit", findLimit}}},
    };
    const QJsonValue begun =
        call("POST", "/session", {{"capabilities", QJsonObject{{"alwaysMatch", wanted}}}});
    session = "/session/" + begun["sessionId"].toString();
}

Browser::~Browser()
{
    try {
        call("DELETE", session);
    } catch (const std::runtime_error &) {
        // It ends with the driver at the latest.
    }
    driver.kill();
    driver.waitForFinished(stopLimit);
}

void Browser::command(const QList<QByteArray> &words)
{
    const QByteArray &verb = words[0];
    const auto word = [&words](int at) { return QString::fromUtf8(words.value(at)); };
    if (verb == "open") {
        const int width = words.value(1, "1280").toInt();
        const int height = words.value(2, "900").toInt();
        // Of the page, not of a window around it, which has a least width.
        call("POST", session + "/goog/cdp/execute",
             {{"cmd", "Emulation.setDeviceMetricsOverride"},
              {"params", QJsonObject{{"width", width},
                                     {"height", height},
                                     {"deviceScaleFactor", 1},
                                     {"mobile", width < 600}}}});
        call("POST", session + "/goog/cdp/execute",
             {{"cmd", "Emulation.setEmulatedMedia"},
              {"params",
               QJsonObject{{"features", QJsonArray{QJsonObject{
                                            {"name", "prefers-color-scheme"},
                                            {"value", word(3) == "dark" ? "dark" : "light"}}}}}}});
        call("POST", session + "/url", {{"url", page}});
        answers.clear();
    } else if (verb == "click" && words.size() == 2) {
        call("POST", find(QString(buttonPlace).arg(word(1))) + "/click");
    } else if (verb == "type" && words.size() == 3) {
        const QString input = find(QString(inputPlace).arg(word(1)));
        call("POST", input + "/clear");
        call("POST", input + "/value", {{"text", word(2)}});
    } else if (verb == "press" && words.size() == 2) {
        // To whatever has the focus: Tab, Enter or Space.
        const QMap<QString, QString> keys = {
            {"Tab", QString(QChar(0xe004))}, {"Enter", QString(QChar(0xe007))}, {"Space", " "}};
        const QJsonValue active = call("GET", session + "/element/active");
        call("POST", session + "/element/" + active[elementKey].toString() + "/value",
             {{"text", keys.value(word(1), word(1))}});
    } else if (verb == "choose" && words.size() == 3) {
        call("POST", find(QString(optionPlace).arg(word(1), word(2))) + "/click");
    } else if (verb == "script" && words.size() == 2) {
        QFile file(word(1));
        if (!file.open(QIODevice::ReadOnly))
            throw std::runtime_error("cannot read " + words[1].toStdString());
        call("POST", session + "/execute/sync",
             {{"script", QString::fromUtf8(file.readAll())}, {"args", QJsonArray()}});
    } else if (verb == "snapshot" && words.size() == 2) {
        snapshot(words[1]);
    } else {
        throw std::runtime_error("page open, click, type, press, choose, script or snapshot?");
    }
}

QJsonValue Browser::ask(const QByteArray &expression)
{
    const QString script = "const done = arguments[0]; Promise.resolve((" + QString(expression)
                           + ")).then(done, (error) => done(String(error)))";
    if (!asked.contains(expression))
        askInto(expression, send("POST", session + "/execute/async",
                                 {{"script", script}, {"args", QJsonArray()}}));
    return answers.value(expression, QJsonValue::Undefined);
}

bool Browser::isConsoleClean()
{
    constexpr char what[] = "(console)";
    if (!asked.contains(what))
        askInto(what, send("POST", session + "/se/log", {{"type", "browser"}}));
    const QJsonValue told = answers.take(what); // the driver tells each one once
    if (!told.isArray())
        return false;
    const QJsonArray entries = told.toArray();
    for (const QJsonValue &entry : entries) {
        // The browser's own pages have something to say too.
        if (entry["message"].toString().startsWith("http"))
            complained += entry["message"].toString().toUtf8() + '\n';
    }
    return complained.isEmpty();
}

void Browser::askInto(const QByteArray &what, QNetworkReply *reply)
{
    asked.insert(what);
    QObject::connect(reply, &QNetworkReply::finished, &network, [this, reply, what] {
        answers[what] = QJsonDocument::fromJson(reply->readAll())["value"];
        asked.remove(what);
        reply->deleteLater();
    });
}

QNetworkReply *Browser::send(const QByteArray &method, const QString &path, const QJsonObject &body)
{
    QNetworkRequest request{QUrl(driverPlace + path)};
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
    return network.sendCustomRequest(
        request, method, method == "POST" ? QJsonDocument(body).toJson() : QByteArray());
}

QJsonValue Browser::call(const QByteArray &method, const QString &path, const QJsonObject &body)
{
    QNetworkReply *reply = send(method, path, body);
    if (!bench.runUntil([reply] { return reply->isFinished(); }, patience))
        throw std::runtime_error("the browser does not answer");
    QJsonValue value = QJsonDocument::fromJson(reply->readAll())["value"];
    reply->deleteLater();
    if (value["error"].isString())
        throw std::runtime_error("the browser: " + value["message"].toString().toStdString());
    return value;
}

QString Browser::find(const QString &place)
{
    const QJsonValue element =
        call("POST", session + "/element", {{"using", "xpath"}, {"value", place}});
    return session + "/element/" + element[elementKey].toString();
}

// All of the page, however long it is.
void Browser::snapshot(const QByteArray &file)
{
    const QJsonValue taken = call("POST", session + "/goog/cdp/execute",
                                  {{"cmd", "Page.captureScreenshot"},
                                   {"params", QJsonObject{{"captureBeyondViewport", true}}}});
    files::create(files::ofCaller(QString::fromLocal8Bit(file)),
                  QByteArray::fromBase64(taken["data"].toString().toLatin1()));
}
