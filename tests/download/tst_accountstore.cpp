#include "download/AccountStore.h"
#include "download/DownloadFile.h"
#include "store/KeyCheck.h"
#include "tests/download/DownloadFileMaker.h"
#include "tests/support/TestContext.h"

#include <QBuffer>
#include <QSqlQuery>

namespace {

DownloadFile readFile(QByteArray content)
{
    DownloadFile file;
    QBuffer buffer(&content);
    buffer.open(QIODevice::ReadOnly);
    if (!file.ReadDownLoadFile(buffer))
        qFatal("fixture rejected: %s", qPrintable(file.errorString()));
    return file;
}

// Every BankData row in storage order, each field joined by "|".
QStringList bankData(SharedDatabase& db)
{
    QSqlQuery q(db.connection());
    q.exec(QStringLiteral("SELECT CategoryCode, SchemeCode, ACNumber, ACName, BalAmount, AgreedAmount, OpeningDate, "
                          "SNo, Txndate, FileName, CustomerCode, BranchID, AgentID, MyDate, BankSoftACNumber "
                          "FROM BankData ORDER BY rowid"));
    QStringList rows;
    while (q.next()) {
        QStringList fields;
        for (int i = 0; i < 15; ++i)
            fields << q.value(i).toString();
        rows << fields.join(QLatin1Char('|'));
    }
    return rows;
}

QStringList column(SharedDatabase& db, const QString& name)
{
    QSqlQuery q(db.connection());
    q.exec(QStringLiteral("SELECT %1 FROM BankData ORDER BY rowid").arg(name));
    QStringList values;
    while (q.next())
        values << q.value(0).toString();
    return values;
}

const QString path = QStringLiteral("D:\\Bank\\0051611d.txt");

} // namespace

class tst_AccountStore : public QObject
{
    Q_OBJECT
private slots:
    void storesEveryRecordInFileOrder();
    void everyRowIsSNoOne();
    void lastRecordValuesGoIntoEveryRow();
    void sameAgentTwiceKeepsOnlySecondFile();
    void otherAgentsUntouched();
    void rejectedFileLeavesBankData();
    void shortLineStoredAsEmptyText();
    void apostropheRefused_data();
    void apostropheRefused();
    void failedInsertRollsBack();
    void emptyFileStoresNothing();
    void createFlatDLFileOnlySetsFlag();
};

void tst_AccountStore::storesEveryRecordInFileOrder()
{
    TestContext t;
    AccountStore store(t.db);
    AccountLine b = AccountLine::numbered(2);
    b.name = QStringLiteral("ZAKIR");
    AccountLine a = AccountLine::numbered(1);
    a.name = QStringLiteral("ANITA");
    const DownloadFile file = readFile(joinLines({b.bytes(), a.bytes()}));
    QString error;
    QVERIFY2(store.Store_BankData(file, path, &error), qPrintable(error));

    const QStringList rows = bankData(t.db);
    QCOMPARE(rows.size(), 2);
    const DownloadRecord& r = file.records().at(0);
    const QString expected =
        QStringList{r.CategoryCode, r.SchemeCode,  r.ACNumber,          r.ACName,  r.BalAmount,
                    r.AgreedAmount, r.OpeningDate, QStringLiteral("1"), r.Txndate, QStringLiteral("Bank\\0051611d.txt"),
                    r.CustomerCode, r.BranchID,    r.AgentID,           r.MyDate,  r.BankSoftACNumber}
            .join(QLatin1Char('|'));
    QCOMPARE(rows.at(0), expected);
    QCOMPARE(column(t.db, QStringLiteral("ACName")).at(1), AccountLine::field(QStringLiteral("ANITA"), 50));
    QVERIFY(!t.db.sharedRecordset().isOpen());
}

void tst_AccountStore::everyRowIsSNoOne()
{
    TestContext t;
    AccountStore store(t.db);
    QString error;
    QVERIFY(store.Store_BankData(readFile(accountsFile(25)), path, &error));
    const QStringList sno = column(t.db, QStringLiteral("SNo"));
    QCOMPARE(sno.size(), 25);
    QCOMPARE(sno, QStringList(25, QStringLiteral("1")));
}

