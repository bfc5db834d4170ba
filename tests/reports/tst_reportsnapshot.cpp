#include "reports/ReportData.h"
#include "reports/ReportPages.h"
#include "reports/ReportRenderer.h"
#include "reports/ReportSnapshot.h"
#include "tests/reports/YearOfHistory.h"
#include "tests/support/TestContext.h"

#include <QElapsedTimer>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QtTest>

// The report's snapshot of the history: the same report as straight from
// the database; a receive committed between two weeks of the copy makes it
// start again, so the report never mixes before and after; and between
// weeks no lock is held, so such a receive does not wait.
class tst_ReportSnapshot : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void sameReportAsFromTheDatabase_data();
    void sameReportAsFromTheDatabase();
    void receiveBetweenWeeksIsNeverHalfIn();
    void aDatabaseThatKeepsChangingIsCopiedInOneTransaction();
    void emptyRangeGivesAnEmptyReport();

private:
    // A connection of another program writing to the same file.
    bool openWriter(int busyMs);
    bool write(const QStringList& statements, QString* error = nullptr);
    QString csvFrom(SharedDatabase& db, const ReportLimits& limits);

    std::unique_ptr<TestContext> t;
};

void tst_ReportSnapshot::init()
{
    t = std::make_unique<TestContext>();
    QString error;
    // 90 days of two agents of 30 accounts, and rows the report must
    // print as they are: no amounts, another spelling of an agent.
    QVERIFY2(addDaysOfHistory(t->db.connection(), QDate(2025, 1, 1), 90, 2, 30, &error), qPrintable(error));
    t->db.execute("INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, ClosingPaise, CollectedPaise) "
                  "VALUES ('001', '2025-02-10', '000000000000077', NULL, NULL)");
    t->db.execute("INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, ClosingPaise, CollectedPaise) "
                  "VALUES ('AG0000000000001', '2025-03-31', '000000000000078', 99, 1)");
}

void tst_ReportSnapshot::cleanup()
{
    ReportSnapshot::setAfterChunkHook({});
    {
        QSqlDatabase writer = QSqlDatabase::database(QStringLiteral("writer"), false);
        if (writer.isValid())
            writer.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("writer"));
    t.reset();
}

bool tst_ReportSnapshot::openWriter(int busyMs)
{
    QSqlDatabase writer = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("writer"));
    writer.setDatabaseName(t->db.filePath());
    writer.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(busyMs));
    return writer.open();
}

bool tst_ReportSnapshot::write(const QStringList& statements, QString* error)
{
    QSqlDatabase writer = QSqlDatabase::database(QStringLiteral("writer"), false);
    QSqlQuery q(writer);
    bool ok = q.exec(QStringLiteral("BEGIN IMMEDIATE"));
    for (const QString& s : statements) {
        if (ok)
            ok = q.exec(s);
    }
    if (ok)
        ok = q.exec(QStringLiteral("COMMIT"));
    if (!ok) {
        if (error)
            *error = q.lastError().text();
        q.exec(QStringLiteral("ROLLBACK"));
    }
    return ok;
}

QString tst_ReportSnapshot::csvFrom(SharedDatabase& db, const ReportLimits& limits)
{
    return ReportRenderer::dailyCsv(ReportData::daily(db, limits));
}

void tst_ReportSnapshot::sameReportAsFromTheDatabase_data()
{
    QTest::addColumn<QDate>("from");
    QTest::addColumn<QDate>("to");
    QTest::addColumn<QString>("agent");
    QTest::addColumn<QString>("account");
    QTest::newRow("every day") << QDate(2024, 12, 1) << QDate(2025, 12, 31) << ""
                               << "";
    QTest::newRow("one day") << QDate(2025, 2, 10) << QDate(2025, 2, 10) << ""
                             << "";
    QTest::newRow("ten days across two weeks") << QDate(2025, 1, 5) << QDate(2025, 1, 14) << ""
                                               << "";
    QTest::newRow("one agent") << QDate(2025, 1, 1) << QDate(2025, 3, 31) << "AG0000000000002"
                               << "";
    QTest::newRow("one account") << QDate(2025, 1, 1) << QDate(2025, 3, 31) << ""
                                 << "100000000001005";
}

void tst_ReportSnapshot::sameReportAsFromTheDatabase()
{
    QFETCH(QDate, from);
    QFETCH(QDate, to);
    QFETCH(QString, agent);
    QFETCH(QString, account);
    const ReportLimits limits{from, to, agent, account};
    const QString expected = csvFrom(t->db, limits);
    QVERIFY(expected.count(QStringLiteral("\r\n")) > 1);

    ReportSnapshot snapshot(t->db, limits);
    QCOMPARE(snapshot.attempts(), 1);
    QCOMPARE(csvFrom(snapshot.db(), limits), expected);
    // What the command writes, read through its own snapshot.
    QCOMPARE(ReportRenderer::csv(t->db, ReportKind::Daily, limits), expected);

    // The printed pages too, page by page.
    const ReportHeader header{QStringLiteral("GRAMIN BANK"), QStringLiteral("KOTHRUD"), QDate(2025, 4, 1)};
    const auto live = ReportPages::make(t->db, ReportKind::Daily, limits, header);
    const auto copied = ReportPages::make(snapshot.db(), ReportKind::Daily, limits, header);
    QCOMPARE(copied->pageCount(), live->pageCount());
    QCOMPARE(copied->grandTotal(), live->grandTotal());
    for (int i = 0; i < live->pageCount(); ++i)
        QCOMPARE(copied->pageText(i), live->pageText(i));
}

