// The lines of the upload file and of the check listing, read from the
// agent's RestoreData rows (declared in UploadFiles.h).

#include "upload/UploadFiles.h"

#include "store/SharedDatabase.h"
#include "store/StoreProblem.h"

#include <QSqlError>
#include <QSqlQuery>

namespace UploadFiles {

namespace {

// An empty last-transaction date in the dd/mm/20yy pattern.
const QString emptyLastTxnDate = QStringLiteral("//20");
// Position of the lone blank in an upload line; the check listing leaves it
// out because its separators already set the fields apart.
constexpr int BlankValue = 14;

// The columns a line is made of, in the order the queries below select
// them: each row is read by position, never by name.
const QString lineColumns = QStringLiteral("BranchID, CategoryCode, SchemeCode, AccountNo, CustomerCode, AccountName, "
                                           "BalanceAmount, AgreedAmount, LastTxndate, AgentID, Amtcollected, "
                                           "DateTime, TransactionNumber, BankSoftACNumber");
enum Column {
    BranchId,
    CategoryCode,
    SchemeCode,
    AccountNo,
    CustomerCode,
    AccountName,
    BalanceAmount,
    AgreedAmount,
    LastTxnDate,
    AgentId,
    AmtCollected,
    DateTime,
    TransactionNumber,
    BankSoftAcNumber,
};

// Runs a query over the agent's rows. Throws StoreError.
QSqlQuery rowsOf(SharedDatabase& db, const QString& sql, const QString& bankAgentId)
{
    const QSqlDatabase connection = db.connection();
    QSqlQuery q(connection);
    q.setForwardOnly(true);
    if (!q.prepare(sql))
        throw StoreProblem::error(connection, q.lastError());
    q.addBindValue(bankAgentId);
    if (!q.exec())
        throw StoreProblem::error(connection, q.lastError());
    return q;
}

void finished(SharedDatabase& db, const QSqlQuery& q)
{
    if (q.lastError().isValid())
        throw StoreProblem::error(db.connection(), q.lastError());
}

// The values of one RestoreData row in upload-line order, with the day key
// and per-day sequence running over the rows in the order they are read.
class LineValues
{
public:
    QStringList next(const QSqlQuery& q)
    {
        const QString dateTime = q.value(DateTime).toString();
        QString lastTxnDate = q.value(LastTxnDate).toString();
        if (lastTxnDate == emptyLastTxnDate)
            lastTxnDate = QString(10, QLatin1Char(' '));
        const QString dayKey = dateTime.left(5);
        if (dayKey != m_dayKey) {
            m_dayKey = dayKey;
            m_sequence = 1;
        } else {
            ++m_sequence;
        }
        return {q.value(BranchId).toString(),
                q.value(CategoryCode).toString(),
                q.value(SchemeCode).toString(),
                q.value(AccountNo).toString(),
                q.value(CustomerCode).toString(),
                q.value(AccountName).toString(),
                q.value(BalanceAmount).toString(),
                q.value(AgreedAmount).toString(),
                lastTxnDate,
                q.value(AgentId).toString(),
                q.value(AmtCollected).toString(),
                dateTime,
                q.value(TransactionNumber).toString(),
                QStringLiteral("%1").arg(m_sequence, 4, 10, QLatin1Char('0')),
                QStringLiteral(" "),
                q.value(BankSoftAcNumber).toString()};
    }

private:
    QString m_dayKey;
    int m_sequence = 0;
};

} // namespace

UploadLines uploadLines(SharedDatabase& db, const QString& bankAgentId)
{
    UploadLines out;
    // Numeric order, as version 2.1's number-typed column sorted; rowid
    // keeps equal numbers in the order they were received.
    QSqlQuery q = rowsOf(db,
                         QStringLiteral("SELECT %1 FROM RestoreData WHERE AgentID = ? AND AmtCollected <> '' "
                                        "ORDER BY CAST(TransactionNumber AS INTEGER), rowid")
                             .arg(lineColumns),
                         bankAgentId);
    LineValues values;
    while (q.next()) {
        out.lines << values.next(q).join(QString());
        qint64 paise = 0;
        if (toPaise(q.value(AmtCollected).toString(), &paise))
            out.paise += paise;
        ++out.count;
    }
    finished(db, q);
    return out;
}

QStringList checkLines(SharedDatabase& db, const QString& bankAgentId)
{
    QStringList lines;
    // Val(Accountname) ordered by the name's leading number: SQLite's
    // CAST to REAL reads the longest numeric prefix after leading blanks
    // and gives 0 when there is none, as Val did; rowid keeps the
    // received order among equal numbers (names without one).
    QSqlQuery q =
        rowsOf(db,
               QStringLiteral("SELECT %1 FROM RestoreData WHERE AgentID = ? ORDER BY CAST(Accountname AS REAL), rowid")
                   .arg(lineColumns),
               bankAgentId);
    LineValues values;
    while (q.next()) {
        QStringList row = values.next(q);
        row.removeAt(BlankValue);
        lines << row.join(QStringLiteral(" | "));
    }
    finished(db, q);
    return lines;
}

} // namespace UploadFiles