void tst_AccountStore::lastRecordValuesGoIntoEveryRow()
{
    TestContext t;
    AccountStore store(t.db);
    AccountLine first = AccountLine::numbered(1);
    first.branch = QStringLiteral("BR0001");
    first.agent = QStringLiteral("AG0005");
    AccountLine last = AccountLine::numbered(2);
    last.branch = QStringLiteral("BR0002");
    last.agent = QStringLiteral("AG0009");
    QString error;
    QVERIFY(store.Store_BankData(readFile(joinLines({first.bytes(), last.bytes()})), path, &error));
    QCOMPARE(column(t.db, QStringLiteral("AgentID")), QStringList(2, AccountLine::field(QStringLiteral("AG0009"), 15)));
    QCOMPARE(column(t.db, QStringLiteral("BranchID")),
             QStringList(2, AccountLine::field(QStringLiteral("BR0002"), 15)));
}

void tst_AccountStore::sameAgentTwiceKeepsOnlySecondFile()
{
    TestContext t;
    AccountStore store(t.db);
    QString error;
    QVERIFY(store.Store_BankData(readFile(accountsFile(5)), QStringLiteral("D:\\Bank\\0051511d.txt"), &error));
    AccountLine other = AccountLine::numbered(77);
    QVERIFY(store.Store_BankData(readFile(joinLines({other.bytes()})), path, &error));

    QCOMPARE(column(t.db, QStringLiteral("ACNumber")), QStringList{other.acNumber});
    QCOMPARE(column(t.db, QStringLiteral("FileName")), QStringList{QStringLiteral("Bank\\0051611d.txt")});
}

void tst_AccountStore::otherAgentsUntouched()
{
    TestContext t;
    AccountStore store(t.db);
    QString error;
    QVERIFY(store.Store_BankData(readFile(accountsFile(3, QStringLiteral("AG0007"))), path, &error));
    QVERIFY(store.Store_BankData(readFile(accountsFile(4, QStringLiteral("AG0005"))), path, &error));
    QVERIFY(store.Store_BankData(readFile(accountsFile(2, QStringLiteral("AG0005"))), path, &error));
    const QStringList agents = column(t.db, QStringLiteral("AgentID"));
    QCOMPARE(agents.count(AccountLine::field(QStringLiteral("AG0007"), 15)), 3);
    QCOMPARE(agents.count(AccountLine::field(QStringLiteral("AG0005"), 15)), 2);
}

void tst_AccountStore::rejectedFileLeavesBankData()
{
    TestContext t;
    AccountStore store(t.db);
    QString error;
    QVERIFY(store.Store_BankData(readFile(accountsFile(3)), path, &error));
    const QStringList before = bankData(t.db);

    // A file the reader refuses never reaches the store, so nothing changes.
    const QByteArray noAgentLast = joinLines({AccountLine().bytes(), AccountLine().bytes().left(120)});
    for (const QByteArray& bad : {accountsFile(2001), joinLines({AccountLine().bytes().left(90)}), noAgentLast}) {
        DownloadFile file;
        QByteArray content = bad;
        QBuffer buffer(&content);
        buffer.open(QIODevice::ReadOnly);
        QVERIFY(!file.ReadDownLoadFile(buffer));
        QCOMPARE(file.recordCount(), 0);
        QCOMPARE(bankData(t.db), before);
    }
}

