#include "cli/ReceiveCommand.h"

#include "base/Clock.h"
#include "cli/ConsoleMessenger.h"
#include "cli/TransferWait.h"
#include "core/AppContext.h"
#include "store/AuditTrail.h"
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
    int received = 0;
    bool summaryKnown = false;
    bool ended = false;              // the exchange was complete and the restore step ran
    bool interruptedStoring = false; // a signal came while the restore step ran

    bool fileMissing = false; // stored, but a file of the receive is not written
    flow.setAcceptMismatch(p.isSet(QStringLiteral("accept-mismatch")));
    QObject::connect(&flow, &ReceiveFlow::outcomeReady, loop,
                     [&fileMissing](const RestoreStore::ReceiveOutcome& outcome) {
                         for (const QString& line : outcome.reconciliation)
                             ConsoleMessenger::line(line);
                         for (const SessionMessage& m : outcome.messages)
                             fileMissing = fileMissing || m.icon == SessionMessage::Icon::Critical;
                     });
    QObject::connect(&flow, &ReceiveFlow::message, loop, [&run](const SessionMessage& m) {
        run.messenger.show(m.text, messengerIcon(m.icon), {}, m.detail);
    });
    // Asked and answered at once by the --on-crc-failure policy; the answer
    // goes back after the handler that asked has returned.
    QObject::connect(&flow, &ReceiveFlow::crcQuestion, loop, [&run, &flow, loop](const SessionMessage& q) {
        const bool ok = run.messenger.askOkCancel(q.text, messengerIcon(q.icon));
        QTimer::singleShot(0, loop, [&flow, ok] { flow.answerCrcQuestion(ok); });
    });
    QObject::connect(&flow, &ReceiveFlow::progress, loop, [&received](int count, int total) {
        received = count;
        ConsoleMessenger::line(QStringLiteral("Records Received : %1 / %2").arg(count).arg(total));
    });
    QObject::connect(&flow, &ReceiveFlow::summaryDecoded, loop, [&flow, &summaryKnown] {
        summaryKnown = true;
        const UploadSummary& s = flow.summary();
        ConsoleMessenger::line(QStringLiteral("Agent ID : %1").arg(s.AgentId));
        ConsoleMessenger::line(QStringLiteral("Date (ddmm) : %1").arg(s.CollectionDate));
        ConsoleMessenger::line(QStringLiteral("Total No. of Transactions: %1").arg(s.TotalTransactions));
        ConsoleMessenger::line(QStringLiteral("Total Amount Collected: %1").arg(s.totalAmountText()));
    });

    // A receive stopped by a signal is written to the audit trail as every
    // receive is, stored or not; the agent and date once the summary told them.
    auto audit = [&](const QString& what) {
        const UploadSummary& s = flow.summary();
        const QString details = summaryKnown ? QStringLiteral("agent %1 (%2), date %3: %4")
                                                   .arg(s.AgentId, s.BankAgentId.trimmed(), s.CollectionDate, what)
                                             : what;
        QString error;
        if (!AuditTrail::tryRecord(run.ctx.db(), run.ctx.clock().now(), AuditTrail::Action::Receive, details, &error))
            run.messenger.critical(error);
    };
    transfer.interrupts().onInterrupt([&](int signal) {
        const QString by = InterruptWatch::name(signal);
        if (flow.isRestoring()) {
            // Storing runs to its end: the rows, the files and their audit
            // event go in together or not at all. The command ends after it.
            interruptedStoring = true;
            return;
        }
        if (ended) {
            // Only the end frame is still on its way; what the receive did stays.
            run.messenger.critical(QStringLiteral("Stopped by %1 after the receive had ended.").arg(by));
            return;
        }
        // As Exit on the screen: the port is closed and nothing is stored,
        // even when the last record is in and storing was still to come.
        transfer.finish(InterruptWatch::exitCode(signal));
        flow.stop();
        const QString when =
            summaryKnown ? QStringLiteral("after %1 of %2 records").arg(received).arg(flow.summary().TotalRecords)
                         : QStringLiteral("before the terminal's summary arrived");
        run.messenger.critical(
            QStringLiteral("Stopped by %1: the receive ended %2 and nothing was stored.").arg(by, when), {},
            QStringLiteral("The agent's stored collections and the bank folder are as they were. Put the terminal "
                           "in upload mode again and run the receive again."));
        audit(QStringLiteral("stopped by %1 on the command line %2%3; nothing stored")
                  .arg(by, when, summaryKnown ? QStringLiteral(" received") : QString()));
    });

    // The first completed receive ends the command: the screen would go on
    // repeating the last request, which a one-shot command has no use for.
    // The end frame may still be in the port's write buffer; the loop runs
    // a little longer so that it reaches the terminal before the port is
    // closed.
    QObject::connect(&flow, &ReceiveFlow::completed, loop, [&](bool restored) {
        ended = true;
        flow.session().timer3().stop();
        if (interruptedStoring) {
            const QString by = InterruptWatch::name(transfer.interrupts().caught());
            run.messenger.critical(
                QStringLiteral("Stopped by %1 while the receive was being stored: the storing was finished first.")
                    .arg(by),
                {}, QStringLiteral("The messages above say what was stored and written."));
            audit(QStringLiteral("stopped by %1 on the command line while being stored; the storing was finished "
                                 "first")
                      .arg(by));
        }
        // A file the receive could not write (said above) fails the command,
        // even with the collections stored.
        const int code = restored && !fileMissing ? CliExit::Success : CliExit::Failure;
        QTimer::singleShot(200, loop, [&transfer, &flow, loop, code] {
            auto end = [&transfer, code] {
                const int signal = transfer.interrupts().caught();
                transfer.finish(signal ? InterruptWatch::exitCode(signal) : code);
            };
            // The day's copy, started after the receive was stored, is
            // waited for: its outcome is part of what the command says.
            if (flow.isCopying())
                QObject::connect(&flow, &ReceiveFlow::dailyCopyEnded, loop, end);
            else
                end();
        });
    });
    QObject::connect(&flow, &ReceiveFlow::stopped, loop, [&] { transfer.finish(CliExit::Failure); });
    QObject::connect(&flow, &ReceiveFlow::closeRequested, loop, [&] {
        // The request after Cancel is written; let it leave before closing.
        QTimer::singleShot(100, loop, [&transfer] { transfer.finish(CliExit::Failure); });
    });

    if (!flow.Form_Load()) {
        flow.Form_Unload();
        const int signal = transfer.interrupts().caught();
        return signal ? InterruptWatch::exitCode(signal) : CliExit::Failure;
    }
    flow.cmdSend_Click();
    const int outcome = transfer.wait();
    flow.Form_Unload();
    return outcome;
}

} // namespace

CliCommand receiveCommand()
{
    return CliCommand{
        .name = QStringLiteral("receive"),
        .synopsis = QStringLiteral(
            "receive [--on-crc-failure retry|quit] [--give-up-after SECONDS] [--accept-mismatch]\n"
            "             takes the day's collections off the terminal, stores them and writes the bank files,\n"
            "             as the Receive button does"),
        .options =
            {
                {QStringLiteral("on-crc-failure"),
                 QStringLiteral("Answer to \"Error in CRC\" after 15 failures in a row: retry (OK) or quit "
                                "(Cancel, the default)."),
                 QStringLiteral("retry|quit")},
                TransferWait::option(),
                {QStringLiteral("accept-mismatch"),
                 QStringLiteral("Store and write a receive that disagrees with the terminal's summary, as it "
                                "came (written to the audit trail; the exit status stays 1).")},
            },
        .run = [](CliRun& r) { return run(r); },
    };
}
