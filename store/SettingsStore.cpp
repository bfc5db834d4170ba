#include "store/SettingsStore.h"

#include "store/AuditTrail.h"
#include "store/SharedDatabase.h"

#include <QStringList>

namespace SettingsStore {

bool save(SharedDatabase& db, const SettingsChange& change)
{
    // The settings and their audit event together or not at all.
    SharedDatabase::Transaction transaction(db);
    SharedRecordset& rs =
        db.openSharedRecordset(QStringLiteral("select * from Path where SNo=?"), {QStringLiteral("1")});
    const bool created = rs.eof();
    if (created) {
        rs.addNew();
        rs.setValue(QStringLiteral("SNo"), QStringLiteral("1"));
    } else {
        rs.edit();
    }
    auto set = [&rs](const char* field, const std::optional<QString>& v) {
        if (v)
            rs.setValue(QLatin1String(field), *v);
    };
    set("BankName", change.bankName);
    set("BranchName", change.branchName);
    set("Comm Port", change.commPort);
    set("FontSize", change.fontSize);
    set("BankInfoPath", change.bankInfoPath);
    set("ReportPath", change.reportPath);
    rs.update();
    db.closeSharedRecordset();

    QStringList changed;
    auto note = [&changed](const char* what, const std::optional<QString>& v) {
        if (v)
            changed << QStringLiteral("%1 \"%2\"").arg(QLatin1String(what), *v);
    };
    note("bank name", change.bankName);
    note("branch name", change.branchName);
    note("Comm Port", change.commPort);
    note("font size", change.fontSize);
    note("bank-information folder", change.bankInfoPath);
    note("report folder", change.reportPath);
    AuditTrail::record(db, AuditTrail::Action::Settings,
                       (created ? QStringLiteral("settings created: ") : QStringLiteral("settings saved: ")) +
                           changed.join(QStringLiteral(", ")));
    transaction.commit();
    return created;
}

} // namespace SettingsStore
