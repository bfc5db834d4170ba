#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// One account as the terminal keeps it after a download: the fields of a
// record frame, with the packed amounts and dates turned back into digits.
struct TerminalAccount
{
    int frameNumber = 0;   // record number it travelled under (2 for the first account)
    QString categoryCode;  // 1 character
    QString schemeCode;    // 5 characters
    QString accountNumber; // 15 characters
    QString name;          // 28 characters, space padded
    QString balance;       // 10 digits (whole rupees), from the five packed bytes
    QString agreedAmount;  // 6 digits, from the three packed bytes
    QString openingDate;   // ddmmyy; "000000" when the frame carried no date
    QString lastTxnDate;   // ddmmyy; "000000" when the frame carried no date

    bool operator==(const TerminalAccount&) const = default;
};

// What the terminal remembers between the download and the upload: the
// header's identity and settings and the accounts received, kept in a state
// file that both sides of the simulator read and write.
//
// File format (text, Latin-1, one item a line, lines end in LF):
//
//   TONVY-TERMINAL-STATE 1
//   BRANCHID=<text>          header bytes 12-26
//   AGENTID=<text>           header bytes 27-41
//   KEY=<agent+ddmm>         e.g. 0051611
//   DOWNLOADPW=<4 digits>    the terminal's main-screen password
//   SETUPPW=<4 digits>       the terminal's set-up password
//   FONTSIZE=<text>          "0" small, "1" big
//   BANKNAME=<text>          48 characters, space padded
//   BRANCHNAME=<text>        22 characters, space padded
//   TRANSACTIONS=<text>      number of transactions a collection may hold
//   CLOCK=dd/MM/yy hh:mm:ss  the PC's clock sent in the header
//   RECORDS=<n>              account count announced by the header
//   ACCOUNT=<frame>|<cat>|<scheme>|<account no>|<name>|<balance>|<agreed>|<opening>|<last txn>
//   ...                      one ACCOUNT line per account, in the order received
//
// Values run to the end of the line, trailing blanks included. A backslash,
// CR and LF inside a value are written as \\, \r and \n. In an ACCOUNT line
// the name is whatever lies between the fourth and the fifth-last "|", so a
// name may itself contain "|". Lines starting with "#" and blank lines are
// ignored; lines with any other key are kept unchanged in otherLines and
// written back, so the upload side can add its own lines (collections).
class TerminalAccounts
{
public:
    static QString fileName() { return QStringLiteral("terminal-state.txt"); }
    static QByteArray magic() { return QByteArrayLiteral("TONVY-TERMINAL-STATE 1"); }

    QString branchId;
    QString agentId;
    QString agentDateKey;
    QString downloadPassword;
    QString setupPassword;
    QString fontSize;
    QString bankName;
    QString branchName;
    QString transactions;
    QString clock; // dd/MM/yy hh:mm:ss
    int recordCount = 0;
    QList<TerminalAccount> accounts;
    QStringList otherLines;

    void clear() { *this = TerminalAccounts(); }

    // Reads the file; false with a reason (file, line) on failure, leaving
    // this object unchanged.
    bool load(const QString& path, QString* error);
    // Writes the file atomically; false with a reason on failure.
    bool save(const QString& path, QString* error) const;

    QByteArray toBytes() const;
    bool fromBytes(const QByteArray& bytes, QString* error);

    // The account carried by a 137-byte download record frame.
    static TerminalAccount accountFromFrame(const QByteArray& frame);
    // Fills the header values from a download header frame; false (and
    // nothing changed) when the frame is too short to be one.
    bool takeHeaderFrame(const QByteArray& frame);

    static QString escape(const QString& value);
    static QString unescape(const QString& value);
};
