#include "cli/Interruption.h"

#include <QSocketNotifier>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Written by the signal handler, set only while a watch exists.
volatile sig_atomic_t g_writeEnd = -1;

struct sigaction g_previousInt;
struct sigaction g_previousTerm;

extern "C" void onSignal(int signal)
{
    const int saved = errno;
    const unsigned char byte = static_cast<unsigned char>(signal);
    if (g_writeEnd >= 0) [[maybe_unused]]
        const ssize_t written = ::write(g_writeEnd, &byte, 1);
    errno = saved;
}

} // namespace

InterruptWatch::InterruptWatch()
{
    if (::pipe2(m_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        // Without the pipe the signals keep their usual effect.
        m_pipe[0] = m_pipe[1] = -1;
        return;
    }
    g_writeEnd = m_pipe[1];
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, &g_previousInt);
    ::sigaction(SIGTERM, &action, &g_previousTerm);
    m_notifier = std::make_unique<QSocketNotifier>(m_pipe[0], QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(), [this] { readPipe(); });
}

InterruptWatch::~InterruptWatch()
{
    if (m_pipe[0] < 0)
        return;
    ::sigaction(SIGINT, &g_previousInt, nullptr);
    ::sigaction(SIGTERM, &g_previousTerm, nullptr);
    g_writeEnd = -1;
    m_notifier.reset();
    ::close(m_pipe[0]);
    ::close(m_pipe[1]);
}

void InterruptWatch::readPipe()
{
    unsigned char bytes[16];
    int first = 0;
    for (ssize_t n; (n = ::read(m_pipe[0], bytes, sizeof bytes)) > 0;) {
        if (!first)
            first = bytes[0];
    }
    if (!first || m_signal)
        return;
    m_signal = first;
    if (m_handler)
        m_handler(m_signal);
}

int InterruptWatch::caught()
{
    if (!m_signal && m_pipe[0] >= 0) {
        unsigned char bytes[16];
        for (ssize_t n; (n = ::read(m_pipe[0], bytes, sizeof bytes)) > 0;) {
            if (!m_signal)
                m_signal = bytes[0];
        }
    }
    return m_signal;
}

QString InterruptWatch::name(int signal)
{
    if (signal == SIGINT)
        return QStringLiteral("Ctrl+C (SIGINT)");
    if (signal == SIGTERM)
        return QStringLiteral("SIGTERM");
    return QStringLiteral("signal %1").arg(signal);
}
