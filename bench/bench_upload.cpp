// A 2000-record receive over a pseudo-terminal against the simulated
// terminal at full speed: how long the exchange takes, and separately how
// long decoding, storing and writing the three files take.

#include "core/AppContext.h"
#include "base/Clock.h"
#include "base/Messenger.h"
#include "link/UploadSession.h"
#include "store/SharedDatabase.h"
#include "terminal/Pty.h"
#include "terminal/UploadRecords.h"
#include "terminal/UploadTerminal.h"
#include "upload/ReceiveFlow.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>

namespace {

class PrintingMessenger : public Messenger
{
public:
    void show(const QString& text, Icon, const QString&, const QString&) override
    {
        messages << text;
        std::printf("  message: %s\n", qPrintable(text));
    }
    bool askOkCancel(const QString& text, Icon, const QString&) override
    {
        messages << text;
        std::printf("  question: %s -> OK\n", qPrintable(text));
        return true;
    }
    QStringList messages;
};

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    constexpr int records = 2000;
    const QDate day(2007, 11, 16);

    QTemporaryDir dir;
    SharedDatabase db;
    QString error;
    if (!dir.isValid() || !db.open(QDir(dir.path()).filePath(SharedDatabase::fileName()), &error)) {
        std::fprintf(stderr, "cannot open a database: %s\n", qPrintable(error));
        return 1;
    }
    PrintingMessenger messenger;
    FixedClock clock{QDateTime(day, QTime(18, 30))};
    AppContext ctx(db, messenger, clock);
    ctx.dataDir = dir.path();
    ctx.settings.BankInfoPath = dir.path();

    Pty pty;
    if (!pty.open(&error)) {
        std::fprintf(stderr, "cannot open a pseudo-terminal: %s\n", qPrintable(error));
        return 1;
    }
    UploadTerminal terminal(&pty);
    terminal.attach();
    const TerminalAccounts accounts = UploadRecords::sampleAccounts(records, day);
    UploadRecords replies;
    if (!UploadRecords::build(accounts, UploadRecords::generate(accounts, records, day), {}, &replies, &error)) {
        std::fprintf(stderr, "cannot build the replies: %s\n", qPrintable(error));
        return 1;
    }
    terminal.setRecords(replies);

    // The accounts as a download from this PC would have left them, so that
    // every look-up of the restore step finds its row.
    {
        SharedDatabase::Transaction transaction(db);
        for (const TerminalAccount& a : accounts.accounts)
            db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, BalAmount, "
                                      "AgreedAmount, CustomerCode, BranchID, AgentID, MyDate, BankSoftACNumber) "
                                      "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
                       {a.categoryCode, a.schemeCode, a.accountNumber, a.name.trimmed(), a.balance.toInt(),
                        a.agreedAmount.toInt(), QStringLiteral("C") + a.accountNumber.right(6), accounts.branchId,
                        accounts.agentId, a.lastTxnDate, QStringLiteral("SB") + a.accountNumber.right(8)});
        transaction.commit();
    }

    ctx.portOverride = pty.devicePath();
    ReceiveFlow flow(ctx);
    QElapsedTimer exchange;
    QElapsedTimer restoreTimer;
    qint64 exchangeNs = 0;
    qint64 restoreNs = 0;
    bool restored = false;
    bool overSeen = false;
    bool completed = false;
    QObject::connect(&flow.session(), &UploadSession::finished, &app, [&] {
        exchangeNs = exchange.nsecsElapsed();
        flow.session().timer3().stop();
        restoreTimer.start();
    });
    // Done once the restore step has run and the end frame has reached the terminal.
    QObject::connect(&flow, &ReceiveFlow::completed, &app, [&](bool ok) {
        restoreNs = restoreTimer.nsecsElapsed();
        restored = ok;
        completed = true;
        if (overSeen)
            app.quit();
    });
    QObject::connect(&terminal, &UploadTerminal::overReceived, &app, [&] {
        overSeen = true;
        if (completed)
            app.quit();
    });
    QObject::connect(&flow, &ReceiveFlow::stopped, &app, [&] { app.exit(1); });
    QObject::connect(&flow, &ReceiveFlow::message, &app,
                     [](const SessionMessage& m) { std::fprintf(stderr, "%s\n", qPrintable(m.text)); });
    QTimer::singleShot(120000, &app, [&] {
        std::fprintf(stderr, "no end after two minutes\n");
        app.exit(1);
    });

    if (!flow.Form_Load())
        return 1;
    exchange.start();
    flow.cmdSend_Click();
    const int rc = app.exec();
    flow.Form_Unload();
    if (rc != 0)
        return rc;

    std::printf("records received: %d, requests answered: %d, end frames: %d\n", records, terminal.repliesSent(),
                terminal.overCount());
    std::printf("exchange (header to last record): %.1f ms (%.3f ms a record)\n", exchangeNs / 1e6,
                exchangeNs / 1e6 / (records + 2));
    std::printf("decoding, storing and writing the three files: %.1f ms (%s)\n", restoreNs / 1e6,
                restored ? "completed" : "reported a problem");
    return restored ? 0 : 1;
}
