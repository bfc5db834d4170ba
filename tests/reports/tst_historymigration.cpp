#include "store/SharedDatabase.h"

#include <QDir>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QtTest>

// Databases written by earlier versions brought up to date when they are
// opened: history amounts as REAL rupees become whole paise (version 2), and
// the history gets the terminal's agent number (version 5).
class tst_HistoryMigration : public QObject
{
    Q_OBJECT

private slots:
    void realRupeesBecomeWholePaise();
    void newDatabaseHasPaiseAndTheDayIndex();
    void version4HistoryGetsTheAgentNumber();
    void failedUpgradeLeavesVersion4AsItWas();

private:
    QTemporaryDir m_dir;
};

namespace {

// The history and the report views as version 1 made them.
void makeVersion1(const QString& path)
{
    const QString name = QStringLiteral("version1");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QSqlQuery q(db);
        const QStringList statements = {
            R"(CREATE TABLE CollectionHistory (
                AgentID TEXT NOT NULL, CollectionDate TEXT NOT NULL, AccountNo TEXT,
                ClosingAmt REAL, CollectedAmt REAL, DateTime TEXT,
                TransactionNumber TEXT, ReceivedAt TEXT))",
            "CREATE INDEX CollectionHistoryDay ON CollectionHistory (AgentID, CollectionDate)",
            R"(CREATE VIEW Report1 AS
                SELECT CollectionDate AS "Date", AgentID, AccountNo, ClosingAmt, CollectedAmt
                FROM CollectionHistory)",
            R"(CREATE VIEW Report2 AS
                SELECT AgentID, SUM(CollectedAmt) AS CollectedAmt, CollectionDate AS "Date"
                FROM CollectionHistory GROUP BY AgentID, CollectionDate)",
            "CREATE TABLE Path (SNo TEXT, BankName TEXT, BranchName TEXT, \"Comm Port\" TEXT, FontSize TEXT, "
            "BankInfoPath TEXT, ReportPath TEXT)",
            "CREATE TABLE Password (SNo TEXT, admin TEXT, user TEXT, setup TEXT, download TEXT)",
            "INSERT INTO Password VALUES ('1', 'admin', 'user', '1234', '5678')",
            "CREATE TABLE BankData (CategoryCode TEXT, SchemeCode TEXT, ACNumber TEXT, ACName TEXT, "
            "BalAmount TEXT, AgreedAmount TEXT, OpeningDate TEXT, SNo TEXT, Txndate TEXT, FileName TEXT, "
            "CustomerCode TEXT, BranchID TEXT, AgentID TEXT, MyDate TEXT, BankSoftACNumber TEXT)",
            "CREATE TABLE RestoreData (SNo TEXT, AccountNo TEXT, Amtcollected TEXT, DateTime TEXT, "
            "TransactionNumber TEXT, BranchID TEXT, CategoryCode TEXT, SchemeCode TEXT, CustomerCode TEXT, "
            "AccountName TEXT, BalanceAmount TEXT, AgreedAmount TEXT, LastTxndate TEXT, AgentID TEXT, "
            "DatewiseTxn TEXT, BankSoftACNumber TEXT)",
            "INSERT INTO CollectionHistory VALUES ('001', '2007-11-16', '10010', 2400.25, 0.1, "
            "'16/11/2007 09:00', '0001', '2007-11-16T18:00:00')",
            "INSERT INTO CollectionHistory VALUES ('001', '2007-11-16', '10020', 1500.5, 0.2, "
            "'16/11/2007 09:01', '0002', '2007-11-16T18:00:00')",
            "INSERT INTO CollectionHistory VALUES ('002', '2007-11-16', '20010', NULL, NULL, "
            "'16/11/2007 09:02', '0003', '2007-11-16T18:00:00')",
            "INSERT INTO CollectionHistory VALUES ('002', '2007-11-17', '20020', 'n/a', 12.35, "
            "'17/11/2007 09:02', '0004', '2007-11-17T18:00:00')",
            "INSERT INTO CollectionHistory VALUES ('003', '2007-11-17', '30030', 99999999.99, 0.07, "
            "'17/11/2007 09:03', '0005', '2007-11-17T18:00:00')",
            "PRAGMA user_version = 1",
        };
        for (const QString& sql : statements)
            QVERIFY2(q.exec(sql), qPrintable(q.lastError().text() + "\n" + sql));
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
}

