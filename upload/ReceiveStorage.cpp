#include "upload/ReceiveStorage.h"

#include "store/SharedDatabase.h"
#include "upload/EntryDecoder.h"

#include <QSet>
#include <QVariantList>
#include <cmath>
#include <optional>

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
    // "0000100.00" and the like, up to 13 whole digits, are read digit by
    // digit: exactly what rounding their double to whole paise gives.
    const qsizetype point = rupees.indexOf(QLatin1Char('.'));
    const qsizetype whole = point < 0 ? rupees.size() : point;
    const qsizetype decimals = point < 0 ? 0 : rupees.size() - point - 1;
    if (whole >= 1 && whole <= 13 && decimals <= 2) {
        qint64 value = 0;
        bool digits = true;
        for (qsizetype i = 0; i < rupees.size() && digits; ++i) {
            if (i == point)
                continue;
            const QChar c = rupees.at(i);
            digits = c >= QLatin1Char('0') && c <= QLatin1Char('9');
            value = value * 10 + (c.unicode() - '0');
        }
        if (digits) {
            for (qsizetype d = decimals; d < 2; ++d)
                value *= 10;
            return QVariant(value);
        }
    }
    bool ok = false;
    const double value = rupees.trimmed().toDouble(&ok);
    return ok ? QVariant(static_cast<qint64>(std::llround(value * 100.0))) : QVariant();
}

// Inserts rows into one table several at a time: one statement of
// RowsAStatement rows, prepared once and run for every full group, and one
// for the rows left over. A multi-row insert stores its rows in the order
// listed, so the rowids follow the entries as one insert a row did; the
// work per row (the driver's round of binding, running and resetting a
// statement) is shared by the group.
class RowInserter
{
public:
    static constexpr int RowsAStatement = 32;

    RowInserter(SharedDatabase& db, const QString& head, int columns, qsizetype rows)
        : m_db(db), m_head(head), m_columns(columns)
    {
        if (rows >= RowsAStatement)
            m_full.emplace(db, sql(RowsAStatement));
        m_values.reserve(qsizetype(columns) * RowsAStatement);
    }

    // One row's values, in the columns' order.
    void add(const QVariantList& row)
    {
        m_values.append(row);
        if (m_values.size() == qsizetype(m_columns) * RowsAStatement) {
            m_full->run(m_values);
            m_values.clear();
        }
    }

    // The rows left over, in one statement.
    void finish()
    {
        const qsizetype left = m_values.size() / m_columns;
        if (left > 0)
            SharedDatabase::Batch(m_db, sql(int(left))).run(m_values);
        m_values.clear();
    }

private:
    QString sql(int rows) const
    {
        QString one = QStringLiteral("(?");
        for (int c = 1; c < m_columns; ++c)
            one += QStringLiteral(", ?");
        one += QLatin1Char(')');
        QStringList groups(rows, one);
        return m_head + QStringLiteral(" VALUES ") + groups.join(QStringLiteral(", "));
    }

    SharedDatabase& m_db;
    const QString m_head;
    const int m_columns;
    std::optional<SharedDatabase::Batch> m_full;
    QVariantList m_values;
};

} // namespace

void storeRows(SharedDatabase& db, const QDateTime& now, const QString& bankAgentId, const QString& agentNumber,
               const QList<RestoreStore::Entry>& entries)
{
    const QString receivedAt = now.toString(Qt::ISODate);
    const QDate receivedOn = now.date();

    db.execute(QStringLiteral("DELETE FROM RestoreData WHERE AgentID = ?"), {bankAgentId});
    RowInserter rows(db,
                     QStringLiteral("INSERT INTO RestoreData (SNo, AccountNo, Amtcollected, DateTime, "
                                    "TransactionNumber, BranchID, CategoryCode, SchemeCode, CustomerCode, "
                                    "AccountName, BalanceAmount, AgreedAmount, LastTxndate, AgentID, DatewiseTxn, "
                                    "BankSoftACNumber)"),
                     16, entries.size());
    QVariantList values;
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const RestoreStore::Entry& e = entries.at(i);
        // SNo is the row's place in this receive, so the stored order can be
        // told apart from the upload file's (by transaction number). The
        // terminal sends no separate per-day value: DatewiseTxn keeps the
        // row's own collected amount ("" when nothing was collected).
        values = {QString::number(i + 1),    text(e.accountNo),   text(e.amount),       text(e.dateTime),
                  text(e.transactionNumber), text(e.branchId),    text(e.categoryCode), text(e.schemeCode),
                  text(e.customerCode),      text(e.accountName), text(e.balance),      text(e.agreedAmount),
                  text(e.lastTxnDate),       text(e.agentId),     text(e.amount),       text(e.bankSoftAcNumber)};
        rows.add(values);
    }
    rows.finish();

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
    qsizetype collections = 0;
    for (const RestoreStore::Entry& e : entries)
        collections += e.amount.isEmpty() ? 0 : 1;
    RowInserter history(db,
                        QStringLiteral("INSERT INTO CollectionHistory (AgentID, AgentNo, CollectionDate, AccountNo, "
                                       "ClosingPaise, CollectedPaise, DateTime, TransactionNumber, ReceivedAt)"),
                        9, collections);
    // The terminal's agent number beside the bank's identifier: the
    // reports find the agent by either.
    const QString agentNo = agentNumber.isNull() ? QStringLiteral("") : agentNumber;
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const RestoreStore::Entry& e = entries.at(i);
        if (e.amount.isEmpty())
            continue;
        values = {bankAgentId,     agentNo,    dayOf.at(i),         e.accountNo, paise(e.balance),
                  paise(e.amount), e.dateTime, e.transactionNumber, receivedAt};
        history.add(values);
    }
    history.finish();
}

} // namespace ReceiveStorage
