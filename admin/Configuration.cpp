#include "admin/Configuration.h"

#include "download/EntryLimits.h"
#include "link/PortResolver.h"
#include "store/AppSettings.h"
#include "store/SettingsStore.h"
#include "store/SharedDatabase.h"

namespace Configuration {

Stored load(SharedDatabase& db, AppSettings& settings)
{
    Stored s;
    SharedRecordset& rs =
        db.openSharedRecordset(QStringLiteral("select * from Path where SNo=?"), {QStringLiteral("1")});
    if (rs.eof())
        return s;
    s.found = true;
    s.bankName = rs.text(QStringLiteral("BankName"));
    settings.BankName = s.bankName;
    s.branchName = rs.text(QStringLiteral("branchname"));
    settings.BranchName = s.branchName;
    s.fontSize = rs.text(QStringLiteral("fontsize"));
    s.commPort = rs.text(QStringLiteral("Comm Port"));
    settings.CommPort = s.commPort;
    return s;
}

QString entryProblem(const Entry& entry)
{
    if (QString problem = EntryLimits::bankNameProblem(entry.bankName); !problem.isEmpty())
        return problem;
    return EntryLimits::branchNameProblem(entry.branchName);
}

Saved save(SharedDatabase& db, AppSettings& settings, const Entry& entry)
{
    AppSettings current;
    const bool exists = current.load(db);

    SettingsChange change;
    change.bankName = entry.bankName.trimmed();
    change.commPort = entry.commPort.trimmed();
    change.branchName = entry.branchName.trimmed();
    if (!exists) {
        change.fontSize = QString::number(entry.fontSizeIndex);
    } else {
        const QString text = entry.fontSizeText.trimmed();
        if (text == QLatin1String("Big"))
            change.fontSize = QStringLiteral("1");
        else if (text == QLatin1String("Small"))
            change.fontSize = QStringLiteral("0");
    }
    SettingsStore::save(db, change);

    settings.BankName = *change.bankName;
    settings.CommPort = *change.commPort;
    settings.BranchName = *change.branchName;
    Saved saved;
    saved.created = !exists;
    // A new row leaves AppSettings.FontSize alone and resizes the window
    // instead; an edited row refreshes it. The asymmetry is version 2.1's.
    if (exists)
        settings.FontSize = change.fontSize.value_or(current.FontSize);
    else
        saved.windowFontSize = change.fontSize->toDouble();
    return saved;
}

std::optional<int> portIndex(const QString& commPort)
{
    bool ok = false;
    const int n = commPort.trimmed().toInt(&ok);
    if (!ok || n < 1 || n > portCount)
        return std::nullopt;
    return n - 1;
}

std::optional<int> fontSizeIndex(const QString& fontSize)
{
    if (fontSize == QLatin1String("0"))
        return 0;
    if (fontSize == QLatin1String("1"))
        return 1;
    return std::nullopt;
}

QString deviceText(const QString& commPort, const QString& dataDir, const QString& portOverride)
{
    return QStringLiteral("Device: ") + PortResolver::choose(commPort, dataDir, portOverride).describe();
}

QString deviceProblem(const QString& commPort, const QString& dataDir, const QString& portOverride)
{
    return PortResolver::choose(commPort, dataDir, portOverride).problem;
}

QString badPortMessage(const QString& commPort)
{
    return QStringLiteral("The stored Comm Port \"%1\" is not a port from 1 to 10. Port 1 is shown; "
                          "choose the port and press Update.")
        .arg(commPort);
}

} // namespace Configuration