// A database as version 4 left it: the history in paise without the
// terminal's agent number, the audit trail of the receives that stored it,
// and the downloaded accounts.
void makeVersion4(const QString& path, const QStringList& extra = {})
{
    const QString name = QStringLiteral("version4");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QSqlQuery q(db);
        QStringList statements = {
            "CREATE TABLE Path (SNo TEXT, BankName TEXT, BranchName TEXT, \"Comm Port\" TEXT, FontSize TEXT, "
            "BankInfoPath TEXT, ReportPath TEXT)",
            "CREATE TABLE Password (SNo TEXT, admin TEXT, user TEXT, setup TEXT, download TEXT)",
            "INSERT INTO Password VALUES ('1', 'admin', 'user', '1234', '5678')",
            "CREATE TABLE BankData (CategoryCode TEXT, SchemeCode TEXT, ACNumber TEXT, ACName TEXT, "
            "BalAmount TEXT, AgreedAmount TEXT, OpeningDate TEXT, SNo TEXT, Txndate TEXT, FileName TEXT, "
            "CustomerCode TEXT, BranchID TEXT, AgentID TEXT, MyDate TEXT, BankSoftACNumber TEXT)",
            "CREATE TABLE RestoreData (SNo TEXT, AccountNo TEXT, Amtcollected TEXT, DateTime TEXT, "
            "TransactionNumber TEXT, BranchID TEXT, CategoryCode TEXT, SchemeCode TEXT, CustomerCode TEXT, "
            "AccountName TEXT, BalanceAmount TEXT, AgreedAmount TEXT, LastTxndate TEXT, AgentID TEXT, "
            "DatewiseTxn TEXT, BankSoftACNumber TEXT)",
            R"(CREATE TABLE CollectionHistory (
                AgentID TEXT NOT NULL, CollectionDate TEXT NOT NULL, AccountNo TEXT,
                ClosingPaise INTEGER, CollectedPaise INTEGER, DateTime TEXT,
                TransactionNumber TEXT, ReceivedAt TEXT))",
            "CREATE INDEX CollectionHistoryDay ON CollectionHistory (AgentID, CollectionDate)",
            R"(CREATE INDEX CollectionHistoryByDate ON CollectionHistory
                (CollectionDate, AgentID, AccountNo, ClosingPaise, CollectedPaise))",
            R"(CREATE VIEW Report1 AS
                SELECT CollectionDate AS "Date", AgentID, AccountNo,
                    ClosingPaise AS ClosingAmt, CollectedPaise AS CollectedAmt
                FROM CollectionHistory)",
            R"(CREATE VIEW Report2 AS
                SELECT AgentID, SUM(CollectedPaise) AS CollectedAmt, CollectionDate AS "Date"
                FROM CollectionHistory GROUP BY CollectionDate, AgentID)",
            R"(CREATE TABLE AuditTrail (
                Id INTEGER PRIMARY KEY AUTOINCREMENT, Time TEXT NOT NULL, User TEXT NOT NULL,
                Action TEXT NOT NULL, Details TEXT NOT NULL, Version TEXT NOT NULL))",
            R"(CREATE TABLE PendingOutputs (
                Id INTEGER PRIMARY KEY AUTOINCREMENT, AgentID TEXT NOT NULL, Agent TEXT NOT NULL,
                Day TEXT NOT NULL, Kind TEXT NOT NULL, FileName TEXT NOT NULL, Content BLOB,
                RecordedAt TEXT NOT NULL))",
        };
        // Receives recorded in the audit trail, at the second their rows
        // were stored. The agents' identifiers are all digits; two pairs
        // end in the same digits.
        const QStringList audit = {
            "2026-11-20T18:00:00|agent 005 (0417000005), date 2011: 3 records received, 2 collections, total 30.00",
            "2026-11-20T18:05:00|agent 015 (0417000015), date 2011: 1 records received, 1 collections, total 5.00",
            // A refused receive stores no rows: it names no row's number.
            "2026-11-20T18:06:00|agent 051 (0517000005), date 2011: 1 records received, 1 collections, total 1.00; "
            "refused: nothing replaced (the terminal's summary disagrees)",
            "2026-11-21T18:00:00|agent 050 (0517000005), date 2111: 1 records received, 1 collections, total 7.00",
            // Files completed later for a receive: not the moment of its rows.
            "2026-11-22T09:00:00|agent 099 (0417000005), date 2011: files completed after an interrupted receive",
            "2026-11-20T18:00:00|agent 005 (0417000005), date 2011: not a receive",
        };
        for (const QString& sql : statements)
            QVERIFY2(q.exec(sql), qPrintable(q.lastError().text() + "\n" + sql));
        auto insert = [&q](const QString& sql, const QStringList& values) {
            QVERIFY(q.prepare(sql));
            for (const QString& v : values)
                q.addBindValue(v);
            QVERIFY2(q.exec(), qPrintable(q.lastError().text() + "\n" + sql));
        };
        for (const QString& event : audit) {
            const QStringList parts = event.split('|');
            insert("INSERT INTO AuditTrail (Time, User, Action, Details, Version) VALUES (?, 'clerk', ?, ?, '2.1.0')",
                   {parts[0], parts[1].endsWith("not a receive") ? "login" : "receive", parts[1]});
        }
        // Each agent's downloaded accounts, named after the agent number.
        for (const char* row : {"0417000005     |bank/0052011d.txt", "0517000005     |bank/0502111d.txt",
                                "0417000077     |bank/0772011d.txt", "0417000099     |bank/0992011d.txt",
                                "0417000099     |bank/0982011d.txt", "0417001234     |bank/12342011d.txt"})
            insert("INSERT INTO BankData (ACNumber, AgentID, FileName, SNo) VALUES ('1', ?, ?, '1')",
                   QString(row).split('|'));
        const QStringList history = {
            // Stored by the two receives of the 20th.
            "0417000005     |2026-11-20|101|1000|2026-11-20T18:00:00",
            "0417000005     |2026-11-20|102|2000|2026-11-20T18:00:00",
            "0417000015     |2026-11-20|151|500|2026-11-20T18:05:00Z",
            // The 21st: a receive of the other agent ending in 5.
            "0517000005     |2026-11-21|501|700|2026-11-21T18:00:00",
            // Older days, from before the audit trail: the downloaded
            // accounts tell the number where they name one.
            "0417000005     |2026-10-01|101|100|2026-10-01T18:00:00",
            "0517000005     |2026-10-01|501|200|2026-10-01T18:00:00",
            "0417000015     |2026-10-01|151|300|2026-10-01T18:00:00",
            "0417000099     |2026-10-01|991|400|2026-10-01T18:00:00",
            "0417001234     |2026-10-01|123|500|2026-10-01T18:00:00",
        };
        for (const QString& row : history)
            insert("INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, CollectedPaise, ReceivedAt) "
                   "VALUES (?, ?, ?, CAST(? AS INTEGER), ?)",
                   row.split('|'));
        for (const QString& sql : extra + QStringList{"PRAGMA user_version = 4"})
            QVERIFY2(q.exec(sql), qPrintable(q.lastError().text() + "\n" + sql));
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
}

