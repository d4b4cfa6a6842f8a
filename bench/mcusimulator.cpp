// SPDX-License-Identifier: LicenseRef-KT6120
#include "mcusimulator.h"

#include "journal.h"
#include "words.h"

#include <chrono>
#include <stdexcept>
#include <utility>

using namespace std::chrono_literals;

namespace
{

constexpr auto dischargeStep = 10s;
constexpr std::chrono::milliseconds splitGap = 50ms;
constexpr auto endlessTick = 2ms;
constexpr int endlessPiece = 8192;                              // bytes a tick
constexpr qint64 endlessDefault = 1'000'000;                    // bytes
constexpr char chatterPiece[] = "BOOT 1\r\nBOOT 2\r\nBOOT 3\n"; // a tick of 115200 baud

// The model of a healthy unit with a full battery: query word -> value.
struct Reading {
    const char *word;
    const char *value;
};
constexpr Reading healthy[] = {
    {"Corvantis", "X V1.0.3"}, {"LAMP:VALUE", "0"}, {"BAT:STATE", "1"},   {"BAT:V", "2400"},
    {"PWR:I", "620"},          {"SONDE:EN", "0"},   {"CAMERA:TYPE", "2"}, {"COILER:VALUE", "0"},
    {"TEMP", "3150"},          {"TWK", "0"},        {"LOGS", "BOOT_OK"},
};

constexpr char reelCounter[] = "COILER:VALUE";

// Set commands without an argument, and what each does to the model.
struct Effect {
    const char *command;
    const char *word;
    const char *value;
};
constexpr Effect effects[] = {
    {"SONDE:ON", "SONDE:EN", "1"},        {"SONDE:OFF", "SONDE:EN", "0"},
    {"LAMP:OFF", "LAMP:VALUE", "0"},      {"COILER:ZERO", "COILER:VALUE", "0"},
    {"LOGS:RESET", "LOGS", "LOGS_EMPTY"},
};

bool isLineEnd(char byte)
{
    return byte == '\r' || byte == '\n';
}

} // namespace

McuSimulator::McuSimulator(Journal &notes, std::function<std::unique_ptr<SerialLine>()> lines)
    : journal(notes), makeLine(std::move(lines))
{
    for (const Reading &reading : healthy)
        model.insert(reading.word, reading.value);
    plugIn();
    battery.setInterval(dischargeStep);
    connect(&battery, &QTimer::timeout, this, &McuSimulator::discharge);
    battery.start();
    endless.setTimerType(Qt::PreciseTimer);
    endless.setInterval(endlessTick);
    connect(&endless, &QTimer::timeout, this, &McuSimulator::sendEndless);
    gap.setSingleShot(true);
    connect(&gap, &QTimer::timeout, this, &McuSimulator::sendRest);
}

McuSimulator::~McuSimulator() = default;

void McuSimulator::plugIn()
{
    line.reset(); // removes the device before the new one is made
    line = makeLine();
    connect(line.get(), &SerialLine::arrived, this, &McuSimulator::arrived);
}

void McuSimulator::renewLine()
{
    gathered.clear();
    if (line)
        plugIn();
}

// What it can be told, beside the words of the model.
struct McuSimulator::Verb {
    const char *name;
    void (*act)(McuSimulator &mcu, const QByteArray &argument);
};
const McuSimulator::Verb McuSimulator::verbs[] = {
    {"silent", [](McuSimulator &mcu, const QByteArray &) { mcu.mood = Mood::Silent; }},
    {"garbage", [](McuSimulator &mcu, const QByteArray &) { mcu.mood = Mood::Garbage; }},
    {"half", [](McuSimulator &mcu, const QByteArray &) { mcu.mood = Mood::Half; }},
    {"split", [](McuSimulator &mcu, const QByteArray &) { mcu.mood = Mood::Split; }},
    {"turn", [](McuSimulator &mcu, const QByteArray &) { mcu.turning = true; }},
    {"late", [](McuSimulator &mcu, const QByteArray &ms) { mcu.lateBy = ms.toInt(); }},
    {"talk", [](McuSimulator &mcu, const QByteArray &) { mcu.recover(); }},
    {"endless",
     [](McuSimulator &mcu, const QByteArray &bytes) {
         mcu.pour(QByteArray(endlessPiece, 'x'),
                  bytes.isEmpty() ? endlessDefault : bytes.toLongLong());
     }},
    {"chatter", [](McuSimulator &mcu,
                   const QByteArray &bytes) { mcu.pour(chatterPiece, bytes.toLongLong()); }},
    {"deaf",
     [](McuSimulator &mcu, const QByteArray &) {
         if (mcu.line)
             mcu.line->setDeaf(true);
     }},
    {"gone",
     [](McuSimulator &mcu, const QByteArray &) {
         mcu.endless.stop();
         mcu.line.reset();
     }},
    {"send", [](McuSimulator &mcu, const QByteArray &bytes) { mcu.send(bytes); }},
};

