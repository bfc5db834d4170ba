#include "upload/RestoreStore.h"

#include "core/AppContext.h"
#include "base/Clock.h"
#include "base/DurableFile.h"
#include "base/Messenger.h"
#include "base/PathUtil.h"
#include "link/LinkCodec.h"
#include "link/UploadSession.h"
#include "store/AuditTrail.h"
#include "store/KeyCheck.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "upload/CollectionCheck.h"
#include "upload/PendingOutputs.h"
#include "upload/Reconciliation.h"
#include "upload/UploadFiles.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSaveFile>
#include <QStringList>
#include <cmath>
#include <memory>
#include <unordered_map>

namespace RestoreStore {

namespace {

// Byte positions inside a 137-byte transaction record, counted from 1.
constexpr int CategoryPos = 10;
constexpr int SchemePos = 11;
constexpr int AccountPos = 16;
constexpr int FirstEntryPos = 70;
constexpr int EntryCountPos = 133;
constexpr int EntrySize = 9;

// The terminal's transaction number at which version 2.1's screen let the
// message loop run once while decoding; kept.
constexpr int YieldTransactionNumber = 394;

// A decoding fault (version 2.1's run-time errors) with its message.
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

// Every nibble a decimal digit.
bool packedDigits(const QByteArray& bytes)
{
    for (char c : bytes) {
        const int b = static_cast<unsigned char>(c);
        if ((b >> 4) > 9 || (b & 15) > 9)
            return false;
    }
    return true;
}

QString hexBytes(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toHex(' ').toUpper());
}

class Decoder
{
public:
    Decoder(const QList<QByteArray>& records, const UploadSummary& summary) : m_records(records), m_summary(summary) {}

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
                takeKeys(e, record(x + 1));
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
    QByteArray record(int index)
    {
        if (index >= LinkState::RecordsSize)
            throw DecodeFault{QStringLiteral("Record %1 is beyond the last record a receive can hold (%2).")
                                  .arg(index)
                                  .arg(LinkState::RecordsSize - 1)};
        return index < m_records.size() ? m_records.at(index) : QByteArray();
    }

    static void need(const QByteArray& rec, int index, int lastPos, const QString& what)
    {
        if (rec.size() < lastPos)
            throw DecodeFault{
                QStringLiteral("Record %1 holds %2 bytes, too few for %3.").arg(index).arg(rec.size()).arg(what)};
    }

    int entryCount(int index)
    {
        const QByteArray rec = record(index);
        need(rec, index, EntryCountPos, QStringLiteral("its number of entries (byte 133)"));
        if (!packedDigits(rec.mid(EntryCountPos - 1, 1)))
            throw DecodeFault{QStringLiteral("Record %1 holds its number of entries (byte 133) as %2, which is not a "
                                             "packed decimal number: the record is damaged.")
                                  .arg(index)
                                  .arg(hexBytes(rec.mid(EntryCountPos - 1, 1)))};
        return bcd(rec, EntryCountPos - 1);
    }

    Entry& newEntry()
    {
        if (m_entries.size() >= MaxEntries)
            throw DecodeFault{QStringLiteral("The records hold more than %1 transactions.").arg(MaxEntries)};
        Entry e;
        // The agent list starts out holding the header's agent, so an
        // unknown first account still carries it.
        if (m_entries.isEmpty())
            e.agentId = m_summary.BankAgentId;
        m_entries.append(e);
        return m_entries.last();
    }

    static void takeKeys(Entry& e, const QByteArray& rec)
    {
        e.categoryCode = field(rec, CategoryPos, 1);
        e.schemeCode = field(rec, SchemePos, 5);
        e.accountNo = field(rec, AccountPos, 15);
        QString why;
        if (!KeyCheck::acceptable(QStringLiteral("account number"), e.accountNo, &why) ||
            !KeyCheck::acceptable(QStringLiteral("scheme code"), e.schemeCode, &why) ||
            !KeyCheck::acceptable(QStringLiteral("category code"), e.categoryCode, &why))
            throw DecodeFault{why};
    }

