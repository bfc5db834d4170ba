#include "SendCommand.h"

#include "AppContext.h"
#include "ConsoleMessenger.h"
#include "SendFlow.h"

#include <QEventLoop>
#include <QTimer>

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
    if (!allCharsIn(transactions.trimmed(), QLatin1Char('7')))
        return cliUsageError(QStringLiteral("--transactions takes the digits 0 to 7 only."));

    int giveUpAfter = 0;
    if (p.isSet(QStringLiteral("give-up-after"))) {
        bool ok = false;
        giveUpAfter = p.value(QStringLiteral("give-up-after")).toInt(&ok);
        if (!ok || giveUpAfter < 1)
            return cliUsageError(QStringLiteral("--give-up-after takes a number of seconds, 1 or more."));
    }

    SendFlow flow(run.ctx);
    flow.Form_Load();

    QEventLoop loop;
    int outcome = -1;
    auto finish = [&](int code) {
        if (outcome < 0) {
            outcome = code;
            loop.exit(code);
        }
    };
    QObject::connect(&flow, &SendFlow::progress, &loop, [](int acknowledged, int total) {
        ConsoleMessenger::line(QStringLiteral("Record Sent : %1 / %2").arg(acknowledged).arg(total));
    });
    QObject::connect(&flow, &SendFlow::completed, &loop, [&] { finish(CliExit::Success); });
    QObject::connect(&flow, &SendFlow::stopped, &loop, [&] { finish(CliExit::Failure); });

    QTimer giveUp;
    giveUp.setSingleShot(true);
    QObject::connect(&giveUp, &QTimer::timeout, &loop, [&] {
        run.messenger.critical(
            QStringLiteral("Gave up after %1 seconds: the terminal did not finish the download.").arg(giveUpAfter));
        finish(CliExit::GaveUp);
    });

    const SendFlow::Result result = flow.cmdSend(agent, date, transactions);
    if (result != SendFlow::Result::Started) {
        flow.Form_Unload();
        return CliExit::Failure;
    }
    if (outcome < 0) {
        if (giveUpAfter > 0)
            giveUp.start(giveUpAfter * 1000);
        loop.exec();
    }
    flow.Form_Unload();
    return outcome;
}

} // namespace

CliCommand sendCommand()
{
    CliCommand c;
    c.name = QStringLiteral("send");
    c.synopsis =
        QStringLiteral("send --agent N --date DDMM [--transactions N] [--give-up-after SECONDS]\n"
                       "             sends the agent's download file to the terminal, as the Send button does");
    c.addOptions = [](QCommandLineParser& p) {
        p.addOption({QStringLiteral("agent"), QStringLiteral("Agent number (digits)."), QStringLiteral("N")});
        p.addOption(
            {QStringLiteral("date"), QStringLiteral("Date of the download file, ddmm."), QStringLiteral("DDMM")});
        p.addOption({QStringLiteral("transactions"),
                     QStringLiteral("Number of transactions (digits 0 to 7; default 1)."), QStringLiteral("N")});
        p.addOption({QStringLiteral("give-up-after"),
                     QStringLiteral("Stop waiting for the terminal after this many seconds (exit status 3)."),
                     QStringLiteral("SECONDS")});
    };
    c.run = [](CliRun& r) { return run(r); };
    return c;
}
