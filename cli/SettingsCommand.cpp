#include "cli/SettingsCommand.h"

#include "admin/FolderSelection.h"
#include "cli/ConsoleMessenger.h"
#include "core/AppContext.h"
#include "download/EntryLimits.h"
#include "store/SettingsStore.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"

#include <QDir>
#include <QFileInfo>
#include <tuple>

namespace {

int show(CliRun& run)
{
    AppSettings s;
    if (!s.load(run.ctx.db())) {
        run.messenger.critical(QStringLiteral("Please Select CommPort and BankName"));
        return CliExit::Failure;
    }
    const QString font = s.FontSize == QLatin1String("1")   ? QStringLiteral("Big")
                         : s.FontSize == QLatin1String("0") ? QStringLiteral("Small")
                                                            : s.FontSize;
    ConsoleMessenger::line(QStringLiteral("Bank Name: ") + s.BankName);
    ConsoleMessenger::line(QStringLiteral("Branch Name: ") + s.BranchName);
    ConsoleMessenger::line(QStringLiteral("Comm Port: ") + s.CommPort);
    const PortChoice port = run.ctx.portChoice();
    ConsoleMessenger::line(QStringLiteral("Serial Device: ") + port.describe());
    ConsoleMessenger::line(QStringLiteral("Font Size: ") + font);
    ConsoleMessenger::line(QStringLiteral("Bank Info Path: ") + s.BankInfoPath);
    ConsoleMessenger::line(QStringLiteral("Report Path: ") + s.ReportPath);
    ConsoleMessenger::line(QStringLiteral("Data Folder: ") + QDir::toNativeSeparators(run.ctx.dataDir));
    // The settings are shown all the same; what keeps the port shut is said
    // in full, with the file and the line.
    if (!port.problem.isEmpty())
        run.messenger.critical(port.problem);
    return CliExit::Success;
}

int set(CliRun& run)
{
    const QCommandLineParser& p = run.parser;
    SettingsChange change;
    if (p.isSet(QStringLiteral("bank-name"))) {
        change.bankName = p.value(QStringLiteral("bank-name")).trimmed();
        if (const QString problem = EntryLimits::bankNameProblem(*change.bankName); !problem.isEmpty())
            return cliUsageError(QStringLiteral("--bank-name: ") + problem);
    }
    if (p.isSet(QStringLiteral("branch-name"))) {
        change.branchName = p.value(QStringLiteral("branch-name")).trimmed();
        if (const QString problem = EntryLimits::branchNameProblem(*change.branchName); !problem.isEmpty())
            return cliUsageError(QStringLiteral("--branch-name: ") + problem);
    }
    if (p.isSet(QStringLiteral("comm-port"))) {
        const QString port = p.value(QStringLiteral("comm-port")).trimmed();
        bool ok = false;
        const int n = port.toInt(&ok);
        if (!ok || n < 1 || n > 10)
            return cliUsageError(QStringLiteral("--comm-port takes a number from 1 to 10."));
        change.commPort = QString::number(n);
    }
    if (p.isSet(QStringLiteral("font-size"))) {
        const QString size = p.value(QStringLiteral("font-size")).trimmed().toLower();
        if (size == QLatin1String("small"))
            change.fontSize = QStringLiteral("0");
        else if (size == QLatin1String("big"))
            change.fontSize = QStringLiteral("1");
        else
            return cliUsageError(QStringLiteral("--font-size takes small or big."));
    }
    // Only a folder that exists, as the folder screen offers only those; a
    // missing one would fail at the next receive. Stored as a full path: the
    // desktop program does not start in this command's folder.
    for (const auto& [option, target, field] :
         {std::tuple{QStringLiteral("bank-info-path"), FolderSelection::Target::BankInfo, &change.bankInfoPath},
          std::tuple{QStringLiteral("report-path"), FolderSelection::Target::Report, &change.reportPath}}) {
        if (!p.isSet(option))
            continue;
        const QString folder = p.value(option);
        if (const QString problem = FolderSelection::folderProblem(target, folder); !problem.isEmpty()) {
            run.messenger.critical(problem);
            return CliExit::Failure;
        }
        *field = QDir::toNativeSeparators(QDir::cleanPath(QFileInfo(folder).absoluteFilePath()));
    }

    SettingsStore::save(run.ctx.db(), change);
    run.ctx.settings.load(run.ctx.db());
    run.messenger.information(QStringLiteral("Data Saved Successfully"));
    return CliExit::Success;
}

} // namespace

CliCommand settingsCommand()
{
    return CliCommand{
        .name = QStringLiteral("settings"),
        .synopsis = QStringLiteral(
            "settings show\n"
            "settings set [--bank-name T] [--branch-name T] [--comm-port 1..10] [--font-size small|big]\n"
            "             [--bank-info-path DIR] [--report-path DIR]"),
        .options =
            {
                {QStringLiteral("bank-name"), QStringLiteral("Bank name, at most 48 characters."), QStringLiteral("T")},
                {QStringLiteral("branch-name"), QStringLiteral("Branch name, at most 22 characters."),
                 QStringLiteral("T")},
                {QStringLiteral("comm-port"), QStringLiteral("Comm Port number, 1 to 10."), QStringLiteral("N")},
                {QStringLiteral("font-size"), QStringLiteral("Terminal font size: small or big."),
                 QStringLiteral("SIZE")},
                {QStringLiteral("bank-info-path"), QStringLiteral("Folder of the bank's download and upload files."),
                 QStringLiteral("DIR")},
                {QStringLiteral("report-path"), QStringLiteral("Report folder."), QStringLiteral("DIR")},
            },
        .run =
            [](CliRun& run) {
                const QString sub = run.arguments.value(0);
                if (run.arguments.size() != 1 || (sub != QLatin1String("show") && sub != QLatin1String("set")))
                    return cliUsageError(QStringLiteral("Use 'settings show' or 'settings set [options]'."));
                return sub == QLatin1String("show") ? show(run) : set(run);
            },
    };
}
