#include "store/AuditTrail.h"
#include "store/SettingsStore.h"
#include "terminal/Pty.h"
#include "terminal/UploadRecords.h"
#include "terminal/UploadTerminal.h"
#include "tests/support/CliReceiveFixture.h"
#include "tests/support/TestContext.h"

#include <QSqlQuery>
#include <QtTest>

// 'tonvy-cli receive' against the simulated terminal on a pseudo-terminal:
// a receive that disagrees with the terminal's summary replaces nothing
// unless the clerk accepts it, and every receive prints its reconciliation.
class tst_CliReceiveCheck : public QObject, protected CliReceiveFixture
{
    Q_OBJECT

    int restoredRows()
    {
        QSqlQuery q(t->db.connection());
        q.exec(QStringLiteral("SELECT count(*) FROM RestoreData"));
        q.next();
        return q.value(0).toInt();
    }

    QString uploadFile() const { return t->path(QStringLiteral("0011611u.txt")); }

private slots:
    void init() { setUp(); }

    void cleanup() { tearDown(); }

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
