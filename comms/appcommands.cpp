#include "commsexternal.h"

#include <QDebug>
#include <QTcpSocket>

#include <algorithm>
#include <optional>

// What the app says: how its bytes become commands, and what each command does.

// One command: the first thing done is to keep its argument, then it is acknowledged, then
// its event is raised, from SOURCE_APP.
struct commsExternal::AppCommand {
    using Keep = void *(*)(commsExternal &, const QString &argument);

    const char *word;
    const char *acknowledgement = nullptr;
    std::optional<EVENT_TYPE_t> event = std::nullopt;
    Keep keep = nullptr; // returns where the event's value lies
    const char *debugText = nullptr;

    template <QString commsExternal::*member>
    static void *text(commsExternal &link, const QString &argument)
    {
        link.*member = argument;
        return &(link.*member);
    }

    static void *coilerOffset(commsExternal &link, const QString &argument)
    {
        const double metres = argument.toDouble(); // 0 for what is no number at all
        link.coilerSetValue = qIsFinite(metres) ? metres : 0;
        return &link.coilerSetValue;
    }
};

// clang-format off
const std::vector<commsExternal::AppCommand> commsExternal::commandsWithArgument = {
    {"Port",      "Port\r",      {},                   AppCommand::text<&commsExternal::appPort>},
    {"IP",        "IP\r",        {},                   AppCommand::text<&commsExternal::appAddress>},
    {"TolvApp"}, // a heartbeat
    {"SondeFreq", nullptr,       EVENT_SondeFrequency, AppCommand::text<&commsExternal::sondeFrequency>},
    {"Model",     nullptr,       EVENT_CoilerModel,    AppCommand::text<&commsExternal::coilerModel>},
    {"CoilerSet", "CoilerSet\r", EVENT_CoilerSet,      AppCommand::coilerOffset},
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
    {"BatteryState?",   nullptr,         EVENT_BatteryStateRequest,    nullptr, "Battery state request"},
    {"TallwickDetect?", nullptr,         EVENT_TallwickDetectRequest,  nullptr, "Tallwick detect request"},
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
        qCritical() << "TCP received unknown command: " << tokens;
        commsExternalSendCmdByteArray("ERROR\r");
        return;
    }
    void *value = command->keep ? command->keep(*this, tokens[1]) : nullptr;
    if (command->debugText)
        qDebug() << command->debugText;
    if (command->acknowledgement)
        commsExternalSendCmdByteArray(command->acknowledgement);
    if (command->event)
        emit commsExternalEvent(*command->event, SOURCE_APP, value);
}
