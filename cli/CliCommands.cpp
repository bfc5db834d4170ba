#include "cli/CliCommands.h"

#include "cli/AuditCommand.h"
#include "cli/BackupCommand.h"
#include "cli/PasswordCommand.h"
#include "cli/ReceiveCommand.h"
#include "cli/ReportCommand.h"
#include "cli/SendCommand.h"
#include "cli/SettingsCommand.h"

QList<CliCommand> allCliCommands()
{
    return {
        settingsCommand(), passwordCommand(), sendCommand(),   receiveCommand(),
        reportCommand(),   auditCommand(),    backupCommand(), restoreCommand(),
    };
}
