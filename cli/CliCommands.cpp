#include "CliCommand.h"
#include "SendCommand.h"
#include "SettingsCommand.h"

QList<CliCommand> allCliCommands()
{
    return {
        settingsCommand(),
        sendCommand(),
    };
}
