#pragma once

#include <QString>
#include <functional>
#include <memory>

class QSocketNotifier;

// SIGINT (Ctrl+C) and SIGTERM while a command talks to the terminal. The
// signal handler only writes the signal's number into a pipe, which is all a
// handler may safely do; the event loop reads it and the command stops the
// transfer as Exit does on the screen, says what was interrupted and ends
// with 128 + the signal's number. Outside the watch the signals keep their
// usual effect. One watch at a time.
class InterruptWatch
{
public:
    InterruptWatch();
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    // Called from the event loop with the first signal caught; later ones
    // change nothing.
    void onInterrupt(std::function<void(int signal)> handler) { m_handler = std::move(handler); }
    // The first signal caught (0: none), reading one still waiting in the
    // pipe, for code that ran without the event loop.
    int caught();

    // 130 for SIGINT, 143 for SIGTERM.
    static int exitCode(int signal) { return 128 + signal; }
    // "Ctrl+C (SIGINT)", "SIGTERM".
    static QString name(int signal);

private:
    void readPipe();

    int m_pipe[2] = {-1, -1};
    int m_signal = 0;
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::function<void(int)> m_handler;
};
