#include "RestoreStore.h"

#include "AppContext.h"
#include "Clock.h"
#include "KeyCheck.h"
#include "LinkCodec.h"
#include "Messenger.h"
#include "SharedDatabase.h"
#include "StoreError.h"
#include "UploadFiles.h"
#include "UploadSession.h"

#include <QCoreApplication>
#include <QStringList>
#include <cmath>

namespace RestoreStore {

namespace {

// Byte positions inside a 137-byte transaction record, counted from 1.
constexpr int CategoryPos = 10;
constexpr int SchemePos = 11;
constexpr int AccountPos = 16;
constexpr int FirstEntryPos = 70;
constexpr int EntryCountPos = 133;
constexpr int EntrySize = 9;

// The terminal's transaction number at which the original screen let the
// message loop run once while decoding; kept.
constexpr int YieldTransactionNumber = 394;

const QString keptInBackup = QStringLiteral(" Nothing was stored; the received records are kept in the backup file.");

// A decoding fault (the original's run-time errors) with its message.
struct DecodeFault
{
    QString message;
};

QString twoDigits(int v)
{
    return QStringLiteral("%1").arg(v, 2, 10, QLatin1Char('0'));
}

int byteAt(const QByteArray& bytes, int index)
{
    return static_cast<unsigned char>(bytes.at(index));
}

// One packed-BCD byte as its two-digit value (BinCheck).
int bcd(const QByteArray& bytes, int index)
{
    return LinkCodec::BinCheck(QString::number(byteAt(bytes, index)));
}

// Mid$ of a record: whatever part of the range the record holds.
QString field(const QByteArray& record, int pos, int length)
{
    return QString::fromLatin1(record.mid(pos - 1, length));
}

QString mid(const QString& s, int pos, int length)
{
    return s.mid(pos - 1, length);
}

class Decoder
{
public:
    Decoder(AppContext& ctx, const UploadSummary& summary) : m_ctx(ctx), m_summary(summary) {}

    QList<Entry> run()
    {
        const int total = m_summary.TotalRecords;
        for (int x = 1; x <= total; ++x) {
            int c = entryCount(x + 1);
            // A count of 20 lists the NEXT record's account without an
            // amount, then that record is examined as any other.
            while (c == AccountOnlyCount) {
                ++x;
                Entry& e = newEntry();
                const QByteArray& next = record(x + 1);
                takeKeys(e, next);
                lookUp(e);
                if (x > total)
                    break;
                c = entryCount(x + 1);
            }
            if (x > total)
                break;
            readEntries(x + 1, c);
        }
        return m_entries;
    }

private:
    const QByteArray& record(int index)
    {
        if (index >= LinkState::RecordsSize)
            throw DecodeFault{QStringLiteral("Record %1 is beyond the last record a receive can hold (%2).")
                                  .arg(index)
                                  .arg(LinkState::RecordsSize - 1) +
                              keptInBackup};
        return m_ctx.link.Records.at(index);
    }

    void need(const QByteArray& rec, int index, int lastPos, const QString& what)
    {
        if (rec.size() < lastPos)
            throw DecodeFault{
                QStringLiteral("Record %1 holds %2 bytes, too few for %3.").arg(index).arg(rec.size()).arg(what) +
                keptInBackup};
    }

    int entryCount(int index)
    {
        const QByteArray& rec = record(index);
        need(rec, index, EntryCountPos, QStringLiteral("its number of entries (byte 133)"));
        return bcd(rec, EntryCountPos - 1);
    }

    Entry& newEntry()
    {
        if (m_entries.size() >= MaxEntries)
            throw DecodeFault{QStringLiteral("The records hold more than %1 transactions.").arg(MaxEntries) +
                              keptInBackup};
        Entry e;
        // The agent list starts out holding the header's agent, so an
        // unknown first account still carries it.
        if (m_entries.isEmpty())
            e.agentId = m_summary.BankAgentId;
        m_entries.append(e);
        return m_entries.last();
    }

    void takeKeys(Entry& e, const QByteArray& rec)
    {
        e.categoryCode = field(rec, CategoryPos, 1);
        e.schemeCode = field(rec, SchemePos, 5);
        e.accountNo = field(rec, AccountPos, 15);
    }

    void readEntries(int index, int count)
    {
        const QByteArray& rec = record(index);
        for (int j = 0; j < count; ++j) {
            const int start = FirstEntryPos + EntrySize * j; // 1-based
            need(rec, index, start + EntrySize - 1, QStringLiteral("entry %1").arg(j + 1));
            Entry& e = newEntry();
            takeKeys(e, rec);
            lookUp(e);
            const QByteArray bytes = rec.mid(start - 1, EntrySize);
            e.amount = decodeAmount(bytes.mid(0, 3));
            e.dateTime = decodeDateTime(bytes.mid(3, 4));
            e.transactionNumber = transactionNumber(bytes.mid(7, 2), index);
            if (e.transactionNumber.toInt() == YieldTransactionNumber)
                QCoreApplication::processEvents();
        }
    }

