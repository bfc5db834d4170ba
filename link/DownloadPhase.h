#pragma once

#include <QObject>

// Where a send stands, and what each of its phases lets happen. The session
// changes the phase in one place (DownloadSession::setPhase, through
// moveTo); everything it decides on the phase asks here. No port, no
// timers.
class DownloadPhase
{
    Q_GADGET
public:
    enum class Phase {
        Idle,               // nothing sent yet
        AwaitingHeaderAck,  // the header is out, sent once, waiting for its acknowledgement
        HeaderAcknowledged, // the 10 ms tick that starts the accounts is due
        SendingRecords,     // account frames out one by one
        DrainingRecords,    // answers lagged too long: dropped until the next time-out, then SendingRecords
        AwaitingEndAck,     // "OVER" is out
        DrainingEnd,        // the same while "OVER" is out: back to AwaitingEndAck at the next time-out
        Done,               // the final acknowledgement arrived
        Stopped,            // ended with a message, or stopped by the clerk
    };
    Q_ENUM(Phase)

    Phase current() const { return m_phase; }
    // The one place the phase changes; true when it did.
    bool moveTo(Phase next);

    // A transfer is under way (the header is out and no end reached).
    bool busy() const;
    // An answer from the terminal is read now; in any other phase what
    // arrives is dropped (left-overs, late answers, a draining line).
    bool readsAnswers() const;
    // The response time-out (Timer2) resends in this phase.
    bool responseTimeoutRuns() const;
    bool draining() const { return m_phase == Phase::DrainingRecords || m_phase == Phase::DrainingEnd; }

    // The phase that stops answering until the line is quiet, and the one
    // the next time-out returns to.
    static Phase drainingOf(Phase phase);
    static Phase afterDraining(Phase phase);

    // The send counter a time-out resends from: one back on the first
    // time-out of a run, never below 2 (the first account frame).
    static int afterTimeout(int counter, int timeoutCount)
    {
        if (counter > 1 && timeoutCount == 1)
            --counter;
        return counter < 2 ? 2 : counter;
    }

private:
    Phase m_phase = Phase::Idle;
};
