#include "upload/Reconciliation.h"

#include "upload/CollectionCheck.h"
#include "upload/UploadFiles.h"

namespace Reconciliation {

QString leftOutPrefix()
{
    return QStringLiteral("Left out of the upload file:");
}

QStringList lines(const Facts& f)
{
    using UploadFiles::rupees;
    const CollectionCheck::Result& c = f.check;
    QStringList out;
    out << QStringLiteral("Reconciliation of the receive of agent %1 (%2) for %3, received %4")
               .arg(f.agent, f.bankAgentId.trimmed(), f.date,
                    f.receivedAt.toString(QStringLiteral("dd/MM/yyyy hh:mm:ss")));
    out << QStringLiteral("Accounts downloaded to the terminal: %1")
               .arg(f.downloadedAccounts < 0 ? QStringLiteral("not known") : QString::number(f.downloadedAccounts));
    out << QStringLiteral("Transaction records received: %1").arg(f.records);
    out << QStringLiteral("Collections that came back: %1, total %2 (and %3 accounts listed without an amount)")
               .arg(c.collections)
               .arg(rupees(c.collectedPaise))
               .arg(c.entries - c.collections);
    out << QStringLiteral("Collections for the upload file: %1, total %2").arg(c.fileCount).arg(rupees(c.filePaise));
    out << QStringLiteral("Terminal's summary: %1 transactions, total %2 - %3")
               .arg(c.summaryCount)
               .arg(rupees(c.summaryPaise))
               .arg(c.fileCount == c.summaryCount && c.filePaise == c.summaryPaise ? QStringLiteral("agrees")
                                                                                   : QStringLiteral("DISAGREES"));
    for (const QString& p : c.problems)
        out << QStringLiteral("Problem: %1").arg(p);
    for (const CollectionCheck::LeftOut& l : c.leftOut) {
        qint64 paise = 0;
        const QString amount = UploadFiles::toPaise(l.amount, &paise) ? rupees(paise) : QStringLiteral("none");
        out << QStringLiteral("%1 account %2, amount %3 (%4)")
                   .arg(leftOutPrefix(),
                        l.accountNo.trimmed().isEmpty() ? QStringLiteral("(blank)") : l.accountNo.trimmed(), amount,
                        CollectionCheck::reasonText(l.reason));
    }
    out << QStringLiteral("Outcome: %1").arg(f.outcome);
    out << QStringLiteral("Upload file: %1").arg(f.uploadFile.isEmpty() ? QStringLiteral("not written") : f.uploadFile);
    out << QStringLiteral("Backup of the replies: %1")
               .arg(f.backupFile.isEmpty() ? QStringLiteral("not written") : f.backupFile);
    return out;
}

} // namespace Reconciliation
