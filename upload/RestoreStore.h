#pragma once

#include <QByteArray>
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
    QString branchId, customerCode, accountName, balance, agreedAmount, lastTxnDate, agentId, bankSoftAcNumber;
};

// The per-transaction lists hold 10,000 entries (index 0 to 9999).
constexpr int MaxEntries = 10000;

// Byte 133 of a transaction record: this count means "no entries here; the
// next record's account is listed without an amount".
constexpr int AccountOnlyCount = 20;

// A collection entry's three packed-BCD amount bytes as "0000000.00".
QString decodeAmount(const QByteArray& threeBytes);
// Day, month/year-digit, hour and minute bytes as "dd/mm/20y hh:mm". The
// month is the HIGH nibble of the second byte, the year digit the LOW one.
QString decodeDateTime(const QByteArray& fourBytes);
// Two bytes, high first, as "0000".
QString decodeTransactionNumber(const QByteArray& twoBytes);

// Number text in a fixed pattern of intDigits integer digits and two
// decimals ("0000000000.00" is 10); text that is not a number is kept as it
// is, and "" stays "".
QString formatFixed(const QString& value, int intDigits);
// MyDate ddmmyy as dd/mm/20yy (an empty date gives "//20").
QString expandMyDate(const QString& ddmmyy);
// "dd/mm/yyyy hh:mm" as the history's YYYY-MM-DD day.
QString collectionDay(const QString& dateTime);

// Decodes ctx.link.Records 2 to TotalRecords + 1 into entries, each completed
// from BankData (keyed by the header's BankAgentId). False with *error when a
// record index runs beyond Records, a record is too short for what it is
// read for, a key holds an apostrophe, or the entries exceed MaxEntries.
// Throws StoreError when the look-up fails.
bool decodeTransactions(AppContext& ctx, const UploadSummary& summary, QList<Entry>* entries, QString* error);

// StoreRestoreData: replaces every RestoreData row of the agent with the
// entries and, for the days present, the agent's collection history, all in
// one transaction. Throws StoreError; nothing is changed then.
void StoreRestoreData(AppContext& ctx, const QString& bankAgentId, const QList<Entry>& entries);

// RestoreData: runs CreateFlatFile1, decodes ctx.link.Records 2 to
// TotalRecords + 1, runs StoreRestoreData, CreateFlatFile and
// CreateFlatFile2. Failures are reported through ctx.messenger(); returns
// false when the receive must be treated as failed.
bool RestoreData(AppContext& ctx, UploadSummary& summary);

} // namespace RestoreStore
