#pragma once

#include <QDateTime>

// Source of the present date and time, replaceable so that tests can pin what
// frames and file names carry.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const;
};

class FixedClock : public Clock
{
public:
    explicit FixedClock(QDateTime at) : m_at(std::move(at)) {}
    QDateTime now() const override { return m_at; }
    void set(const QDateTime& at) { m_at = at; }

private:
    QDateTime m_at;
};
