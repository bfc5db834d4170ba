#include "cli/ReportCommand.h"

#include "base/Clock.h"
#include "cli/ConsoleMessenger.h"
#include "core/AppContext.h"
#include "reports/ReportRenderer.h"

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <utility>

namespace {

int run(CliRun& run)
{
    const QCommandLineParser& p = run.parser;
    const QString which = run.arguments.value(0);
    if (run.arguments.size() != 1 || (which != QLatin1String("daily") && which != QLatin1String("agent")))
        return cliUsageError(QStringLiteral("Use 'report daily' or 'report agent' with --output FILE."));
    const ReportKind kind = which == QLatin1String("daily") ? ReportKind::Daily : ReportKind::Agent;

    const QString output = p.value(QStringLiteral("output"));
    if (output.isEmpty())
        return cliUsageError(QStringLiteral("--output FILE is required (a .pdf or .csv file)."));
    const QString suffix = QFileInfo(output).suffix().toLower();
    if (suffix != QLatin1String("pdf") && suffix != QLatin1String("csv"))
        return cliUsageError(QStringLiteral("--output must name a .pdf or a .csv file."));

    ReportLimits limits;
    const QDate today = run.ctx.clock().now().date();
    limits.from = today;
    limits.to = today;
    for (const auto& [option, day] :
         {std::pair{QStringLiteral("from"), &limits.from}, std::pair{QStringLiteral("to"), &limits.to}}) {
        const QString problem =
            readDayOption(p, option, day, QStringLiteral("--%1 takes a date as YYYY-MM-DD.").arg(option));
        if (!problem.isEmpty())
            return cliUsageError(problem);
    }
    if (kind == ReportKind::Agent && (p.isSet(QStringLiteral("agent")) || p.isSet(QStringLiteral("account"))))
        return cliUsageError(QStringLiteral("--agent and --account limit the daily report only."));
    limits.agentId = p.value(QStringLiteral("agent")).trimmed();
    limits.accountNo = p.value(QStringLiteral("account")).trimmed();

    QString error;
    if (!ReportData::checkLimits(limits, &error) || !ReportData::checkAgent(run.ctx.db(), limits, &error)) {
        run.messenger.critical(error);
        return CliExit::Failure;
    }
    if (suffix == QLatin1String("pdf") && !qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        run.messenger.critical(QStringLiteral("Writing a PDF needs the report command's GUI application."));
        return CliExit::Failure;
    }

    const ReportHeader header{run.ctx.settings.BankName, run.ctx.settings.BranchName, today};
    // Both formats are written as they are read, page by page or row by row.
    const bool written = suffix == QLatin1String("pdf")
                             ? ReportRenderer::writePdf(run.ctx.db(), kind, limits, header, output, &error)
                             : ReportRenderer::writeCsv(run.ctx.db(), kind, limits, output, &error);
    if (!written) {
        run.messenger.critical(error, {},
                               error.startsWith(QLatin1String("Cannot write")) ? cliOutputAdvice(error) : QString());
        return CliExit::Failure;
    }
    run.messenger.information(QStringLiteral("Report saved in %1").arg(QDir::toNativeSeparators(output)));
    return CliExit::Success;
}

} // namespace

CliCommand reportCommand()
{
    return CliCommand{
        .name = QStringLiteral("report"),
        .synopsis = QStringLiteral(
            "report daily|agent [--from YYYY-MM-DD] [--to YYYY-MM-DD] [--agent ID] [--account NO] --output FILE\n"
            "             daily or agent collection summary as PDF or CSV (by FILE's extension);\n"
            "             dates default to today, --agent and --account limit the daily report"),
        .options =
            {
                {QStringLiteral("from"), QStringLiteral("First date, YYYY-MM-DD (default: today)."),
                 QStringLiteral("YYYY-MM-DD")},
                {QStringLiteral("to"), QStringLiteral("Last date, YYYY-MM-DD (default: today)."),
                 QStringLiteral("YYYY-MM-DD")},
                {QStringLiteral("agent"), QStringLiteral("Agent ID (daily report only)."), QStringLiteral("ID")},
                {QStringLiteral("account"), QStringLiteral("Account number (daily report only)."),
                 QStringLiteral("NO")},
                {QStringLiteral("output"), QStringLiteral("The .pdf or .csv file to write."), QStringLiteral("FILE")},
            },
        .run = run,
    };
}
