#include "store/AppSettings.h"
#include "store/SettingsStore.h"
#include "store/SharedDatabase.h"

#include <QTemporaryDir>
#include <QtTest>

class tst_SettingsStore : public QObject
{
    Q_OBJECT

private slots:
    void missingRowLeavesSettingsEmpty();
    void firstSaveCreatesRowWithSNo1();
    void secondSaveEditsTheRow();
    void extraRowsAreIgnored();

private:
    QTemporaryDir m_dir;
};

void tst_SettingsStore::missingRowLeavesSettingsEmpty()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(m_dir.filePath("a.db"), &error));
    AppSettings s;
    s.BankName = "stale";
    QVERIFY(!s.load(db));
    QVERIFY(s.BankName.isEmpty());
    QVERIFY(s.CommPort.isEmpty());
}

void tst_SettingsStore::firstSaveCreatesRowWithSNo1()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(m_dir.filePath("b.db"), &error));
    SettingsChange c;
    c.bankInfoPath = "/srv/bank";
    QVERIFY(SettingsStore::save(db, c));
    SharedRecordset& rs = db.openSharedRecordset("select * from Path");
    QCOMPARE(rs.recordCount(), 1);
    QCOMPARE(rs.text("SNo"), QStringLiteral("1"));
    QCOMPARE(rs.text("BankInfoPath"), QStringLiteral("/srv/bank"));
    QVERIFY(rs.value("ReportPath").isNull());
}

void tst_SettingsStore::secondSaveEditsTheRow()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(m_dir.filePath("c.db"), &error));
    SettingsChange c;
    c.bankName = "First Bank";
    c.commPort = "2";
    QVERIFY(SettingsStore::save(db, c));
    SettingsChange d;
    d.branchName = "Main Road";
    QVERIFY(!SettingsStore::save(db, d));
    AppSettings s;
    QVERIFY(s.load(db));
    QCOMPARE(s.BankName, QStringLiteral("First Bank"));
    QCOMPARE(s.BranchName, QStringLiteral("Main Road"));
    QCOMPARE(s.CommPort, QStringLiteral("2"));
    SharedRecordset& rs = db.openSharedRecordset("select * from Path");
    QCOMPARE(rs.recordCount(), 1);
}

void tst_SettingsStore::extraRowsAreIgnored()
{
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(m_dir.filePath("d.db"), &error));
    db.execute("INSERT INTO Path (SNo, BankName) VALUES ('2', 'Other')");
    db.execute("INSERT INTO Path (SNo, BankName) VALUES ('1', 'Ours')");
    AppSettings s;
    QVERIFY(s.load(db));
    QCOMPARE(s.BankName, QStringLiteral("Ours"));
}

QTEST_GUILESS_MAIN(tst_SettingsStore)
#include "tst_settingsstore.moc"
