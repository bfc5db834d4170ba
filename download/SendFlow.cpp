#include "download/SendFlow.h"

#include "base/Clock.h"
#include "core/AppContext.h"
#include "download/EntryLimits.h"
#include "store/AuditTrail.h"
#include "store/PasswordStore.h"
#include "store/SharedDatabase.h"
#include "store/SharedRecordset.h"
#include "store/StoreError.h"

#include <QDir>
#include <QFileInfo>

SendFlow::SendFlow(AppContext& ctx, QObject* parent)
    : QObject(parent), m_ctx(ctx), m_session(ctx.port(), ctx.clock()), m_store(ctx.db())
{
    connect(&m_session, &DownloadSession::progress, this, &SendFlow::progress);
    connect(&m_session, &DownloadSession::message, this,
            [this](const SessionMessage& m) { emit message(m.text, messengerIcon(m.icon), m.detail); });
    connect(&m_session, &DownloadSession::stopped, this, [this] {
        audit(QStringLiteral("stopped before the terminal confirmed the end"));
        emit buttonsEnabled(true);
        emit stopped();
    });
    connect(&m_session, &DownloadSession::completed, this, [this] {
        audit(QStringLiteral("completed"));
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
    m_downloadPassword.clear();
    m_setupPassword.clear();
    try {
        const PasswordStore::Row row = PasswordStore::load(m_ctx.db());
        if (row.found) {
            m_downloadPassword = DownloadFrames::formatDigits(row.download, 4);
            m_setupPassword = DownloadFrames::formatDigits(row.setup, 4);
        }
    } catch (const StoreError& e) {
        emit message(QStringLiteral("The terminal passwords cannot be read: %1").arg(e.message()),
                     Messenger::Icon::Critical);
    }
}

void SendFlow::Form_Unload()
{
    m_session.closePort();
}

void SendFlow::stopTransfer()
{
    m_session.stopTransfer();
    emit buttonsEnabled(true);
}

bool SendFlow::stopTransfer(const QString& outcome)
{
    if (!m_session.busy())
        return false;
    stopTransfer();
    audit(outcome);
    return true;
}

void SendFlow::audit(const QString& outcome)
{
    // Never throws: a send already under way must not end in a store error.
    AuditTrail::tryRecord(m_ctx.db(), m_ctx.clock().now(), AuditTrail::Action::Send,
                          QStringLiteral("agent and date %1, %2 accounts, file %3: %4")
                              .arg(m_job.agentDateKey)
                              .arg(m_job.recordCount)
                              .arg(m_job.fileName, outcome));
}

SendFlow::Result SendFlow::stop(const QString& text, Messenger::Icon icon, const QString& detail)
{
    emit message(text, icon, detail);
    emit buttonsEnabled(true);
    emit stopped();
    return Result::Stopped;
}

bool SendFlow::readAccounts(QString* error)
{
    // The accounts go out sorted by holder name, then by opening date (the
    // ddmmyy text, compared as text).
    try {
        SharedDatabase& db = m_ctx.db();
        SharedRecordset& rs = db.openSharedRecordset(QStringLiteral("SELECT * FROM Bankdata WHERE AgentID=? AND "
                                                                    "SNo='1' AND filename=? ORDER BY "
                                                                    "ACName,OpeningDate"),
                                                     {m_job.agentId, m_job.fileName});
        m_job.accounts.clear();
        if (!(rs.eof() && rs.bof()))
            rs.moveFirst();
        while (!rs.eof()) {
            DownloadAccount a;
            a.categoryCode = rs.text(QStringLiteral("CATEGORYCODE"));
            a.schemeCode = rs.text(QStringLiteral("SCHEMECODE"));
            a.acNumber = rs.text(QStringLiteral("ACNumber"));
            a.acName = rs.text(QStringLiteral("ACName"));
            a.balAmount = rs.text(QStringLiteral("BalAmount"));
            a.agreedAmount = rs.text(QStringLiteral("AgreedAmount"));
            a.openingDate = rs.text(QStringLiteral("OpeningDate"));
            a.txnDate = rs.text(QStringLiteral("TxnDate"));
            m_job.accounts.append(a);
            rs.moveNext();
        }
        db.closeSharedRecordset();
        return true;
    } catch (const StoreError& e) {
        *error = e.message();
        return false;
    }
}

bool SendFlow::checkSendable()
{
    const QString keeps = QStringLiteral("Nothing was stored or sent; the terminal keeps the accounts it has.");
    // Version 2.1 stored nothing and then failed on the header: an agent sent
    // no accounts would go out with none.
    if (m_file.recordCount() == 0) {
        stop(QStringLiteral("The DownLoad File %1 holds no accounts.").arg(QDir::toNativeSeparators(m_downloadPath)),
             Messenger::Icon::Critical,
             keeps + QStringLiteral(" Ask the bank for the agent's DownLoad File, then press Send again."));
        return false;
    }
    if (const auto problem = m_file.frameProblem()) {
        stop(QStringLiteral("Error in DATA FORMAT"), Messenger::Icon::None,
             problem->describe(m_downloadPath) + QLatin1Char(' ') + keeps +
                 QStringLiteral(" Ask the bank for a corrected DownLoad File, then press Send again."));
        return false;
    }
    return true;
}

SendFlow::Result SendFlow::cmdSend(const QString& agentText, const QString& dateText, QString& transactText)
{
    if (m_session.busy())
        return Result::Busy;
    const QString agentTyped = agentText.trimmed();
    const QString date = dateText.trimmed();
    if (agentTyped.isEmpty()) {
        emit message(QStringLiteral("Enter Agent ID"), Messenger::Icon::Information);
        return Result::AgentMissing;
    }
    // One to four characters are taken as they stand: "161" names a file too.
    if (date.isEmpty() || date.size() > 4) {
        emit message(QStringLiteral("Enter Date"), Messenger::Icon::Information);
        return Result::DateMissing;
    }

    m_session.prepareSend();
    emit buttonsEnabled(false);
    if (transactText.isEmpty())
        transactText = QStringLiteral("1");
    // The header frame has one fixed width for each of these; a longer value
    // would make a frame the terminal cannot read.
    const AppSettings& current = m_ctx.settings;
    if (const QString problem =
            EntryLimits::headerProblem(current.BankName.trimmed(), current.BranchName.trimmed(),
                                       DownloadFrames::headerFontSize(current.FontSize), transactText.trimmed());
        !problem.isEmpty())
        return stop(problem, Messenger::Icon::Critical);

    const QString agent = agentNumber(agentTyped);
    m_downloadPath = DownloadFile::pathFor(m_ctx.settings.BankInfoPath, agent, date);
    if (!QFileInfo(m_downloadPath).isFile()) {
        const QString folder = m_ctx.settings.BankInfoPath.trimmed();
        const bool folderThere = !folder.isEmpty() && QFileInfo(folder).isDir();
        return stop(QStringLiteral("File does not exist!"), Messenger::Icon::Critical,
                    QStringLiteral("Looked for %1 (agent %2, date %3). ")
                            .arg(QDir::toNativeSeparators(m_downloadPath), agent, date) +
                        (folderThere ? QStringLiteral("Check the Agent ID and the Date, or ask the bank for the file.")
                                     : QStringLiteral("The bank information folder %1 does not exist: choose it in "
                                                      "DRIVE SELECTION.")
                                           .arg(QDir::toNativeSeparators(folder))));
    }

    // Made on every send as version 2.1 did, under the program's folder
    // (not the bank's); the download file is not read from it.
    const QString folder = m_ctx.dataPath(QStringLiteral("DownLoadData"));
    if (!QFileInfo(folder).isDir() && !QDir().mkpath(folder))
        return stop(QStringLiteral("The folder %1 cannot be created.").arg(QDir::toNativeSeparators(folder)),
                    Messenger::Icon::Critical,
                    QStringLiteral("The data folder %1 is read-only, or its disk is full. Nothing was stored or "
                                   "sent. Let this user write to the data folder (ask IT) or free some space on its "
                                   "disk, then send again.")
                        .arg(QDir::toNativeSeparators(QFileInfo(folder).absolutePath())));

    m_job = DownloadJob();
    m_job.transactions = transactText.trimmed();
    if (!m_file.ReadDownLoadFile(m_downloadPath))
        return stop(m_file.errorString(), m_file.errorIcon(), m_file.errorDetail());
    if (!checkSendable())
        return Result::Stopped;

    QString error;
    if (!m_store.Store_BankData(m_file, m_downloadPath, &error))
        return stop(error, Messenger::Icon::Critical);

    m_job.agentDateKey = agent + date;
    m_job.fileName = DownloadFile::fileNameValue(m_downloadPath);
    m_job.branchId = m_file.BranchID();
    m_job.agentId = m_file.AgentID();
    m_job.recordCount = m_file.recordCount();
    m_job.downloadPassword = m_downloadPassword;
    m_job.setupPassword = m_setupPassword;
    if (!readAccounts(&error))
        return stop(QStringLiteral("The download to the hand-held terminal was stopped: %1\nCheck the data and press "
                                   "Send again.")
                        .arg(error),
                    Messenger::Icon::Critical);

    // The header takes the names padded and a negative font size as 0, and
    // the padded values stay in the settings, as they always did.
    AppSettings& settings = m_ctx.settings;
    settings.BankName = DownloadFrames::paddedBankName(settings.BankName);
    settings.BranchName = DownloadFrames::paddedBranchName(settings.BranchName);
    settings.FontSize = DownloadFrames::headerFontSize(settings.FontSize);
    m_job.bankName = settings.BankName;
    m_job.branchName = settings.BranchName;
    m_job.fontSize = settings.FontSize;

    m_session.FirstProtocol(m_job);
    return m_session.busy() ? Result::Started : Result::Stopped;
}
