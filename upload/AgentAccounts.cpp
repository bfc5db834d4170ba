#include "upload/AgentAccounts.h"

#include "store/SharedDatabase.h"
#include "store/StoreProblem.h"
#include "upload/EntryDecoder.h"

#include <QHashFunctions>
#include <QSqlError>
#include <QSqlQuery>

using RestoreStore::Entry;

size_t AgentAccounts::KeyHash::operator()(const Key& k) const
{
    return qHashMulti(0, k.accountNo, k.schemeCode, k.categoryCode);
}

AgentAccounts AgentAccounts::read(SharedDatabase& db, const QString& bankAgentId)
{
    AgentAccounts out;
    const QSqlDatabase connection = db.connection();
    // Only the columns an entry takes, read by position once.
    QSqlQuery q(connection);
    q.setForwardOnly(true);
    if (!q.prepare(QStringLiteral("SELECT ACNumber, SchemeCode, CategoryCode, BranchID, CustomerCode, ACName, "
                                  "BalAmount, AgreedAmount, MyDate, AgentID, BankSoftACNumber "
                                  "FROM BankData WHERE AgentID = ? ORDER BY rowid")))
        throw StoreProblem::error(connection, q.lastError());
    q.addBindValue(bankAgentId);
    if (!q.exec())
        throw StoreProblem::error(connection, q.lastError());
    while (q.next()) {
        ++out.m_rows;
        const QVariant accountNo = q.value(0);
        const QVariant schemeCode = q.value(1);
        const QVariant categoryCode = q.value(2);
        // A key column without a value equals nothing, as in SQL.
        if (accountNo.isNull() || schemeCode.isNull() || categoryCode.isNull())
            continue;
        Entry a;
        a.branchId = q.value(3).toString();
        a.customerCode = q.value(4).toString();
        a.accountName = q.value(5).toString();
        a.balance = EntryDecoder::formatFixed(q.value(6).toString(), 10);
        a.agreedAmount = EntryDecoder::formatFixed(q.value(7).toString(), 5);
        a.lastTxnDate = EntryDecoder::expandMyDate(q.value(8).toString());
        a.agentId = q.value(9).toString();
        a.bankSoftAcNumber = q.value(10).toString();
        out.add(accountNo.toString(), schemeCode.toString(), categoryCode.toString(), a);
    }
    if (q.lastError().isValid())
        throw StoreProblem::error(connection, q.lastError());
    return out;
}

void AgentAccounts::add(const QString& accountNo, const QString& schemeCode, const QString& categoryCode,
                        const Entry& details)
{
    m_accounts.try_emplace(Key{accountNo, schemeCode, categoryCode}, details);
}

void AgentAccounts::complete(QList<Entry>& entries) const
{
    for (Entry& e : entries) {
        const auto found = m_accounts.find(Key{e.accountNo, e.schemeCode, e.categoryCode});
        if (found == m_accounts.end())
            continue; // stored with what the lists already held
        const Entry& a = found->second;
        e.inBankData = true;
        e.branchId = a.branchId;
        e.customerCode = a.customerCode;
        e.accountName = a.accountName;
        e.balance = a.balance;
        e.agreedAmount = a.agreedAmount;
        e.lastTxnDate = a.lastTxnDate;
        e.agentId = a.agentId;
        e.bankSoftAcNumber = a.bankSoftAcNumber;
    }
}
