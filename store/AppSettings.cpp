#include "store/AppSettings.h"

#include "store/SharedDatabase.h"

bool AppSettings::load(SharedDatabase& db)
{
    *this = AppSettings();
    SharedRecordset& rs =
        db.openSharedRecordset(QStringLiteral("select * from path where SNo=?"), {QStringLiteral("1")});
    if (rs.eof())
        return false;
    BankName = rs.text(QStringLiteral("BankName"));
    BranchName = rs.text(QStringLiteral("BranchName"));
    FontSize = rs.text(QStringLiteral("fontsize"));
    BankInfoPath = rs.text(QStringLiteral("BankInfoPath"));
    ReportPath = rs.text(QStringLiteral("ReportPath"));
    CommPort = rs.text(QStringLiteral("Comm Port"));
    return true;
}
