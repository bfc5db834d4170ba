#include "SendFlow.h"

#include "AppContext.h"

#include <QDir>
#include <QFileInfo>

SendFlow::SendFlow(AppContext& ctx, QObject* parent) : QObject(parent), m_ctx(ctx), m_session(ctx), m_store(ctx.db())
{
    connect(&m_session, &DownloadSession::progress, this, &SendFlow::progress);
    connect(&m_session, &DownloadSession::stopped, this, [this] {
        emit buttonsEnabled(true);
        emit stopped();
    });
    connect(&m_session, &DownloadSession::completed, this, [this] {
        // Another agent can be sent from the same screen afterwards.
        emit buttonsEnabled(true);
        emit completed();
    });
}

QString SendFlow::agentNumber(const QString& agentText)
{
    // The box takes digits only; "000" pads to three and keeps longer numbers whole.
    QString digits = agentText.trimmed();
    while (digits.size() > 1 && digits.startsWith(QLatin1Char('0')))
        digits.remove(0, 1);
    return digits.rightJustified(3, QLatin1Char('0'));
}

void SendFlow::Form_Load()
{
    m_session.Form_Load();
}

void SendFlow::Form_Unload()
{
    m_session.closePort();
}

SendFlow::Result SendFlow::stop(const QString& text, Messenger::Icon icon)
{
    m_ctx.messenger().show(text, icon);
    emit buttonsEnabled(true);
    emit stopped();
    return Result::Stopped;
}

SendFlow::Result SendFlow::cmdSend(const QString& agentText, const QString& dateText, QString& transactText)
{
    const QString agentTyped = agentText.trimmed();
    const QString date = dateText.trimmed();
    if (agentTyped.isEmpty()) {
        m_ctx.messenger().information(QStringLiteral("Enter Agent ID"));
        return Result::AgentMissing;
    }
    // One to four characters are taken as they stand: "161" names a file too.
    if (date.isEmpty() || date.size() > 4) {
        m_ctx.messenger().information(QStringLiteral("Enter Date"));
        return Result::DateMissing;
    }

    m_session.prepareSend();
    emit buttonsEnabled(false);
    if (transactText.isEmpty())
        transactText = QStringLiteral("1");

    const QString agent = agentNumber(agentTyped);
    m_downloadPath = DownloadFile::pathFor(m_ctx.settings.BankInfoPath, agent, date);
    if (!QFileInfo(m_downloadPath).isFile())
        return stop(QStringLiteral("File does not exist!"), Messenger::Icon::Critical);

    // Made on every send as the original did, under the program's folder
    // (not the bank's); the download file is not read from it.
    const QString folder = m_ctx.dataPath(QStringLiteral("DownLoadData"));
    if (!QFileInfo(folder).isDir() && !QDir().mkpath(folder))
        return stop(QStringLiteral("The folder %1 cannot be created.").arg(QDir::toNativeSeparators(folder)),
                    Messenger::Icon::Critical);

    m_job = DownloadJob();
    m_job.transactions = transactText.trimmed();
    if (!m_file.ReadDownLoadFile(m_downloadPath))
        return stop(m_file.errorString(), m_file.errorIcon());

    QString error;
    if (!m_store.Store_BankData(m_file, m_downloadPath, &error))
        return stop(error, Messenger::Icon::Critical);

    m_job.agentDateKey = agent + date;
    m_job.fileName = DownloadFile::fileNameValue(m_downloadPath);
    m_job.branchId = m_file.BranchID();
    m_job.agentId = m_file.AgentID();
    m_job.recordCount = m_file.recordCount();
    m_job.downloadPassword = m_session.downloadPassword();
    m_job.setupPassword = m_session.setupPassword();
    m_session.FirstProtocol(m_job);
    return Result::Started;
}
