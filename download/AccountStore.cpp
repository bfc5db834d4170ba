#include "download/AccountStore.h"

#include "download/DownloadFile.h"
#include "store/AuditTrail.h"
#include "store/KeyCheck.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"

bool AccountStore::Store_BankData(const DownloadFile& file, const QString& downloadPath, QString* error)
{
    const QString agentId = file.AgentID();
    const QString branchId = file.BranchID();
    const QString fileName = DownloadFile::fileNameValue(downloadPath);
    if (!KeyCheck::acceptable(QStringLiteral("agent id"), agentId, error) ||
        !KeyCheck::acceptable(QStringLiteral("file name"), fileName, error))
        return false;
    // Account, scheme and category codes are keys of the receive's look-up:
    // one holding an apostrophe is refused here, where it can be corrected.
    for (qsizetype i = 0; i < file.records().size(); ++i) {
        const DownloadRecord& r = file.records().at(i);
        if (!KeyCheck::acceptable(QStringLiteral("account number"), r.ACNumber, error) ||
            !KeyCheck::acceptable(QStringLiteral("scheme code"), r.SchemeCode, error) ||
            !KeyCheck::acceptable(QStringLiteral("category code"), r.CategoryCode, error)) {
            if (error)
                *error = QStringLiteral("Line %1 of the download file %2: %3").arg(i + 1).arg(downloadPath, *error);
            return false;
        }
    }

    try {
        SharedDatabase::Transaction transaction(m_db);
        m_db.execute(QStringLiteral("DELETE FROM BankData WHERE AgentID=?"), {agentId});
        SharedRecordset& rs = m_db.openSharedRecordset(
            QStringLiteral("SELECT * FROM Bankdata WHERE SNo=? AND AgentID=?"), {QStringLiteral("1"), agentId});
        if (rs.eof() && rs.bof()) {
            for (const DownloadRecord& r : file.records()) {
                rs.addNew();
                rs.setValue(QStringLiteral("CategoryCode"), r.CategoryCode);
                rs.setValue(QStringLiteral("SchemeCode"), r.SchemeCode);
                rs.setValue(QStringLiteral("ACNumber"), r.ACNumber);
                rs.setValue(QStringLiteral("ACName"), r.ACName);
                rs.setValue(QStringLiteral("BalAmount"), r.BalAmount);
                rs.setValue(QStringLiteral("AgreedAmount"), r.AgreedAmount);
                rs.setValue(QStringLiteral("OpeningDate"), r.OpeningDate);
                // Every row is SNo 1, not its position: the send query selects SNo '1'.
                rs.setValue(QStringLiteral("SNo"), 1);
                rs.setValue(QStringLiteral("Txndate"), r.Txndate);
                rs.setValue(QStringLiteral("FileName"), fileName);
                rs.setValue(QStringLiteral("CustomerCode"), r.CustomerCode);
                rs.setValue(QStringLiteral("BranchID"), branchId);
                rs.setValue(QStringLiteral("AgentID"), agentId);
                rs.setValue(QStringLiteral("MyDate"), r.MyDate);
                rs.setValue(QStringLiteral("BankSoftACNumber"), r.BankSoftACNumber);
                rs.update();
            }
        }
        m_db.closeSharedRecordset();
        AuditTrail::record(m_db, AuditTrail::Action::Download,
                           QStringLiteral("agent %1: download file %2 stored, %3 records, SHA-256 %4")
                               .arg(agentId.trimmed(), downloadPath)
                               .arg(file.records().size())
                               .arg(AuditTrail::sha256File(downloadPath)));
        transaction.commit();
    } catch (const StoreError& e) {
        m_db.closeSharedRecordset();
        if (error)
            *error = e.message();
        return false;
    }
    return true;
}
