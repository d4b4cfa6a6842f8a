#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>

class Bench;

// Reads commands from standard input, one a line, and carries them out in order. The end of
// the input ends the bench.
class Prompt : public QObject
{
    Q_OBJECT

public:
    explicit Prompt(Bench &where);

private:
    void read();
    void work();

    Bench &bench;
    QByteArray typed;        // bytes of a line that is not whole yet
    QList<QByteArray> lines; // not carried out yet
    bool working = false;
    bool ended = false;
};
