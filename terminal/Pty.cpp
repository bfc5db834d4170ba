#include "terminal/Pty.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

Pty::Pty(QObject* parent) : QObject(parent)
{
    m_pacer.setTimerType(Qt::PreciseTimer);
    m_pacer.setInterval(1);
    connect(&m_pacer, &QTimer::timeout, this, &Pty::drain);
    m_clock.start();
    m_upAgain.setSingleShot(true);
    connect(&m_upAgain, &QTimer::timeout, this, [this] { setLineDown(false); });
}

Pty::~Pty()
{
    if (m_master >= 0)
        ::close(m_master);
    if (m_slaveKeepAlive >= 0)
        ::close(m_slaveKeepAlive);
}

bool Pty::open(QString* error)
{
    auto fail = [&](const char* what) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(QLatin1String(what), QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    };
    m_master = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (m_master < 0)
        return fail("posix_openpt");
    if (::grantpt(m_master) != 0 || ::unlockpt(m_master) != 0)
        return fail("grantpt/unlockpt");
    const char* name = ::ptsname(m_master);
    if (!name)
        return fail("ptsname");
    m_slavePath = QString::fromLocal8Bit(name);

    // Holding the slave open keeps the master readable while the program
    // closes and reopens its port between transfers.
    m_slaveKeepAlive = ::open(name, O_RDWR | O_NOCTTY);
    if (m_slaveKeepAlive < 0)
        return fail("open slave");
    termios tio{};
    if (::tcgetattr(m_slaveKeepAlive, &tio) != 0)
        return fail("tcgetattr");
    ::cfmakeraw(&tio);
    ::cfsetispeed(&tio, B19200);
    ::cfsetospeed(&tio, B19200);
    if (::tcsetattr(m_slaveKeepAlive, TCSANOW, &tio) != 0)
        return fail("tcsetattr");

    const int flags = ::fcntl(m_master, F_GETFL);
    ::fcntl(m_master, F_SETFL, flags | O_NONBLOCK);
    m_notifier = new QSocketNotifier(m_master, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char buf[4096];
        for (;;) {
            const ssize_t n = ::read(m_master, buf, sizeof buf);
            if (n > 0) {
                if (m_down)
                    m_dropped += n;
                else
                    m_incoming.append(buf, n);
                continue;
            }
            break;
        }
        if (!m_incoming.isEmpty())
            emit readyRead();
    });
    return true;
}

QByteArray Pty::readAll()
{
    QByteArray out;
    out.swap(m_incoming);
    return out;
}

void Pty::setLineDown(bool down)
{
    m_down = down;
    if (!down) {
        m_upAgain.stop();
        return;
    }
    m_dropped += m_queue.size() + m_incoming.size();
    m_queue.clear();
    m_incoming.clear();
    m_pacer.stop();
}

void Pty::dropFor(int ms)
{
    setLineDown(true);
    m_upAgain.start(ms);
}

void Pty::write(const QByteArray& bytes)
{
    if (m_master < 0 || bytes.isEmpty())
        return;
    if (m_down) {
        m_dropped += bytes.size();
        return;
    }
    if (m_baud <= 0) {
        m_queue.append(bytes);
        drain();
        return;
    }
    const double now = static_cast<double>(m_clock.nsecsElapsed()) / 1e6;
    if (m_queue.isEmpty() || m_lineFreeAtMs < now)
        m_lineFreeAtMs = now;
    m_queue.append(bytes);
    if (!m_pacer.isActive())
        m_pacer.start();
    drain();
}

void Pty::drain()
{
    qsizetype allowed = m_queue.size();
    if (m_baud > 0) {
        // Send what a line at this speed would have sent by now.
        const double msPerByte = 10.0 * 1000.0 / m_baud;
        const double now = static_cast<double>(m_clock.nsecsElapsed()) / 1e6;
        const double budget = now - m_lineFreeAtMs;
        allowed = budget <= 0 ? 0 : std::min<qsizetype>(m_queue.size(), static_cast<qsizetype>(budget / msPerByte) + 1);
        if (allowed > 0)
            m_lineFreeAtMs += static_cast<double>(allowed) * msPerByte;
    }
    while (allowed > 0) {
        const ssize_t n = ::write(m_master, m_queue.constData(), static_cast<size_t>(allowed));
        if (n <= 0)
            break;
        m_queue.remove(0, n);
        allowed -= n;
    }
    if (m_queue.isEmpty())
        m_pacer.stop();
    else if (!m_pacer.isActive())
        m_pacer.start();
}
