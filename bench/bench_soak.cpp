// Soak run: many downloads through a bad cable (a relay between two
// pseudo-terminals that corrupts, loses, splits and delays bytes and pulls
// the line now and then) against the simulated terminal. Prints how many
// completed with the terminal holding exactly the accounts sent, how many
// ended with a message, how many hung, and how many finished with wrong
// data. The last two must be 0.
//
//   bench_soak [--sends N] [--accounts N] [--seed S] [--timeout-ms MS]
//
// --timeout-ms shortens the response time-out (1000 ms on the real screen)
// and the header wait with it, for a quicker run.

#include "base/Clock.h"
#include "bench/LineRelay.h"
#include "link/DownloadSession.h"
#include "link/LinkPort.h"
#include "terminal/DownloadTerminal.h"
#include "terminal/TerminalAccounts.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QMap>
#include <QTimer>
#include <cstdio>

namespace {

QList<DownloadAccount> makeAccounts(int n, int send)
{
    QList<DownloadAccount> accounts;
    for (int i = 1; i <= n; ++i)
        accounts.append({QString::number(i % 10), QStringLiteral("DDS%1").arg(send % 100, 2, 10, QLatin1Char('0')),
                         QStringLiteral("%1").arg(send * 1000 + i, 15, 10, QLatin1Char('0')),
                         QStringLiteral("HOLDER %1 OF SEND %2").arg(i).arg(send),
                         QString::number((send * 7919 + i * 104729) % 100000000), QString::number((i * 37) % 100000),
                         QStringLiteral("0102%1").arg(i % 100, 2, 10, QLatin1Char('0')), QStringLiteral("      ")});
    return accounts;
}

// What the terminal must hold after the download: each frame as it decodes it.
QList<TerminalAccount> expectedAccounts(const QList<DownloadAccount>& accounts)
{
    QList<TerminalAccount> out;
    LinkCodec codec;
    for (int i = 0; i < accounts.size(); ++i)
        out.append(TerminalAccounts::accountFromFrame(DownloadFrames::record(accounts.at(i), i + 2, codec)));
    return out;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption sendsOption(QStringLiteral("sends"), QStringLiteral("Downloads to run."),
                                         QStringLiteral("N"), QStringLiteral("100"));
    const QCommandLineOption accountsOption(QStringLiteral("accounts"), QStringLiteral("Accounts per download."),
                                            QStringLiteral("N"), QStringLiteral("20"));
    const QCommandLineOption seedOption(QStringLiteral("seed"), QStringLiteral("Seed of the faults."),
                                        QStringLiteral("S"), QStringLiteral("1"));
    const QCommandLineOption timeoutOption(QStringLiteral("timeout-ms"), QStringLiteral("Response time-out."),
                                           QStringLiteral("MS"), QStringLiteral("1000"));
    parser.addOptions({sendsOption, accountsOption, seedOption, timeoutOption});
    parser.process(app);
    const int sends = parser.value(sendsOption).toInt();
    const int accountsPerSend = parser.value(accountsOption).toInt();
    const int timeoutMs = std::max(10, parser.value(timeoutOption).toInt());
    const double scale = timeoutMs / 1000.0;

    LineRelay relay(parser.value(seedOption).toUInt());
    QString error;
    if (!relay.open(&error)) {
        std::fprintf(stderr, "cannot set up the relay: %s\n", qPrintable(error));
        return 1;
    }
    LineRelay::Faults faults;
    faults.corruptByte = 0.002;
    faults.dropChunk = 0.01;
    faults.dropByte = 0.001;
    faults.splitChunk = 0.2;
    faults.maxDelayMs = static_cast<int>(150 * scale);
    faults.pullsPerMinute = 4 / scale;
    faults.pullMinMs = static_cast<int>(500 * scale);
    faults.pullMaxMs = static_cast<int>(13000 * scale);
    relay.setFaults(faults);

    DownloadTerminal terminal(&relay.terminalPty());
    terminal.attach();

    FixedClock clock{QDateTime(QDate(2007, 11, 16), QTime(9, 0))};
    LinkPort port;
    const QString device = relay.pcDevice();
    port.setDeviceLookup([device] { return device; });
    DownloadSession session(port, clock);
    session.timer2().setInterval(timeoutMs);
    session.headerWatch().setInterval(5 * timeoutMs);
    session.Form_Load();

    int correct = 0;
    int withMessage = 0;
    int hung = 0;
    int wrong = 0;
    QMap<QString, int> endings;
    QElapsedTimer total;
    total.start();
    for (int send = 1; send <= sends; ++send) {
        DownloadJob job;
        job.agentDateKey = QStringLiteral("0051611");
        job.fileName = QStringLiteral("Bank/0051611d.txt");
        job.branchId = QStringLiteral("BR0001         ");
        job.agentId = QStringLiteral("AG%1").arg(send, 4, 10, QLatin1Char('0')).leftJustified(15);
        job.transactions = QStringLiteral("5");
        job.downloadPassword = QStringLiteral("1111");
        job.setupPassword = QStringLiteral("2222");
        job.bankName = QStringLiteral("TONVY BANK");
        job.branchName = QStringLiteral("MAIN ROAD");
        job.fontSize = QStringLiteral("0");
        job.accounts = makeAccounts(accountsPerSend, send);
        job.recordCount = static_cast<int>(job.accounts.size());

        QEventLoop loop;
        QString ending;
        enum { Running, Completed, Stopped, Hung } outcome = Running;
        const auto onMessage = QObject::connect(&session, &DownloadSession::message, &loop,
                                                [&ending](const SessionMessage& m) { ending = m.text; });
        const auto onCompleted = QObject::connect(&session, &DownloadSession::completed, &loop, [&] {
            outcome = Completed;
            loop.quit();
        });
        const auto onStopped = QObject::connect(&session, &DownloadSession::stopped, &loop, [&] {
            outcome = Stopped;
            loop.quit();
        });
        // Far beyond what a download of this size needs, pulls included.
        QTimer deadline;
        deadline.setSingleShot(true);
        QObject::connect(&deadline, &QTimer::timeout, &loop, [&] {
            outcome = Hung;
            loop.quit();
        });
        deadline.start(static_cast<int>((60000 + accountsPerSend * 2000) * scale));
        // Each download from a freshly opened send screen: a second one from
        // the same screen would find "download complete" still set and never
        // resend, as the original did.
        session.Form_Load();
        session.prepareSend();
        session.FirstProtocol(job);
        if (outcome == Running)
            loop.exec();
        QObject::disconnect(onMessage);
        QObject::disconnect(onCompleted);
        QObject::disconnect(onStopped);

        const char* verdict = "";
        if (outcome == Completed) {
            if (terminal.state().accounts == expectedAccounts(job.accounts) &&
                terminal.state().agentId == job.agentId) {
                ++correct;
                verdict = "completed correctly";
            } else {
                ++wrong;
                verdict = "WRONG DATA";
                const QList<TerminalAccount> expected = expectedAccounts(job.accounts);
                const QList<TerminalAccount>& got = terminal.state().accounts;
                int firstDiff = -1;
                for (int i = 0; i < std::min(expected.size(), got.size()) && firstDiff < 0; ++i)
                    if (!(expected.at(i) == got.at(i)))
                        firstDiff = i;
                std::printf("  terminal holds %lld accounts for %s (expected %lld for %s), end frames %d, first "
                            "difference at %d\n",
                            static_cast<long long>(got.size()), qPrintable(terminal.state().agentId),
                            static_cast<long long>(expected.size()), qPrintable(job.agentId),
                            terminal.endFramesReceived(), firstDiff);
            }
        } else if (outcome == Stopped) {
            ++withMessage;
            ++endings[ending.section(QLatin1Char('\n'), 0, 0)];
            verdict = "ended with a message";
        } else {
            ++hung;
            verdict = "HUNG";
            session.stopTransfer();
        }
        if (outcome == Stopped)
            std::printf("send %3d: %s (%s)\n", send, verdict, qPrintable(ending.section(QLatin1Char('\n'), 0, 0)));
        else
            std::printf("send %3d: %s\n", send, verdict);
        std::fflush(stdout);
    }

    std::printf("\n%d downloads of %d accounts in %.1f s (response time-out %d ms)\n", sends, accountsPerSend,
                static_cast<double>(total.elapsed()) / 1000.0, timeoutMs);
    std::printf("  completed correctly:   %d\n", correct);
    std::printf("  ended with a message:  %d\n", withMessage);
    for (auto it = endings.cbegin(); it != endings.cend(); ++it)
        std::printf("      %3d x %s\n", it.value(), qPrintable(it.key()));
    std::printf("  hung:                  %d\n", hung);
    std::printf("  wrong data:            %d\n", wrong);
    std::printf("cable: %lld bytes corrupted, %lld bytes lost, %d pulls\n",
                static_cast<long long>(relay.bytesCorrupted()), static_cast<long long>(relay.bytesLost()),
                relay.pulls());
    return hung == 0 && wrong == 0 ? 0 : 1;
}
