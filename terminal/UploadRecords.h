#pragma once

#include "terminal/TerminalAccounts.h"

#include <QByteArray>
#include <QDate>
#include <QDateTime>
#include <QList>
#include <QString>

// One collection as the terminal recorded it at a door.
struct Collection
{
    QString accountNumber;     // matched against the downloaded accounts, trimmed
    int amount = 0;            // whole rupees, 0 to 999999 (three packed bytes)
    QDateTime when;            // day, month, last digit of the year, hour, minute
    int transactionNumber = 0; // 0 to 32767 (two bytes, high first)
};

// The replies the terminal gives in upload mode, built from the accounts it
// received in download mode and the day's collections.
//
// Reply layout (137 bytes, positions from 1): bytes 1-9 the frame head
// 01 FF 10 F0 'U' 00 82 HI LO (0x82 = 130 bytes follow, then the record
// number), bytes 10-136 the record, byte 137 the check byte over 10-136.
//
//   header (record 0):   10-11 records to follow (high, low), 12-26 branch
//                        identifier, 27-41 agent identifier
//   summary (record 1):  10-12 agent, 13-16 ddmm, 17-18 transaction count
//                        (high, low), 19-22 total amount, 8 packed digits
//   transactions (2..):  10 category, 11-15 scheme, 16-30 account number,
//                        31-58 account name, 70.. up to seven entries of
//                        9 bytes, 133 entry count (packed)
//   entry:               amount (3 packed bytes, whole rupees), day (packed),
//                        month in the high nibble and the last digit of the
//                        year in the low nibble, hour (packed), minute
//                        (packed), transaction number (high, low)
struct UploadRecords
{
    static constexpr int EntriesPerRecord = 7;

    QByteArray header;
    QByteArray summary;
    QList<QByteArray> transactions; // record 2 is transactions[0]
    int transactionCount = 0;       // as the summary carries it
    qint64 totalAmount = 0;         // as the summary carries it

    struct Options
    {
        int announce = -1;            // records announced by the header; -1: as many as there are
        bool summaryMismatch = false; // summary total one rupee more than the collections
        QString agent;                // 3 characters; empty: from the download key
        QString ddmm;                 // empty: from the download key
    };

    // The reply to a request for record n (0 header, 1 summary, 2.. the
    // transaction records; beyond them an empty transaction record).
    QByteArray reply(int n) const;
    int recordCount() const { return static_cast<int>(transactions.size()); }

    // Groups the collections by account (in download order, up to seven to
    // a record) and makes the three kinds of record. False with a reason when
    // a collection names an account the terminal does not hold or a value
    // does not fit its field.
    static bool build(const TerminalAccounts& accounts, const QList<Collection>& collections, const Options& options,
                      UploadRecords* out, QString* error);

    // The collection script: one collection a line,
    //   <account number> <amount> <dd/mm/yyyy> <hh:mm> [<transaction number>]
    // separated by blanks; "#" starts a comment line. A missing transaction
    // number is one more than the line before (1 for the first).
    static bool parseScript(const QByteArray& text, QList<Collection>* out, QString* error);

    // A day of collections: count collections spread over the accounts, at
    // the agreed amount where there is one (a round sum otherwise), from
    // 09:00 on the given date, numbered from 1. Same seed, same day.
    static QList<Collection> generate(const TerminalAccounts& accounts, int count, const QDate& date, quint32 seed = 1);

    // A terminal state with count made-up accounts of agent 001, for runs
    // without a download first.
    static TerminalAccounts sampleAccounts(int count, const QDate& date);

    // Frame head, the 127 record bytes (padded with zeros or cut), check byte.
    static QByteArray frame(int recordNumber, const QByteArray& record);
    static QByteArray packed(qint64 value, int bytes);
};