QStringList fields(SharedDatabase& db, const QString& view)
{
    QSqlQuery q(db.connection());
    q.exec("SELECT * FROM " + view);
    QStringList f;
    for (int i = 0; i < q.record().count(); ++i)
        f << q.record().fieldName(i);
    return f;
}

int userVersion(SharedDatabase& db)
{
    QSqlQuery q(db.connection());
    return q.exec("PRAGMA user_version") && q.next() ? q.value(0).toInt() : -1;
}

QStringList indexes(SharedDatabase& db)
{
    QSqlQuery q(db.connection());
    q.exec("SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = 'CollectionHistory' ORDER BY name");
    QStringList names;
    while (q.next())
        names << q.value(0).toString();
    return names;
}

} // namespace

void tst_HistoryMigration::realRupeesBecomeWholePaise()
{
    const QString path = QDir(m_dir.path()).filePath("old.db");
    makeVersion1(path);
    if (QTest::currentTestFailed())
        return;

    SharedDatabase db;
    QString error;
    QVERIFY2(db.open(path, &error), qPrintable(error));
    QVERIFY(userVersion(db) >= 2);

    QSqlQuery q(db.connection());
    QVERIFY(q.exec("SELECT AccountNo, ClosingPaise, CollectedPaise, typeof(CollectedPaise), DateTime, "
                   "TransactionNumber, ReceivedAt FROM CollectionHistory ORDER BY TransactionNumber"));
    struct Expect
    {
        const char* account;
        QVariant closing;
        QVariant collected;
    };
    const QList<Expect> expected = {
        {"10010", qint64(240025), qint64(10)},
        {"10020", qint64(150050), qint64(20)},
        {"20010", QVariant(), QVariant()},
        // Text where a number belongs is no amount. Values a binary double
        // holds just under or over the paisa round to it.
        {"20020", QVariant(), qint64(1235)},
        {"30030", qint64(9999999999), qint64(7)},
    };
    for (const Expect& e : expected) {
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), QString(e.account));
        QCOMPARE(q.value(1).isNull(), e.closing.isNull());
        if (!e.closing.isNull())
            QCOMPARE(q.value(1).toLongLong(), e.closing.toLongLong());
        QCOMPARE(q.value(2).isNull(), e.collected.isNull());
        if (!e.collected.isNull()) {
            QCOMPARE(q.value(2).toLongLong(), e.collected.toLongLong());
            QCOMPARE(q.value(3).toString(), QString("integer"));
        }
        QVERIFY(!q.value(4).toString().isEmpty());
        QVERIFY(!q.value(5).toString().isEmpty());
        QVERIFY(!q.value(6).toString().isEmpty());
    }
    QVERIFY(!q.next());

    // The views keep their field names; their sums are exact paise.
    QCOMPARE(fields(db, "Report1"), QStringList({"Date", "AgentID", "AccountNo", "ClosingAmt", "CollectedAmt"}));
    QCOMPARE(fields(db, "Report2"), QStringList({"AgentID", "CollectedAmt", "Date"}));
    QVERIFY(q.exec("SELECT CollectedAmt FROM Report2 WHERE AgentID = '001'"));
    QVERIFY(q.next());
    QCOMPARE(q.value(0).toLongLong(), qint64(30));
    QVERIFY(indexes(db).contains("CollectionHistoryDay"));
    QVERIFY(indexes(db).contains("CollectionHistoryByDate"));
    // Nothing in this file tells the terminal's agent numbers.
    QVERIFY(q.exec("SELECT count(*) FROM CollectionHistory WHERE AgentNo = ''"));
    QVERIFY(q.next());
    QCOMPARE(q.value(0).toInt(), 5);
}

