#pragma once

#include "upload/ReceiveTypes.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

// The reconciliation of one receive, as plain text lines: how many accounts
// were downloaded to the terminal, how many collections came back, how many
// went into the upload file and their total against the terminal's summary,
// and every collection left out of the upload file with its reason. The
// receive screen shows it, the command line prints it, and it is written
// beside the check listing.
namespace Reconciliation {

struct Facts
{
    QString agent;       // the summary's three characters
    QString date;        // the summary's ddmm
    QString bankAgentId; // the header's agent identifier
    QDateTime receivedAt;
    int downloadedAccounts = -1; // -1: not known (the look-up was not made)
    int records = 0;             // transaction records received
    CollectionCheck::Result check;
    QString outcome;    // one sentence: stored, refused, accepted, failed
    QString uploadFile; // path written, or empty
    QString backupFile; // path written, or empty
};

// Every line of a left-out collection starts with this.
QString leftOutPrefix(); // "Left out of the upload file:"

QStringList lines(const Facts& facts);

} // namespace Reconciliation
