#pragma once

#include "store/SharedDatabase.h"

#include <QList>
#include <QString>
#include <QVariant>
#include <cmath>

// Collection history rows put straight into a test database, the way the
// restore store leaves them after a receive. Amounts are given in rupees
// (a double, or an invalid QVariant for none) and stored as whole paise.
struct HistoryRow
{
    QString agentId;
    QString date; // YYYY-MM-DD
    QString accountNo;
    QVariant closingAmt;
    QVariant collectedAmt;
    QString agentNo = {}; // the terminal's agent number ("005"); empty where not known
};

inline QVariant historyPaise(const QVariant& rupees)
{
    if (!rupees.isValid() || rupees.isNull())
        return QVariant();
    return QVariant(static_cast<qint64>(std::llround(rupees.toDouble() * 100.0)));
}

inline void addHistory(SharedDatabase& db, const HistoryRow& r)
{
    db.execute(
        QStringLiteral("INSERT INTO CollectionHistory (AgentID, AgentNo, CollectionDate, AccountNo, ClosingPaise, "
                       "CollectedPaise, DateTime, TransactionNumber, ReceivedAt) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"),
        {r.agentId, r.agentNo.isNull() ? QStringLiteral("") : r.agentNo, r.date, r.accountNo,
         historyPaise(r.closingAmt), historyPaise(r.collectedAmt), r.date + QStringLiteral(" 10:00"),
         QStringLiteral("0001"), r.date + QStringLiteral("T18:00:00")});
}

inline void addHistory(SharedDatabase& db, const QList<HistoryRow>& rows)
{
    for (const HistoryRow& r : rows)
        addHistory(db, r);
}

// Receiving the same agent and day again: the day's rows are deleted and the
// new ones inserted in one transaction.
inline void receiveDayAgain(SharedDatabase& db, const QString& agentId, const QString& date,
                            const QList<HistoryRow>& rows)
{
    SharedDatabase::Transaction transaction(db);
    db.execute(QStringLiteral("DELETE FROM CollectionHistory WHERE AgentID = ? AND CollectionDate = ?"),
               {agentId, date});
    addHistory(db, rows);
    transaction.commit();
}
