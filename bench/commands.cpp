// SPDX-License-Identifier: LicenseRef-KT6120
#include "commands.h"

#include "bench.h"
#include "board/board.h"
#include "browser.h"
#include "expectation.h"
#include "files.h"
#include "gauges.h"
#include "recorders.h"
#include "scenario.h"
#include "snapshot.h"
#include "words.h"
#include "world.h"

#include <QByteArrayList>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QMap>

#include <csignal>
#include <cstdio>
#include <random>
#include <stdexcept>

namespace
{

using Words = QList<QByteArray>;

struct Command {
    const char *name;
    const char *arguments;
    const char *help;
    int least; // words after the name
    void (*handler)(Bench &bench, const Words &words);
    Side side = Side::World;
};

[[noreturn]] void fail(const QByteArray &why)
{
    throw std::runtime_error(why.toStdString());
}

double number(const QByteArray &word)
{
    bool ok = false;
    const double value = word.toDouble(&ok);
    if (!ok)
        fail('"' + word + "\" is not a number");
    return value;
}

bool onOff(const QByteArray &word)
{
    if (word != "on" && word != "off")
        fail("on or off?");
    return word == "on";
}

void unit(Bench &bench, const Words &words)
{
    const QByteArray &verb = words[0];
    if (verb == "start") {
        bench.unit->start();
    } else if (verb == "stop") {
        bench.unit->stop();
    } else if (verb == "restart") {
        bench.unit->stop();
        bench.unit->start();
    } else if (verb == "check") {
        if (bench.unit->endedUnasked())
            fail("the program ended by itself: exit " + bench.unit->ending());
    } else if (verb == "signal" && words.size() == 2) {
        bench.unit->signal(int(number(words[1])));
    } else {
        fail("unit start, stop, restart, check or signal N?");
    }
}

void ask(Bench &bench, const Words &words)
{
    bench.phone->command(words.mid(0, words.size() - 1));
    Expectation(bench, {"app", words.last()}).wait();
}

// call NAME [ARGUMENT...] VERB [VALUE]
void call(Bench &, const Words &words)
{
    const QString name = words[0];
    int at = 1;
    const Words verbs = {"prints", "takes", "holds", "fails", "missing", "idle", "real"};
    while (at < words.size() && !verbs.contains(words[at]))
        ++at;
    if (at == words.size())
        fail("call NAME [ARGUMENT...] prints TEXT, takes SECONDS, holds, fails [STATUS], missing, "
             "idle or real");
    const QString key = words.mid(0, at).join(' ');
    const QByteArray &verb = words[at];
    const QByteArray value = words.mid(at + 1).join(' ');
    if (verb == "missing" || verb == "idle") {
        recorders::uninstall(Bench::placeOf(name));
        if (verb == "idle")
            files::link("/bin/true", Bench::placeOf(name));
        return;
    }
    if (verb == "real")
        recorders::uninstall(Bench::placeOf(name)); // it may be something else by now
    Bench::record(name);
    if (verb == "prints")
        recorders::setOutput(key, value);
    else if (verb == "takes")
        recorders::setDelay(key, number(value));
    else if (verb == "holds")
        recorders::hold(key);
    else if (verb == "fails")
        recorders::setStatus(key, value.isEmpty() ? 1 : int(number(value)));
    else
        recorders::clearReply(key);
}

void web(Bench &, const Words &words)
{
    if (words[0] == "delete")
        files::remove(world::commandsFile);
    else if (words[0] == "replace")
        files::replace(world::commandsFile, words.mid(1).join(' ') + '\n');
    else
        files::overwrite(world::commandsFile, words.join(' ') + '\n');
}

struct Net {
    const char *command;
    const char *interface;
    const char *address; // the unit's
    const char *gateway; // the phone's
};
constexpr Net nets[] = {
    {"usb", "usb0", "192.168.42.10/24", "192.168.42.129"},
    {"eth", "eth0", "192.168.1.50/24", "192.168.1.1"},
};

// up [ADDRESS [GATEWAY]], down
void plug(Bench &bench, const Net &net, const Words &words)
{
    if (words[0] == "down") {
        bench.network->down(net.interface);
    } else if (words[0] == "up") {
        const QString gateway = words.size() == 2 ? QByteArray() : words.value(2, net.gateway);
        bench.network->up(net.interface, words.value(1, net.address), gateway);
    } else {
        fail("up or down?");
    }
}

// NAME up ADDRESS [GATEWAY], NAME down
void otherNet(Bench &bench, const Words &words)
{
    if (words.value(1) == "up" && words.size() < 3)
        fail("net NAME up ADDRESS/PREFIX [GATEWAY]");
    plug(bench, {"net", words[0].constData(), "", ""}, words.mid(1));
}

// One row a state: its name, and what the stand-in elements read of it.
QByteArray state(const Words &words, const QMap<QByteArray, QByteArray> &states)
{
    if (!states.contains(words[0]))
        fail(QByteArrayList(states.keys()).join(" or ") + '?');
    return states.value(words[0]);
}

// CHANNEL READING, healthy
void adc(Bench &bench, const Words &words)
{
    if (words[0] == "healthy")
        bench.setHealthyAdc();
    else
        bench.setAdc(words[0], words.value(1));
}

void power(Bench &bench, const Words &words)
{
    if (!bench.board)
        fail("a desk has no switch");
    if (words[0] == "cut") {
        std::uniform_real_distribution<double> moment(0, number(words.value(1, "0")));
        std::random_device random;
        bench.runFor(moment(random));
        bench.cutPower();
    } else if (words[0] == "on") {
        bench.switchOn();
    } else {
        fail("cut or on?");
    }
}

// usb|eth COUNT SEED
void flap(Bench &bench, const Words &words)
{
    constexpr double longestPause = 3; // seconds
    std::uniform_real_distribution<double> pause(0, longestPause);
    std::mt19937 random(unsigned(number(words[2])));
    for (const Net &net : nets) {
        for (int left = int(number(words[1])); words[0] == net.command && left > 0; --left) {
            bench.runFor(pause(random));
            plug(bench, net, {bench.network->isUp(net.interface) ? "down" : "up"});
        }
    }
}

struct Video {
    const char *name;
    quint16 port;
    Side side; // that its packets arrive at
};
constexpr Video videos[] = {
    {"pal", 8083, Side::Unit}, {"phone", 49152, Side::World}, {"ethernet", 8001, Side::World}};

void snapshot(Bench &bench, const Words &words)
{
    for (const Video &video : videos) {
        if (words[0] == video.name)
            return takeSnapshot(bench, video.port, QString::fromLocal8Bit(words[1]));
    }
    fail("snapshot pal, phone or ethernet?");
}

void expect(Bench &bench, const Words &words)
{
    Expectation(bench, words).wait();
}

void show(Bench &bench, const Words &)
{
    for (const char *name : gauges::names)
        bench.journal.note(
            Kind::Bench, QByteArray(name) + ' '
                             + QByteArray::number(gauges::read(name, bench.unit->id()).value_or(0))
                             + '\n');
}

constexpr double secondsPerDay = 86400;

// Files of the unit whose size is sampled.
struct Counted {
    const char *name;
    const char *path;
};
constexpr Counted countedFiles[] = {{"log", world::programLog}, {"csv", world::statusCsv}};

// A row of what the program takes, under a header, in a file of the caller's.
void sample(Bench &bench, const Words &words)
{
    QFile file(files::ofCaller(words[0]));
    if (!file.open(QIODevice::Append))
        fail("cannot write " + words[0]);
    QByteArray header = "day";
    QByteArray row = QByteArray::number(bench.clock.seconds() / secondsPerDay, 'f', 3);
    for (const char *name : gauges::names) {
        header += QByteArray(",") + name;
        row += ',' + QByteArray::number(gauges::read(name, bench.unit->id()).value_or(0));
    }
    for (const Counted &counted : countedFiles) {
        header += QByteArray(",") + counted.name;
        row += ',' + QByteArray::number(QFileInfo(counted.path).size());
    }
    if (file.size() == 0)
        file.write(header + '\n');
    file.write(row + '\n');
    bench.journal.note(Kind::Bench, "sample " + row + '\n');
}

void help(Bench &bench, const Words &words);

const Command table[] = {
    {"unit", "start|stop|restart|check|signal N",
     "the program, which does not run before its start; check fails where it ended by itself", 1,
     unit, Side::Unit},
    {"mcu", "WORD VALUE", "what the MCU reports from now on: mcu BAT:V 1500", 1,
     [](Bench &bench, const Words &words) { bench.mcu->command(words); }},
    {"mcu", R"(send "LINE\r\n")", "a line that nobody asked for, bytes as told", 1, nullptr},
    {"mcu", "silent|garbage|half|split|late MS|turn|talk",
     "how it answers; turn counts the reel on; talk is well again", 1, nullptr},
    {"mcu", "endless [BYTES]|deaf|gone", "bytes without line end; reads nothing; hangs up", 1,
     nullptr},
    {"mcu", "chatter BYTES", "lines without pause, three at once, as fast as the line carries", 1,
     nullptr},
    {"call", "NAME [ARGUMENT...] prints TEXT",
     "what a recorded program answers, for these arguments or for all", 2, call, Side::Unit},
    {"call", "NAME [ARGUMENT...] takes SECONDS|holds|fails [STATUS]",
     "how it answers; what holds does not end before it is real again", 2, nullptr},
    {"call", "NAME missing|idle|real",
     "it is not installed; does nothing, quickly and without record; as at the start", 2, nullptr},
    {"adc", "CHANNEL READING",
     "Boost LED Inter Encoder Camera Sonde LedOut LedInter LedTallwick: adc Inter 0x64", 1, adc,
     Side::Unit},
    {"adc", "healthy", "all channels as at the start", 1, nullptr},
    {"usbfault", "on|off", "the USB fault line", 1,
     [](Bench &bench, const Words &words) { bench.setUsbFault(onOff(words[0])); }, Side::Unit},
    {"usb", "up [ADDRESS/PREFIX [GATEWAY]]|down",
     "a phone is tethered over USB; with an address alone there is no default route", 1,
     [](Bench &bench, const Words &words) { plug(bench, nets[0], words); }},
    {"eth", "up [ADDRESS/PREFIX [GATEWAY]]|down", "the same over Ethernet", 1,
     [](Bench &bench, const Words &words) { plug(bench, nets[1], words); }},
    {"flap", "usb|eth COUNT SEED",
     "it is unplugged and plugged in so often, 0 to 3 random seconds apart", 3, flap},
    {"net", "NAME up ADDRESS/PREFIX [GATEWAY]|NAME down", "any other network", 2, otherNet},
    {"app", "LINE", "the app sends the line with CR LF: app LampUp", 1,
     [](Bench &bench, const Words &words) { bench.phone->command(words); }},
    {"ask", "LINE ANSWER", R"(the app sends the line and hears the answer: ask TWK? "TWK 0\r")", 2,
     ask},
    {"app", "raw \"BYTES\"|big COUNT", "it sends bytes as told; a line of so many bytes", 1,
     nullptr},
    {"app", "silent|talk|hang", "no heartbeat; heartbeat every 5 s; neither reads nor talks", 1,
     nullptr},
    {"app", "refuse|accept|close|halfclose|drop",
     "port closed; open and reachable again; ends the connection; vanishes without a word", 1,
     nullptr},
    {"camera", "missing|back|lost", "the camera", 1,
     [](Bench &bench, const Words &words) {
         bench.setCamera(state(words, {{"missing", "missing"}, {"back", "ok"}, {"lost", "lost"}}));
     },
     Side::Unit},
    {"encoder", "fails|works", "the encoder", 1,
     [](Bench &, const Words &words) {
         files::create(world::encoderState,
                       state(words, {{"fails", "fails"}, {"works", "ok"}}) + '\n');
     },
     Side::Unit},
    {"power", "cut|on", "a board's: cut without a word; on again, it boots from its card", 1,
     power},
    {"snapshot", "pal|phone|ethernet FILE.png", "writes a picture of the video there", 2, snapshot},
    {"web", "KEYWORD [ARGUMENT]", "the web page writes into the commands file", 1, web, Side::Unit},
    {"web", "replace KEYWORD...|delete", "it puts another file in its place; takes it away", 1,
     nullptr},
    {"page", "open [WIDTH HEIGHT [dark]]", "a browser without a window opens the unit's page", 1,
     [](Bench &bench, const Words &words) { bench.browser().command(words); }},
    {"page", "click BUTTON|type LABEL TEXT|choose LABEL OPTION|press KEY",
     "what its user does: page click \"Lamp up\"; keys are Tab, Enter, Space", 2, nullptr},
    {"page", "script FILE|snapshot FILE.png", "runs a script on it; writes a picture of it", 2,
     nullptr},
    {"config", "KEY VALUE", "writes the configuration file: config Lamp/MaxCurrent 30", 2,
     [](Bench &, const Words &words) {
         files::setIniValue(world::configuration, words[0], words.mid(1).join(' '));
     },
     Side::Unit},
    {"store", "KEY VALUE", "writes the status store, as another program would", 2,
     [](Bench &, const Words &words) {
         files::setIniValue(world::statusStore, words[0], words.mid(1).join(' '));
     },
     Side::Unit},
    {"file", "PATH TEXT", "makes a file with that content", 2,
     [](Bench &, const Words &words) { files::create(words[0], words.mid(1).join(' ')); },
     Side::Unit},
    {"folder", "PATH", "makes a folder", 1,
     [](Bench &, const Words &words) { files::createFolder(words[0]); }, Side::Unit},
    {"remove", "PATH", "removes a file or a folder with all it holds", 1,
     [](Bench &, const Words &words) { files::remove(words[0]); }, Side::Unit},
    {"readonly", "PATH", "nothing can be written there", 1,
     [](Bench &, const Words &words) { files::setReadOnly(words[0], true); }, Side::Unit},
    {"writable", "PATH", "takes readonly back", 1,
     [](Bench &, const Words &words) { files::setReadOnly(words[0], false); }, Side::Unit},
    {"speed", "N [STRIDE]",
     "the program's timers run N times as fast; those shorter than STRIDE seconds come once in it",
     1,
     [](Bench &bench, const Words &words) {
         bench.setSpeed(int(number(words[0])), number(words.value(1, "0")));
     }},
    {"expect", "WHAT...", "waits for it, and says what was seen instead: help expect", 2, expect},
    {"mark", "", "later expects look only at what happens from now on", 0,
     [](Bench &bench, const Words &) { bench.mark(); }, Side::Both},
    {"wait", "SECONDS", "lets the unit's time pass", 1,
     [](Bench &bench, const Words &words) { bench.runFor(number(words[0])); }},
    {"show", "", "what the program takes: memory, descriptors, children, CPU time", 0, show,
     Side::Unit},
    {"sample", "FILE", "adds a row of the same to a table", 1, sample, Side::Unit},
    {"echo", "TEXT", "a remark in the output", 1,
     [](Bench &bench, const Words &words) {
         bench.journal.note(Kind::Bench, words.join(' ') + '\n');
     }},
    {"play", "FILE", "plays a scenario file", 1,
     [](Bench &bench, const Words &words) { scenario::play(bench, words[0]); }},
    {"repeat", "N ... end", "in a scenario: the lines up to \"end\", N times", 1,
     [](Bench &, const Words &) { fail("repeat stands in a scenario file"); }},
    {"help", "[expect]", "this", 0, help},
    {"quit", "", "ends everything", 0, [](Bench &, const Words &) { QCoreApplication::exit(0); }},
};

// The program's version, which scenarios need not repeat.
struct Figure {
    const char *name;
    const char *value;
};
constexpr Figure figures[] = {{"@VERSION@", BENCH_VERSION},
                              {"@MAJOR@", BENCH_VERSION_MAJOR},
                              {"@MINOR@", BENCH_VERSION_MINOR},
                              {"@PATCH@", BENCH_VERSION_PATCH}};

void help(Bench &, const Words &words)
{
    if (words.value(0) == "expect") {
        printf("%s", Expectation::help().constData());
    } else {
        for (const Command &command : table)
            printf("  %-9s %-48s %s\n", command.name, command.arguments, command.help);
        printf("\nWords are separated by blanks; \"...\" may hold blanks and \\r \\n \\t \\0 "
               "\\xNN;\n@VERSION@ is the program's version, @MAJOR@, @MINOR@ and @PATCH@ its "
               "parts.\n");
    }
    fflush(stdout);
}

// What looks at something is of the side that it looks at.
Side sideOf(const Command &command, const Words &words)
{
    if (command.handler == expect)
        return Expectation::sideOf(words);
    for (const Video &video : videos) {
        if (command.handler == snapshot && words[0] == video.name)
            return video.side;
    }
    return command.side;
}

} // namespace

namespace commands
{

void run(Bench &bench, const QByteArray &given)
{
    if (given.trimmed().startsWith('#'))
        return;
    QByteArray line = given;
    for (const Figure &figure : figures)
        line.replace(figure.name, figure.value);
    const Words words = words::split(line);
    if (words.isEmpty())
        return;
    for (const Command &command : table) {
        if (words[0] != command.name)
            continue;
        if (words.size() - 1 < command.least)
            fail(QByteArray(command.name) + ' ' + command.arguments);
        const Side side = sideOf(command, words.mid(1));
        if (side != Side::Unit || !bench.board)
            command.handler(bench, words.mid(1));
        if (bench.board && (side == Side::Unit || (side == Side::Both && bench.board->isOn())))
            bench.board->carryOut(line);
        return;
    }
    fail("unknown command \"" + words[0] + "\" (help lists them)");
}

} // namespace commands
