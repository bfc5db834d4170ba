#include "cli/AuditCommand.h"

#include "cli/ConsoleMessenger.h"
#include "core/AppContext.h"
#include "store/AuditTrail.h"

#include <QDate>
#include <utility>

namespace {

int run(CliRun& run)
{
    const QCommandLineParser& p = run.parser;
    if (!run.arguments.isEmpty())
        return cliUsageError(QStringLiteral("'audit' takes options only: audit [--from YYYY-MM-DD] "
                                            "[--to YYYY-MM-DD] --output FILE.csv."));
    QDate from;
    QDate to;
    for (const auto& [option, day] : {std::pair{QStringLiteral("from"), &from}, std::pair{QStringLiteral("to"), &to}}) {
        const QString problem =
            readDayOption(p, option, day, QStringLiteral("--from and --to take a date as YYYY-MM-DD."));
        if (!problem.isEmpty())
            return cliUsageError(problem);
    }
    if (from.isValid() && to.isValid() && from > to)
        return cliUsageError(QStringLiteral("--from is after --to."));
    const QString output = p.value(QStringLiteral("output"));
    if (output.isEmpty())
        return cliUsageError(QStringLiteral("'audit' needs --output FILE.csv."));

    const QList<AuditTrail::Event> events = AuditTrail::read(run.ctx.db(), from, to);
    QString error;
    if (!AuditTrail::writeCsv(events, output, &error)) {
        run.messenger.critical(error, {}, cliOutputAdvice(error));
        return CliExit::Failure;
    }
    ConsoleMessenger::line(QStringLiteral("%1 events written to %2").arg(events.size()).arg(output));
    return CliExit::Success;
}

} // namespace

CliCommand auditCommand()
{
    return CliCommand{
        .name = QStringLiteral("audit"),
        .synopsis = QStringLiteral("audit [--from YYYY-MM-DD] [--to YYYY-MM-DD] --output FILE.csv\n"
                                   "             writes the audit trail (downloads, sends, receives, settings, "
                                   "passwords,\n"
                                   "             failed logins) of the days given as CSV"),
        .options =
            {
                {QStringLiteral("from"), QStringLiteral("First day (YYYY-MM-DD); default: the first event."),
                 QStringLiteral("YYYY-MM-DD")},
                {QStringLiteral("to"), QStringLiteral("Last day (YYYY-MM-DD); default: the last event."),
                 QStringLiteral("YYYY-MM-DD")},
                {QStringLiteral("output"), QStringLiteral("The CSV file to write."), QStringLiteral("FILE")},
            },
        .run = [](CliRun& r) { return run(r); },
    };
}
