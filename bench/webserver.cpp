// SPDX-License-Identifier: LicenseRef-KT6120
#include "webserver.h"

#include "bench.h"
#include "files.h"
#include "panel.h"
#include "world.h"

#include <QDir>
#include <QFile>
#include <QTcpSocket>

#include <stdexcept>

namespace
{

constexpr char share[] = "/usr/share/kt6120-web";
constexpr char pageFolder[] = "/run/bench/www";
constexpr char panelSocket[] = "/run/bench/panel";
constexpr char deskFolder[] = "/run/desk";
constexpr char unitSocketFolder[] = "/run/kt6120-web";

constexpr double startLimit = 30; // seconds
constexpr int stopLimit = 2000;   // ms

constexpr char configuration[] = R"(
server.document-root = "/run/bench/www"
server.bind = "127.0.0.1"
server.port = 80
server.errorlog = "/run/bench/lighttpd.log"
server.upload-dirs = ( "/tmp" )
index-file.names = ( "index.html" )
mimetype.assign = ( ".html" => "text/html;charset=utf-8", ".css" => "text/css;charset=utf-8",
                    ".js" => "text/javascript;charset=utf-8", ".svg" => "image/svg+xml" )
include "/run/tree/usr/share/kt6120-web/lighttpd/kt6120.conf"
$HTTP["url"] =~ "^/bench/" {
    fastcgi.server = ( "/" => (( "socket" => "/run/bench/panel", "check-local" => "disable" )))
}
)";

QByteArray content(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("cannot read " + path.toStdString());
    return file.readAll();
}

void layPage(const QString &source)
{
    files::createFolder(pageFolder);
    for (const QString &name : QDir(source).entryList(QDir::Files))
        files::create(QString(pageFolder) + '/' + name, content(source + '/' + name));
    QByteArray page = content(source + "/index.html");
    page.replace("</head>", "<script src=\"panel.js\" defer></script>\n</head>");
    files::create(QString(pageFolder) + "/index.html", page);
    files::create(QString(pageFolder) + "/panel.js", content(BENCH_PANEL));
}

} // namespace

WebServer::WebServer(Bench &bench) : panel(std::make_unique<Panel>(bench, panelSocket))
{
    const QString tree = world::installedTree;
    layPage(tree + share + "/www");
    files::createFolder(unitSocketFolder);
    QByteArray settings = configuration;
    if (QFile::exists(deskFolder))
        settings += QByteArray(R"($SERVER["socket"] == ")") + deskFolder + "/page\" { }\n";
    files::create("/run/bench/lighttpd.conf", settings);

    answerer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    answerer.start(tree + "/usr/sbin/kt6120-web",
                   {QString(unitSocketFolder) + "/socket", tree + share + "/catalogue.json"});
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.start("/usr/sbin/lighttpd", {"-D", "-f", "/run/bench/lighttpd.conf"});
    const auto answers = [] {
        QTcpSocket probe;
        probe.connectToHost("127.0.0.1", 80);
        return probe.waitForConnected(100) && QFile::exists(panelSocket)
               && QFile::exists(QString(unitSocketFolder) + "/socket");
    };
    if (!bench.runUntil(answers, startLimit))
        throw std::runtime_error("the unit's page is not served (lighttpd and kt6120-web?)");
}

WebServer::~WebServer()
{
    for (QProcess *process : {&server, &answerer}) {
        process->terminate();
        if (!process->waitForFinished(stopLimit))
            process->kill();
    }
    panel.release(); // NOLINT(bugprone-unused-return-value): its threads run until the process ends
}
