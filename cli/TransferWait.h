#pragma once

#include "cli/Interruption.h"

#include <QCommandLineOption>
#include <QEventLoop>
#include <QString>
#include <QTimer>

class Messenger;
class QCommandLineParser;

// Waits for a transfer with the terminal to end, or for --give-up-after to
// run out: what the send and receive commands have in common.
class TransferWait
{
public:
    // --give-up-after SECONDS.
    static QCommandLineOption option();
    // Reads --give-up-after (0 when not given). False for a bad value.
    static bool readOption(const QCommandLineParser& parser, int* seconds);

    // `what` names the transfer in the give-up message ("download").
    TransferWait(Messenger& messenger, int giveUpAfter, const QString& what);

    // Ends the wait with this exit status; the first call wins.
    void finish(int code);
    bool finished() const { return m_outcome >= 0; }
    // Runs the event loop until finish() (at once if already finished).
    int wait();
    // The object to connect the transfer's signals to.
    QObject* context() { return &m_loop; }

    // SIGINT and SIGTERM from this wait's start on. Unless the command
    // handles them, the wait ends with 130 or 143.
    InterruptWatch& interrupts() { return m_interrupts; }

private:
    QEventLoop m_loop;
    InterruptWatch m_interrupts;
    QTimer m_giveUp;
    int m_giveUpAfter;
    int m_outcome = -1;
};
