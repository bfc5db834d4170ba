#include "store/KeyCheck.h"
#include "store/Schema.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"

#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

class tst_SharedDatabase : public QObject
{
    Q_OBJECT

private slots:
    void createsSchemaOnFirstOpen();
    void passwordRowIsCreated();
    void newFileIsPrivate();
    void reopensWithoutRecreating();
    void refusesForeignFile();
    void refusesDamagedFile_data();
    void refusesDamagedFile();
    void refusesAnotherProgramsDatabase_data();
    void refusesAnotherProgramsDatabase();
    void emptySqliteFileIsTakenAsNew();
    void refusesMissingFolder();
    void refusesFolderAsFile();
    void fieldsReadWithoutRegardToCase();
    void addNewEditUpdate();
    void openReplacesPreviousResult();
    void readOnlyQueryRefusesEdit();
    void failingStatementThrows();
    void transactionRollsBack();
    void apostropheKeyIsRefused_data();
    void apostropheKeyIsRefused();
    void reportViewsHaveTheirFields();

private:
    QTemporaryDir m_dir;
    QString path(const QString& name) const { return m_dir.filePath(name); }
};

void tst_SharedDatabase::createsSchemaOnFirstOpen()
{
    SharedDatabase db;
    QString error;
    QVERIFY2(db.open(path("first.db"), &error), qPrintable(error));
    QVERIFY(QFile::exists(path("first.db")));
    for (const char* table : {"Path", "Password", "BankData", "RestoreData", "Report1", "Report2"}) {
        SharedRecordset& rs = db.openSharedRecordset(QStringLiteral("select * from %1").arg(QLatin1String(table)));
        QVERIFY2(rs.isOpen(), table);
    }
    SharedRecordset& path = db.openSharedRecordset(QStringLiteral("select * from Path where SNo=?"), {"1"});
    QVERIFY(path.eof());
}

void tst_SharedDatabase::passwordRowIsCreated()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(path("pw.db"), &error));
    SharedRecordset& rs = db.openSharedRecordset(QStringLiteral("Select * from password where SNo=?"), {"1"});
    QVERIFY(!rs.eof());
    QCOMPARE(rs.text("SNo"), QStringLiteral("1"));
    QCOMPARE(rs.text("Setup").size(), 4);
    QCOMPARE(rs.text("Download").size(), 4);
    QVERIFY(!rs.text("admin").isEmpty());
    rs.moveNext();
    QVERIFY(rs.eof());
}

void tst_SharedDatabase::newFileIsPrivate()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(path("private.db"), &error));
    const QFile::Permissions p = QFile::permissions(path("private.db"));
    QVERIFY(p.testFlag(QFileDevice::ReadOwner));
    QVERIFY(!p.testFlag(QFileDevice::ReadGroup));
    QVERIFY(!p.testFlag(QFileDevice::ReadOther));
}

void tst_SharedDatabase::reopensWithoutRecreating()
{
    QString error;
    {
        SharedDatabase db;
        QVERIFY(db.open(path("again.db"), &error));
        db.execute(QStringLiteral("INSERT INTO Path (SNo, BankName) VALUES (?, ?)"), {"1", "Kept"});
    }
    SharedDatabase db;
    QVERIFY(db.open(path("again.db"), &error));
    SharedRecordset& rs = db.openSharedRecordset(QStringLiteral("select * from Path where SNo=?"), {"1"});
    QCOMPARE(rs.text("bankname"), QStringLiteral("Kept"));
    SharedRecordset& pw = db.openSharedRecordset(QStringLiteral("select * from Password"));
    QCOMPARE(pw.recordCount(), 1);
}

void tst_SharedDatabase::refusesForeignFile()
{
    QFile f(path("foreign.db"));
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(QByteArray(4096, 'x'));
    f.close();
    SharedDatabase db;
    QString error;
    QVERIFY(!db.open(path("foreign.db"), &error));
    QVERIFY2(error.contains(path("foreign.db")), qPrintable(error));
    QVERIFY2(error.contains("not a database"), qPrintable(error));
}

