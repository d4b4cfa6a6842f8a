// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include "clock.h"
#include "journal.h"
#include "mcusimulator.h"
#include "observers.h"
#include "phonenetwork.h"
#include "phonesimulator.h"
#include "rtptap.h"
#include "unitprocess.h"

#include <QMap>

#include <functional>
#include <map>
#include <memory>

class Browser;
class WebServer;

// The virtual unit: the world made ready, the simulators around the real program, and the
// observers that note what happens. Everything that a command acts on.
class Bench
{
public:
    // Makes the world as a healthy unit on a desk finds it; the program does not run yet.
    // Throws std::runtime_error outside the sandbox.
    Bench();
    ~Bench();

    // Lets the bench run until the condition holds; false when the seconds were over first.
    bool runUntil(const std::function<bool()> &condition, double seconds);
    void runFor(double seconds); // of the unit's time

    // Replies of the stand-in programs, in the unit's own terms.
    static void setAdc(const QByteArray &name, const QByteArray &reading);
    static void setUsbFault(bool fault);
    // Makes sure that a program of that name is recorded. Programs of the search path are
    // taken up when first asked for.
    static void record(const QString &name);
    static QString placeOf(const QString &program);

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
    McuSimulator mcu;
    PhoneNetwork network;
    PhoneSimulator phone;
    UnitProcess unit;
    StoreWatch store;

private:
    static void arrange();

    FileTail log;
    FileTail calls;
    std::map<quint16, std::unique_ptr<RtpTap>> taps;
    QMap<QByteArray, double> markedGauges;
    std::unique_ptr<WebServer> page;
    std::unique_ptr<Browser> viewer;
};