void tst_HistoryMigration::newDatabaseHasPaiseAndTheDayIndex()
{
    SharedDatabase db;
    QString error;
    QVERIFY2(db.open(QDir(m_dir.path()).filePath("new.db"), &error), qPrintable(error));
    QVERIFY(userVersion(db) >= 2);
    QVERIFY(indexes(db).contains("CollectionHistoryDay"));
    QVERIFY(indexes(db).contains("CollectionHistoryByDate"));
    QCOMPARE(fields(db, "Report1"), QStringList({"Date", "AgentID", "AccountNo", "ClosingAmt", "CollectedAmt"}));
    // A second open leaves it as it is.
    db.execute("INSERT INTO CollectionHistory (AgentID, CollectionDate, ClosingPaise, CollectedPaise) "
               "VALUES ('1', '2007-11-16', 5, 7)");
}

void tst_HistoryMigration::version4HistoryGetsTheAgentNumber()
{
    const QString path = QDir(m_dir.path()).filePath("version4.db");
    makeVersion4(path);
    if (QTest::currentTestFailed())
        return;

    SharedDatabase db;
    QString error;
    QVERIFY2(db.open(path, &error), qPrintable(error));
    QCOMPARE(userVersion(db), 5);

    QSqlQuery q(db.connection());
    QVERIFY(q.exec("SELECT trim(AgentID), CollectionDate, AccountNo, AgentNo, typeof(AgentNo) FROM CollectionHistory "
                   "ORDER BY CollectionDate, AgentID, AccountNo"));
    QStringList got;
    while (q.next()) {
        QCOMPARE(q.value(4).toString(), QString("text"));
        got << QStringList{q.value(0).toString(), q.value(1).toString(), q.value(2).toString(), q.value(3).toString()}
                   .join('/');
    }
    QCOMPARE(got, QStringList({
                      // Before the audit trail: the downloaded accounts' file name, where
                      // it names one number; empty where nothing tells.
                      "0417000005/2026-10-01/101/005",
                      "0417000015/2026-10-01/151/",
                      "0417000099/2026-10-01/991/",
                      "0417001234/2026-10-01/123/",
                      "0517000005/2026-10-01/501/050",
                      // The very receive that stored the rows, from the audit trail.
                      "0417000005/2026-11-20/101/005",
                      "0417000005/2026-11-20/102/005",
                      "0417000015/2026-11-20/151/015",
                      "0517000005/2026-11-21/501/050",
                  }));

    // The report views keep their fields; the number has an index of its own.
    QCOMPARE(fields(db, "Report1"), QStringList({"Date", "AgentID", "AccountNo", "ClosingAmt", "CollectedAmt"}));
    QCOMPARE(fields(db, "Report2"), QStringList({"AgentID", "CollectedAmt", "Date"}));
    QVERIFY(indexes(db).contains("CollectionHistoryAgentNo"));
    QVERIFY(indexes(db).contains("CollectionHistoryDay"));
    QVERIFY(indexes(db).contains("CollectionHistoryByDate"));

    // New rows without a number are stored with empty text, not NULL.
    db.execute("INSERT INTO CollectionHistory (AgentID, CollectionDate) VALUES ('X', '2026-11-23')");
    QVERIFY(q.exec("SELECT AgentNo FROM CollectionHistory WHERE AgentID = 'X'"));
    QVERIFY(q.next());
    QCOMPARE(q.value(0).toString(), QString(""));
    QVERIFY(!q.value(0).isNull());
}

