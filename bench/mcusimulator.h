// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "serialline.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>

class Journal;

// The microcontroller at the far end of the serial line: answers each query from a model of
// the unit's hardware, follows set commands, and misbehaves on request.
class McuSimulator : public QObject
{
    Q_OBJECT

public:
    // At the end of a line that it plugs in, and again after it was gone.
    McuSimulator(Journal &notes, std::function<std::unique_ptr<SerialLine>()> lines);
    ~McuSimulator() override;

    // Carries out "mcu WORD...": a mood (silent, garbage, ...), "send TEXT", or a word of the
    // model and its value. Throws std::runtime_error on anything else.
    void command(const QList<QByteArray> &words);

    // Its pauses are that many times as short.
    void setSpeed(int factor) { speed = factor; }

    // A fresh line, where one is plugged in: a program that was killed leaves the old one
    // locked for its own use.
    void renewLine();

private:
    enum class Mood { Talk, Silent, Garbage, Half, Split };

    struct Verb;
    static const Verb verbs[];

    void plugIn();
    void recover();
    void arrived(const QByteArray &bytes);
    void handle(const QByteArray &text);
    void answer(const QByteArray &text);
    void send(const QByteArray &bytes);
    void sendRest();
    void pour(const QByteArray &piece, qint64 bytes);
    void sendEndless();
    void discharge();

    Journal &journal;
    std::function<std::unique_ptr<SerialLine>()> makeLine;
    std::unique_ptr<SerialLine> line;
    QHash<QByteArray, QByteArray> model; // word -> value, as sent
    QByteArray gathered;                 // the unit's bytes since the last line end
    Mood mood = Mood::Talk;
    int speed = 1;
    bool turning = false; // the reel
    int lateBy = 0;       // ms before each answer
    QTimer gap;           // between the halves of an answer
    QByteArray rest;      // the second half
    QTimer battery;       // one step of discharge, until the voltage is set by hand
    QTimer endless;       // sends a piece a tick
    QByteArray poured;
    qint64 endlessLeft = 0;
};
