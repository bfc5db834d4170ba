#pragma once

#include <QString>
#include <QStringList>

class StagedFiles;
namespace Reconciliation {
struct Facts;
}

// The audit trail's words for one receive: what came, what was collected
// and, for a stored receive, the files with their SHA-256, so that a file
// changed after the receive can be told.
namespace ReceiveAudit {

// A receive whose rows are stored (written with them, in their transaction).
// accepted: stored although the check disagreed.
QString storedDetails(const Reconciliation::Facts& facts, const StagedFiles& files, bool accepted);

// A receive that stored nothing: the outcome and the problems.
QString unstoredDetails(const Reconciliation::Facts& facts, const QString& outcome, const QStringList& problems);

} // namespace ReceiveAudit
