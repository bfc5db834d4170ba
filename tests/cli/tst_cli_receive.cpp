#include "store/SettingsStore.h"
#include "terminal/Pty.h"
#include "terminal/UploadRecords.h"
#include "terminal/UploadTerminal.h"
#include "tests/support/CliReceiveFixture.h"
#include "tests/support/TestContext.h"

#include "store/AuditTrail.h"
#include <QFile>
#include <QProcess>

#include <QDirIterator>
#include <QRegularExpression>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QtTest>
#include <signal.h>

// 'tonvy-cli receive' as a separate process against the simulated terminal
// on a pseudo-terminal held by the test.
class tst_CliReceive : public QObject, protected CliReceiveFixture
{
    Q_OBJECT

    // The upload file holds one line for each collection, with the
    // terminal's amounts.
    void checkUploadFile()
    {
        QFile file(t->path(QStringLiteral("0011611u.txt")));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QList<QByteArray> lines = file.readAll().split('\n');
        int count = 0;
        for (const QByteArray& line : lines)
            count += line.trimmed().isEmpty() ? 0 : 1;
        QCOMPARE(count, records.transactionCount);
        QSqlQuery q(t->db.connection());
        QVERIFY(q.exec(QStringLiteral("SELECT count(*), sum(CAST(Amtcollected AS REAL)), "
                                      "count(DISTINCT TransactionNumber) FROM RestoreData")));
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toInt(), records.transactionCount);
        QCOMPARE(qRound64(q.value(1).toDouble()), records.totalAmount);
        QCOMPARE(q.value(2).toInt(), records.transactionCount);
    }

    // What a receive changes: the stored rows of the agent and its history,
    // the files owed, and every file in the bank and data folders but the
    // database itself.
    struct Snapshot
    {
        QStringList rows;
        QMap<QString, QByteArray> files;
        bool operator==(const Snapshot&) const = default;
    };

    Snapshot snapshot()
    {
        Snapshot shot;
        for (const char* table : {"RestoreData", "CollectionHistory", "PendingOutputs"}) {
            QSqlQuery q(t->db.connection());
            if (!q.exec(QStringLiteral("SELECT * FROM %1 ORDER BY rowid").arg(QLatin1String(table))))
                qFatal("cannot read %s", table);
            while (q.next()) {
                QStringList fields{QLatin1String(table)};
                for (int i = 0; i < q.record().count(); ++i)
                    fields << q.value(i).toString();
                shot.rows << fields.join(QLatin1Char('|'));
            }
        }
        QDirIterator it(t->dir.path(), QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            if (QFileInfo(path).fileName().startsWith(QLatin1String("HandHeldData.db")))
                continue;
            QFile f(path);
            shot.files.insert(path, f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<unreadable>"));
        }
        return shot;
    }

    AuditTrail::Event lastEvent()
    {
        const QList<AuditTrail::Event> events = AuditTrail::read(t->db);
        return events.isEmpty() ? AuditTrail::Event() : events.last();
    }

private slots:
    void init() { setUp(); }

    void cleanup() { tearDown(); }

    void completedReceiveExitsZero()
    {
        prepare();
        const Result r = receive({});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        const int n = records.recordCount();
        QVERIFY(r.out.contains(QStringLiteral("Records Received : %1 / %1\n").arg(n)));
        QVERIFY(r.out.contains(QStringLiteral("Records Received : 1 / %1\n").arg(n)));
        QVERIFY(r.out.contains(QStringLiteral("Upload Completed Successfully\n")));
        QCOMPARE(terminal->overCount(), 1);
        QVERIFY(QFile::exists(t->path(QStringLiteral("0011611u.txt"))));
    }

    void receiveKeepsTheAgentNumberTheReportFindsItBy()
    {
        // A bank identifier of digits only, and another agent's ending in
        // the same digits already in the history.
        prepare({}, QStringLiteral("0417000001"));
        t->db.execute(QStringLiteral("INSERT INTO CollectionHistory (AgentID, AgentNo, CollectionDate, AccountNo, "
                                     "ClosingPaise, CollectedPaise) VALUES (?, ?, ?, ?, ?, ?)"),
                      {QStringLiteral("0517000001     "), QStringLiteral("051"), QStringLiteral("2007-11-16"),
                       QStringLiteral("999999"), 100000, 12345});
        const Result r = receive({});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));

        // Every collection of the receive carries the summary's agent number
        // beside the header's identifier.
        QSqlQuery q(t->db.connection());
        QVERIFY(
            q.prepare(QStringLiteral("SELECT AgentNo, count(*), sum(CollectedPaise), min(CollectionDate), "
                                     "max(CollectionDate) FROM CollectionHistory WHERE AgentID = ? GROUP BY AgentNo")));
        q.addBindValue(accounts.agentId);
        QVERIFY(q.exec());
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), QStringLiteral("001"));
        QCOMPARE(q.value(1).toInt(), records.transactionCount);
        QCOMPARE(q.value(2).toLongLong(), records.totalAmount * 100);
        // The day takes its decade from the day of the receive.
        const QString day = q.value(3).toString();
        QCOMPARE(q.value(4).toString(), day);
        QVERIFY(!q.next());
        t->db.execute(QStringLiteral("UPDATE CollectionHistory SET CollectionDate = ? WHERE AgentNo = '051'"), {day});

        // The report by that number lists this agent's collections only.
        const QString csv = t->path(QStringLiteral("agent1.csv"));
        QProcess report;
        report.start(m_cli, {QStringLiteral("--data-dir"), t->dir.path(), QStringLiteral("report"),
                             QStringLiteral("daily"), QStringLiteral("--from"), day, QStringLiteral("--to"), day,
                             QStringLiteral("--agent"), QStringLiteral("1"), QStringLiteral("--output"), csv});
        QVERIFY(report.waitForFinished(scaledMs(30000)));
        QVERIFY2(report.exitCode() == 0, report.readAllStandardError().constData());
        QFile file(csv);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QStringList lines = QString::fromUtf8(file.readAll()).split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), records.transactionCount + 1);
        double total = 0;
        for (const QString& line : lines.mid(1)) {
            QVERIFY2(line.startsWith(day + QLatin1Char(',') + accounts.agentId + QLatin1Char(',')), qPrintable(line));
            total += line.section(QLatin1Char(','), 4, 4).toDouble();
        }
        QCOMPARE(qRound64(total), records.totalAmount);
    }

    void totalsThatDisagreeExitOne()
    {
        UploadRecords::Options o;
        o.summaryMismatch = true;
        prepare(o);
        const Result r = receive({});
        QCOMPARE(r.exitCode, 1);
        QVERIFY(r.err.contains(QStringLiteral("Serious Problem While Uploading \n")));
    }

    void checkFailuresWithQuitExitOne()
    {
        prepare();
        terminal->faults().corruptNext = 15;
        const Result r = receive({QStringLiteral("--on-crc-failure"), QStringLiteral("quit")});
        QCOMPARE(r.exitCode, 1);
        QVERIFY(r.err.contains(QStringLiteral("Error in CRC,Press OK to try again or Cancel to Quit")));
        QVERIFY(r.out.contains(QStringLiteral("> Cancel")));
    }

    void checkFailuresWithRetryGoOn()
    {
        prepare();
        terminal->faults().corruptNext = 15;
        const Result r = receive({QStringLiteral("--on-crc-failure"), QStringLiteral("retry")});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        QVERIFY(r.out.contains(QStringLiteral("> OK")));
    }

    void silentTerminalGivesUp()
    {
        prepare();
        terminal->faults().mute = true;
        const Result r = receive({QStringLiteral("--give-up-after"), QStringLiteral("1")});
        QCOMPARE(r.exitCode, 3);
        QVERIFY(r.err.contains(QStringLiteral("Gave up after 1 seconds")));
    }

    void lateReplyEndsWithExactlyTheTerminalsData()
    {
        prepare();
        pty->setBaud(19200);
        terminal->faults().delayRecord = 3;
        terminal->faults().delayMs = 1300;
        const Result r = receive({});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        checkUploadFile();
    }

    void requestAnsweredWithAnotherRecordEndsWithExactlyTheTerminalsData()
    {
        prepare();
        terminal->faults().misreadRecord = 2;
        terminal->faults().misreadAs = 3;
        const Result r = receive({});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        checkUploadFile();
    }

    void bytesLeftOnTheLineAreNotTheHeader()
    {
        prepare();
        // A whole reply of an interrupted exchange, waiting before the port
        // opens: it would pass the check as a header.
        pty->write(records.reply(3));
        const Result r = receive({});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        checkUploadFile();
        QCOMPARE(terminal->requests().first(), 0);
    }

    // Ctrl+C or SIGTERM in the middle of a receive ends it as Exit on the
    // screen: the port closed, nothing stored, the agent's rows and the files
    // as the receive before left them; the command says so on standard
    // error, writes it to the audit trail and exits with 128 + the signal.
    void interruptedReceiveStoresNothing_data()
    {
        QTest::addColumn<int>("signal");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("by");
        QTest::newRow("Ctrl+C") << int(SIGINT) << 130 << "Ctrl+C (SIGINT)";
        QTest::newRow("SIGTERM") << int(SIGTERM) << 143 << "SIGTERM";
    }

    void interruptedReceiveStoresNothing()
    {
        QFETCH(int, signal);
        QFETCH(int, code);
        QFETCH(QString, by);
        prepare({}, {}, 12);
        collect(84, 11);
        // Paced as a cable: the receive cannot race past the signal.
        pty->setBaud(19200);
        const Result first = receive({});
        QVERIFY2(first.exitCode == 0, qPrintable(first.out + first.err));
        const Snapshot before = snapshot();
        QVERIFY(before.files.contains(t->path(QStringLiteral("0011611u.txt"))));

        // Other collections: a receive that went through would change both.
        collect(60, 12);
        const int n = records.recordCount();
        const Result r = receiveInterrupted(QStringLiteral("Records Received : 1 / %1\n").arg(n), signal);
        QCOMPARE(r.status, QProcess::NormalExit);
        QCOMPARE(r.exitCode, code);
        const QRegularExpression said(
            QStringLiteral("^Stopped by %1: the receive ended after (\\d+) of %2 records and nothing was stored\\.\n"
                           "The agent's stored collections and the bank folder are as they were\\. Put the terminal "
                           "in upload mode again and run the receive again\\.\n$")
                .arg(QRegularExpression::escape(by))
                .arg(n));
        const QRegularExpressionMatch m = said.match(r.err);
        QVERIFY2(m.hasMatch(), qPrintable(r.err));
        const int received = m.captured(1).toInt();
        QVERIFY2(received >= 1 && received < n, qPrintable(r.err));
        QVERIFY(!r.out.contains(QStringLiteral("Upload Completed")));

        QVERIFY(snapshot() == before);
        const AuditTrail::Event event = lastEvent();
        QCOMPARE(event.action, QStringLiteral("receive"));
        QCOMPARE(event.details, QStringLiteral("agent 001 (%1), date 1611: stopped by %2 on the command line after %3 "
                                               "of %4 records received; nothing stored")
                                    .arg(accounts.agentId.trimmed(), by)
                                    .arg(received)
                                    .arg(n));
    }

    // Before the terminal has answered at all the agent is not known yet.
    void interruptedBeforeTheSummary()
    {
        prepare();
        terminal->faults().mute = true;
        const Result r = receiveInterrupted(QString(), SIGTERM);
        QCOMPARE(r.status, QProcess::NormalExit);
        QCOMPARE(r.exitCode, 143);
        QCOMPARE(r.err, QStringLiteral("Stopped by SIGTERM: the receive ended before the terminal's summary arrived "
                                       "and nothing was stored.\n"
                                       "The agent's stored collections and the bank folder are as they were. Put the "
                                       "terminal in upload mode again and run the receive again.\n"));
        QCOMPARE(r.out, QString());
        QCOMPARE(lastEvent().details, QStringLiteral("stopped by SIGTERM on the command line before the terminal's "
                                                     "summary arrived; nothing stored"));
        QSqlQuery q(t->db.connection());
        QVERIFY(q.exec(QStringLiteral("SELECT count(*) FROM RestoreData")) && q.next());
        QCOMPARE(q.value(0).toInt(), 0);
    }

    void badOptionIsAUsageError()
    {
        const Result r = receive({QStringLiteral("--on-crc-failure"), QStringLiteral("maybe")});
        QCOMPARE(r.exitCode, 2);
    }
};

QTEST_GUILESS_MAIN(tst_CliReceive)
#include "tst_cli_receive.moc"
