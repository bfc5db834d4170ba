#pragma once

#include "link/LinkCodec.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

// One stored account as the download sends it: the text of its fields, as
// the accounts table holds them.
struct DownloadAccount
{
    QString categoryCode;
    QString schemeCode;
    QString acNumber;
    QString acName;
    QString balAmount;
    QString agreedAmount;
    QString openingDate; // ddmmyy
    QString txnDate;     // ddmmyy
};

// Everything one download sends, made ready by the download side: the
// values the header carries and the accounts in the order they go out.
struct DownloadJob
{
    QString agentDateKey; // agent (3 digits) and date (ddmm), e.g. "0051611"
    QString fileName;     // FileName value stored with the accounts
    QString branchId;     // BranchID of the last record, 15 characters
    QString agentId;      // AgentID of the last record, 15 characters
    int recordCount = 0;
    QString transactions;     // trimmed text of txtTransact
    QString downloadPassword; // terminal "Download" password, formatted "0000"
    QString setupPassword;    // terminal "Setup" password, formatted "0000"
    QString bankName;         // settings, as they stand
    QString branchName;
    QString fontSize;
    QList<DownloadAccount> accounts; // in name order
};

// The frames of the download exchange, built byte for byte. Conversion
// failures throw LinkError; the codec's RecHi, RecLo and CRCSum are left as
// the building left them, as the shared link state expects.
namespace DownloadFrames {

constexpr int AnswerSize = 14; // every answer of the terminal

// Format(value, "000...") of version 2.1: a number text rounded and padded
// to the width; a text that is not a number comes back unchanged.
QString formatDigits(const QString& text, int width);

// Bank name padded to 48, branch name to 22, a negative font size made 0:
// what the header takes from the settings (version 2.1 wrote these back).
QString paddedBankName(const QString& name);
QString paddedBranchName(const QString& name);
QString headerFontSize(const QString& fontSize);

QByteArray header(const DownloadJob& job, const QDateTime& now, LinkCodec& codec);
QByteArray record(const DownloadAccount& account, int frameNumber, LinkCodec& codec);
QByteArray end();

} // namespace DownloadFrames