namespace {

QByteArray fileBytes(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// A database of this program with enough rows to fill a few dozen pages.
void makeFullDatabase(const QString& path)
{
    SharedDatabase db;
    QString error;
    QVERIFY2(db.open(path, &error), qPrintable(error));
    SharedDatabase::Transaction t(db);
    for (int i = 0; i < 2000; ++i)
        db.execute(QStringLiteral("INSERT INTO BankData (ACNumber, ACName, AgentID) VALUES (?, ?, 'AG1')"),
                   {QStringLiteral("%1").arg(i, 15, 10, QLatin1Char('0')), QString(40, QLatin1Char('N'))});
    t.commit();
}

} // namespace

void tst_SharedDatabase::refusesDamagedFile_data()
{
    QTest::addColumn<int>("page"); // 1-based page overwritten with garbage
    QTest::newRow("a table page") << 20;
    QTest::newRow("an index page") << -2; // the second last page
}

void tst_SharedDatabase::refusesDamagedFile()
{
    QFETCH(int, page);
    const QString file = path(QStringLiteral("damaged%1.db").arg(page));
    makeFullDatabase(file);
    QByteArray bytes = fileBytes(file);
    const int pageSize = 4096;
    const int pages = static_cast<int>(bytes.size() / pageSize);
    QVERIFY(pages > 25);
    const int at = (page > 0 ? page - 1 : pages + page) * pageSize;
    for (int i = 0; i < pageSize; ++i)
        bytes[at + i] = static_cast<char>((i * 37 + 11) & 0xFF);
    {
        QFile f(file);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }
    SharedDatabase db;
    QString error;
    QVERIFY(!db.open(file, &error));
    QVERIFY2(error.contains(file), qPrintable(error));
    QVERIFY2(error.contains(QStringLiteral("Restore the backup copy of damaged")), qPrintable(error));
    QCOMPARE(fileBytes(file), bytes);
}

void tst_SharedDatabase::refusesAnotherProgramsDatabase_data()
{
    QTest::addColumn<QStringList>("statements");
    QTest::addColumn<QString>("said");
    QTest::newRow("tables of its own, no version")
        << QStringList{"CREATE TABLE customers (id INTEGER, name TEXT)", "INSERT INTO customers VALUES (1, 'x')"}
        << "made by another program (it holds the tables customers";
    QTest::newRow("a version but none of our tables")
        << QStringList{"CREATE TABLE Path (SNo TEXT)", "PRAGMA user_version = 7"}
        << "not a database of this program (the tables Password, BankData, RestoreData are missing)";
}

void tst_SharedDatabase::refusesAnotherProgramsDatabase()
{
    QFETCH(QStringList, statements);
    QFETCH(QString, said);
    const QString file = path(QStringLiteral("other-%1.db").arg(QTest::currentDataTag()).replace(' ', '-'));
    {
        QSqlDatabase other = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("other"));
        other.setDatabaseName(file);
        QVERIFY(other.open());
        for (const QString& sql : statements) {
            QSqlQuery q(other);
            QVERIFY2(q.exec(sql), qPrintable(sql));
        }
        other.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("other"));
    const QByteArray before = fileBytes(file);
    const QFile::Permissions permissions = QFile::permissions(file);

    SharedDatabase db;
    QString error;
    QVERIFY(!db.open(file, &error));
    QVERIFY2(error.contains(file), qPrintable(error));
    QVERIFY2(error.contains(said), qPrintable(error));
    QVERIFY2(error.contains(QStringLiteral("It was left unchanged")), qPrintable(error));
    QCOMPARE(fileBytes(file), before);
    QCOMPARE(QFile::permissions(file), permissions);
}

void tst_SharedDatabase::emptySqliteFileIsTakenAsNew()
{
    // An SQLite file with no tables at all (user_version 0) holds nothing
    // of anybody's: it is given this program's tables.
    const QString file = path(QStringLiteral("blank.db"));
    {
        QSqlDatabase blank = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("blank"));
        blank.setDatabaseName(file);
        QVERIFY(blank.open());
        QSqlQuery q(blank);
        QVERIFY(q.exec(QStringLiteral("PRAGMA page_size = 4096")));
        QVERIFY(q.exec(QStringLiteral("VACUUM")));
        blank.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("blank"));
    SharedDatabase db;
    QString error;
    QVERIFY2(db.open(file, &error), qPrintable(error));
    QVERIFY(db.openSharedRecordset(QStringLiteral("select * from AuditTrail")).isOpen());
}

void tst_SharedDatabase::refusesMissingFolder()
{
    SharedDatabase db;
    QString error;
    QVERIFY(!db.open(path("no/such/folder/x.db"), &error));
    QVERIFY2(error.contains("does not exist"), qPrintable(error));
}

void tst_SharedDatabase::refusesFolderAsFile()
{
    QVERIFY(QDir(m_dir.path()).mkpath("adir.db"));
    SharedDatabase db;
    QString error;
    QVERIFY(!db.open(path("adir.db"), &error));
    QVERIFY2(error.contains("folder"), qPrintable(error));
}

void tst_SharedDatabase::fieldsReadWithoutRegardToCase()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(path("case.db"), &error));
    db.execute(QStringLiteral("INSERT INTO RestoreData (AgentID, LastTxndate, AccountName) VALUES (?, ?, ?)"),
               {"A1", "01/02/2007", "12"});
    SharedRecordset& rs = db.openSharedRecordset(QStringLiteral("SELECT * FROM RestoreData WHERE AgentID=?"), {"A1"});
    QCOMPARE(rs.text("LasttxnDate"), QStringLiteral("01/02/2007"));
    QCOMPARE(rs.text("lasttxndate"), QStringLiteral("01/02/2007"));
    QCOMPARE(rs.text("Accountname"), QStringLiteral("12"));
    QCOMPARE(rs.text("agentid"), QStringLiteral("A1"));
}

