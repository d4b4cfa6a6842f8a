// SPDX-License-Identifier: LicenseRef-KT6120
#include "commsexternal.h"
#include "commsinternal.h"
#include "eventhandler.h"
#include "fatalsignal.h"
#include "messagehandler.h"
#include "version.h"
#include "videolibrary.h"
#include "watchdog.h"
#include "wiring.h"

#include "childprocess.h"
#include "logmessages.h"
#include "paths.h"

#include <QCoreApplication>
#include <QDebug>
#include <QTimer>

#include <chrono>
#include <malloc.h>

// Last: X11's headers define words such as Status and Bool as macros.
#include <X11/Xlib.h>

using namespace std::chrono_literals;

int main(int argc, char *argv[])
{
    // Each pipeline start creates threads and frames. With an arena per thread and frames on the
    // heap, fragmentation would make memory grow for days.
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 131'072); // bytes; the default, but fixed

    // The program searches the output of ifconfig for English words, which ifconfig may translate.
    qputenv("LC_ALL", "C.UTF-8");
    qunsetenv("LANGUAGE"); // LC_ALL does not override it

    QCoreApplication application(argc, argv);
    XInitThreads();
    installFatalSignalHandler();
    qInstallMessageHandler(MessageHandler);

    qInfo() << messages::starting << version::product << "- v" << version::major << "."
            << version::minor << "." << version::build;

    // Never destroyed.
    const Components unit{new eventHandler, new commsInternal, new commsExternal, new VideoLibrary};
    connectComponents(unit);

    unit.mcu->commsInternalInit();
    unit.video->initCapture();
    // Gives the network time to come up.
    QTimer::singleShot(2500ms, Qt::PreciseTimer, unit.app, &commsExternal::commsExternalInit);

    childprocess::start(nullptr, childprocess::fromLine(paths::palReceiverCommand));
    childprocess::start(nullptr, childprocess::fromLine(paths::usbMonitorCommand));
    unit.video->startVideo();

    QTimer::singleShot(0, &application, [] {
        if (fatalSignalHandled())
            QCoreApplication::exit(fatalSignalExitCode);
    });
    Watchdog watchdog(*unit.app);
    return QCoreApplication::exec();
}
