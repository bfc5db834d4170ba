#include "base/DayText.h"
#include "cli/AuditCommand.h"
#include "cli/BackupCommand.h"
#include "cli/CliCommand.h"
#include "cli/PasswordCommand.h"
#include "cli/ReceiveCommand.h"
#include "cli/ReportCommand.h"
#include "cli/SendCommand.h"
#include "cli/SettingsCommand.h"

#include <cstdio>

QList<CliCommand> allCliCommands()
{
    return {
        settingsCommand(), passwordCommand(), sendCommand(),   receiveCommand(),
        reportCommand(),   auditCommand(),    backupCommand(), restoreCommand(),
    };
}

int cliUsageError(const QString& text)
{
    const QByteArray bytes = (text + QStringLiteral("\nTry 'tonvy-cli --help'.\n")).toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
    return CliExit::Usage;
}

QString readDayOption(const QCommandLineParser& parser, const QString& name, QDate* day, const QString& shapeError)
{
    if (!parser.isSet(name))
        return {};
    const QString text = parser.value(name);
    const DayText::Reading reading = DayText::readIso(text);
    if (!reading.shaped)
        return shapeError;
    if (!reading.date.isValid())
        return DayText::noSuchDayText(QStringLiteral("--") + name, text, reading);
    *day = reading.date;
    return {};
}

QString cliOutputAdvice(const QString& error)
{
    if (error.contains(QLatin1String("the folder ")) && error.contains(QLatin1String("could not be synced")))
        return QStringLiteral("The file is in place, but its folder could not be synced to the disk, so a power cut "
                              "could still lose it. Check that disk, then run the command again.");
    return QStringLiteral("Nothing was kept under that name; an earlier file of that name is as it was. Free some "
                          "space on that disk, let this user write to that folder, or choose another place with "
                          "--output; then run the command again.");
}
