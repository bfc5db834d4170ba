#include "cli/SendCommand.h"

#include "base/DayText.h"
#include "cli/ConsoleMessenger.h"
#include "cli/TransferWait.h"
#include "core/AppContext.h"
#include "download/SendFlow.h"

namespace {

bool allCharsIn(const QString& text, QChar highest)
{
    for (const QChar c : text) {
        if (c < QLatin1Char('0') || c > highest)
            return false;
    }
    return true;
}

int run(CliRun& run)
{
    const QCommandLineParser& p = run.parser;
    if (!run.arguments.isEmpty())
        return cliUsageError(
            QStringLiteral("'send' takes options only: send --agent N --date DDMM [--transactions N]."));

    // The same characters the send screen's boxes let through.
    const QString agent = p.value(QStringLiteral("agent"));
    const QString date = p.value(QStringLiteral("date"));
    QString transactions = p.value(QStringLiteral("transactions"));
    if (!allCharsIn(agent.trimmed(), QLatin1Char('9')))
        return cliUsageError(QStringLiteral("--agent takes digits only."));
    if (!allCharsIn(date.trimmed(), QLatin1Char('9')))
        return cliUsageError(QStringLiteral("--date takes digits only (ddmm)."));
    // Fewer digits are taken as they stand, as the send screen takes them.
    if (const DayText::Reading day = DayText::readDayMonth(date); day.shaped && !day.date.isValid())
        return cliUsageError(DayText::noSuchDayText(QStringLiteral("--date"), date, day));
    if (!allCharsIn(transactions.trimmed(), QLatin1Char('7')))
        return cliUsageError(QStringLiteral("--transactions takes the digits 0 to 7 only."));

    int giveUpAfter = 0;
    if (!TransferWait::readOption(p, &giveUpAfter))
        return cliUsageError(QStringLiteral("--give-up-after takes a number of seconds, 1 or more."));

    SendFlow flow(run.ctx);
    // Information on standard output, refusals and failures on standard error.
    QObject::connect(&flow, &SendFlow::message, &flow,
                     [&run](const QString& text, Messenger::Icon icon, const QString& detail) {
                         run.messenger.show(text, icon, {}, detail);
                     });
    flow.Form_Load();

    TransferWait transfer(run.messenger, giveUpAfter, QStringLiteral("download"));
    int acknowledged = 0;
    QObject::connect(&flow, &SendFlow::progress, transfer.context(), [&acknowledged](int count, int total) {
        acknowledged = count;
        ConsoleMessenger::line(QStringLiteral("Record Sent : %1 / %2").arg(count).arg(total));
    });
    QObject::connect(&flow, &SendFlow::completed, transfer.context(), [&] { transfer.finish(CliExit::Success); });
    QObject::connect(&flow, &SendFlow::stopped, transfer.context(), [&] { transfer.finish(CliExit::Failure); });
    // As Exit on the screen: nothing more is sent and the port is closed;
    // the send's end goes to the audit trail.
    transfer.interrupts().onInterrupt([&](int signal) {
        transfer.finish(InterruptWatch::exitCode(signal));
        const QString by = InterruptWatch::name(signal);
        const int total = flow.job().recordCount;
        flow.stopTransfer(QStringLiteral("stopped by %1 on the command line after %2 of %3 accounts acknowledged")
                              .arg(by)
                              .arg(acknowledged)
                              .arg(total));
        run.messenger.critical(
            QStringLiteral("Stopped by %1: the send to the terminal ended after %2 of %3 accounts; the terminal does "
                           "not hold the whole download.")
                .arg(by)
                .arg(acknowledged)
                .arg(total),
            {}, QStringLiteral("Put the terminal in download mode again and run the send again."));
    });

    const SendFlow::Result result = flow.cmdSend(agent, date, transactions);
    if (result != SendFlow::Result::Started) {
        flow.Form_Unload();
        const int signal = transfer.interrupts().caught();
        return signal ? InterruptWatch::exitCode(signal) : CliExit::Failure;
    }
    const int outcome = transfer.wait();
    flow.Form_Unload();
    return outcome;
}

} // namespace

CliCommand sendCommand()
{
    return CliCommand{
        .name = QStringLiteral("send"),
        .synopsis =
            QStringLiteral("send --agent N --date DDMM [--transactions N] [--give-up-after SECONDS]\n"
                           "             sends the agent's download file to the terminal, as the Send button does"),
        .options =
            {
                {QStringLiteral("agent"), QStringLiteral("Agent number (digits)."), QStringLiteral("N")},
                {QStringLiteral("date"), QStringLiteral("Date of the download file, ddmm."), QStringLiteral("DDMM")},
                {QStringLiteral("transactions"), QStringLiteral("Number of transactions (digits 0 to 7; default 1)."),
                 QStringLiteral("N")},
                TransferWait::option(),
            },
        .run = [](CliRun& r) { return run(r); },
    };
}
