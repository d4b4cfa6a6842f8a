// SPDX-License-Identifier: LicenseRef-KT6120
#include "commsexternal.h"

#include "logmessages.h"

#include <QDebug>
#include <QTcpSocket>

#include <algorithm>
#include <optional>

// What the app says: how its bytes become commands, and what each command does.

// One command: the first thing done is to keep its argument, then it is acknowledged, then
// its event is raised, from SOURCE_APP.
struct commsExternal::AppCommand {
    // What becomes of the argument, and the event; each may be missing.
    struct Effect {
        void *(*keep)(commsExternal &, const QString &argument) = nullptr; // where the value lies
        std::optional<EVENT_TYPE_t> event = std::nullopt;

        constexpr Effect() = default;
        constexpr Effect(EVENT_TYPE_t raised) : event(raised) {}
        constexpr Effect(decltype(keep) kept, std::optional<EVENT_TYPE_t> raised = std::nullopt)
            : keep(kept), event(raised)
        {
        }
    };

    const char *word;
    const char *acknowledgement = nullptr;
    Effect effect = {};
    const char *debugText = nullptr;

    template <auto member>
    static void *keep(commsExternal &link, const QString &argument)
    {
        set(link.*member, argument);
        return &(link.*member);
    }
    // The event's pointer points at the member, which has to be of the event's type.
    template <EVENT_TYPE_t event, Payload<event> commsExternal::*member>
    static constexpr Effect raise = {keep<member>, event};

private:
    static void set(QString &text, const QString &argument) { text = argument; }
    static void set(double &number, const QString &argument)
    {
        number = argument.toDouble(); // 0 for what is no number at all
        if (!qIsFinite(number))
            number = 0;
    }
};

// clang-format off
const std::vector<commsExternal::AppCommand> commsExternal::commandsWithArgument = {
    {"Port",      "Port\r",      AppCommand::keep<&commsExternal::appPort>},
    {"IP",        "IP\r",        AppCommand::keep<&commsExternal::appAddress>},
    {"TolvApp"}, // a heartbeat
    {"SondeFreq", nullptr,       AppCommand::raise<EVENT_SondeFrequency, &commsExternal::sondeFrequency>},
    {"Model",     nullptr,       AppCommand::raise<EVENT_CoilerModel, &commsExternal::coilerModel>},
    {"CoilerSet", "CoilerSet\r", AppCommand::raise<EVENT_CoilerSet, &commsExternal::coilerSetValue>},
};

const std::vector<commsExternal::AppCommand> commsExternal::commandsAlone = {
    {"LampUp",          "LampUp\r",      EVENT_LampUp},
    {"LampDown",        "LampDown\r",    EVENT_LampDown},
    {"LampValue?",      nullptr,         EVENT_LampValueRequest},
    {"LampOff",         nullptr,         EVENT_LampOff},
    {"CoilerSet",       "CoilerSet\r",   EVENT_CoilerSet},
    {"CoilerValue?",    nullptr,         EVENT_CoilerValueRequest},
    {"StartStream",     "StartStream\r"}, // the stream follows the network, not the app
    {"StopStream",      "StopStream\r"},
    {"SondeOn",         "SondeOn\r",     EVENT_SondeOn},
    {"SondeOff",        "SondeOff\r",    EVENT_SondeOff},
    {"SondeFreq?",      nullptr,         EVENT_SondeFrequencyRequest},
    {"SondeState?",     nullptr,         EVENT_SondeStateRequest},
    {"BatteryLevel?",   nullptr,         EVENT_BatteryLevelRequest},
    {"BatteryState?",   nullptr,         EVENT_BatteryStateRequest,    "Battery state request"},
    {"TallwickDetect?", nullptr,         EVENT_TallwickDetectRequest,  "Tallwick detect request"},
    {"*IDN?",           nullptr,         EVENT_IdnRequest},
    {"TolvApp"},   // heartbeats
    {"KestraApp"},
    {"Model?",          nullptr,         EVENT_CoilerModelRequest},
};
// clang-format on

// Every read stands on its own: whatever it holds after its last line break is a line too.
void commsExternal::commsExternalReadyRead()
{
    // The text of a read ends at its first NUL byte.
    QString text = QString::fromUtf8(tcpSocket->readAll().constData());
    // A line break of two characters makes an empty line more, which counts no more than others.
    text.replace('\r', '\n');
    for (const QString &piece : text.split('\n')) {
        const QString line = piece.trimmed();
        if (!line.isEmpty())
            commsExternalParse(line.split(' '));
    }
}

void commsExternal::commsExternalParse(QStringList tokens)
{
    restartKeepAlive();
    const auto &table = tokens.size() >= 2 ? commandsWithArgument : commandsAlone;
    const auto command = std::find_if(table.begin(), table.end(), [&](const AppCommand &row) {
        return tokens.value(0) == QLatin1String(row.word);
    });
    if (command == table.end()) {
        qCritical() << messages::appUnknownCommand << tokens;
        commsExternalSendCmdByteArray("ERROR\r");
        return;
    }
    const auto &[keep, event] = command->effect;
    void *value = keep ? keep(*this, tokens[1]) : nullptr;
    if (command->debugText)
        qDebug() << command->debugText;
    if (command->acknowledgement)
        commsExternalSendCmdByteArray(command->acknowledgement);
    if (event)
        emit commsExternalEvent(*event, SOURCE_APP, value);
}
