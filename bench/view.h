// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QTimer>

class Clock;
class Journal;
enum class Kind;

// Prints what happens on the bench, one line each, as it happens. The poll's queries and the
// answers that tell nothing new are counted and shown as a rate instead.
class View : public QObject
{
    Q_OBJECT

public:
    View(Journal &notes, const Clock &unitsTime, bool withColours);

signals:
    void printing(); // a line comes
    void printed();

private:
    void show(Kind kind, const QByteArray &text);
    void print(Kind kind, const QByteArray &whole);
    bool isRoutine(Kind kind, const QByteArray &text);
    QByteArray takeLine(const QByteArray &text);
    void printRate();
    void printRepeats();

    Journal &journal;
    const Clock &clock;
    bool colours;
    QHash<QByteArray, QByteArray> known; // first word -> last line shown, for both directions
    QByteArray partial;                  // of the unit's line
    Kind repeatedKind{}; // the last line of a program's output, and how often it came since
    QByteArray repeated;
    int repeats = 0;
    int queries = 0;
    int answers = 0;
    QTimer rate;
    double rated = 0; // when it was printed last
};
