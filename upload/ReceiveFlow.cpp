#include "upload/ReceiveFlow.h"

#include "base/Clock.h"
#include "core/AppContext.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "upload/DailyCopyRunner.h"
#include "upload/RestoreStore.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QTimer>
#include <algorithm>
#include <exception>

namespace {

// The line under the message of a file the receive could not write: what
// to do, by what the system said and by whether the collections were
// stored (their owed files are then written at the next start).
QString fileAdvice(const QString& text, bool stored)
{
    if (!text.startsWith(QLatin1String("Cannot write ")))
        return {};
    QString fix;
    if (text.contains(QLatin1String("No space left")))
        fix = QStringLiteral("Free some space on that disk");
    else if (text.contains(QLatin1String("Permission denied")) || text.contains(QLatin1String("Read-only file system")))
        fix = QStringLiteral("That folder is read-only: let this user write to it (ask IT)");
    else if (text.contains(QLatin1String("could not be synced")))
        fix = QStringLiteral("The disk did not keep it: check that disk (a stick pulled out, a share gone)");
    else
        fix = QStringLiteral("Free some space on that disk, or let this user write to that folder (ask IT)");
    if (!stored)
        return fix + QStringLiteral(", then receive again.");
    if (text.startsWith(QLatin1String("Cannot write the backup file ")))
        return fix + QStringLiteral(". The collections are stored and the bank's files written; only this copy of "
                                    "the terminal's replies is missing.");
    return fix + QStringLiteral(". The collections are stored; then start the program again or run any tonvy-cli "
                                "command: the files still owed are written from the stored collections.");
}

} // namespace

ReceiveFlow::ReceiveFlow(AppContext& ctx, QObject* parent)
    : QObject(parent), m_ctx(ctx), m_session(ctx.port(), ctx.clock()), m_dailyCopy(new DailyCopyRunner(this))
{
    connect(m_dailyCopy, &DailyCopyRunner::finished, this, &ReceiveFlow::dailyCopyMade);
    connect(&m_session, &UploadSession::message, this, &ReceiveFlow::message);
    connect(&m_session, &UploadSession::crcQuestion, this, &ReceiveFlow::crcQuestion);
    connect(&m_session, &UploadSession::summaryDecoded, this, &ReceiveFlow::summaryDecoded);
    connect(&m_session, &UploadSession::progress, this, &ReceiveFlow::progress);
    connect(&m_session, &UploadSession::busyChanged, this, &ReceiveFlow::busyChanged);
    connect(&m_session, &UploadSession::closeRequested, this, &ReceiveFlow::closeRequested);
    connect(&m_session, &UploadSession::headerReceived, this, [this] { emit receiveEnabled(false); });
    connect(&m_session, &UploadSession::stopped, this, [this] {
        m_restorePending = false;
        emit receiveEnabled(true);
        emit stopped();
    });
    connect(&m_session, &UploadSession::finished, this, [this] {
        // Stored after the serial handler has returned: the restore step
        // may take a while and has its own messages.
        m_restorePending = true;
        QMetaObject::invokeMethod(this, &ReceiveFlow::restore, Qt::QueuedConnection);
    });
}

bool ReceiveFlow::Form_Load()
{
    emit receiveEnabled(true);
    return m_session.Form_Load();
}

void ReceiveFlow::Form_Unload()
{
    m_restorePending = false;
    m_session.closePort();
}

void ReceiveFlow::cmdSend_Click()
{
    if (m_restoring)
        return;
    m_restorePending = false;
    m_restored = false;
    m_session.cmdSend_Click();
}

void ReceiveFlow::answerCrcQuestion(bool ok)
{
    m_session.answerCrcQuestion(ok);
}

void ReceiveFlow::stop()
{
    m_restorePending = false;
    m_session.stop();
}

bool ReceiveFlow::isCopying() const
{
    return m_dailyCopy->isRunning();
}

bool ReceiveFlow::isBusy() const
{
    return m_restorePending || m_restoring || m_session.isBusy();
}

void ReceiveFlow::restore()
{
    // Once per complete exchange, never for a receive that ended early or
    // was started afresh meanwhile.
    if (!m_restorePending || m_session.phase() != UploadSession::Phase::Done)
        return;
    m_restorePending = false;
    runRestore(m_acceptMismatch);
}

