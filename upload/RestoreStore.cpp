#include "upload/RestoreStore.h"

#include "base/Clock.h"
#include "base/Messenger.h"
#include "core/AppContext.h"
#include "link/UploadSession.h"
#include "store/AuditTrail.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "upload/AgentAccounts.h"
#include "upload/CollectionCheck.h"
#include "upload/PendingOutputs.h"
#include "upload/ReceiveAudit.h"
#include "upload/ReceiveStorage.h"
#include "upload/ReceiveValidator.h"
#include "upload/Reconciliation.h"
#include "upload/StagedFiles.h"
#include "upload/UploadFiles.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSaveFile>
#include <memory>

namespace RestoreStore {

namespace {

// The terminal's transaction number at which version 2.1's screen let the
// message loop run once while decoding; kept.
constexpr int YieldTransactionNumber = 394;

// A receive in progress: a nested call (from the one yield to the message
// loop) must not start a second one over the same replies.
bool receiveRunning = false;

AfterCommitHook afterCommitHook;

SessionMessage critical(const QString& text)
{
    return SessionMessage{text, SessionMessage::Icon::Critical};
}

} // namespace

void setAfterCommitHook(AfterCommitHook hook)
{
    afterCommitHook = std::move(hook);
}

namespace {

// The steps of one receive, with what the outcome collects on the way.
class Receive
{
public:
    Receive(AppContext& ctx, UploadSummary& summary, bool acceptMismatch)
        : m_ctx(ctx), m_summary(summary), m_accept(acceptMismatch), m_receivedAt(ctx.clock().now())
    {
    }

    ReceiveOutcome run()
    {
        // The backup comes first so that the replies survive whatever
        // follows, and a failure here is said as it is.
        QString why;
        m_out.backupFile = UploadFiles::writeBackup(m_ctx, m_summary, &why);
        if (m_out.backupFile.isEmpty())
            m_out.messages << critical(why);
        m_facts.backupFile = m_out.backupFile;
        m_facts.agent = m_summary.UploadBaseName.left(3);
        m_facts.date = m_summary.UploadBaseName.mid(3, 4);
        m_facts.bankAgentId = m_summary.BankAgentId;
        m_facts.receivedAt = m_receivedAt;
        m_facts.records = qMax(0, m_summary.TotalRecords);

        const ReceiveValidator::Verdict summaryVerdict = ReceiveValidator::checkSummary(m_summary);
        if (!summaryVerdict.proceeds())
            return stop(summaryVerdict);
        // The upload file's name is the summary's seven characters; anything
        // after them was added by an earlier run over the same summary.
        m_summary.UploadBaseName = m_summary.UploadBaseName.left(7);

        QList<Entry> entries;
        if (!decodeRecords(m_ctx.link.Records, m_summary, &entries, &why))
            return fail(why);
        yieldAtTransaction394(entries);

        try {
            const AgentAccounts accounts = AgentAccounts::read(m_ctx.db(), m_summary.BankAgentId);
            accounts.complete(entries);
            m_facts.downloadedAccounts = accounts.count();
        } catch (const StoreError& e) {
            return fail(e.message());
        }
        m_facts.check = CollectionCheck::check(m_summary, entries);
        const ReceiveValidator::Verdict verdict = ReceiveValidator::checkCollections(m_facts.check, m_accept);
        if (!verdict.proceeds())
            return stop(verdict);
        return store(entries);
    }

private:
    // Version 2.1 let the message loop run once while decoding when a
    // transaction number read 394; kept, after the decoding (which works on
    // its own copy of the replies) and before any row changes.
    static void yieldAtTransaction394(const QList<Entry>& entries)
    {
        for (const Entry& e : entries) {
            if (e.transactionNumber.toInt() == YieldTransactionNumber && !e.transactionNumber.isEmpty()) {
                QCoreApplication::processEvents();
                return;
            }
        }
    }

    QString backupNote() const
    {
        return m_out.backupFile.isEmpty()
                   ? QString()
                   : QStringLiteral(" The received records are kept in the backup file %1.").arg(m_out.backupFile);
    }

    ReceiveOutcome stop(const ReceiveValidator::Verdict& verdict)
    {
        if (verdict.kind == ReceiveValidator::Verdict::Kind::Refuse)
            return refuse(verdict.problems, verdict.mayAccept);
        return fail(verdict.problems.join(QLatin1Char(' ')));
    }

    ReceiveOutcome refuse(const QStringList& problems, bool mayAccept)
    {
        m_out.result = ReceiveOutcome::Result::Refused;
        m_out.problems = problems;
        m_out.mayAccept = mayAccept;
        // Version 2.1's text on its own line, then what was wrong.
        QString text = UploadFiles::uploadProblemText() + QLatin1Char('\n') + problems.join(QLatin1Char(' ')) +
                       QStringLiteral(" Nothing was replaced and no upload file was written.") + backupNote();
        if (mayAccept)
            text += QStringLiteral(" Download the agent's accounts again and receive again, or accept this receive "
                                   "as it is.");
        m_out.messages << critical(text);
        finish(mayAccept ? QStringLiteral("refused: nothing replaced; the clerk may accept it")
                         : QStringLiteral("refused: nothing replaced"));
        return m_out;
    }

