// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>

#include <functional>
#include <optional>

class Bench;
enum class Kind;
enum class Side;

// One `expect`: waits until something has happened or stands as told, and explains itself
// when it does not. See help() for the language.
class Expectation
{
public:
    // Throws std::runtime_error where the words make no sense.
    Expectation(Bench &where, QList<QByteArray> given);

    // Waits for it. Throws std::runtime_error with what was seen instead.
    void wait();

    static QByteArray help();

    // Where it is seen; the words as given.
    static Side sideOf(const QList<QByteArray> &given);

private:
    struct State {
        const char *name;
        void (Expectation::*look)(); // sets met and seen
        Side side;
    };
    static const State states[];

    double takeSeconds(const QByteArray &word, double otherwise);
    void lookForText(Kind kind, const QByteArray &pattern);
    void lookForCall();
    void lookForStore();
    void lookForFile();
    void lookForNoFile();
    void lookForLines();
    void lookForProcesses();
    void lookForExit();
    void lookForFrameRate();
    void lookForPage();
    void lookForScript();
    void lookForConsole();
    void lookForLevel();
    void lookForPower();
    void lookForGauge(const QByteArray &name);
    QByteArray lastLines(Kind kind) const;

    Bench &bench;
    QList<QByteArray> words; // what is left to read
    QByteArray told;         // the words as given, for messages
    bool none = false;
    std::optional<int> count;

    std::function<bool()> met;
    std::function<QByteArray()> seen;
};