    void readEntries(int index, int count)
    {
        const QByteArray rec = record(index);
        for (int j = 0; j < count; ++j) {
            const int start = FirstEntryPos + EntrySize * j; // 1-based
            need(rec, index, start + EntrySize - 1, QStringLiteral("entry %1").arg(j + 1));
            Entry& e = newEntry();
            takeKeys(e, rec);
            const QByteArray bytes = rec.mid(start - 1, EntrySize);
            if (const QString why = entryProblem(bytes); !why.isEmpty())
                throw DecodeFault{QStringLiteral("Record %1, entry %2 (%3): %4; the record is damaged.")
                                      .arg(index)
                                      .arg(j + 1)
                                      .arg(hexBytes(bytes), why)};
            e.amount = decodeAmount(bytes.mid(0, 3));
            e.dateTime = decodeDateTime(bytes.mid(3, 4));
            e.transactionNumber = transactionNumber(bytes.mid(7, 2), index);
        }
    }

    static QString transactionNumber(const QByteArray& two, int index)
    {
        try {
            return decodeTransactionNumber(two);
        } catch (const LinkError& e) {
            throw DecodeFault{
                QStringLiteral("Record %1 holds an unreadable transaction number (%2).").arg(index).arg(e.message())};
        }
    }

    const QList<QByteArray>& m_records;
    const UploadSummary& m_summary;
    QList<Entry> m_entries;
};

// A receive in progress: a nested call (from the one yield to the message
// loop) must not start a second one over the same replies.
bool receiveRunning = false;

AfterCommitHook afterCommitHook;

} // namespace

void setAfterCommitHook(AfterCommitHook hook)
{
    afterCommitHook = std::move(hook);
}

QString entryProblem(const QByteArray& nineBytes)
{
    if (nineBytes.size() < EntrySize)
        return QStringLiteral("the entry is %1 bytes long, not %2").arg(nineBytes.size()).arg(EntrySize);
    if (!packedDigits(nineBytes.left(3)))
        return QStringLiteral("the amount is not packed decimal");
    if (!packedDigits(nineBytes.mid(3, 1)) || !packedDigits(nineBytes.mid(5, 2)))
        return QStringLiteral("the day or time is not packed decimal");
    const int monthYear = byteAt(nineBytes, 4);
    if ((monthYear >> 4) < 1 || (monthYear >> 4) > 12)
        return QStringLiteral("the month is %1, not 1 to 12").arg(monthYear >> 4);
    if ((monthYear & 15) > 9)
        return QStringLiteral("the year digit is not a digit");
    if (byteAt(nineBytes, 7) >= 0x80)
        return QStringLiteral("the transaction number is past 32767");
    return {};
}

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
    // "inf" and "nan" read as numbers but have no digits to pad.
    if (!ok || !std::isfinite(v))
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

bool decodeRecords(const QList<QByteArray>& records, const UploadSummary& summary, QList<Entry>* entries,
                   QString* error)
{
    try {
        *entries = Decoder(records, summary).run();
        return true;
    } catch (const DecodeFault& f) {
        if (error)
            *error = f.message;
        return false;
    }
}

