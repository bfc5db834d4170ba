#pragma once

#include "upload/ReceiveTypes.h"

#include <QDateTime>
#include <QList>
#include <QString>

class SharedDatabase;

// Stores a receive's entries: the agent's RestoreData rows are replaced
// by them and, for the days present, the agent's collection history. The
// caller holds the transaction, so that the rows, the files owed and the
// audit event go in together or not at all.
namespace ReceiveStorage {

// Replaces every RestoreData row of the agent with the entries (in order,
// SNo 1, 2, ...) and every history row of the agent on the days the
// collections fall on with the collections. The history rows carry
// agentNumber, the terminal's three-digit agent number from the summary
// record, beside bankAgentId. Each statement is prepared once and run for
// every row. Throws StoreError.
void storeRows(SharedDatabase& db, const QDateTime& receivedAt, const QString& bankAgentId, const QString& agentNumber,
               const QList<RestoreStore::Entry>& entries);

} // namespace ReceiveStorage
