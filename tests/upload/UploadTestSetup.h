#pragma once

#include "link/UploadSession.h"
#include "tests/support/TestContext.h"

#include <QDir>

// The agent of the upload tests' collections.
const QString agent = QStringLiteral("AG0000000000005");

// A bank folder in place and the summary of agent 005's receive of 16 November.
inline UploadSummary prepareUploadContext(TestContext& t)
{
    t.ctx->settings.BankInfoPath = t.path(QStringLiteral("bank"));
    QDir().mkpath(t.ctx->settings.BankInfoPath);
    UploadSummary summary;
    summary.BankAgentId = agent;
    summary.UploadBaseName = QStringLiteral("0051611");
    summary.AgentId = QStringLiteral("005");
    summary.CollectionDate = QStringLiteral("1611");
    return summary;
}