void tst_SharedDatabase::addNewEditUpdate()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(path("edit.db"), &error));
    SharedRecordset& rs = db.openSharedRecordset(QStringLiteral("select * from Path where SNo=?"), {"1"});
    QVERIFY(rs.eof() && rs.bof());
    rs.addNew();
    rs.setValue("SNo", "1");
    rs.setValue("Comm Port", "3");
    rs.update();

    SharedRecordset& again = db.openSharedRecordset(QStringLiteral("select * from Path where SNo=?"), {"1"});
    QCOMPARE(again.text("comm port"), QStringLiteral("3"));
    again.edit();
    again.setValue("BANKNAME", "Bank");
    QCOMPARE(again.text("bankname"), QStringLiteral("Bank")); // pending value visible
    again.update();
    db.closeSharedRecordset();

    SharedRecordset& third = db.openSharedRecordset(QStringLiteral("select * from Path"));
    QCOMPARE(third.recordCount(), 1);
    QCOMPARE(third.text("BankName"), QStringLiteral("Bank"));
    QCOMPARE(third.text("Comm Port"), QStringLiteral("3"));
}

void tst_SharedDatabase::openReplacesPreviousResult()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(path("replace.db"), &error));
    SharedRecordset& a = db.openSharedRecordset(QStringLiteral("select * from Password"));
    QVERIFY(!a.eof());
    SharedRecordset& b = db.openSharedRecordset(QStringLiteral("select * from Path"));
    QCOMPARE(&a, &b);
    QVERIFY(b.eof());
    QVERIFY_THROWS_EXCEPTION(StoreError, b.value("admin"));
}

void tst_SharedDatabase::readOnlyQueryRefusesEdit()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(path("ro.db"), &error));
    SharedRecordset& rs = db.openSharedRecordset(QStringLiteral("select admin from Password"));
    QVERIFY(!rs.eof());
    QVERIFY_THROWS_EXCEPTION(StoreError, rs.edit());
}

void tst_SharedDatabase::failingStatementThrows()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(path("fail.db"), &error));
    QVERIFY_THROWS_EXCEPTION(StoreError, db.openSharedRecordset(QStringLiteral("select * from NoSuchTable")));
    QVERIFY_THROWS_EXCEPTION(StoreError, db.execute(QStringLiteral("DELETE FROM NoSuchTable")));
    SharedRecordset& rs = db.openSharedRecordset(QStringLiteral("select * from Password"));
    QVERIFY_THROWS_EXCEPTION(StoreError, rs.value("NoSuchField"));
}

void tst_SharedDatabase::transactionRollsBack()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(path("tx.db"), &error));
    db.execute(QStringLiteral("INSERT INTO BankData (AgentID, ACNumber) VALUES (?, ?)"), {"7", "old"});
    try {
        SharedDatabase::Transaction tx(db);
        db.execute(QStringLiteral("DELETE FROM BankData WHERE AgentID=?"), {"7"});
        db.execute(QStringLiteral("INSERT INTO BankData (AgentID, ACNumber) VALUES (?, ?)"), {"7", "new"});
        db.execute(QStringLiteral("INSERT INTO NoSuchTable VALUES (1)"));
        tx.commit();
        QFAIL("expected a failure");
    } catch (const StoreError&) {
    }
    SharedRecordset& rs = db.openSharedRecordset(QStringLiteral("SELECT * FROM BankData WHERE AgentID=?"), {"7"});
    QCOMPARE(rs.recordCount(), 1);
    QCOMPARE(rs.text("ACNumber"), QStringLiteral("old"));
}

void tst_SharedDatabase::apostropheKeyIsRefused_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("plain") << "AGENT0001" << true;
    QTest::newRow("empty") << "" << true;
    QTest::newRow("apostrophe") << "O'NEIL" << false;
    QTest::newRow("only apostrophe") << "'" << false;
}

void tst_SharedDatabase::apostropheKeyIsRefused()
{
    QFETCH(QString, value);
    QFETCH(bool, accepted);
    QString error;
    QCOMPARE(KeyCheck::acceptable(QStringLiteral("agent ID"), value, &error), accepted);
    if (!accepted) {
        QVERIFY(error.contains(QStringLiteral("agent ID")));
        QVERIFY(error.contains(value));
        QVERIFY(error.contains(QStringLiteral("apostrophe")));
    }
}

void tst_SharedDatabase::reportViewsHaveTheirFields()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(path("views.db"), &error));
    QSqlQuery q(db.connection());
    QVERIFY(q.exec("SELECT * FROM Report1"));
    QSqlRecord r1 = q.record();
    QStringList f1;
    for (int i = 0; i < r1.count(); ++i)
        f1 << r1.fieldName(i);
    QCOMPARE(f1, QStringList({"Date", "AgentID", "AccountNo", "ClosingAmt", "CollectedAmt"}));
    QVERIFY(q.exec("SELECT * FROM Report2"));
    QSqlRecord r2 = q.record();
    QStringList f2;
    for (int i = 0; i < r2.count(); ++i)
        f2 << r2.fieldName(i);
    QCOMPARE(f2, QStringList({"AgentID", "CollectedAmt", "Date"}));
}

QTEST_GUILESS_MAIN(tst_SharedDatabase)
#include "tst_shareddatabase.moc"
