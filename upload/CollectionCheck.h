#pragma once

#include "upload/ReceiveTypes.h"

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

// LeftOutReason, LeftOut and Result are in upload/ReceiveTypes.h.

// Compares the entries (completed from BankData for the header's agent)
// with the summary. An entry goes into the upload file when it has an
// amount and is stored under the header's agent, which is what the upload
// file's query selects.
Result check(const UploadSummary& summary, const QList<RestoreStore::Entry>& entries);

// The reason in plain words ("the account is not among the agent's
// downloaded accounts").
QString reasonText(LeftOutReason reason);

} // namespace CollectionCheck
