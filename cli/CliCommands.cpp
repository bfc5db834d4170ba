#include "CliCommand.h"
#include "SettingsCommand.h"

QList<CliCommand> allCliCommands()
{
    return {
        settingsCommand(),
    };
}
