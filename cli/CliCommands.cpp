#include "AuditCommand.h"
#include "CliCommand.h"
#include "PasswordCommand.h"
#include "ReceiveCommand.h"
#include "ReportCommand.h"
#include "SendCommand.h"
#include "SettingsCommand.h"

QList<CliCommand> allCliCommands()
{
    return {
        settingsCommand(),
        passwordCommand(),
        sendCommand(),
        receiveCommand(),
        reportCommand(),
        auditCommand(),
    };
}
