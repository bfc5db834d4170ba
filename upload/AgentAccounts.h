#pragma once

#include "upload/ReceiveTypes.h"

#include <QList>
#include <QString>
#include <unordered_map>

class SharedDatabase;

// The accounts downloaded for one agent (its BankData rows), read with one
// query and looked up in memory by account, scheme and category: one query
// per entry took the database's locks anew for each.
class AgentAccounts
{
public:
    // Reads the agent's rows. Throws StoreError.
    static AgentAccounts read(SharedDatabase& db, const QString& bankAgentId);

    // The rows read: the accounts downloaded for the agent.
    int count() const { return m_rows; }

    // Completes each entry from the row of its account, where there is one
    // (inBankData); an entry without one keeps what it holds. Where an
    // account was downloaded twice the first row stored counts.
    void complete(QList<RestoreStore::Entry>& entries) const;

    // Adds an account's details (the fields an entry takes from BankData:
    // branch, customer, name, balance, agreed amount, last date, agent,
    // bank account number) under its keys, unless the keys are taken.
    void add(const QString& accountNo, const QString& schemeCode, const QString& categoryCode,
             const RestoreStore::Entry& details);

private:
    struct Key
    {
        QString accountNo, schemeCode, categoryCode;
        bool operator==(const Key&) const = default;
    };
    struct KeyHash
    {
        size_t operator()(const Key& k) const;
    };
    std::unordered_map<Key, RestoreStore::Entry, KeyHash> m_accounts;
    int m_rows = 0;
};
