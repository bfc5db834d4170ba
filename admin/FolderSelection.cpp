#include "admin/FolderSelection.h"

#include "store/AppSettings.h"
#include "store/SettingsStore.h"
#include "store/SharedDatabase.h"

#include <QFileInfo>

namespace FolderSelection {

QString existingStoredFolder(SharedDatabase& db, Target target)
{
    if (target == Target::None)
        return {};
    SharedRecordset& rs =
        db.openSharedRecordset(QStringLiteral("select * from path where SNo=?"), {QStringLiteral("1")});
    QString folder;
    if (!rs.eof())
        folder = rs.text(target == Target::BankInfo ? QStringLiteral("BankInfoPath") : QStringLiteral("ReportPath"));
    db.closeSharedRecordset();
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        return {};
    return folder;
}

void save(SharedDatabase& db, AppSettings& settings, Target target, const QString& path)
{
    SettingsChange change;
    if (target == Target::BankInfo)
        change.bankInfoPath = path;
    else if (target == Target::Report)
        change.reportPath = path;
    SettingsStore::save(db, change);
    if (target == Target::BankInfo)
        settings.BankInfoPath = path;
    else if (target == Target::Report)
        settings.ReportPath = path;
}

} // namespace FolderSelection
