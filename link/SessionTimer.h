#pragma once

#include <QDeadlineTimer>
#include <QObject>
#include <QTimer>

// A repeating timer that is restarted far more often than it fires: a
// receive restarts its response time-out for every reply. Restarting a
// QTimer takes it out of the event loop's timer list and puts it back,
// before the next request goes out; here start() and stop() only note when
// the timer is due, and the QTimer underneath is set again only when it
// comes up early. It fires as a QTimer with the same interval would,
// never before its time.
class SessionTimer : public QObject
{
    Q_OBJECT
public:
    explicit SessionTimer(QObject* parent = nullptr);

    void setInterval(int msec) { m_interval = msec; }
    int interval() const { return m_interval; }
    bool isActive() const { return m_active; }

    // Starts, or starts again: due one interval from now, then every
    // interval until stopped.
    void start();
    void stop() { m_active = false; }

signals:
    void timeout();

private:
    void arm(qint64 msec);
    void onDue();

    QTimer m_timer; // single shot, set for m_armedUntil
    QDeadlineTimer m_due{QDeadlineTimer::Forever};
    QDeadlineTimer m_armedUntil{QDeadlineTimer::Forever};
    int m_interval = 0;
    bool m_active = false;
};
