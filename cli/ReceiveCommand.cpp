#include "ReceiveCommand.h"

#include "AppContext.h"
#include "ConsoleMessenger.h"
#include "RestoreStore.h"
#include "TransferWait.h"
#include "UploadSession.h"

#include <QTimer>

namespace {

int run(CliRun& run)
{
    const QCommandLineParser& p = run.parser;
    if (!run.arguments.isEmpty())
        return cliUsageError(QStringLiteral("'receive' takes options only: receive [--on-crc-failure retry|quit] "
                                            "[--give-up-after SECONDS] [--accept-mismatch]."));

    bool retryOnCrcFailure = false;
    if (p.isSet(QStringLiteral("on-crc-failure"))) {
        const QString policy = p.value(QStringLiteral("on-crc-failure")).trimmed().toLower();
        if (policy == QLatin1String("retry"))
            retryOnCrcFailure = true;
        else if (policy != QLatin1String("quit"))
            return cliUsageError(QStringLiteral("--on-crc-failure takes retry or quit."));
    }
    int giveUpAfter = 0;
    if (!TransferWait::readOption(p, &giveUpAfter))
        return cliUsageError(QStringLiteral("--give-up-after takes a number of seconds, 1 or more."));
    run.messenger.setAnswer([retryOnCrcFailure](const QString&) { return retryOnCrcFailure; });

    UploadSession session(run.ctx);
    TransferWait transfer(run.messenger, giveUpAfter, QStringLiteral("upload"));
    QObject* loop = transfer.context();

    bool restored = false;
    const bool acceptMismatch = p.isSet(QStringLiteral("accept-mismatch"));
    session.setRestoreHandler([&run, &restored, acceptMismatch](UploadSession& s) {
        const RestoreStore::ReceiveOutcome outcome = RestoreStore::processReceive(run.ctx, s.summary(), acceptMismatch);
        for (const QString& line : outcome.reconciliation)
            ConsoleMessenger::line(line);
        RestoreStore::report(run.messenger, outcome);
        restored = outcome.succeeded();
    });
    QObject::connect(&session, &UploadSession::progress, loop, [](int received, int total) {
        ConsoleMessenger::line(QStringLiteral("Records Received : %1 / %2").arg(received).arg(total));
    });
    QObject::connect(&session, &UploadSession::summaryDecoded, loop, [&session] {
        const UploadSummary& s = session.summary();
        ConsoleMessenger::line(QStringLiteral("Agent ID : %1").arg(s.AgentId));
        ConsoleMessenger::line(QStringLiteral("Date (ddmm) : %1").arg(s.CollectionDate));
        ConsoleMessenger::line(QStringLiteral("Total No. of Transactions: %1").arg(s.TotalTransactions));
        ConsoleMessenger::line(QStringLiteral("Total Amount Collected: %1").arg(s.totalAmountText()));
    });
    // The first completed receive ends the command: the screen would go on
    // repeating the last request, which a one-shot command has no use for.
    // The end frame is still in the port's write buffer at this point; the
    // loop runs a little longer so that it reaches the terminal before the
    // port is closed.
    QObject::connect(&session, &UploadSession::finished, loop, [&] {
        session.timer3().stop();
        const int code = restored ? CliExit::Success : CliExit::Failure;
        QTimer::singleShot(200, loop, [&transfer, code] { transfer.finish(code); });
    });
    QObject::connect(&session, &UploadSession::failed, loop, [&] { transfer.finish(CliExit::Failure); });
    QObject::connect(&session, &UploadSession::closeRequested, loop, [&] { transfer.finish(CliExit::Failure); });

    if (!session.Form_Load()) {
        session.closePort();
        return CliExit::Failure;
    }
    session.cmdSend_Click();
    const int outcome = transfer.wait();
    session.closePort();
    return outcome;
}

} // namespace

CliCommand receiveCommand()
{
    CliCommand c;
    c.name = QStringLiteral("receive");
    c.synopsis = QStringLiteral(
        "receive [--on-crc-failure retry|quit] [--give-up-after SECONDS] [--accept-mismatch]\n"
        "             takes the day's collections off the terminal, stores them and writes the bank files,\n"
        "             as the Receive button does");
    c.addOptions = [](QCommandLineParser& p) {
        p.addOption({QStringLiteral("on-crc-failure"),
                     QStringLiteral("Answer to \"Error in CRC\" after 15 failures in a row: retry (OK) or quit "
                                    "(Cancel, the default)."),
                     QStringLiteral("retry|quit")});
        TransferWait::addOption(p);
        p.addOption({QStringLiteral("accept-mismatch"),
                     QStringLiteral("Store and write a receive that disagrees with the terminal's summary, as it "
                                    "came (written to the audit trail; the exit status stays 1).")});
    };
    c.run = [](CliRun& r) { return run(r); };
    return c;
}