    ReceiveOutcome fail(const QString& why)
    {
        m_out.result = ReceiveOutcome::Result::Failed;
        m_out.problems = {why};
        const QString sentence = why.endsWith(QLatin1Char('.')) ? why : why + QLatin1Char('.');
        m_out.messages << critical(sentence + QStringLiteral(" Nothing was replaced.") + backupNote());
        finish(QStringLiteral("failed: nothing replaced (%1)").arg(why));
        return m_out;
    }

    ReceiveOutcome store(const QList<Entry>& entries)
    {
        SharedDatabase& db = m_ctx.db();
        // Files an earlier receive of this agent still owes are made from
        // the rows this one is about to replace: they are written first, or
        // nothing is replaced.
        try {
            const PendingOutputs::Completion earlier = PendingOutputs::complete(m_ctx, m_summary.BankAgentId);
            if (!earlier.complete())
                return fail(earlier.problems.join(QLatin1Char(' ')));
        } catch (const StoreError& e) {
            return fail(e.message());
        }

        const QString folder = m_ctx.settings.BankInfoPath;
        const bool bankFolder = !folder.isEmpty() && QFileInfo(folder).isDir();
        const bool accepted = m_accept && !m_facts.check.agrees();
        // What the reconciliation says once every file is in place.
        const QString doneOutcome =
            !bankFolder ? QStringLiteral("stored; no upload file: the bank folder does not exist")
            : accepted  ? QStringLiteral("accepted by the clerk although it disagrees; stored and written as received")
                        : QStringLiteral("stored and written; the upload file agrees with the terminal's summary");
        StagedFiles files;
        // Rows, files and audit event in one step; on failure the reason.
        auto attempt = [&]() -> QString {
            QString why;
            SharedDatabase::Transaction transaction(db);
            ReceiveStorage::storeRows(db, m_receivedAt, m_summary.BankAgentId, m_facts.agent, entries);

            // The files are made from the rows just stored, before they are
            // committed: a file that cannot be written leaves the rows as
            // they were.
            QString base = m_summary.UploadBaseName;
            if (bankFolder) {
                // Suffixed, as version 2.1 did: the check listing is named
                // from it too.
                base += QLatin1Char('u');
                if (!files.stageUpload(db, folder, base, m_summary.BankAgentId, &why))
                    return why;
            }
            if (!files.stageCheck(db, UploadFiles::backupFolder(m_ctx), base, m_summary.BankAgentId, &why))
                return why;

            // The files are owed from the moment the rows are in: should
            // the program stop before they are renamed into place, the next
            // start writes them from these rows.
            m_facts.outcome = doneOutcome;
            m_facts.uploadFile = bankFolder ? files.uploadPath() : QString();
            PendingOutputs::Receive owed{m_summary.BankAgentId, m_facts.agent, m_facts.date, {}};
            auto owe = [&](PendingOutputs::Kind kind, const QString& path, const QByteArray& content) {
                owed.outputs << PendingOutputs::Output{kind, QFileInfo(path).fileName(), content, 0};
            };
            if (bankFolder)
                owe(PendingOutputs::Kind::UploadFile, files.uploadPath(), {});
            owe(PendingOutputs::Kind::CheckListing, files.checkPath(), {});
            owe(PendingOutputs::Kind::Reconciliation, reconciliationPath(),
                UploadFiles::fileBytes(Reconciliation::lines(m_facts)));
            PendingOutputs::mark(db, m_receivedAt, owed);

            AuditTrail::record(db, m_receivedAt, AuditTrail::Action::Receive,
                               ReceiveAudit::storedDetails(m_facts, files, m_accept && !m_facts.check.agrees()));
            transaction.commit();
            m_summary.UploadBaseName = base;
            return QString();
        };
        QString failure;
        try {
            failure = attempt();
        } catch (const StoreError& e) {
            failure = e.message();
        }
        if (!failure.isEmpty()) {
            files.drop();
            return fail(failure);
        }
        m_out.result =
            accepted ? ReceiveOutcome::Result::Accepted
                     : (bankFolder ? ReceiveOutcome::Result::Stored : ReceiveOutcome::Result::StoredWithoutBankFolder);
        if (afterCommitHook && !afterCommitHook()) {
            // Stopped as by a power cut: the rows are in, the files owed.
            files.drop();
            m_out.result = ReceiveOutcome::Result::Failed;
            m_out.problems = {QStringLiteral("stopped after the rows were stored")};
            return m_out;
        }

        // The rows are in: rename the files into place, each synced to the
        // disk with its folder. A file that is not there for good stays owed.
        if (bankFolder) {
            QString why;
            if (!files.commitUpload(&why)) {
                m_out.result = ReceiveOutcome::Result::Failed;
                m_out.messages << critical(
                    QStringLiteral("The collections were stored, but the upload file %1 could not be written: %2. "
                                   "Once the bank folder can be written to, start the program again or run any "
                                   "tonvy-cli command: the file is written then from the stored collections.")
                        .arg(files.uploadPath(), why));
                finish(QStringLiteral("stored, but the upload file could not be written"));
                return m_out;
            }
            m_out.uploadFile = files.uploadPath();
        }
        QString checkWhy;
        const bool checkWritten = files.commitCheck(&checkWhy);
        if (!checkWritten)
            m_out.messages << critical(
                QStringLiteral("Cannot write the check listing %1: %2").arg(files.checkPath(), checkWhy));

        if (!bankFolder) {
            m_out.messages << SessionMessage{UploadFiles::missingBankFolderText(), SessionMessage::Icon::None};
            finish(doneOutcome);
            settle(checkWritten);
            return m_out;
        }
        // Version 2.1's own check, on the file as written.
        if (UploadFiles::agreesWithSummary(m_summary, files.uploadCount(), files.uploadPaise()))
            m_out.messages << SessionMessage{UploadFiles::uploadCompletedText(), SessionMessage::Icon::Information};
        else
            m_out.messages << critical(UploadFiles::uploadProblemText());
        if (m_out.result == ReceiveOutcome::Result::Accepted)
            m_out.problems = m_facts.check.problems;
        finish(doneOutcome);
        settle(checkWritten);
        return m_out;
    }

