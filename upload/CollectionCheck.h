#pragma once

#include "upload/RestoreStore.h"

#include <QList>
#include <QString>
#include <QStringList>

struct UploadSummary;

// The checks a receive must pass before anything is replaced: the summary's
// agent and date must be usable in a file name, and the collections that the
// upload file would hold must agree with the terminal's summary (count and
// total, in whole paise), with no transaction number twice and no collection
// for an account that was not downloaded to the terminal. No database, no
// files: everything comes from the decoded entries.
namespace CollectionCheck {

// Problems with the summary's agent (three digits) and date (ddmm, a real
// day and month), in plain words; empty when both are sound. They stop a
// receive for good: the upload file's name is made from them.
QStringList summaryProblems(const UploadSummary& summary);

enum class LeftOutReason { UnknownAccount, EmptyAmount };

// A decoded entry that the upload file would not hold.
struct LeftOut
{
    QString accountNo;
    QString amount; // as decoded; "" for an entry without an amount
    LeftOutReason reason = LeftOutReason::EmptyAmount;
};

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

// Compares the entries (completed from BankData for the header's agent)
// with the summary. An entry goes into the upload file when it has an
// amount and is stored under the header's agent, which is what the upload
// file's query selects.
Result check(const UploadSummary& summary, const QList<RestoreStore::Entry>& entries);

// The reason in plain words ("the account is not among the agent's
// downloaded accounts").
QString reasonText(LeftOutReason reason);

} // namespace CollectionCheck