void tst_AccountStore::shortLineStoredAsEmptyText()
{
    // A short line's missing columns are stored as empty text, as
    // version 2.1's string cutting gave, never as NULL.
    TestContext t;
    AccountStore store(t.db);
    const DownloadFile file =
        readFile(joinLines({AccountLine::numbered(1).bytes().left(101), AccountLine::numbered(2).bytes().left(120),
                            AccountLine::numbered(3).bytes()}));
    QString error;
    QVERIFY2(store.Store_BankData(file, path, &error), qPrintable(error));
    QSqlQuery q(t.db.connection());
    QVERIFY(q.exec(QStringLiteral("SELECT OpeningDate IS NULL, Txndate IS NULL, MyDate IS NULL, "
                                  "BankSoftACNumber IS NULL, OpeningDate, Txndate, MyDate, BankSoftACNumber "
                                  "FROM BankData ORDER BY rowid")));
    QStringList seen;
    while (q.next()) {
        for (int i = 0; i < 4; ++i)
            QCOMPARE(q.value(i).toInt(), 0);
        seen << QStringList{q.value(4).toString(), q.value(5).toString(), q.value(6).toString(), q.value(7).toString()}
                    .join(QLatin1Char('|'));
    }
    // The 101-character line ends inside the file date's day.
    QCOMPARE(seen, QStringList({"|||", "||1611|", "010405|151107|161107|BS0000000000003"}));
}

void tst_AccountStore::apostropheRefused_data()
{
    QTest::addColumn<QString>("agent");
    QTest::addColumn<QString>("downloadPath");
    QTest::addColumn<QString>("what");
    QTest::newRow("agent id") << "AG'05" << path << "agent id";
    QTest::newRow("file name") << "AG0005"
                               << "/srv/o'neil/0051611d.txt"
                               << "file name";
}

void tst_AccountStore::apostropheRefused()
{
    QFETCH(QString, agent);
    QFETCH(QString, downloadPath);
    QFETCH(QString, what);
    TestContext t;
    AccountStore store(t.db);
    QString error;
    QVERIFY(store.Store_BankData(readFile(accountsFile(3)), path, &error));
    const QStringList before = bankData(t.db);

    QVERIFY(!store.Store_BankData(readFile(accountsFile(2, agent)), downloadPath, &error));
    QString expected;
    const QString value =
        what == QLatin1String("agent id") ? AccountLine::field(agent, 15) : DownloadFile::fileNameValue(downloadPath);
    QVERIFY(!KeyCheck::acceptable(what, value, &expected));
    QCOMPARE(error, expected);
    QCOMPARE(bankData(t.db), before);
}

void tst_AccountStore::failedInsertRollsBack()
{
    TestContext t;
    AccountStore store(t.db);
    QString error;
    QVERIFY(store.Store_BankData(readFile(accountsFile(4)), path, &error));
    const QStringList before = bankData(t.db);

    // The third insert fails half-way through the replacement: the delete
    // and the first two inserts must be undone.
    QSqlQuery q(t.db.connection());
    QVERIFY(q.exec(QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON BankData WHEN NEW.ACNumber LIKE '%999' "
                                  "BEGIN SELECT RAISE(ABORT, 'refused by the test'); END")));
    QList<QByteArray> lines;
    for (int n : {997, 998, 999, 1000})
        lines << AccountLine::numbered(n).bytes();
    QVERIFY(!store.Store_BankData(readFile(joinLines(lines)), path, &error));
    QVERIFY(error.contains(QStringLiteral("refused by the test")));
    QCOMPARE(bankData(t.db), before);

    // The connection is usable afterwards: no transaction was left open.
    QVERIFY(q.exec(QStringLiteral("DROP TRIGGER refuse")));
    QVERIFY2(store.Store_BankData(readFile(joinLines(lines)), path, &error), qPrintable(error));
    QCOMPARE(bankData(t.db).size(), 4);
}

void tst_AccountStore::emptyFileStoresNothing()
{
    TestContext t;
    AccountStore store(t.db);
    QString error;
    QVERIFY(store.Store_BankData(readFile(accountsFile(3)), path, &error));
    const QStringList before = bankData(t.db);
    QVERIFY(store.Store_BankData(readFile(QByteArray()), path, &error));
    // An empty file has no AgentID: only rows without one could go.
    QCOMPARE(bankData(t.db), before);
}

void tst_AccountStore::createFlatDLFileOnlySetsFlag()
{
    TestContext t;
    AccountStore store(t.db);
    QVERIFY(!store.flatFileRequested());
    store.CreateFlatDLFile();
    QVERIFY(store.flatFileRequested());
    QVERIFY(bankData(t.db).isEmpty());
}

QTEST_GUILESS_MAIN(tst_AccountStore)
#include "tst_accountstore.moc"
