#include "cli/BackupCommand.h"

#include "base/Clock.h"
#include "cli/ConsoleMessenger.h"
#include "core/AppContext.h"
#include "store/DatabaseBackup.h"
#include "store/DatabaseRestore.h"
#include "store/SharedDatabase.h"

#include <QDir>

namespace {

int runBackup(CliRun& run)
{
    if (!run.arguments.isEmpty())
        return cliUsageError(QStringLiteral("'backup' takes options only: backup [--output FILE]."));
    const QString target = DatabaseCopy::requestedTarget(run.ctx.dataDir, run.ctx.clock().now(),
                                                         run.parser.value(QStringLiteral("output")));
    const DatabaseCopy::Outcome out = DatabaseCopy::makeCopy(run.ctx.db().filePath(), target);
    if (!out.ok) {
        run.messenger.critical(out.text, {}, out.detail);
        return CliExit::Failure;
    }
    run.messenger.show(out.text, Messenger::Icon::Information, {}, out.detail);
    return CliExit::Success;
}

int runRestore(CliRun& run)
{
    if (run.arguments.size() != 1)
        return cliUsageError(QStringLiteral("'restore' takes the copy to put back: restore FILE."));
    const QString dataDir = run.ctx.dataDir;
    if (!QDir().mkpath(dataDir)) {
        run.messenger.critical(QStringLiteral("Cannot create the data folder %1.").arg(dataDir));
        return CliExit::Failure;
    }
    const DatabaseCopy::Outcome out = DatabaseCopy::restore(dataDir, run.arguments.first(), run.ctx.clock());
    if (!out.ok) {
        run.messenger.critical(out.text, {}, out.detail);
        return CliExit::Failure;
    }
    run.messenger.show(out.text, Messenger::Icon::Information, {}, out.detail);
    return CliExit::Success;
}

} // namespace

CliCommand backupCommand()
{
    return CliCommand{
        .name = QStringLiteral("backup"),
        .synopsis =
            QStringLiteral("backup [--output FILE|FOLDER]\n"
                           "             copies the database while it may be in use and checks the copy;\n"
                           "             default: Backups/HandHeldData-YYYY-MM-DD-HHMMSS.db in the data folder"),
        .options =
            {
                {QStringLiteral("output"),
                 QStringLiteral("The copy to write (a new file), or a folder to write it in."), QStringLiteral("FILE")},
            },
        .run = [](CliRun& r) { return runBackup(r); },
    };
}

CliCommand restoreCommand()
{
    return CliCommand{
        .name = QStringLiteral("restore"),
        .synopsis = QStringLiteral("restore FILE\n"
                                   "             puts a checked copy of this program's database in place of "
                                   "HandHeldData.db,\n"
                                   "             keeping the current file beside it; refused while the database is "
                                   "in use"),
        .options = {},
        .run = [](CliRun& r) { return runRestore(r); },
        // The database in place may be the damaged one being replaced: it is
        // not opened first.
        .opensDatabase = false,
    };
}