void tst_ReportSnapshot::receiveBetweenWeeksIsNeverHalfIn()
{
    QVERIFY(openWriter(3000));
    const ReportLimits limits{QDate(2025, 1, 1), QDate(2025, 3, 31), {}, {}};
    const QString before = csvFrom(t->db, limits);
    int commits = 0;
    qint64 slowest = 0;
    // A receive of agent 1 that replaces its first and its last day, stored
    // while the snapshot is between its second and third week.
    ReportSnapshot::setAfterChunkHook([&](int attempt, int chunk) {
        if (attempt != 1 || chunk != 1)
            return;
        QElapsedTimer took;
        took.start();
        QString error;
        const bool ok = write({"DELETE FROM CollectionHistory WHERE AgentID = 'AG0000000000001' AND CollectionDate IN "
                               "('2025-01-01', '2025-03-31')",
                               "INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, ClosingPaise, "
                               "CollectedPaise) VALUES ('AG0000000000001', '2025-01-01', '100000000001999', 1, 12345)",
                               "INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, ClosingPaise, "
                               "CollectedPaise) VALUES ('AG0000000000001', '2025-03-31', '100000000001999', 1, 67890)"},
                              &error);
        QVERIFY2(ok, qPrintable(error));
        slowest = took.elapsed();
        ++commits;
    });
    ReportSnapshot snapshot(t->db, limits);
    QCOMPARE(commits, 1);
    // Not held up: no lock is kept between the weeks.
    QVERIFY2(slowest < 1000, qPrintable(QString::number(slowest)));
    QCOMPARE(snapshot.attempts(), 2);
    QVERIFY(!snapshot.tookOneTransaction());
    const QString after = csvFrom(t->db, limits);
    QVERIFY(after != before);
    // The whole receive, in the first week and in the last.
    const QString shown = csvFrom(snapshot.db(), limits);
    QCOMPARE(shown, after);
    QVERIFY(shown.contains(QStringLiteral("2025-01-01,AG0000000000001,100000000001999,0.01,123.45\r\n")));
    QVERIFY(shown.contains(QStringLiteral("2025-03-31,AG0000000000001,100000000001999,0.01,678.90\r\n")));
}

void tst_ReportSnapshot::aDatabaseThatKeepsChangingIsCopiedInOneTransaction()
{
    QVERIFY(openWriter(200));
    const ReportLimits limits{QDate(2025, 1, 1), QDate(2025, 3, 31), {}, {}};
    int n = 0;
    bool refusedDuringTheLastTry = false;
    ReportSnapshot::setAfterChunkHook([&](int attempt, int chunk) {
        if (chunk != 2)
            return;
        const QString insert = QStringLiteral("INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, "
                                              "ClosingPaise, CollectedPaise) VALUES ('AG0000000000002', "
                                              "'2025-02-0%1', '1000000000029%1', 1, 100)")
                                   .arg(++n);
        if (attempt <= ReportSnapshot::chunkedTries) {
            QString error;
            QVERIFY2(write({insert}, &error), qPrintable(error));
        } else {
            // The last try holds its read transaction to the end: a writer
            // waits for it (here it gives up after 0.2 s).
            refusedDuringTheLastTry = !write({insert});
        }
    });
    ReportSnapshot snapshot(t->db, limits);
    QCOMPARE(snapshot.attempts(), ReportSnapshot::chunkedTries + 1);
    QVERIFY(snapshot.tookOneTransaction());
    QVERIFY(refusedDuringTheLastTry);
    QCOMPARE(csvFrom(snapshot.db(), limits), csvFrom(t->db, limits));
}

void tst_ReportSnapshot::emptyRangeGivesAnEmptyReport()
{
    const ReportLimits limits{QDate(2030, 1, 1), QDate(2030, 12, 31), {}, {}};
    ReportSnapshot snapshot(t->db, limits);
    QCOMPARE(csvFrom(snapshot.db(), limits), csvFrom(t->db, limits));
    QCOMPARE(ReportRenderer::csv(t->db, ReportKind::Daily, limits),
             QStringLiteral("Date,AgentID,Account No,Closing Amount,Collected Amount\r\n"));
}

QTEST_MAIN(tst_ReportSnapshot)
#include "tst_reportsnapshot.moc"
