#include "link/SessionTimer.h"

#include <algorithm>

SessionTimer::SessionTimer(QObject* parent) : QObject(parent)
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &SessionTimer::onDue);
}

void SessionTimer::start()
{
    m_active = true;
    m_due = QDeadlineTimer(m_interval, Qt::PreciseTimer);
    // Set for a later time (the interval was made shorter since): set again.
    if (!m_timer.isActive() || m_due < m_armedUntil)
        arm(m_interval);
}

void SessionTimer::arm(qint64 msec)
{
    m_armedUntil = QDeadlineTimer(msec, Qt::PreciseTimer);
    m_timer.start(static_cast<int>(std::max<qint64>(msec, 0)));
}

void SessionTimer::onDue()
{
    if (!m_active)
        return; // stopped meanwhile: nothing is due
    if (const qint64 left = m_due.remainingTime(); left > 0) {
        arm(left); // started again since it was set
        return;
    }
    m_due = QDeadlineTimer(m_interval, Qt::PreciseTimer);
    emit timeout();
    // Still running and not started again by the handler: the next interval.
    if (m_active && !m_timer.isActive())
        arm(std::max<qint64>(m_due.remainingTime(), 0));
}
