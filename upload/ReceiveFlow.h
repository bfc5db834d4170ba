#pragma once

#include "link/SessionMessage.h"
#include "link/UploadSession.h"
#include "store/CheckedCopy.h"
#include "upload/RestoreStore.h"

#include <QObject>

class AppContext;
class DailyCopyRunner;

// What the receive screen's buttons do, without the window: the port, the
// upload session and, once the exchange is complete, the one restore step
// that stores the collections and writes the bank files. The receive screen
// and `tonvy-cli receive` both run a receive through it; each shows the
// messages in its own way (boxes that do not block, printed lines).
class ReceiveFlow : public QObject
{
    Q_OBJECT
public:
    explicit ReceiveFlow(AppContext& ctx, QObject* parent = nullptr);

    // Screen loaded: Receive enabled, port opened. False when the port
    // cannot be opened (a message was emitted).
    bool Form_Load();
    // Screen closed: whatever runs is stopped and the port closed.
    void Form_Unload();
    // Receive pressed (or Enter on it): a fresh receive.
    void cmdSend_Click();
    // The answer to crcQuestion(): true for OK.
    void answerCrcQuestion(bool ok);
    // The clerk stops the receive mid-way: port closed, nothing stored.
    void stop();
    // Store a receive that disagrees with the terminal's summary as it came
    // (the command line's --accept-mismatch), instead of refusing it.
    void setAcceptMismatch(bool accept) { m_acceptMismatch = accept; }
    // After a refused receive the clerk may accept it as it came: the same
    // replies are stored and written, and the choice goes to the audit
    // trail. False when there is nothing that may be accepted.
    bool acceptReceive();
    // What the last restore step found (reconciliation, whether it may be
    // accepted); empty before the first.
    const RestoreStore::ReceiveOutcome& outcome() const { return m_outcome; }

    // A receive is under way (or its restore step is still to run or
    // running): closing now loses it.
    bool isBusy() const;
    bool isRestoring() const { return m_restoring; }
    // The restore step ran for this receive and reported success.
    bool restored() const { return m_restored; }

    // The day's copy of the database, started after a stored receive, is
    // still being made (on a thread of its own; see dailyCopyEnded()).
    bool isCopying() const;

    UploadSession& session() { return m_session; }
    const UploadSummary& summary() const { return m_session.summary(); }

signals:
    void message(const SessionMessage& message);
    // Ask "Error in CRC,..." with OK and Cancel; answer with answerCrcQuestion().
    void crcQuestion(const SessionMessage& question);
    // cmdSend: off once the header is in, on again when a receive ended early
    // (so that it can be started again).
    void receiveEnabled(bool enabled);
    void summaryDecoded();
    void progress(int received, int total);
    void busyChanged(bool busy);
    // The exchange was complete and the restore step ran; `restored` is its
    // result.
    void completed(bool restored);
    // The restore step's full result, before completed(): the reconciliation
    // to show or print, and whether the clerk may accept a refusal.
    void outcomeReady(const RestoreStore::ReceiveOutcome& outcome);
    // The receive ended early: nothing was stored.
    void stopped();
    // Cancel on the check-failure question: the screen closes.
    void closeRequested();
    // The day's copy that a stored receive started has ended (a failure was
    // said by message() first).
    void dailyCopyEnded(bool ok);

private:
    void restore();
    void runRestore(bool acceptMismatch);
    void keepDailyCopy();
    void dailyCopyMade(const DatabaseCopy::Outcome& copy);

    AppContext& m_ctx;
    UploadSession m_session;
    DailyCopyRunner* m_dailyCopy;
    QString m_dailyCopyDir;
    bool m_restorePending = false;
    bool m_restoring = false;
    bool m_restored = false;
    bool m_acceptMismatch = false;
    RestoreStore::ReceiveOutcome m_outcome;
};
