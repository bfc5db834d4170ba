#pragma once

#include "link/UploadSession.h"
#include "tests/support/TestContext.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>

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

// The whole file, or nothing when it cannot be read.
inline QByteArray readAll(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return f.readAll();
}

// Runs out of room after a given number of bytes, as a full disk would.
class FailingSaveFile : public QSaveFile
{
public:
    FailingSaveFile(const QString& name, qint64 room) : QSaveFile(name), m_room(room) {}

protected:
    qint64 writeData(const char* data, qint64 len) override
    {
        if (len > m_room) {
            QSaveFile::writeData(data, m_room);
            m_room = 0;
            setErrorString(QStringLiteral("No space left on device"));
            return -1;
        }
        m_room -= len;
        return QSaveFile::writeData(data, len);
    }

private:
    qint64 m_room;
};
