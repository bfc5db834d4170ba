#include "link/DownloadPhase.h"
#include "link/DownloadSession.h"
#include "link/LinkPort.h"

// The send's time-outs: the header's wait, the tick that starts the account
// frames, the response time-out that resends, and the idle resend. What
// goes out on an answer is in DownloadSession.cpp.

void DownloadSession::headerTimedOut()
{
    if (phase() != Phase::AwaitingHeaderAck)
        return;
    stopWith({checkCableText(), SessionMessage::Icon::Critical});
}

void DownloadSession::Timer1_Timer()
{
    m_timer1.stop();
    if (phase() != Phase::HeaderAcknowledged)
        return;
    SecondProtocol();
}

void DownloadSession::stepBackSendCounter()
{
    // The first time-out of a run goes back to the frame before, whose
    // acknowledgement may be the one that was lost.
    setCounter(DownloadPhase::afterTimeout(m_counter, link().TimeoutCount));
}

void DownloadSession::Timer2_Timer()
{
    guarded([this] { doTimer2(); });
}

void DownloadSession::doTimer2()
{
    if (!m_phase.responseTimeoutRuns()) {
        m_timer2.stop();
        return;
    }
    LinkState& state = link();
    if (state.completion.isComplete()) {
        // Download complete is still set from an earlier send on this
        // screen: the time-out resends nothing. A lost answer would then be
        // waited for in silence, so after five of them the clerk is told.
        if (++m_quietTicks >= 5)
            stopWith({checkCableText(), SessionMessage::Icon::Critical});
        return;
    }
    // A line let go quiet has been quiet for a whole time-out now.
    setPhase(DownloadPhase::afterDraining(phase()));
    ++state.TimeoutCount;
    const bool cable = state.TimeoutCount == 5;
    if (cable)
        state.TimeoutCount = 0;
    if (cable && phase() == Phase::AwaitingEndAck) {
        // "OVER" is sent once; nothing more will go out, so waiting on
        // would never end.
        stopWith({checkCableText(), SessionMessage::Icon::Critical});
        return;
    }
    if (cable)
        emit message({checkCableText(), SessionMessage::Icon::Critical});
    m_timer2.stop();
    m_port.write(this, QByteArray());
    state.RxBuffer.clear();
    stepBackSendCounter();
    doSendOneByOne();
}

void DownloadSession::Timer3_Timer()
{
    if (!busy()) {
        m_timer3.stop();
        return;
    }
    guarded([this] {
        m_port.write(this, QByteArray());
        link().RxBuffer.clear();
        stepBackSendCounter();
    });
}
