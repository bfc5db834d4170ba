#include "link/DownloadPhase.h"

bool DownloadPhase::moveTo(Phase next)
{
    if (m_phase == next)
        return false;
    m_phase = next;
    return true;
}

bool DownloadPhase::busy() const
{
    switch (m_phase) {
    case Phase::AwaitingHeaderAck:
    case Phase::HeaderAcknowledged:
    case Phase::SendingRecords:
    case Phase::DrainingRecords:
    case Phase::AwaitingEndAck:
    case Phase::DrainingEnd:
        return true;
    case Phase::Idle:
    case Phase::Done:
    case Phase::Stopped:
        break;
    }
    return false;
}

bool DownloadPhase::readsAnswers() const
{
    return m_phase == Phase::AwaitingHeaderAck || m_phase == Phase::SendingRecords || m_phase == Phase::AwaitingEndAck;
}

bool DownloadPhase::responseTimeoutRuns() const
{
    return m_phase == Phase::SendingRecords || m_phase == Phase::AwaitingEndAck || draining();
}

DownloadPhase::Phase DownloadPhase::drainingOf(Phase phase)
{
    if (phase == Phase::SendingRecords)
        return Phase::DrainingRecords;
    if (phase == Phase::AwaitingEndAck)
        return Phase::DrainingEnd;
    return phase;
}

DownloadPhase::Phase DownloadPhase::afterDraining(Phase phase)
{
    if (phase == Phase::DrainingRecords)
        return Phase::SendingRecords;
    if (phase == Phase::DrainingEnd)
        return Phase::AwaitingEndAck;
    return phase;
}
