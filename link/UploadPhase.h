#pragma once

#include <QObject>

// Where a receive stands, and what each of its phases lets happen: which
// replies are read, which time-outs resend. The session changes the phase
// in one place (UploadSession::setPhase, through moveTo); everything it
// decides on the phase asks here. No port, no timers.
class UploadPhase
{
    Q_GADGET
public:
    enum class Phase {
        Idle,             // nothing asked yet (screen loaded)
        AwaitingHeader,   // record 0 requested
        AwaitingSummary,  // record 1 requested
        ReceivingRecords, // records 2 and up
        CheckQuestion,    // 15 failed checks in a row: the OK/Cancel question waits for its answer
        Done,             // the last record is in; the end frame went out
        Stopped,          // ended early: port failure, Cancel, stop(), a bad value
    };
    Q_ENUM(Phase)

    // Records in one upload at most, whatever the header announces.
    static constexpr int RecordCeiling = 2000;

    Phase current() const { return m_phase; }
    // The one place the phase changes; true when it did. Opening the check
    // question remembers the phase it interrupts.
    bool moveTo(Phase next);
    // What the check question's OK returns to.
    Phase beforeQuestion() const { return m_beforeQuestion; }

    // A request is out and its reply is read (header, summary, records).
    bool takesReplies() const { return isAsking(m_phase); }
    // A receive is under way: asking, or the check question open.
    bool isBusy() const { return takesReplies() || m_phase == Phase::CheckQuestion; }
    // The response time-out (Timer1) resends only while a reply is awaited.
    bool responseTimeoutResends() const { return takesReplies(); }
    // The idle resend (Timer3) runs from the screen's load on, and goes on
    // after a finished receive, as version 2.1 did; a stopped receive and
    // an open question ask nothing.
    bool idleResendRuns() const { return m_phase != Phase::Stopped && m_phase != Phase::CheckQuestion; }

    static bool isAsking(Phase phase)
    {
        return phase == Phase::AwaitingHeader || phase == Phase::AwaitingSummary || phase == Phase::ReceivingRecords;
    }
    // Reply n (2 and up) is the last one: n - 1 records are in and that is
    // what the header announced, or the ceiling.
    static bool isLastRecord(int n, int totalRecords) { return n - 1 == totalRecords || n - 1 == RecordCeiling; }
    // The record a time-out asks for: the one before on the first time-out
    // of a run (1st, 6th, 11th ...) when above 1, else the same.
    static int afterTimeout(int recordNo, int timeoutCount)
    {
        return recordNo > 1 && timeoutCount == 1 ? recordNo - 1 : recordNo;
    }

private:
    Phase m_phase = Phase::Idle;
    Phase m_beforeQuestion = Phase::Idle;
};
