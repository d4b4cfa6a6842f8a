// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>

class Bench;
class View;

// Reads commands from standard input, one a line, with the editing and the history of readline, and
// carries them out in order. What the view prints stands above the line that is being typed. The
// end of the input ends the bench. There is one at most.
class Prompt : public QObject
{
    Q_OBJECT

public:
    Prompt(Bench &where, View &view);
    ~Prompt() override;

private:
    static void take(char *line); // readline's, null at the end of the input
    static void hide();
    static void show();
    void work();

    static Prompt *current; // whom readline's lines are for
    Bench &bench;
    QList<QByteArray> lines; // not carried out yet
    bool working = false;
    bool ended = false;
};
