#include "cli/ReceiveCommand.h"

#include "app/AppContext.h"
#include "cli/ConsoleMessenger.h"
#include "cli/TransferWait.h"
#include "upload/ReceiveFlow.h"

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

    ReceiveFlow flow(run.ctx);
    TransferWait transfer(run.messenger, giveUpAfter, QStringLiteral("upload"));
    QObject* loop = transfer.context();

    flow.setAcceptMismatch(p.isSet(QStringLiteral("accept-mismatch")));
    QObject::connect(&flow, &ReceiveFlow::outcomeReady, loop, [](const RestoreStore::ReceiveOutcome& outcome) {
        for (const QString& line : outcome.reconciliation)
            ConsoleMessenger::line(line);
    });
    QObject::connect(&flow, &ReceiveFlow::message, loop,
                     [&run](const SessionMessage& m) { run.messenger.show(m.text, messengerIcon(m.icon), {}, m.detail); });
    // Asked and answered at once by the --on-crc-failure policy; the answer
    // goes back after the handler that asked has returned.
    QObject::connect(&flow, &ReceiveFlow::crcQuestion, loop, [&run, &flow, loop](const SessionMessage& q) {
        const bool ok = run.messenger.askOkCancel(q.text, messengerIcon(q.icon));
        QTimer::singleShot(0, loop, [&flow, ok] { flow.answerCrcQuestion(ok); });
    });
    QObject::connect(&flow, &ReceiveFlow::progress, loop, [](int received, int total) {
        ConsoleMessenger::line(QStringLiteral("Records Received : %1 / %2").arg(received).arg(total));
    });
    QObject::connect(&flow, &ReceiveFlow::summaryDecoded, loop, [&flow] {
        const UploadSummary& s = flow.summary();
        ConsoleMessenger::line(QStringLiteral("Agent ID : %1").arg(s.AgentId));
        ConsoleMessenger::line(QStringLiteral("Date (ddmm) : %1").arg(s.CollectionDate));
        ConsoleMessenger::line(QStringLiteral("Total No. of Transactions: %1").arg(s.TotalTransactions));
        ConsoleMessenger::line(QStringLiteral("Total Amount Collected: %1").arg(s.totalAmountText()));
    });
    // The first completed receive ends the command: the screen would go on
    // repeating the last request, which a one-shot command has no use for.
    // The end frame may still be in the port's write buffer; the loop runs
    // a little longer so that it reaches the terminal before the port is
    // closed.
    QObject::connect(&flow, &ReceiveFlow::completed, loop, [&](bool restored) {
        flow.session().timer3().stop();
        const int code = restored ? CliExit::Success : CliExit::Failure;
        QTimer::singleShot(200, loop, [&transfer, code] { transfer.finish(code); });
    });
    QObject::connect(&flow, &ReceiveFlow::stopped, loop, [&] { transfer.finish(CliExit::Failure); });
    QObject::connect(&flow, &ReceiveFlow::closeRequested, loop, [&] {
        // The request after Cancel is written; let it leave before closing.
        QTimer::singleShot(100, loop, [&transfer] { transfer.finish(CliExit::Failure); });
    });

    if (!flow.Form_Load()) {
        flow.Form_Unload();
        return CliExit::Failure;
    }
    flow.cmdSend_Click();
    const int outcome = transfer.wait();
    flow.Form_Unload();
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
