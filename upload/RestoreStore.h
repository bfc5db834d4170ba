#pragma once

#include "link/SessionMessage.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <functional>

class AppContext;
class Messenger;
class SharedDatabase;
struct UploadSummary;

// Takes the received replies apart into one row per collected transaction,
// completes each from the downloaded accounts, replaces the agent's
// RestoreData rows (and the same days of the collection history) in one
// transaction, and has the bank files written.
namespace RestoreStore {

// One decoded collection, before it is stored.
struct Entry
{
    QString accountNo, schemeCode, categoryCode;
    QString amount;            // "0000000.00", or "" when nothing was collected
    QString dateTime;          // "dd/mm/20y hh:mm" as decoded
    QString transactionNumber; // "0000"
    QString branchId, customerCode, accountName, balance, agreedAmount, lastTxnDate, agentId, bankSoftAcNumber;
    bool inBankData = false; // the account was found among the agent's downloaded accounts
};

// What became of one receive, for the screen and the command line.
struct ReceiveOutcome
{
    enum class Result {
        Stored,                  // rows replaced, files written, totals agree
        Refused,                 // a check failed: nothing replaced, no upload file
        StoredWithoutBankFolder, // rows stored and check listing written; no bank folder, no upload file
        Accepted,                // refused, then accepted by the clerk: stored as received
        Failed,                  // nothing could be stored (decoding, database or disk)
    };

    Result result = Result::Failed;
    // What to tell the clerk, in order (the last is the main one).
    QList<SessionMessage> messages;
    // The reconciliation, one line an element.
    QStringList reconciliation;
    QString reconciliationFile; // where it was written, or empty
    QString backupFile;         // the dump of the replies, or empty when it could not be written
    QString uploadFile;         // the upload file written, or empty
    QStringList problems;       // what disagreed, in plain words
    // A refused receive the clerk may still accept (processReceive with
    // acceptMismatch); false when it cannot be stored at all (a summary
    // that makes no file name, an unreadable record).
    bool mayAccept = false;

    bool succeeded() const { return result == Result::Stored; }
};

// The per-transaction lists hold 10,000 entries (index 0 to 9999).
constexpr int MaxEntries = 10000;

// Byte 133 of a transaction record: this count means "no entries here; the
// next record's account is listed without an amount".
constexpr int AccountOnlyCount = 20;

// Why a collection entry's nine bytes cannot be decoded, or "" when they
// can: the amount, day, hour, minute and year digit must be packed decimal
// digits, the month nibble 1 to 12 and the transaction number below 32768.
// The terminal sends nothing else; any other entry is a damaged record, and
// its fields would not fit the rows' and the upload file's patterns.
QString entryProblem(const QByteArray& nineBytes);

// A collection entry's three packed-BCD amount bytes as "0000000.00".
QString decodeAmount(const QByteArray& threeBytes);
// Day, month/year-digit, hour and minute bytes as "dd/mm/20y hh:mm". The
// month is the HIGH nibble of the second byte, the year digit the LOW one.
QString decodeDateTime(const QByteArray& fourBytes);
// Two bytes, high first, as "0000".
QString decodeTransactionNumber(const QByteArray& twoBytes);

// Number text in a fixed pattern of intDigits integer digits and two
// decimals ("0000000000.00" is 10); text that is not a number, "inf" and
// "nan" included, is kept as it is, and "" stays "".
QString formatFixed(const QString& value, int intDigits);
// MyDate ddmmyy as dd/mm/20yy (an empty date gives "//20").
QString expandMyDate(const QString& ddmmyy);
// "dd/mm/yyyy hh:mm" as the history's YYYY-MM-DD day.
QString collectionDay(const QString& dateTime);

// Decodes the replies 2 to TotalRecords + 1 into entries: keys, amount,
// date and time, transaction number. No database: the account details are
// left empty (the first entry's agent holds the header's, as version 2.1's
// lists did). False with *error when a record index runs beyond the replies,
// a record is too short for what it is read for, its number of entries or
// an entry is not packed decimal (entryProblem), a key holds an apostrophe,
// or the entries exceed MaxEntries.
bool decodeRecords(const QList<QByteArray>& records, const UploadSummary& summary, QList<Entry>* entries,
                   QString* error);

// Completes each entry from the agent's BankData row of its account, where
// there is one (inBankData); an entry without one keeps what it holds.
// Throws StoreError.
void completeFromBankData(SharedDatabase& db, const QString& bankAgentId, QList<Entry>& entries);

// The number of accounts downloaded for the agent (BankData rows). Throws
// StoreError.
int downloadedAccounts(SharedDatabase& db, const QString& bankAgentId);

// decodeRecords on ctx.link.Records, then completeFromBankData. Throws
// StoreError when the look-up fails.
bool decodeTransactions(AppContext& ctx, const UploadSummary& summary, QList<Entry>* entries, QString* error);

// StoreRestoreData: replaces every RestoreData row of the agent with the
// entries and, for the days present, the agent's collection history, all in
// one transaction. The history rows carry agentNumber, the terminal's
// three-digit agent number from the summary record, beside bankAgentId.
// Throws StoreError; nothing is changed then.
void StoreRestoreData(AppContext& ctx, const QString& bankAgentId, const QString& agentNumber,
                      const QList<Entry>& entries);

// The same rows, inside a transaction the caller holds. Throws StoreError.
void storeRows(SharedDatabase& db, const QDateTime& receivedAt, const QString& bankAgentId, const QString& agentNumber,
               const QList<Entry>& entries);

// One receive, from the replies in ctx.link.Records to the files:
//  1. the backup dump of the replies is written (never over an earlier one);
//  2. the summary's agent and date are checked, the replies decoded and
//     completed from BankData, and the collections checked against the
//     summary (CollectionCheck);
//  3. when a check fails and acceptMismatch is false, nothing is replaced:
//     RestoreData, the history and the bank folder stay as they were
//     (Refused, or Failed when the receive cannot be stored at all); the
//     message is "Serious Problem While Uploading ", a line break and what
//     was wrong in plain words;
//  4. otherwise the rows are replaced and the upload file and check listing
//     written in one step: the files are written to temporary copies before
//     the rows are committed, and renamed into place after, so a full disk
//     or a failed commit leaves rows and files as they were; the same
//     transaction records the files as owed (PendingOutputs), and the marks
//     go once the last file is in place. Files an earlier receive of the
//     agent still owes are written first (Failed, nothing replaced, when
//     they cannot be);
//  5. the reconciliation is written beside the check listing and the
//     outcome appended to the audit trail.
// Shows nothing itself: the messages are in the outcome.
ReceiveOutcome processReceive(AppContext& ctx, UploadSummary& summary, bool acceptMismatch = false);

// Test seam: called once the rows of a receive are committed, before its
// first file is renamed into place. Returning false stops the receive right
// there, as a power cut would: the staged copies are dropped, nothing else
// is written and the files stay owed (PendingOutputs). An empty function
// (the default) removes the hook.
using AfterCommitHook = std::function<bool()>;
void setAfterCommitHook(AfterCommitHook hook);

// Shows the outcome's messages in order (the bank-folder message as a plain
// box, as version 2.1 showed it).
void report(Messenger& messenger, const ReceiveOutcome& outcome);

// RestoreData: processReceive without acceptance, its messages shown
// through ctx.messenger(). True only for a receive stored and written with
// its totals in agreement.
bool RestoreData(AppContext& ctx, UploadSummary& summary);

} // namespace RestoreStore
