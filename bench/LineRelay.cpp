#include "bench/LineRelay.h"

LineRelay::LineRelay(quint32 seed, QObject* parent) : QObject(parent), m_random(seed)
{
    m_clock.start();
    m_releaser.setSingleShot(true);
    m_releaser.setTimerType(Qt::PreciseTimer);
    connect(&m_releaser, &QTimer::timeout, this, &LineRelay::release);
    m_puller.setInterval(100);
    connect(&m_puller, &QTimer::timeout, this, [this] {
        if (m_clean || lineDown() || !chance(m_faults.pullsPerMinute / 600.0))
            return;
        const int span = std::max(0, m_faults.pullMaxMs - m_faults.pullMinMs);
        m_downUntilMs = nowMs() + m_faults.pullMinMs + static_cast<int>(m_random.bounded(span + 1));
        ++m_pulls;
        for (QList<Chunk>& queue : m_queue) {
            for (const Chunk& c : std::as_const(queue))
                m_lost += c.bytes.size();
            queue.clear();
        }
    });
}

bool LineRelay::open(QString* error)
{
    if (!m_pc.open(error) || !m_terminal.open(error))
        return false;
    m_terminalLine.setPortName(m_terminal.devicePath());
    if (!m_terminalLine.open(QIODevice::ReadWrite)) {
        *error = m_terminalLine.errorString();
        return false;
    }
    m_terminalLine.setBaudRate(QSerialPort::Baud19200);
    connect(&m_pc, &Pty::readyRead, this, [this] { take(ToTerminal, m_pc.readAll()); });
    connect(&m_terminalLine, &QSerialPort::readyRead, this, [this] { take(ToPc, m_terminalLine.readAll()); });
    m_puller.start();
    return true;
}

void LineRelay::setClean(bool clean)
{
    m_clean = clean;
    if (clean)
        m_downUntilMs = -1;
}

bool LineRelay::lineDown() const
{
    return m_downUntilMs >= 0 && nowMs() < m_downUntilMs;
}

void LineRelay::take(Direction direction, QByteArray bytes)
{
    if (bytes.isEmpty())
        return;
    if (m_clean) {
        deliver(direction, bytes);
        return;
    }
    if (lineDown() || chance(m_faults.dropChunk)) {
        m_lost += bytes.size();
        return;
    }
    QByteArray kept;
    kept.reserve(bytes.size());
    for (char b : std::as_const(bytes)) {
        if (chance(m_faults.dropByte)) {
            ++m_lost;
            continue;
        }
        if (chance(m_faults.corruptByte)) {
            ++m_corrupted;
            b = static_cast<char>(m_random.bounded(256));
        }
        kept += b;
    }
    QList<QByteArray> parts{kept};
    if (kept.size() > 1 && chance(m_faults.splitChunk)) {
        const int at = 1 + static_cast<int>(m_random.bounded(static_cast<int>(kept.size()) - 1));
        parts = {kept.left(at), kept.mid(at)};
    }
    for (const QByteArray& part : std::as_const(parts)) {
        const qint64 delay = m_faults.maxDelayMs > 0 ? m_random.bounded(m_faults.maxDelayMs + 1) : 0;
        // Bytes on one wire never overtake each other.
        const qint64 due = std::max(nowMs() + delay, m_lastDue[direction]);
        m_lastDue[direction] = due;
        m_queue[direction].append({due, part});
    }
    release();
}

void LineRelay::release()
{
    qint64 next = -1;
    for (int d = 0; d < 2; ++d) {
        QList<Chunk>& queue = m_queue[d];
        while (!queue.isEmpty() && queue.first().dueMs <= nowMs()) {
            const QByteArray bytes = queue.takeFirst().bytes;
            if (lineDown())
                m_lost += bytes.size();
            else
                deliver(static_cast<Direction>(d), bytes);
        }
        if (!queue.isEmpty())
            next = next < 0 ? queue.first().dueMs : std::min(next, queue.first().dueMs);
    }
    if (next >= 0)
        m_releaser.start(static_cast<int>(std::max<qint64>(0, next - nowMs())));
}

void LineRelay::deliver(Direction direction, const QByteArray& bytes)
{
    if (direction == ToTerminal)
        m_terminalLine.write(bytes);
    else
        m_pc.write(bytes);
}
