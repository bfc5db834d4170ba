#include "cli/TransferWait.h"

#include "base/Messenger.h"
#include "cli/CliCommand.h"

#include <QCommandLineParser>

QCommandLineOption TransferWait::option()
{
    return {QStringLiteral("give-up-after"),
            QStringLiteral("Stop waiting for the terminal after this many seconds (exit status 3)."),
            QStringLiteral("SECONDS")};
}

bool TransferWait::readOption(const QCommandLineParser& parser, int* seconds)
{
    *seconds = 0;
    if (!parser.isSet(QStringLiteral("give-up-after")))
        return true;
    bool ok = false;
    *seconds = parser.value(QStringLiteral("give-up-after")).toInt(&ok);
    return ok && *seconds >= 1;
}

TransferWait::TransferWait(Messenger& messenger, int giveUpAfter, const QString& what) : m_giveUpAfter(giveUpAfter)
{
    m_interrupts.onInterrupt([this](int signal) { finish(InterruptWatch::exitCode(signal)); });
    m_giveUp.setSingleShot(true);
    QObject::connect(&m_giveUp, &QTimer::timeout, &m_loop, [this, &messenger, what] {
        messenger.critical(QStringLiteral("Gave up after %1 seconds: the terminal did not finish the %2.")
                               .arg(m_giveUpAfter)
                               .arg(what));
        finish(CliExit::GaveUp);
    });
}

void TransferWait::finish(int code)
{
    if (m_outcome >= 0)
        return;
    m_outcome = code;
    m_loop.exit(code);
}

int TransferWait::wait()
{
    if (m_outcome < 0) {
        if (m_giveUpAfter > 0)
            m_giveUp.start(m_giveUpAfter * 1000);
        m_loop.exec();
    }
    m_giveUp.stop();
    return m_outcome;
}
