#include "AuditTrail.h"
#include "Pty.h"
#include "SettingsStore.h"
#include "TestContext.h"
#include "TestTiming.h"
#include "UploadRecords.h"
#include "UploadTerminal.h"

#include <QProcess>
#include <QSqlQuery>
#include <QtTest>

// 'tonvy-cli receive' against the simulated terminal on a pseudo-terminal:
// a receive that disagrees with the terminal's summary replaces nothing
// unless the clerk accepts it, and every receive prints its reconciliation.
class tst_CliReceiveCheck : public QObject
{
    Q_OBJECT

    QString m_cli;
    std::unique_ptr<TestContext> t;
    std::unique_ptr<Pty> pty;
    std::unique_ptr<UploadTerminal> terminal;
    TerminalAccounts accounts;
    UploadRecords records;

    struct Result
    {
        int exitCode = -1;
        QString out;
        QString err;
    };

    void prepare(const UploadRecords::Options& options = {})
    {
        const QDate day(2007, 11, 16);
        accounts = UploadRecords::sampleAccounts(3, day);
        const QList<Collection> collections = UploadRecords::generate(accounts, 5, day, 11);
        QString error;
        QVERIFY2(UploadRecords::build(accounts, collections, options, &records, &error), qPrintable(error));
        terminal->setRecords(records);
        for (const TerminalAccount& a : accounts.accounts)
            t->db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, "
                                         "BalAmount, AgreedAmount, AgentID, BranchID, MyDate) "
                                         "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"),
                          {a.categoryCode, a.schemeCode, a.accountNumber, a.name.trimmed(), a.balance.toInt(),
                           a.agreedAmount.toInt(), accounts.agentId, accounts.branchId, a.lastTxnDate});
    }

    Result receive(const QStringList& options)
    {
        QProcess p;
        p.start(m_cli, QStringList{QStringLiteral("--data-dir"), t->dir.path(), QStringLiteral("--port"),
                                   pty->devicePath(), QStringLiteral("receive")} +
                           options);
        Result r;
        if (!p.waitForStarted())
            return r;
        QElapsedTimer clock;
        clock.start();
        while (p.state() != QProcess::NotRunning && clock.elapsed() < scaledMs(30000)) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
            p.waitForFinished(5);
        }
        QCoreApplication::processEvents();
        r.exitCode = p.exitCode();
        r.out = QString::fromLocal8Bit(p.readAllStandardOutput());
        r.err = QString::fromLocal8Bit(p.readAllStandardError());
        return r;
    }

    int restoredRows()
    {
        QSqlQuery q(t->db.connection());
        q.exec(QStringLiteral("SELECT count(*) FROM RestoreData"));
        q.next();
        return q.value(0).toInt();
    }

    QString uploadFile() const { return t->path(QStringLiteral("0011611u.txt")); }

private slots:
    void initTestCase() { m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + QStringLiteral("/tonvy-cli"); }

    void init()
    {
        t = std::make_unique<TestContext>();
        SettingsChange change;
        change.bankInfoPath = t->dir.path();
        change.commPort = QStringLiteral("1");
        SettingsStore::save(t->db, change);
        pty = std::make_unique<Pty>();
        QString error;
        QVERIFY2(pty->open(&error), qPrintable(error));
        terminal = std::make_unique<UploadTerminal>(pty.get());
        terminal->attach();
    }

    void cleanup()
    {
        terminal.reset();
        pty.reset();
        t.reset();
    }

    void correctReceivePrintsTheReconciliation()
    {
        prepare();
        const Result r = receive({});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        QVERIFY(r.out.contains(QStringLiteral("Accounts downloaded to the terminal: 3\n")));
        QVERIFY(r.out.contains(QStringLiteral("Collections for the upload file: 5, total ")));
        QVERIFY(r.out.contains(QStringLiteral("- agrees\n")));
        QVERIFY(!r.out.contains(QStringLiteral("Left out of the upload file:")));
        QVERIFY(r.out.contains(QStringLiteral("Upload Completed Successfully\n")));
        QVERIFY(QFile::exists(uploadFile()));
    }

    void mismatchRefusedThenAccepted()
    {
        UploadRecords::Options o;
        o.summaryMismatch = true;
        prepare(o);
        Result r = receive({});
        QCOMPARE(r.exitCode, 1);
        QVERIFY2(r.err.contains(QStringLiteral("Serious Problem While Uploading \nThe terminal's summary gives 5 "
                                               "transactions")),
                 qPrintable(r.err));
        QVERIFY(r.out.contains(QStringLiteral("DISAGREES")));
        QCOMPARE(restoredRows(), 0);
        QVERIFY(!QFile::exists(uploadFile()));

        r = receive({QStringLiteral("--accept-mismatch")});
        QCOMPARE(r.exitCode, 1);
        QVERIFY(r.err.contains(QStringLiteral("Serious Problem While Uploading \n")));
        QCOMPARE(restoredRows(), 5);
        QVERIFY(QFile::exists(uploadFile()));
        const QList<AuditTrail::Event> events = AuditTrail::read(t->db);
        QVERIFY(events.size() >= 2);
        QCOMPARE(events.last().action, QStringLiteral("receive"));
        QVERIFY2(events.last().details.contains(QStringLiteral("ACCEPTED BY THE CLERK")),
                 qPrintable(events.last().details));
        QVERIFY(events.last().details.contains(QStringLiteral("records received")));
    }

    void unknownAccountNamedInTheReconciliation()
    {
        prepare();
        const TerminalAccount& gone = accounts.accounts.first();
        t->db.execute(QStringLiteral("DELETE FROM BankData WHERE ACNumber = ?"), {gone.accountNumber});
        const Result r = receive({});
        QCOMPARE(r.exitCode, 1);
        QVERIFY(r.err.contains(QStringLiteral("which is not among the agent's downloaded accounts")));
        QVERIFY2(
            r.out.contains(
                QStringLiteral("Left out of the upload file: account %1, amount ").arg(gone.accountNumber.trimmed())) ||
                r.err.contains(gone.accountNumber.trimmed()),
            qPrintable(r.out));
        QCOMPARE(restoredRows(), 0);
        QVERIFY(!QFile::exists(uploadFile()));
    }
};

QTEST_GUILESS_MAIN(tst_CliReceiveCheck)
#include "tst_cli_receivecheck.moc"
