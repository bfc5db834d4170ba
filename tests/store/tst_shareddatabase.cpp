#include "KeyCheck.h"
#include "Schema.h"
#include "SharedDatabase.h"
#include "StoreError.h"

#include <QFile>
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
