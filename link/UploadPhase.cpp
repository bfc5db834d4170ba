#include "link/UploadPhase.h"

bool UploadPhase::moveTo(Phase next)
{
    if (m_phase == next)
        return false;
    if (next == Phase::CheckQuestion)
        m_beforeQuestion = m_phase;
    m_phase = next;
    return true;
}
