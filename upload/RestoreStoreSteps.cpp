// RestoreStore's single steps under the names the command line, the tests
// and the fuzz target know them by; each hands over to the type that does
// the job. The receive itself is in RestoreStore.cpp.

#include "upload/RestoreStore.h"

#include "base/Clock.h"
#include "core/AppContext.h"
#include "link/UploadSession.h"
#include "store/SharedDatabase.h"
#include "upload/AgentAccounts.h"
#include "upload/ReceiveStorage.h"

namespace RestoreStore {

void completeFromBankData(SharedDatabase& db, const QString& bankAgentId, QList<Entry>& entries)
{
    AgentAccounts::read(db, bankAgentId).complete(entries);
}

int downloadedAccounts(SharedDatabase& db, const QString& bankAgentId)
{
    return AgentAccounts::read(db, bankAgentId).count();
}

bool decodeTransactions(AppContext& ctx, const UploadSummary& summary, QList<Entry>* entries, QString* error)
{
    if (!decodeRecords(ctx.link.Records, summary, entries, error))
        return false;
    completeFromBankData(ctx.db(), summary.BankAgentId, *entries);
    return true;
}

void storeRows(SharedDatabase& db, const QDateTime& now, const QString& bankAgentId, const QString& agentNumber,
               const QList<Entry>& entries)
{
    ReceiveStorage::storeRows(db, now, bankAgentId, agentNumber, entries);
}

void StoreRestoreData(AppContext& ctx, const QString& bankAgentId, const QString& agentNumber,
                      const QList<Entry>& entries)
{
    SharedDatabase& db = ctx.db();
    SharedDatabase::Transaction transaction(db);
    storeRows(db, ctx.clock().now(), bankAgentId, agentNumber, entries);
    transaction.commit();
}

} // namespace RestoreStore