bool ReceiveFlow::acceptReceive()
{
    // The replies are still in the shared records only while this receive
    // is the last one and nothing else runs.
    if (!m_outcome.mayAccept || m_restoring || m_session.phase() != UploadSession::Phase::Done)
        return false;
    m_outcome.mayAccept = false;
    runRestore(true);
    return true;
}

void ReceiveFlow::runRestore(bool acceptMismatch)
{
    m_restoring = true;
    // The restore step yields to the event loop once (a kept habit); should
    // this flow go with its screen meanwhile, the step works on its own copy.
    QPointer<ReceiveFlow> self(this);
    AppContext& ctx = m_ctx;
    UploadSummary summary = m_session.summary();
    RestoreStore::ReceiveOutcome outcome;
    QString error;
    try {
        outcome = RestoreStore::processReceive(ctx, summary, acceptMismatch);
    } catch (const StoreError& e) {
        error = e.message();
    } catch (const std::exception& e) {
        error = QString::fromLocal8Bit(e.what());
    }
    if (!self)
        return;
    m_restoring = false;
    m_session.summary() = summary;
    if (!error.isEmpty()) {
        outcome = {};
        outcome.messages.append(SessionMessage{error, SessionMessage::Icon::Critical});
    }
    // A file found damaged or gone refuses the receive's audit event with
    // the words its last message already has: said once.
    for (qsizetype i = outcome.messages.size() - 2; i >= 0; --i) {
        const QString text = outcome.messages.at(i).text;
        const bool repeated = std::any_of(outcome.messages.cbegin() + i + 1, outcome.messages.cend(),
                                          [&text](const SessionMessage& later) { return later.text.contains(text); });
        if (repeated && !text.isEmpty() && outcome.messages.at(i).icon == SessionMessage::Icon::Critical)
            outcome.messages.removeAt(i);
    }
    using Result = RestoreStore::ReceiveOutcome::Result;
    const bool stored = outcome.result == Result::Stored || outcome.result == Result::Accepted ||
                        outcome.result == Result::StoredWithoutBankFolder;
    for (SessionMessage& m : outcome.messages) {
        if (m.icon == SessionMessage::Icon::Critical && m.detail.isEmpty())
            m.detail = fileAdvice(m.text, stored);
    }
    m_outcome = outcome;
    emit outcomeReady(m_outcome);
    for (const SessionMessage& m : m_outcome.messages)
        emit message(m);
    m_restored = m_outcome.succeeded();
    emit completed(m_restored);
    if (!self)
        return;

    if (stored) {
        // After the event loop has had its turn, so that the exchange's last
        // frame leaves for the terminal before the copy takes its time.
        QTimer::singleShot(0, this, &ReceiveFlow::keepDailyCopy);
    }
}

void ReceiveFlow::keepDailyCopy()
{
    // The first receive of the day that stored collections leaves a checked
    // copy of the database, with its files already in place. A copy that
    // fails does not undo the receive: the clerk is told, and the next
    // receive of the day tries again. It is made on a thread of its own:
    // on five years of history it takes seconds, and the screen stays
    // usable meanwhile. While one is under way no other is started.
    const QString dbPath = m_ctx.db().filePath();
    const QString dataDir = m_ctx.dataDir.isEmpty() ? QFileInfo(dbPath).absolutePath() : m_ctx.dataDir;
    if (m_dailyCopy->start(dbPath, dataDir, m_ctx.clock().now().date()))
        m_dailyCopyDir = dataDir;
}

void ReceiveFlow::dailyCopyMade(const DatabaseCopy::Outcome& copy)
{
    if (copy.ok) {
        emit dailyCopyEnded(true);
        return;
    }
    const QString dataDir = m_dailyCopyDir;
    emit message(SessionMessage{
        QStringLiteral("The collections were stored, but the day's copy of the database could not be made."),
        SessionMessage::Icon::Critical,
        copy.text + QLatin1Char(' ') + copy.detail +
            QStringLiteral(" The receive itself is complete. The next receive today tries the copy again; until then "
                           "make one with: tonvy-cli --data-dir %1 backup")
                .arg(QDir::toNativeSeparators(dataDir))});
    emit dailyCopyEnded(false);
}
