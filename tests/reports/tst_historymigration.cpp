#include "store/SharedDatabase.h"

#include <QDir>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QtTest>

// A database written by the previous version (history amounts as REAL
// rupees) brought up to whole paise when it is opened.
class tst_HistoryMigration : public QObject
{
    Q_OBJECT

private slots:
    void realRupeesBecomeWholePaise();
    void newDatabaseHasPaiseAndTheDayIndex();

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

QTEST_GUILESS_MAIN(tst_HistoryMigration)
#include "tst_historymigration.moc"