void completeFromBankData(SharedDatabase& db, const QString& bankAgentId, QList<Entry>& entries)
{
    // The agent's downloaded accounts are read once and looked up in memory:
    // one query per entry took the database's locks anew each time. Where
    // an account was downloaded twice the first row stored counts, as the
    // lookup by account always found it first.
    struct Key
    {
        QString accountNo, schemeCode, categoryCode;
        bool operator==(const Key&) const = default;
    };
    struct KeyHash
    {
        size_t operator()(const Key& k, size_t seed = 0) const
        {
            return qHashMulti(seed, k.accountNo, k.schemeCode, k.categoryCode);
        }
    };
    std::unordered_map<Key, Entry, KeyHash> accounts;
    SharedRecordset& rs = db.openSharedRecordset(
        QStringLiteral("SELECT * FROM BankData WHERE Agentid = ? ORDER BY rowid"), {bankAgentId});
    while (!rs.eof()) {
        const QVariant accountNo = rs.value(QStringLiteral("ACNumber"));
        const QVariant schemeCode = rs.value(QStringLiteral("SchemeCode"));
        const QVariant categoryCode = rs.value(QStringLiteral("CategoryCode"));
        // A key column without a value equals nothing, as in SQL.
        if (!accountNo.isNull() && !schemeCode.isNull() && !categoryCode.isNull()) {
            Entry a;
            a.branchId = rs.text(QStringLiteral("BranchID"));
            a.customerCode = rs.text(QStringLiteral("CustomerCode"));
            a.accountName = rs.text(QStringLiteral("ACName"));
            a.balance = formatFixed(rs.text(QStringLiteral("BalAmount")), 10);
            a.agreedAmount = formatFixed(rs.text(QStringLiteral("AgreedAmount")), 5);
            a.lastTxnDate = expandMyDate(rs.text(QStringLiteral("MyDate")));
            a.agentId = rs.text(QStringLiteral("AgentID"));
            a.bankSoftAcNumber = rs.text(QStringLiteral("BankSoftACNumber"));
            accounts.try_emplace(Key{accountNo.toString(), schemeCode.toString(), categoryCode.toString()},
                                 std::move(a));
        }
        rs.moveNext();
    }
    db.closeSharedRecordset();

    for (Entry& e : entries) {
        const auto found = accounts.find(Key{e.accountNo, e.schemeCode, e.categoryCode});
        if (found == accounts.end())
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

int downloadedAccounts(SharedDatabase& db, const QString& bankAgentId)
{
    SharedRecordset& rs =
        db.openSharedRecordset(QStringLiteral("SELECT count(*) AS n FROM BankData WHERE AgentID = ?"), {bankAgentId});
    const int n = rs.eof() ? 0 : rs.text(QStringLiteral("n")).toInt();
    db.closeSharedRecordset();
    return n;
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
    const QString receivedAt = now.toString(Qt::ISODate);
    const QDate receivedOn = now.date();

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
    SharedDatabase::Batch history(db, QStringLiteral("INSERT INTO CollectionHistory (AgentID, AgentNo, "
                                                     "CollectionDate, AccountNo, ClosingPaise, CollectedPaise, "
                                                     "DateTime, TransactionNumber, ReceivedAt) "
                                                     "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"));
    for (const Entry& e : entries) {
        if (e.amount.isEmpty())
            continue;
        // The history keeps whole paise, so report totals add up exactly.
        const auto paise = [](const QString& rupees) {
            bool ok = false;
            const double value = rupees.trimmed().toDouble(&ok);
            return ok ? QVariant(static_cast<qint64>(std::llround(value * 100.0))) : QVariant();
        };
        // The terminal's agent number beside the bank's identifier: the
        // reports find the agent by either.
        history.run({bankAgentId, agentNumber.isNull() ? QStringLiteral("") : agentNumber,
                     collectionDay(e.dateTime, receivedOn), e.accountNo, paise(e.balance), paise(e.amount), e.dateTime,
                     e.transactionNumber, receivedAt});
    }
}

void StoreRestoreData(AppContext& ctx, const QString& bankAgentId, const QString& agentNumber,
                      const QList<Entry>& entries)
{
    SharedDatabase& db = ctx.db();
    SharedDatabase::Transaction transaction(db);
    storeRows(db, ctx.clock().now(), bankAgentId, agentNumber, entries);
    transaction.commit();
}

namespace {

SessionMessage critical(const QString& text)
{
    return SessionMessage{text, SessionMessage::Icon::Critical};
}

// One file of the receive, written to its temporary copy and renamed into
// place only when everything else has succeeded.
struct StagedFile
{
    QString path;
    std::unique_ptr<QSaveFile> file;
    QByteArray bytes;
};

bool stage(StagedFile& staged, const QStringList& lines, QString* error)
{
    staged.file = UploadFiles::makeSaveFile(staged.path);
    return UploadFiles::stageLines(*staged.file, lines, &staged.bytes, error);
}

// The steps of one receive, with what the outcome collects on the way.
class Receive
{
public:
    Receive(AppContext& ctx, UploadSummary& summary, bool acceptMismatch)
        : m_ctx(ctx), m_summary(summary), m_accept(acceptMismatch), m_receivedAt(ctx.clock().now())
    {
    }

    ReceiveOutcome run()
    {
        // The backup comes first so that the replies survive whatever
        // follows, and a failure here is said as it is.
        QString why;
        m_out.backupFile = UploadFiles::writeBackup(m_ctx, m_summary, &why);
        if (m_out.backupFile.isEmpty())
            m_out.messages << critical(why);
        m_facts.backupFile = m_out.backupFile;
        m_facts.agent = m_summary.UploadBaseName.left(3);
        m_facts.date = m_summary.UploadBaseName.mid(3, 4);
        m_facts.bankAgentId = m_summary.BankAgentId;
        m_facts.receivedAt = m_receivedAt;
        m_facts.records = qMax(0, m_summary.TotalRecords);

        const QStringList summaryProblems = CollectionCheck::summaryProblems(m_summary);
        if (!summaryProblems.isEmpty())
            return refuse(summaryProblems, false);
        if (!KeyCheck::acceptable(QStringLiteral("agent id"), m_summary.BankAgentId, &why))
            return fail(why);
        // The upload file's name is the summary's seven characters; anything
        // after them was added by an earlier run over the same summary.
        m_summary.UploadBaseName = m_summary.UploadBaseName.left(7);

        QList<Entry> entries;
        if (!decodeRecords(m_ctx.link.Records, m_summary, &entries, &why))
            return fail(why);
        yieldAtTransaction394(entries);

        try {
            completeFromBankData(m_ctx.db(), m_summary.BankAgentId, entries);
            m_facts.downloadedAccounts = downloadedAccounts(m_ctx.db(), m_summary.BankAgentId);
        } catch (const StoreError& e) {
            return fail(e.message());
        }
        m_facts.check = CollectionCheck::check(m_summary, entries);
        if (!m_facts.check.agrees() && !m_accept)
            return refuse(m_facts.check.problems, true);
        return store(entries);
    }

private:
    // Version 2.1 let the message loop run once while decoding when a
    // transaction number read 394; kept, after the decoding (which works on
    // its own copy of the replies) and before any row changes.
    static void yieldAtTransaction394(const QList<Entry>& entries)
    {
        for (const Entry& e : entries) {
            if (e.transactionNumber.toInt() == YieldTransactionNumber && !e.transactionNumber.isEmpty()) {
                QCoreApplication::processEvents();
                return;
            }
        }
    }

    QString backupNote() const
    {
        return m_out.backupFile.isEmpty()
                   ? QString()
                   : QStringLiteral(" The received records are kept in the backup file %1.").arg(m_out.backupFile);
    }

    ReceiveOutcome refuse(const QStringList& problems, bool mayAccept)
    {
        m_out.result = ReceiveOutcome::Result::Refused;
        m_out.problems = problems;
        m_out.mayAccept = mayAccept;
        // Version 2.1's text on its own line, then what was wrong.
        QString text = UploadFiles::uploadProblemText() + QLatin1Char('\n') + problems.join(QLatin1Char(' ')) +
                       QStringLiteral(" Nothing was replaced and no upload file was written.") + backupNote();
        if (mayAccept)
            text += QStringLiteral(" Download the agent's accounts again and receive again, or accept this receive "
                                   "as it is.");
        m_out.messages << critical(text);
        finish(mayAccept ? QStringLiteral("refused: nothing replaced; the clerk may accept it")
                         : QStringLiteral("refused: nothing replaced"));
        return m_out;
    }

    ReceiveOutcome fail(const QString& why)
    {
        m_out.result = ReceiveOutcome::Result::Failed;
        m_out.problems = {why};
        const QString sentence = why.endsWith(QLatin1Char('.')) ? why : why + QLatin1Char('.');
        m_out.messages << critical(sentence + QStringLiteral(" Nothing was replaced.") + backupNote());
        finish(QStringLiteral("failed: nothing replaced (%1)").arg(why));
        return m_out;
    }

    ReceiveOutcome store(const QList<Entry>& entries)
    {
        SharedDatabase& db = m_ctx.db();
        // Files an earlier receive of this agent still owes are made from
        // the rows this one is about to replace: they are written first, or
        // nothing is replaced.
        try {
            const PendingOutputs::Completion earlier = PendingOutputs::complete(m_ctx, m_summary.BankAgentId);
            if (!earlier.complete())
                return fail(earlier.problems.join(QLatin1Char(' ')));
        } catch (const StoreError& e) {
            return fail(e.message());
        }

        const QString folder = m_ctx.settings.BankInfoPath;
        const bool bankFolder = !folder.isEmpty() && QFileInfo(folder).isDir();
        const bool accepted = m_accept && !m_facts.check.agrees();
        // What the reconciliation says once every file is in place.
        const QString doneOutcome =
            !bankFolder ? QStringLiteral("stored; no upload file: the bank folder does not exist")
            : accepted  ? QStringLiteral("accepted by the clerk although it disagrees; stored and written as received")
                        : QStringLiteral("stored and written; the upload file agrees with the terminal's summary");
        StagedFile upload;
        StagedFile check;
        UploadFiles::UploadLines uploadLines;
        // Rows, files and audit event in one step; on failure the reason.
        auto attempt = [&]() -> QString {
            QString why;
            SharedDatabase::Transaction transaction(db);
            storeRows(db, m_receivedAt, m_summary.BankAgentId, m_facts.agent, entries);

            // The files are made from the rows just stored, before they are
            // committed: a file that cannot be written leaves the rows as
            // they were.
            QString base = m_summary.UploadBaseName;
            if (bankFolder) {
                // Suffixed, as version 2.1 did: the check listing is named
                // from it too.
                base += QLatin1Char('u');
                upload.path = UploadFiles::uploadFilePath(folder, base);
                uploadLines = UploadFiles::uploadLines(db, m_summary.BankAgentId);
                if (!stage(upload, uploadLines.lines, &why))
                    return QStringLiteral("Cannot write the upload file %1: %2.").arg(upload.path, why);
            }
            const QString backupFolder = UploadFiles::backupFolder(m_ctx);
            check.path = PathUtil::join(backupFolder, base + QStringLiteral("Check.txt"));
            if (!UploadFiles::ensureFolder(backupFolder, &why) ||
                !stage(check, UploadFiles::checkLines(db, m_summary.BankAgentId), &why))
                return QStringLiteral("Cannot write the check listing %1: %2.").arg(check.path, why);

            // The files are owed from the moment the rows are in: should
            // the program stop before they are renamed into place, the next
            // start writes them from these rows.
            m_facts.outcome = doneOutcome;
            m_facts.uploadFile = bankFolder ? upload.path : QString();
            PendingOutputs::Receive owed{m_summary.BankAgentId, m_facts.agent, m_facts.date, {}};
            auto owe = [&](PendingOutputs::Kind kind, const QString& path, const QByteArray& content) {
                owed.outputs << PendingOutputs::Output{kind, QFileInfo(path).fileName(), content, 0};
            };
            if (bankFolder)
                owe(PendingOutputs::Kind::UploadFile, upload.path, {});
            owe(PendingOutputs::Kind::CheckListing, check.path, {});
            owe(PendingOutputs::Kind::Reconciliation, reconciliationPath(),
                UploadFiles::fileBytes(Reconciliation::lines(m_facts)));
            PendingOutputs::mark(db, m_receivedAt, owed);

            AuditTrail::record(db, m_receivedAt, AuditTrail::Action::Receive, auditDetails(upload, check));
            transaction.commit();
            m_summary.UploadBaseName = base;
            return QString();
        };
        QString failure;
        try {
            failure = attempt();
        } catch (const StoreError& e) {
            failure = e.message();
        }
        if (!failure.isEmpty()) {
            upload.file.reset();
            check.file.reset();
            return fail(failure);
        }
        m_out.result =
            accepted ? ReceiveOutcome::Result::Accepted
                     : (bankFolder ? ReceiveOutcome::Result::Stored : ReceiveOutcome::Result::StoredWithoutBankFolder);
        if (afterCommitHook && !afterCommitHook()) {
            // Stopped as by a power cut: the rows are in, the files owed.
            upload.file.reset();
            check.file.reset();
            m_out.result = ReceiveOutcome::Result::Failed;
            m_out.problems = {QStringLiteral("stopped after the rows were stored")};
            return m_out;
        }

        // The rows are in: rename the files into place, each synced to the
        // disk with its folder. A file that is not there for good stays owed.
        if (bankFolder) {
            QString why;
            if (!DurableFile::commit(*upload.file, &why)) {
                m_out.result = ReceiveOutcome::Result::Failed;
                m_out.messages << critical(
                    QStringLiteral("The collections were stored, but the upload file %1 could not be written: %2. "
                                   "Once the bank folder can be written to, start the program again or run any "
                                   "tonvy-cli command: the file is written then from the stored collections.")
                        .arg(upload.path, why));
                finish(QStringLiteral("stored, but the upload file could not be written"));
                return m_out;
            }
            m_out.uploadFile = upload.path;
        }
        QString checkWhy;
        const bool checkWritten = DurableFile::commit(*check.file, &checkWhy);
        if (!checkWritten)
            m_out.messages << critical(
                QStringLiteral("Cannot write the check listing %1: %2").arg(check.path, checkWhy));

        if (!bankFolder) {
            m_out.messages << SessionMessage{UploadFiles::missingBankFolderText(), SessionMessage::Icon::None};
            finish(doneOutcome);
            settle(checkWritten);
            return m_out;
        }
        // Version 2.1's own check, on the file as written.
        if (UploadFiles::agreesWithSummary(m_summary, uploadLines.count, uploadLines.paise))
            m_out.messages << SessionMessage{UploadFiles::uploadCompletedText(), SessionMessage::Icon::Information};
        else
            m_out.messages << critical(UploadFiles::uploadProblemText());
        if (m_out.result == ReceiveOutcome::Result::Accepted)
            m_out.problems = m_facts.check.problems;
        finish(doneOutcome);
        settle(checkWritten);
        return m_out;
    }

    // Every file in place: the receive owes nothing more. A file that is
    // not keeps the marks, and the next start writes what is owed.
    void settle(bool checkWritten)
    {
        if (!checkWritten || m_out.reconciliationFile.isEmpty())
            return;
        try {
            PendingOutputs::clear(m_ctx.db(), m_summary.BankAgentId);
        } catch (const StoreError&) {
            // The files are in place; the next start writes them once more,
            // the same bytes, and clears the marks then.
        }
    }

    // The reconciliation is named after the backup dump, so each receive
    // keeps its own.
    QString reconciliationPath()
    {
        if (m_reconciliationPath.isEmpty()) {
            const QString dump =
                m_out.backupFile.isEmpty() ? UploadFiles::backupPath(m_ctx, m_summary) : m_out.backupFile;
            m_reconciliationPath = dump.left(dump.size() - 4) + QStringLiteral("Reconciliation.txt");
        }
        return m_reconciliationPath;
    }

    QString auditDetails(const StagedFile& upload, const StagedFile& check) const
    {
        const CollectionCheck::Result& c = m_facts.check;
        QString details = QStringLiteral("agent %1 (%2), date %3: %4 records received, %5 collections, total %6")
                              .arg(m_facts.agent, m_summary.BankAgentId.trimmed(), m_facts.date)
                              .arg(m_facts.records)
                              .arg(c.collections)
                              .arg(UploadFiles::rupees(c.collectedPaise));
        if (upload.file)
            details += QStringLiteral("; upload file %1 (%2 lines, SHA-256 %3)")
                           .arg(upload.path)
                           .arg(uploadLinesCount(upload))
                           .arg(AuditTrail::sha256(upload.bytes));
        else
            details += QStringLiteral("; no upload file (the bank folder does not exist)");
        if (check.file)
            details +=
                QStringLiteral("; check listing %1 (SHA-256 %2)").arg(check.path, AuditTrail::sha256(check.bytes));
        if (m_accept && !c.agrees())
            details += QStringLiteral("; ACCEPTED BY THE CLERK although: %1").arg(c.problems.join(QLatin1Char(' ')));
        return details;
    }

    static int uploadLinesCount(const StagedFile& f) { return static_cast<int>(f.bytes.count("\r\n")); }

    // Writes the reconciliation and, for a receive that stored nothing,
    // the audit event (a stored one wrote its own with the rows).
    void finish(const QString& outcome)
    {
        m_facts.outcome = outcome;
        m_facts.uploadFile = m_out.uploadFile;
        m_out.reconciliation = Reconciliation::lines(m_facts);

        const QString path = reconciliationPath();
        QString why;
        const std::unique_ptr<QSaveFile> file = UploadFiles::makeSaveFile(path);
        if (UploadFiles::ensureFolder(UploadFiles::backupFolder(m_ctx), &why) &&
            UploadFiles::saveLines(*file, m_out.reconciliation, &why))
            m_out.reconciliationFile = path;
        else
            m_out.messages.insert(qMax<qsizetype>(0, m_out.messages.size() - 1),
                                  critical(QStringLiteral("Cannot write the reconciliation %1: %2").arg(path, why)));

        const bool stored = m_out.result == ReceiveOutcome::Result::Stored ||
                            m_out.result == ReceiveOutcome::Result::Accepted ||
                            m_out.result == ReceiveOutcome::Result::StoredWithoutBankFolder;
        if (stored)
            return;
        try {
            AuditTrail::record(m_ctx.db(), m_receivedAt, AuditTrail::Action::Receive,
                               QStringLiteral("agent %1 (%2), date %3: %4 records received, %5 collections, total "
                                              "%6; %7: %8")
                                   .arg(m_facts.agent, m_summary.BankAgentId.trimmed(), m_facts.date)
                                   .arg(m_facts.records)
                                   .arg(m_facts.check.collections)
                                   .arg(UploadFiles::rupees(m_facts.check.collectedPaise))
                                   .arg(outcome, m_out.problems.join(QLatin1Char(' '))));
        } catch (const StoreError& e) {
            m_out.messages.insert(qMax<qsizetype>(0, m_out.messages.size() - 1), critical(e.message()));
        }
    }

    AppContext& m_ctx;
    UploadSummary& m_summary;
    const bool m_accept;
    const QDateTime m_receivedAt;
    ReceiveOutcome m_out;
    Reconciliation::Facts m_facts;
    QString m_reconciliationPath;
};

} // namespace

ReceiveOutcome processReceive(AppContext& ctx, UploadSummary& summary, bool acceptMismatch)
{
    if (receiveRunning) {
        ReceiveOutcome busy;
        busy.problems = {QStringLiteral("a receive is still being stored")};
        return busy;
    }
    receiveRunning = true;
    struct Reset
    {
        ~Reset() { receiveRunning = false; }
    } reset;
    return Receive(ctx, summary, acceptMismatch).run();
}

void report(Messenger& messenger, const ReceiveOutcome& outcome)
{
    for (const SessionMessage& m : outcome.messages)
        messenger.show(m.text, messengerIcon(m.icon), {}, m.detail);
}

bool RestoreData(AppContext& ctx, UploadSummary& summary)
{
    const ReceiveOutcome outcome = processReceive(ctx, summary, false);
    report(ctx.messenger(), outcome);
    return outcome.succeeded();
}

} // namespace RestoreStore
