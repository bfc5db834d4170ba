#include "upload/ReceiveAudit.h"

#include "store/AuditTrail.h"
#include "upload/Reconciliation.h"
#include "upload/StagedFiles.h"
#include "upload/UploadFiles.h"

namespace ReceiveAudit {

namespace {

QString head(const Reconciliation::Facts& f)
{
    return QStringLiteral("agent %1 (%2), date %3: %4 records received, %5 collections, total %6")
        .arg(f.agent, f.bankAgentId.trimmed(), f.date)
        .arg(f.records)
        .arg(f.check.collections)
        .arg(UploadFiles::rupees(f.check.collectedPaise));
}

} // namespace

QString storedDetails(const Reconciliation::Facts& facts, const StagedFiles& files, bool accepted)
{
    QString details = head(facts);
    if (files.hasUpload())
        details += QStringLiteral("; upload file %1 (%2 lines, SHA-256 %3)")
                       .arg(files.uploadPath())
                       .arg(files.uploadLineCount())
                       .arg(AuditTrail::sha256(files.uploadBytes()));
    else
        details += QStringLiteral("; no upload file (the bank folder does not exist)");
    if (files.hasCheck())
        details += QStringLiteral("; check listing %1 (SHA-256 %2)")
                       .arg(files.checkPath(), AuditTrail::sha256(files.checkBytes()));
    if (accepted)
        details +=
            QStringLiteral("; ACCEPTED BY THE CLERK although: %1").arg(facts.check.problems.join(QLatin1Char(' ')));
    return details;
}

QString unstoredDetails(const Reconciliation::Facts& facts, const QString& outcome, const QStringList& problems)
{
    // One pattern, filled in this order, as the trail has always read.
    return QStringLiteral("agent %1 (%2), date %3: %4 records received, %5 collections, total %6; %7: %8")
        .arg(facts.agent, facts.bankAgentId.trimmed(), facts.date)
        .arg(facts.records)
        .arg(facts.check.collections)
        .arg(UploadFiles::rupees(facts.check.collectedPaise))
        .arg(outcome, problems.join(QLatin1Char(' ')));
}

} // namespace ReceiveAudit
