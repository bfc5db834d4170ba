#pragma once

#include "link/DownloadFrames.h"

// The head of the download the send benchmarks send: agent 5's file for
// 16 November, with its branch, passwords and names; no accounts yet.
inline DownloadJob sampleDownloadHead()
{
    DownloadJob job;
    job.agentDateKey = QStringLiteral("0051611");
    job.fileName = QStringLiteral("Bank/0051611d.txt");
    job.branchId = QStringLiteral("BR0001         ");
    job.agentId = QStringLiteral("AG0005         ");
    job.transactions = QStringLiteral("5");
    job.downloadPassword = QStringLiteral("1111");
    job.setupPassword = QStringLiteral("2222");
    job.bankName = QStringLiteral("TONVY BANK");
    job.branchName = QStringLiteral("MAIN ROAD");
    job.fontSize = QStringLiteral("0");
    return job;
}

// The download the send benchmarks send: one agent's accounts, numbered
// from 1, with balances and names that differ from one account to the next.
inline DownloadJob sampleDownloadJob(int accounts)
{
    DownloadJob job = sampleDownloadHead();
    job.recordCount = accounts;
    for (int i = 1; i <= accounts; ++i)
        job.accounts.append({QStringLiteral("1"), QStringLiteral("SB001"),
                             QStringLiteral("%1").arg(i, 15, 10, QLatin1Char('0')),
                             QStringLiteral("ACCOUNT HOLDER %1").arg(i, 4, 10, QLatin1Char('0')),
                             QStringLiteral("%1").arg(i * 37, 8, 10, QLatin1Char('0')), QStringLiteral("00050"),
                             QStringLiteral("010203"), QStringLiteral("150607")});
    return job;
}
