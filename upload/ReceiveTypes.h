#pragma once

#include "link/SessionMessage.h"

#include <QList>
#include <QString>
#include <QStringList>

// The data a receive passes between its steps: the decoded entries, what the
// collection check found and what became of the receive. Plain values, no
// behaviour: the decoder, the check, the reconciliation and the store all
// include this header and none of them includes another for its types.

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

// The per-transaction lists hold 10,000 entries (index 0 to 9999).
constexpr int MaxEntries = 10000;

// Byte 133 of a transaction record: this count means "no entries here; the
// next record's account is listed without an amount".
constexpr int AccountOnlyCount = 20;

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

} // namespace RestoreStore

namespace CollectionCheck {

enum class LeftOutReason { UnknownAccount, EmptyAmount };

// A decoded entry that the upload file would not hold.
struct LeftOut
{
    QString accountNo;
    QString amount; // as decoded; "" for an entry without an amount
    LeftOutReason reason = LeftOutReason::EmptyAmount;
};

// What the collection check found.
struct Result
{
    int entries = 0;           // every entry decoded, with or without an amount
    int collections = 0;       // entries with an amount
    qint64 collectedPaise = 0; // their total
    int fileCount = 0;         // what the upload file would hold
    qint64 filePaise = 0;
    int summaryCount = 0; // the terminal's summary
    qint64 summaryPaise = 0;
    QList<LeftOut> leftOut;
    QStringList problems; // plain words; empty when the receive agrees

    bool agrees() const { return problems.isEmpty(); }
};

} // namespace CollectionCheck
