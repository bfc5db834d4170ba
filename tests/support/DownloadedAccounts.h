#pragma once

#include "store/SharedDatabase.h"
#include "terminal/TerminalAccounts.h"

// The simulated terminal's accounts stored in BankData as a send would have
// left them, so that a receive finds every account it collects for.
inline void storeAsDownloaded(SharedDatabase& db, const TerminalAccounts& accounts)
{
    for (const TerminalAccount& a : accounts.accounts)
        db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, BalAmount, "
                                  "AgreedAmount, AgentID, BranchID, MyDate) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"),
                   {a.categoryCode, a.schemeCode, a.accountNumber, a.name.trimmed(), a.balance.toInt(),
                    a.agreedAmount.toInt(), accounts.agentId, accounts.branchId, a.lastTxnDate});
}
