#pragma once

#include "upload/EntryDecoder.h"
#include "upload/ReceiveTypes.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <functional>

class AppContext;
class Messenger;
class SharedDatabase;
struct UploadSummary;

// One receive from the replies to the files: the replies are decoded
// (EntryDecoder), completed from the downloaded accounts (AgentAccounts),
// checked (ReceiveValidator, CollectionCheck), stored in one transaction
// (ReceiveStorage) with the files staged beside them (StagedFiles) and the
// audit event (ReceiveAudit), then the files renamed into place and the
// reconciliation written. RestoreStore.cpp holds the order of those steps;
// each step is a type of its own.
namespace RestoreStore {

// Entry, ReceiveOutcome, MaxEntries and AccountOnlyCount are in
// upload/ReceiveTypes.h; the decoding in upload/EntryDecoder.h, named here
// too for the callers that know it by these names.
using EntryDecoder::collectionDay;
using EntryDecoder::decodeAmount;
using EntryDecoder::decodeDateTime;
using EntryDecoder::decodeRecords;
using EntryDecoder::decodeTransactionNumber;
using EntryDecoder::entryProblem;
using EntryDecoder::expandMyDate;
using EntryDecoder::formatFixed;

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

// The same rows, inside a transaction the caller holds
// (ReceiveStorage::storeRows). Throws StoreError.
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
