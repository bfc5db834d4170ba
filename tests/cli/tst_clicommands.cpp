#include "cli/CliCommands.h"
#include "cli/ConsoleMessenger.h"
#include "store/AppSettings.h"
#include "store/AuditTrail.h"
#include "tests/support/TestContext.h"

#include <QtTest>

// The tonvy-cli commands run in this process, on a test database: the
// library the program is made of, without starting the program.
class tst_CliCommands : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestContext> t;

    // Parses the words after the program name as tonvy-cli does for one
    // command and runs it.
    int run(const QStringList& words)
    {
        const QList<CliCommand> commands = allCliCommands();
        const CliCommand* command = nullptr;
        for (const CliCommand& c : commands) {
            if (c.name == words.value(0))
                command = &c;
        }
        if (!command)
            return -1;
        QCommandLineParser parser;
        parser.addOptions(command->options);
        if (!parser.parse(QStringList{QStringLiteral("tonvy-cli")} + words))
            return -2;
        QStringList positional = parser.positionalArguments();
        positional.removeFirst();
        ConsoleMessenger messenger;
        CliRun cliRun{*t->ctx, messenger, parser, positional};
        return command->run(cliRun);
    }

private slots:
    void init() { t = std::make_unique<TestContext>(); }

    void everyCommandIsInTheLibrary()
    {
        QStringList names;
        for (const CliCommand& c : allCliCommands()) {
            names << c.name;
            QVERIFY2(c.run, qPrintable(c.name));
            QVERIFY2(c.synopsis.startsWith(c.name), qPrintable(c.name));
        }
        names.sort();
        QCOMPARE(names,
                 (QStringList{"audit", "backup", "password", "receive", "report", "restore", "send", "settings"}));
    }

    void backupGoesToBackupsWithTheClocksTime()
    {
        QCOMPARE(run({"backup"}), CliExit::Success);
        QVERIFY(QFile::exists(t->path(QStringLiteral("Backups/HandHeldData-2007-11-16-102030.db"))));
        // A second copy in the same second gets a name of its own.
        QCOMPARE(run({"backup"}), CliExit::Success);
        QVERIFY(QFile::exists(t->path(QStringLiteral("Backups/HandHeldData-2007-11-16-102030-2.db"))));
    }

    void settingsSetStoresAndAudits()
    {
        QCOMPARE(
            run({"settings", "set", "--bank-name", "Union Bank", "--branch-name", "Main Road", "--comm-port", "2"}),
            CliExit::Success);
        AppSettings stored;
        QVERIFY(stored.load(t->db));
        QCOMPARE(stored.BankName, QStringLiteral("Union Bank"));
        QCOMPARE(stored.BranchName, QStringLiteral("Main Road"));
        QCOMPARE(stored.CommPort, QStringLiteral("2"));
        // The context the other commands share sees the new settings at once.
        QCOMPARE(t->ctx->settings.BankName, QStringLiteral("Union Bank"));
        const QList<AuditTrail::Event> events = AuditTrail::read(t->db);
        QVERIFY(!events.isEmpty());
        QCOMPARE(events.last().action, QStringLiteral("settings"));
    }

    void refusedEntryChangesNothing_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::newRow("bank name over 48") << QStringList{"settings", "set", "--bank-name", QString(49, 'B')};
        QTest::newRow("branch name over 22") << QStringList{"settings", "set", "--branch-name", QString(23, 'R')};
        QTest::newRow("comm port 11") << QStringList{"settings", "set", "--comm-port", "11"};
        QTest::newRow("font size medium") << QStringList{"settings", "set", "--font-size", "medium"};
        QTest::newRow("no sub-command") << QStringList{"settings"};
    }

    void refusedEntryChangesNothing()
    {
        QFETCH(QStringList, words);
        const int before = AuditTrail::read(t->db).size();
        QCOMPARE(run(words), CliExit::Usage);
        AppSettings stored;
        stored.load(t->db);
        QVERIFY(stored.BankName.isEmpty());
        QCOMPARE(AuditTrail::read(t->db).size(), before);
    }

    void auditWritesTheTrail()
    {
        QCOMPARE(run({"settings", "set", "--bank-name", "Union Bank"}), CliExit::Success);
        const QString out = t->path(QStringLiteral("trail.csv"));
        QCOMPARE(run({"audit", "--output", out}), CliExit::Success);
        QFile f(out);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), AuditTrail::toCsv(AuditTrail::read(t->db)));
    }
};

QTEST_GUILESS_MAIN(tst_CliCommands)
#include "tst_clicommands.moc"