void tst_HistoryMigration::failedUpgradeLeavesVersion4AsItWas()
{
    const QString path = QDir(m_dir.path()).filePath("refuses.db");
    // Something in the file refuses the filling of the numbers half-way.
    makeVersion4(path, {"CREATE TRIGGER refuse BEFORE UPDATE ON CollectionHistory "
                        "BEGIN SELECT RAISE(ABORT, 'refused by the test'); END"});
    if (QTest::currentTestFailed())
        return;
    {
        SharedDatabase db;
        QString error;
        QVERIFY(!db.open(path, &error));
        QVERIFY2(error.contains("refused by the test"), qPrintable(error));
    }
    // Nothing of the upgrade is left: still version 4, no new column or index.
    const QString name = QStringLiteral("check");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QSqlQuery q(db);
        QVERIFY(q.exec("PRAGMA user_version") && q.next());
        QCOMPARE(q.value(0).toInt(), 4);
        QVERIFY(q.exec("SELECT count(*) FROM pragma_table_info('CollectionHistory') WHERE name = 'AgentNo'") &&
                q.next());
        QCOMPARE(q.value(0).toInt(), 0);
        QVERIFY(q.exec("SELECT count(*) FROM sqlite_master WHERE name = 'CollectionHistoryAgentNo'") && q.next());
        QCOMPARE(q.value(0).toInt(), 0);
        QVERIFY(q.exec("SELECT count(*) FROM CollectionHistory") && q.next());
        QCOMPARE(q.value(0).toInt(), 9);
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
}

QTEST_GUILESS_MAIN(tst_HistoryMigration)
#include "tst_historymigration.moc"