    static QString transactionNumber(const QByteArray& two, int index)
    {
        try {
            return decodeTransactionNumber(two);
        } catch (const LinkError& e) {
            throw DecodeFault{
                QStringLiteral("Record %1 holds an unreadable transaction number (%2).").arg(index).arg(e.message()) +
                keptInBackup};
        }
    }

    void lookUp(Entry& e)
    {
        QString why;
        if (!KeyCheck::acceptable(QStringLiteral("account number"), e.accountNo, &why) ||
            !KeyCheck::acceptable(QStringLiteral("scheme code"), e.schemeCode, &why) ||
            !KeyCheck::acceptable(QStringLiteral("category code"), e.categoryCode, &why))
            throw DecodeFault{why + keptInBackup};

        SharedRecordset& rs = m_ctx.db().openSharedRecordset(
            QStringLiteral("SELECT * FROM BankData WHERE ACNumber = ? AND SchemeCode = ? AND CategoryCode = ? "
                           "AND Agentid = ?"),
            {e.accountNo, e.schemeCode, e.categoryCode, m_summary.BankAgentId});
        if (rs.eof())
            return; // stored with what the lists already held
        e.branchId = rs.text(QStringLiteral("BranchID"));
        e.customerCode = rs.text(QStringLiteral("CustomerCode"));
        e.accountName = rs.text(QStringLiteral("ACName"));
        e.balance = formatFixed(rs.text(QStringLiteral("BalAmount")), 10);
        e.agreedAmount = formatFixed(rs.text(QStringLiteral("AgreedAmount")), 5);
        e.lastTxnDate = expandMyDate(rs.text(QStringLiteral("MyDate")));
        e.agentId = rs.text(QStringLiteral("AgentID"));
        e.bankSoftAcNumber = rs.text(QStringLiteral("BankSoftACNumber"));
    }

    AppContext& m_ctx;
    const UploadSummary& m_summary;
    QList<Entry> m_entries;
};

} // namespace

QString decodeAmount(const QByteArray& threeBytes)
{
    QString digits;
    for (int i = 0; i < 3 && i < threeBytes.size(); ++i)
        digits += twoDigits(bcd(threeBytes, i));
    return formatFixed(digits, 7);
}

QString decodeDateTime(const QByteArray& fourBytes)
{
    if (fourBytes.size() < 4)
        return {};
    const int monthYear = byteAt(fourBytes, 1);
    const int month = (monthYear & 240) / 16;
    const int yearDigit = monthYear & 15;
    return twoDigits(bcd(fourBytes, 0)) + QLatin1Char('/') + twoDigits(month) + QStringLiteral("/20") +
           twoDigits(yearDigit) + QLatin1Char(' ') + twoDigits(bcd(fourBytes, 2)) + QLatin1Char(':') +
           twoDigits(bcd(fourBytes, 3));
}

QString decodeTransactionNumber(const QByteArray& twoBytes)
{
    LinkCodec codec;
    const LinkCodec::Buffer b = LinkCodec::String2byte(twoBytes, 2);
    codec.HEX_DECIMAL(b[0], b[1]);
    return QStringLiteral("%1").arg(codec.HexValue, 4, 10, QLatin1Char('0'));
}

QString formatFixed(const QString& value, int intDigits)
{
    bool ok = false;
    const double v = value.trimmed().toDouble(&ok);
    if (!ok)
        return value;
    QString text = QString::number(qAbs(v), 'f', 2);
    const qsizetype point = text.indexOf(QLatin1Char('.'));
    if (point < intDigits)
        text.prepend(QString(intDigits - point, QLatin1Char('0')));
    return v < 0 ? QLatin1Char('-') + text : text;
}

QString expandMyDate(const QString& ddmmyy)
{
    return mid(ddmmyy, 1, 2) + QLatin1Char('/') + mid(ddmmyy, 3, 2) + QStringLiteral("/20") + mid(ddmmyy, 5, 2);
}

// The history's day of a collection as YYYY-MM-DD. The terminal sends only
// the last digit of the year (the text reads "20" and that digit), so the
// year is the latest one ending in that digit that is not after the day of
// the receive: a collection of 2026 received in 2026 or early 2027 files
// under 2026, not 2006.
QString collectionDay(const QString& dateTime, const QDate& receivedOn)
{
    const QString day = mid(dateTime, 1, 2);
    const QString month = mid(dateTime, 4, 2);
    const QString yearText = mid(dateTime, 7, 4);
    bool digitOk = false;
    const int digit = mid(dateTime, 10, 1).toInt(&digitOk);
    if (!digitOk || !receivedOn.isValid())
        return yearText + QLatin1Char('-') + month + QLatin1Char('-') + day;
    const int receivedYear = receivedOn.year();
    const int year = receivedYear - (((receivedYear - digit) % 10) + 10) % 10;
    return QStringLiteral("%1-%2-%3").arg(year, 4, 10, QLatin1Char('0')).arg(month, day);
}

bool decodeTransactions(AppContext& ctx, const UploadSummary& summary, QList<Entry>* entries, QString* error)
{
    try {
        *entries = Decoder(ctx, summary).run();
        return true;
    } catch (const DecodeFault& f) {
        if (error)
            *error = f.message;
        return false;
    }
}

void StoreRestoreData(AppContext& ctx, const QString& bankAgentId, const QList<Entry>& entries)
{
    SharedDatabase& db = ctx.db();
    const QDateTime now = ctx.clock().now();
    const QString receivedAt = now.toString(Qt::ISODate);
    const QDate receivedOn = now.date();

    SharedDatabase::Transaction transaction(db);
    db.execute(QStringLiteral("DELETE FROM RestoreData WHERE AgentID = ?"), {bankAgentId});
    SharedRecordset& rs =
        db.openSharedRecordset(QStringLiteral("SELECT * FROM RestoreData WHERE AgentID = ?"), {bankAgentId});
    // Empty values are stored as empty text, never NULL, so that
    // "AmtCollected <> ''" and the agent keys compare as they always did.
    auto set = [&rs](const QString& field, const QString& value) {
        rs.setValue(field, value.isNull() ? QStringLiteral("") : value);
    };
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const Entry& e = entries.at(i);
        rs.addNew();
        // SNo is the row's place in this receive, so the stored order can be
        // told apart from the upload file's (by transaction number).
        set(QStringLiteral("SNo"), QString::number(i + 1));
        set(QStringLiteral("AccountNo"), e.accountNo);
        set(QStringLiteral("Amtcollected"), e.amount);
        set(QStringLiteral("DateTime"), e.dateTime);
        set(QStringLiteral("TransactionNumber"), e.transactionNumber);
        set(QStringLiteral("BranchID"), e.branchId);
        set(QStringLiteral("CategoryCode"), e.categoryCode);
        set(QStringLiteral("SchemeCode"), e.schemeCode);
        set(QStringLiteral("CustomerCode"), e.customerCode);
        set(QStringLiteral("AccountName"), e.accountName);
        set(QStringLiteral("BalanceAmount"), e.balance);
        set(QStringLiteral("AgreedAmount"), e.agreedAmount);
        set(QStringLiteral("LastTxndate"), e.lastTxnDate);
        set(QStringLiteral("AgentID"), e.agentId);
        // The terminal sends no separate per-day value: the row's own
        // collected amount is kept here ("" when nothing was collected).
        set(QStringLiteral("DatewiseTxn"), e.amount);
        set(QStringLiteral("BankSoftACNumber"), e.bankSoftAcNumber);
        rs.update();
    }
    db.closeSharedRecordset();

