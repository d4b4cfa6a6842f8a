// SPDX-License-Identifier: LicenseRef-KT6120
#include "commsexternal.h"

#include "logmessages.h"

#include <QDebug>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <iterator>
#include <optional>

// The vocabulary of the app: splits received bytes into lines and executes each line's command.

// A row of the command table. The argument goes to a member, then the acknowledgement is sent, then
// the event is emitted with a pointer to that member.
struct commsExternal::AppCommand {
    const char *word;
    bool hasArgument;
    const char *acknowledgement;       // null: none
    std::optional<EVENT_TYPE_t> event; // from SOURCE_APP
    QString commsExternal::*text = nullptr;
    double commsExternal::*number = nullptr;
    const char *debugText = nullptr;

    static const AppCommand rows[];
    // Whether each member has the payload type of its event.
    static constexpr bool membersArePayloads();
};

namespace
{

constexpr bool alone = false;
constexpr bool withArgument = true;
constexpr std::optional<EVENT_TYPE_t> noEvent;

} // namespace

// clang-format off
constexpr commsExternal::AppCommand commsExternal::AppCommand::rows[] = {
    {"Port",            withArgument, "Port\r",        noEvent, &commsExternal::appPort},
    {"IP",              withArgument, "IP\r",          noEvent, &commsExternal::appAddress},
    {"TolvApp",         withArgument, nullptr,         noEvent}, // a heartbeat
    {"SondeFreq",       withArgument, nullptr,         EVENT_SondeFrequency, &commsExternal::sondeFrequency},
    {"Model",           withArgument, nullptr,         EVENT_CoilerModel, &commsExternal::coilerModel},
    {"CoilerSet",       withArgument, "CoilerSet\r",   EVENT_CoilerSet, nullptr, &commsExternal::coilerSetValue},
    {"LampUp",          alone,        "LampUp\r",      EVENT_LampUp},
    {"LampDown",        alone,        "LampDown\r",    EVENT_LampDown},
    {"LampValue?",      alone,        nullptr,         EVENT_LampValueRequest},
    {"LampOff",         alone,        nullptr,         EVENT_LampOff},
    {"CoilerSet",       alone,        "CoilerSet\r",   EVENT_CoilerSet},
    {"CoilerValue?",    alone,        nullptr,         EVENT_CoilerValueRequest},
    {"StartStream",     alone,        "StartStream\r", noEvent}, // the stream follows the network, not the app
    {"StopStream",      alone,        "StopStream\r",  noEvent},
    {"SondeOn",         alone,        "SondeOn\r",     EVENT_SondeOn},
    {"SondeOff",        alone,        "SondeOff\r",    EVENT_SondeOff},
    {"SondeFreq?",      alone,        nullptr,         EVENT_SondeFrequencyRequest},
    {"SondeState?",     alone,        nullptr,         EVENT_SondeStateRequest},
    {"BatteryLevel?",   alone,        nullptr,         EVENT_BatteryLevelRequest},
    {"BatteryState?",   alone,        nullptr,         EVENT_BatteryStateRequest, nullptr, nullptr, "Battery state request"},
    {"TallwickDetect?", alone,        nullptr,         EVENT_TallwickDetectRequest, nullptr, nullptr, "Tallwick detect request"},
    {"*IDN?",           alone,        nullptr,         EVENT_IdnRequest},
    {"TolvApp",         alone,        nullptr,         noEvent}, // heartbeats
    {"KestraApp",       alone,        nullptr,         noEvent},
    {"Model?",          alone,        nullptr,         EVENT_CoilerModelRequest},
};
// clang-format on

constexpr bool commsExternal::AppCommand::membersArePayloads()
{
    for (const AppCommand &row : rows) {
        if (row.event && row.text && !carries<QString>(*row.event))
            return false;
        if (row.event && row.number && !carries<double>(*row.event))
            return false;
    }
    return true;
}

// Each read is complete: the text after its last line break is a line too.
void commsExternal::commsExternalReadyRead()
{
    // The text of a read ends at its first NUL byte.
    QString text = QString::fromUtf8(tcpSocket->readAll().constData());
    // CR LF becomes two line breaks; the empty line between them is skipped like any other.
    text.replace('\r', '\n');
    for (const QString &piece : text.split('\n')) {
        const QString line = piece.trimmed();
        if (!line.isEmpty())
            commsExternalParse(line.split(' '));
    }
}

void commsExternal::commsExternalParse(QStringList tokens)
{
    static_assert(AppCommand::membersArePayloads());
    keepAliveTimer->start(); // anew
    const bool hasArgument = tokens.size() >= 2;
    const auto command = std::find_if(
        std::begin(AppCommand::rows), std::end(AppCommand::rows), [&](const AppCommand &row) {
            return row.hasArgument == hasArgument && tokens.value(0) == QLatin1String(row.word);
        });
    if (command == std::end(AppCommand::rows)) {
        qCritical() << messages::appUnknownCommand << tokens;
        commsExternalSendCmdByteArray("ERROR\r");
        return;
    }
    void *payload = nullptr;
    if (command->text) {
        this->*command->text = tokens[1];
        payload = &(this->*command->text);
    } else if (command->number) {
        const double number = tokens[1].toDouble(); // 0 if it does not parse
        this->*command->number = qIsFinite(number) ? number : 0;
        payload = &(this->*command->number);
    }
    if (command->debugText)
        qDebug() << command->debugText;
    if (command->acknowledgement)
        commsExternalSendCmdByteArray(command->acknowledgement);
    if (command->event)
        emit commsExternalEvent(*command->event, SOURCE_APP, payload);
}
