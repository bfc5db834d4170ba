#include "upload/ReceiveValidator.h"

#include "link/UploadSession.h"
#include "store/KeyCheck.h"
#include "upload/CollectionCheck.h"

namespace ReceiveValidator {

Verdict checkSummary(const UploadSummary& summary)
{
    Verdict v;
    const QStringList problems = CollectionCheck::summaryProblems(summary);
    if (!problems.isEmpty()) {
        v.kind = Verdict::Kind::Refuse;
        v.problems = problems;
        return v;
    }
    QString why;
    if (!KeyCheck::acceptable(QStringLiteral("agent id"), summary.BankAgentId, &why)) {
        v.kind = Verdict::Kind::Fail;
        v.problems = {why};
    }
    return v;
}

Verdict checkCollections(const CollectionCheck::Result& check, bool acceptMismatch)
{
    Verdict v;
    if (!check.agrees() && !acceptMismatch) {
        v.kind = Verdict::Kind::Refuse;
        v.problems = check.problems;
        v.mayAccept = true;
    }
    return v;
}

} // namespace ReceiveValidator