    // Every file in place: the receive owes nothing more. A file that is
    // not keeps the marks, and the next start writes what is owed.
    void settle(bool checkWritten)
    {
        if (!checkWritten || m_out.reconciliationFile.isEmpty())
            return;
        try {
            PendingOutputs::clear(m_ctx.db(), m_summary.BankAgentId);
        } catch (const StoreError&) {
            // The files are in place; the next start writes them once more,
            // the same bytes, and clears the marks then.
        }
    }

    // The reconciliation is named after the backup dump, so each receive
    // keeps its own.
    QString reconciliationPath()
    {
        if (m_reconciliationPath.isEmpty()) {
            const QString dump =
                m_out.backupFile.isEmpty() ? UploadFiles::backupPath(m_ctx, m_summary) : m_out.backupFile;
            m_reconciliationPath = dump.left(dump.size() - 4) + QStringLiteral("Reconciliation.txt");
        }
        return m_reconciliationPath;
    }

    // Writes the reconciliation and, for a receive that stored nothing,
    // the audit event (a stored one wrote its own with the rows).
    void finish(const QString& outcome)
    {
        m_facts.outcome = outcome;
        m_facts.uploadFile = m_out.uploadFile;
        m_out.reconciliation = Reconciliation::lines(m_facts);

        const QString path = reconciliationPath();
        QString why;
        const std::unique_ptr<QSaveFile> file = UploadFiles::makeSaveFile(path);
        if (UploadFiles::ensureFolder(UploadFiles::backupFolder(m_ctx), &why) &&
            UploadFiles::saveLines(*file, m_out.reconciliation, &why))
            m_out.reconciliationFile = path;
        else
            m_out.messages.insert(qMax<qsizetype>(0, m_out.messages.size() - 1),
                                  critical(QStringLiteral("Cannot write the reconciliation %1: %2").arg(path, why)));

        const bool stored = m_out.result == ReceiveOutcome::Result::Stored ||
                            m_out.result == ReceiveOutcome::Result::Accepted ||
                            m_out.result == ReceiveOutcome::Result::StoredWithoutBankFolder;
        if (stored)
            return;
        try {
            AuditTrail::record(m_ctx.db(), m_receivedAt, AuditTrail::Action::Receive,
                               ReceiveAudit::unstoredDetails(m_facts, outcome, m_out.problems));
        } catch (const StoreError& e) {
            m_out.messages.insert(qMax<qsizetype>(0, m_out.messages.size() - 1), critical(e.message()));
        }
    }

    AppContext& m_ctx;
    UploadSummary& m_summary;
    const bool m_accept;
    const QDateTime m_receivedAt;
    ReceiveOutcome m_out;
    Reconciliation::Facts m_facts;
    QString m_reconciliationPath;
};

} // namespace

ReceiveOutcome processReceive(AppContext& ctx, UploadSummary& summary, bool acceptMismatch)
{
    if (receiveRunning) {
        ReceiveOutcome busy;
        busy.problems = {QStringLiteral("a receive is still being stored")};
        return busy;
    }
    receiveRunning = true;
    struct Reset
    {
        ~Reset() { receiveRunning = false; }
    } reset;
    return Receive(ctx, summary, acceptMismatch).run();
}

void report(Messenger& messenger, const ReceiveOutcome& outcome)
{
    for (const SessionMessage& m : outcome.messages)
        messenger.show(m.text, messengerIcon(m.icon), {}, m.detail);
}

bool RestoreData(AppContext& ctx, UploadSummary& summary)
{
    const ReceiveOutcome outcome = processReceive(ctx, summary, false);
    report(ctx.messenger(), outcome);
    return outcome.succeeded();
}

} // namespace RestoreStore