    // The history keeps earlier days for the reports; a day received again
    // replaces that day instead of counting it twice.
    QStringList days;
    for (const Entry& e : entries) {
        const QString day = collectionDay(e.dateTime, receivedOn);
        if (!e.amount.isEmpty() && !days.contains(day))
            days << day;
    }
    for (const QString& day : days)
        db.execute(QStringLiteral("DELETE FROM CollectionHistory WHERE AgentID = ? AND CollectionDate = ?"),
                   {bankAgentId, day});
    for (const Entry& e : entries) {
        if (e.amount.isEmpty())
            continue;
        // The history keeps whole paise, so report totals add up exactly.
        const auto paise = [](const QString& rupees) {
            bool ok = false;
            const double value = rupees.trimmed().toDouble(&ok);
            return ok ? QVariant(static_cast<qint64>(std::llround(value * 100.0))) : QVariant();
        };
        db.execute(QStringLiteral("INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, ClosingPaise, "
                                  "CollectedPaise, DateTime, TransactionNumber, ReceivedAt) "
                                  "VALUES (?, ?, ?, ?, ?, ?, ?, ?)"),
                   {bankAgentId, collectionDay(e.dateTime, receivedOn), e.accountNo, paise(e.balance),
                    paise(e.amount), e.dateTime, e.transactionNumber, receivedAt});
    }
    transaction.commit();
}

bool RestoreData(AppContext& ctx, UploadSummary& summary)
{
    Messenger& messenger = ctx.messenger();
    // The backup comes first so that the replies survive whatever follows.
    bool ok = UploadFiles::CreateFlatFile1(ctx, summary);

    QString why;
    if (!KeyCheck::acceptable(QStringLiteral("agent id"), summary.BankAgentId, &why)) {
        messenger.critical(why + keptInBackup);
        return false;
    }
    try {
        QList<Entry> entries;
        if (!decodeTransactions(ctx, summary, &entries, &why)) {
            messenger.critical(why);
            return false;
        }
        StoreRestoreData(ctx, summary.BankAgentId, entries);
    } catch (const StoreError& e) {
        messenger.critical(e.message() + keptInBackup);
        return false;
    }
    ok = UploadFiles::CreateFlatFile(ctx, summary) && ok;
    ok = UploadFiles::CreateFlatFile2(ctx, summary) && ok;
    return ok;
}

} // namespace RestoreStore
