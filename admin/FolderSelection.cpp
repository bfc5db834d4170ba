#include "admin/FolderSelection.h"

#include "store/AppSettings.h"
#include "store/SettingsStore.h"
#include "store/SharedDatabase.h"

#include <QDir>
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

QString folderProblem(Target target, const QString& path)
{
    if (target == Target::None)
        return {};
    const QString what =
        target == Target::BankInfo ? QStringLiteral("bank information folder") : QStringLiteral("report folder");
    if (path.trimmed().isEmpty())
        return QStringLiteral("No %1 is chosen. Choose a folder that exists and save again; nothing was saved.")
            .arg(what);
    const QFileInfo info(path);
    const QString shown = QDir::toNativeSeparators(path);
    if (!info.exists())
        return QStringLiteral("The %1 %2 does not exist. Create it, or connect the drive or network share it is on, "
                              "and save again; nothing was saved.")
            .arg(what, shown);
    if (!info.isDir())
        return QStringLiteral("The %1 %2 is a file, not a folder. Choose a folder and save again; nothing was saved.")
            .arg(what, shown);
    return {};
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
