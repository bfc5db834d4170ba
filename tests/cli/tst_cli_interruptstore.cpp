#include "cli/CliCommands.h"
#include "cli/ConsoleMessenger.h"
#include "store/AuditTrail.h"
#include "tests/support/CliReceiveFixture.h"

#include <QSqlQuery>
#include <QtTest>
#include <signal.h>

// Ctrl+C while a receive is being stored: storing runs to its end (rows,
// files and audit event together) and only then does the command stop. The
// receive command runs in this process, so that the signal can be raised at
// the moment the storing starts: the restore step lets the event loop run
// once (a kept habit, at transaction number 394), which is where the signal
// is read.
class tst_CliInterruptStore : public QObject, protected CliReceiveFixture
{
    Q_OBJECT

    // Raises SIGINT when the queued call that starts the storing is
    // delivered to the receive flow.
    class RaiseAtStoring : public QObject
    {
    public:
        bool raised = false;

    protected:
        bool eventFilter(QObject* watched, QEvent* event) override
        {
            if (!raised && event->type() == QEvent::MetaCall && watched->inherits("ReceiveFlow")) {
                raised = true;
                ::raise(SIGINT);
            }
            return false;
        }
    };

    int runReceive()
    {
        const QList<CliCommand> commands = allCliCommands();
        const CliCommand* receive = nullptr;
        for (const CliCommand& c : commands) {
            if (c.name == QLatin1String("receive"))
                receive = &c;
        }
        QCommandLineParser parser;
        parser.addOptions(receive->options);
        if (!parser.parse({QStringLiteral("tonvy-cli"), QStringLiteral("receive")}))
            return -2;
        ConsoleMessenger messenger;
        CliRun run{*t->ctx, messenger, parser, {}};
        return receive->run(run);
    }

    int count(const QString& sql)
    {
        QSqlQuery q(t->db.connection());
        return q.exec(sql) && q.next() ? q.value(0).toInt() : -1;
    }

private slots:
    void init() { setUp(); }

    void cleanup() { tearDown(); }

    void storingRunsToItsEnd()
    {
        prepare();
        // Numbered from 1: transaction 394 is there, and with it the moment
        // the restore step lets the event loop run.
        collect(400, 3);
        t->ctx->portOverride = pty->devicePath();
        t->ctx->settings.load(t->db);

        RaiseAtStoring raiser;
        QCoreApplication::instance()->installEventFilter(&raiser);
        const int code = runReceive();
        QCoreApplication::instance()->removeEventFilter(&raiser);

        QVERIFY(raiser.raised);
        QCOMPARE(code, 130);
        // Stored whole: every collection, the upload file, nothing owed.
        QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), records.transactionCount);
        QCOMPARE(count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);
        QVERIFY(QFile::exists(t->path(QStringLiteral("0011611u.txt"))));
        const QList<AuditTrail::Event> events = AuditTrail::read(t->db);
        QVERIFY(events.size() >= 2);
        QVERIFY2(events.at(events.size() - 2).details.contains(QStringLiteral("upload file")),
                 qPrintable(events.at(events.size() - 2).details));
        QCOMPARE(events.last().action, QStringLiteral("receive"));
        QCOMPARE(events.last().details,
                 QStringLiteral("agent 001 (%1), date 1611: stopped by Ctrl+C (SIGINT) on the command line while "
                                "being stored; the storing was finished first")
                     .arg(accounts.agentId.trimmed()));
    }
};

QTEST_GUILESS_MAIN(tst_CliInterruptStore)
#include "tst_cli_interruptstore.moc"
