#pragma once

#include "upload/ReceiveTypes.h"

#include <QByteArray>
#include <QDate>
#include <QList>
#include <QString>

struct UploadSummary;

// Takes the terminal's transaction records apart into one entry per
// collection: keys, amount, date and time, transaction number. Pure
// functions over bytes: no database, no files, no port.
namespace EntryDecoder {

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
// The history's day (YYYY-MM-DD) of a collection's "dd/mm/20y hh:mm". The
// terminal sends only the last digit of the year, so the year is the latest
// one ending in that digit that is not after the day of the receive.
QString collectionDay(const QString& dateTime, const QDate& receivedOn);

// Decodes the replies 2 to TotalRecords + 1 into entries: keys, amount,
// date and time, transaction number. The account details are left empty
// (the first entry's agent holds the header's, as version 2.1's lists did).
// False with *error when a record index runs beyond the replies, a record
// is too short for what it is read for, its number of entries or an entry
// is not packed decimal (entryProblem), a key holds an apostrophe, or the
// entries exceed MaxEntries.
bool decodeRecords(const QList<QByteArray>& records, const UploadSummary& summary, QList<RestoreStore::Entry>* entries,
                   QString* error);

} // namespace EntryDecoder
