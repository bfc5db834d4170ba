#pragma once

#include <QList>
#include <QString>

class AppContext;
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
    QString branchId, customerCode, accountName, balance, agreedAmount, lastTxnDate, agentId,
        bankSoftAcNumber;
};

// RestoreData: runs CreateFlatFile1, decodes ctx.link.Records 2 to
// TotalRecords + 1, runs StoreRestoreData, CreateFlatFile and
// CreateFlatFile2. Failures are reported through ctx.messenger(); returns
// false when the receive must be treated as failed.
bool RestoreData(AppContext& ctx, UploadSummary& summary);

} // namespace RestoreStore
