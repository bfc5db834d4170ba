#include "upload/ReceiveStorage.h"

#include "store/SharedDatabase.h"
#include "upload/EntryDecoder.h"

#include <QSet>
#include <QVariantList>
#include <cmath>

namespace ReceiveStorage {

namespace {

// Empty values are stored as empty text, never NULL, so that
// "AmtCollected <> ''" and the agent keys compare as they always did.
QVariant text(const QString& value)
{
    return value.isNull() ? QVariant(QStringLiteral("")) : QVariant(value);
}

// The history keeps whole paise, so report totals add up exactly.
QVariant paise(const QString& rupees)
{
    bool ok = false;
    const double value = rupees.trimmed().toDouble(&ok);
    return ok ? QVariant(static_cast<qint64>(std::llround(value * 100.0))) : QVariant();
}

} // namespace

void storeRows(SharedDatabase& db, const QDateTime& now, const QString& bankAgentId, const QString& agentNumber,
               const QList<RestoreStore::Entry>& entries)
{
    const QString receivedAt = now.toString(Qt::ISODate);
    const QDate receivedOn = now.date();

    db.execute(QStringLiteral("DELETE FROM RestoreData WHERE AgentID = ?"), {bankAgentId});
    SharedDatabase::Batch rows(db, QStringLiteral("INSERT INTO RestoreData (SNo, AccountNo, Amtcollected, DateTime, "
                                                  "TransactionNumber, BranchID, CategoryCode, SchemeCode, "
                                                  "CustomerCode, AccountName, BalanceAmount, AgreedAmount, "
                                                  "LastTxndate, AgentID, DatewiseTxn, BankSoftACNumber) "
                                                  "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
    QVariantList values;
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const RestoreStore::Entry& e = entries.at(i);
        // SNo is the row's place in this receive, so the stored order can be
        // told apart from the upload file's (by transaction number). The
        // terminal sends no separate per-day value: DatewiseTxn keeps the
        // row's own collected amount ("" when nothing was collected).
        values = {QString::number(i + 1),
                  text(e.accountNo),
                  text(e.amount),
                  text(e.dateTime),
                  text(e.transactionNumber),
                  text(e.branchId),
                  text(e.categoryCode),
                  text(e.schemeCode),
                  text(e.customerCode),
                  text(e.accountName),
                  text(e.balance),
                  text(e.agreedAmount),
                  text(e.lastTxnDate),
                  text(e.agentId),
                  text(e.amount),
                  text(e.bankSoftAcNumber)};
        rows.run(values);
    }

    // The history keeps earlier days for the reports; a day received again
    // replaces that day instead of counting it twice.
    QStringList dayOf(entries.size());
    QStringList days;
    QSet<QString> seen;
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const RestoreStore::Entry& e = entries.at(i);
        if (e.amount.isEmpty())
            continue;
        dayOf[i] = EntryDecoder::collectionDay(e.dateTime, receivedOn);
        if (!seen.contains(dayOf.at(i))) {
            seen.insert(dayOf.at(i));
            days << dayOf.at(i);
        }
    }
    for (const QString& day : days)
        db.execute(QStringLiteral("DELETE FROM CollectionHistory WHERE AgentID = ? AND CollectionDate = ?"),
                   {bankAgentId, day});
    SharedDatabase::Batch history(db, QStringLiteral("INSERT INTO CollectionHistory (AgentID, AgentNo, "
                                                     "CollectionDate, AccountNo, ClosingPaise, CollectedPaise, "
                                                     "DateTime, TransactionNumber, ReceivedAt) "
                                                     "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"));
    // The terminal's agent number beside the bank's identifier: the
    // reports find the agent by either.
    const QString agentNo = agentNumber.isNull() ? QStringLiteral("") : agentNumber;
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const RestoreStore::Entry& e = entries.at(i);
        if (e.amount.isEmpty())
            continue;
        values = {bankAgentId,     agentNo,  dayOf.at(i),         e.accountNo, paise(e.balance),
                  paise(e.amount), e.dateTime, e.transactionNumber, receivedAt};
        history.run(values);
    }
}

} // namespace ReceiveStorage
