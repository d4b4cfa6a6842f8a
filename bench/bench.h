// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "clock.h"
#include "journal.h"
#include "mcusimulator.h"
#include "observers.h"
#include "phonenetwork.h"
#include "phonesimulator.h"
#include "rtptap.h"
#include "side.h"
#include "unit.h"

#include <QMap>

#include <functional>
#include <map>
#include <memory>

class Board;
class Browser;
class WebServer;

// The virtual unit: the world made ready, the simulators around the real program, and the
// observers that note what happens. Everything that a command acts on.
class Bench
{
public:
    // Makes the world as a healthy unit finds it; the program does not run yet. A desk has both
    // sides; of a board each side has its bench, and the world's finds the board in a folder.
    // Throws std::runtime_error outside the sandbox.
    explicit Bench(Side side = Side::Both, const QString &boardFolder = {});
    ~Bench();

    // Lets the bench run until the condition holds; false when the seconds were over first.
    bool runUntil(const std::function<bool()> &condition, double seconds);
    void runFor(double seconds); // of the unit's time

    // What the hardware reads, in the unit's own terms.
    void setAdc(const QByteArray &name, const QByteArray &reading) const;
    void setHealthyAdc() const;
    void setUsbFault(bool fault) const;
    // The camera: "ok", "missing" or "lost".
    void setCamera(const QByteArray &state) const;
    // Makes sure that a program of that name is recorded. Programs of the search path are
    // taken up when first asked for.
    static void record(const QString &name);
    static QString placeOf(const QString &program);
    // Ended by itself, and all it had to tell has been heard.
    bool isUnitLost() const { return unit && unit->isLost(); }

    // The board's power.
    void cutPower();
    void switchOn();

    // How many times faster than the wall clock the program's time runs while it rests, and how
    // many seconds of it a rest lasts at least. A program that was started at speed 1 stays there.
    void setSpeed(int times, double stride = 0);

    // Later expects look only at what happens, and what the program takes more, from now on.
    void mark();
    // What the program took at the last mark, by the gauge's name; 0 before the first.
    double markedGauge(const QByteArray &name) const { return markedGauges.value(name); }

    // Listens in on a port of the video from its first use on.
    RtpTap &tap(quint16 port);

    // The unit's page, served from its first use on, and a browser that looks at it.
    WebServer &webServer();
    Browser &browser();

    Clock clock;
    Journal journal;
    // On the world's side of a board, what is at the other side.
    std::unique_ptr<Board> board;
    // On the world's side.
    std::unique_ptr<McuSimulator> mcu;
    std::unique_ptr<PhoneNetwork> network;
    std::unique_ptr<PhoneSimulator> phone;
    // On the unit's.
    std::unique_ptr<Unit> unit;
    std::unique_ptr<StoreWatch> store;

private:
    void arrange() const;
    bool isOver(double end); // of the board's time

    bool onBoard;
    std::unique_ptr<FileTail> log;
    std::unique_ptr<FileTail> calls;
    std::map<quint16, std::unique_ptr<RtpTap>> taps;
    QMap<QByteArray, double> markedGauges;
    std::unique_ptr<WebServer> page;
    std::unique_ptr<Browser> viewer;
};