void McuSimulator::command(const QList<QByteArray> &words)
{
    for (const Verb &verb : verbs) {
        if (words.first() == verb.name)
            return verb.act(*this, words.value(1));
    }
    if (!model.contains(words.first()) || words.size() < 2)
        throw std::runtime_error("the MCU knows no \"" + words.join(' ').toStdString() + '"');
    if (words.first() == "BAT:V")
        battery.stop(); // what is set by hand stays
    model[words.first()] = words.mid(1).join(' ');
}

void McuSimulator::recover()
{
    mood = Mood::Talk;
    lateBy = 0;
    turning = false;
    endless.stop();
    if (!line)
        plugIn();
    line->setDeaf(false);
}

void McuSimulator::arrived(const QByteArray &bytes)
{
    // Shown line by line, each with its own line end; what has none stands alone.
    int begin = 0;
    for (int at = 0; at < bytes.size(); ++at) {
        if (isLineEnd(bytes[at]) && (at + 1 == bytes.size() || !isLineEnd(bytes[at + 1]))) {
            journal.note(Kind::Serial, bytes.mid(begin, at + 1 - begin));
            begin = at + 1;
        }
    }
    if (begin < bytes.size())
        journal.note(Kind::Serial, bytes.mid(begin));

    for (const char byte : bytes) {
        if (!isLineEnd(byte)) {
            gathered += byte;
        } else if (!gathered.isEmpty()) {
            handle(gathered);
            gathered.clear();
        }
    }
}

void McuSimulator::handle(const QByteArray &text)
{
    if (text.endsWith('?')) {
        const QByteArray word = text == "*IDN?" ? "Corvantis" : text.chopped(1);
        if (turning && word == reelCounter)
            model[word] = QByteArray::number(model.value(word).toInt() + 1);
        if (model.contains(word))
            answer(word + ' ' + model.value(word) + "\r\n");
        return;
    }
    if (text.startsWith("LAMP:SET "))
        model["LAMP:VALUE"] = text.mid(9);
    for (const Effect &effect : effects) {
        if (text == effect.command)
            model[effect.word] = effect.value;
    }
}

// One line a write: the unit takes one line a notification, so two lines in one write
// would leave every later answer one behind.
void McuSimulator::answer(const QByteArray &text)
{
    if (lateBy > 0 && mood == Mood::Talk) {
        QTimer::singleShot(lateBy / speed, this, [this, text] { send(text); });
        return;
    }
    sendRest(); // of the answer before, where the unit asks so soon
    const int middle = int(text.size()) / 2;
    switch (mood) {
    case Mood::Talk:
        send(text);
        break;
    case Mood::Silent:
        break;
    case Mood::Garbage:
        send(QByteArray("\x00\xff\xfe\x1b\x80 \xc3\x28\n", 9));
        break;
    case Mood::Half:
        send(text.left(middle));
        break;
    case Mood::Split:
        send(text.left(middle));
        rest = text.mid(middle);
        gap.start(splitGap / speed);
        break;
    }
}

void McuSimulator::sendRest()
{
    gap.stop();
    if (!rest.isEmpty())
        send(std::exchange(rest, {}));
}

void McuSimulator::send(const QByteArray &bytes)
{
    if (!line)
        return;
    journal.note(Kind::Mcu, bytes);
    line->send(bytes);
}

void McuSimulator::pour(const QByteArray &piece, qint64 bytes)
{
    poured = piece;
    endlessLeft = bytes;
    endless.start();
}

void McuSimulator::sendEndless()
{
    const QByteArray piece = poured.left(int(qMin<qint64>(poured.size(), endlessLeft)));
    endlessLeft -= piece.size();
    if (line)
        line->send(piece);
    if (endlessLeft <= 0) {
        endless.stop();
        journal.note(Kind::Bench, "endless line sent\n");
    }
}

void McuSimulator::discharge()
{
    QByteArray &voltage = model["BAT:V"];
    voltage = QByteArray::number(qMax(0, voltage.toInt() - 1));
}
