#include "SettingsStore.h"

#include "SharedDatabase.h"

namespace SettingsStore {

bool save(SharedDatabase& db, const SettingsChange& change)
{
    SharedRecordset& rs = db.openSharedRecordset(QStringLiteral("select * from Path where SNo=?"),
                                                 {QStringLiteral("1")});
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
    return created;
}

} // namespace SettingsStore
