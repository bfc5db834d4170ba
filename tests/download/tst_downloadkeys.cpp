#include "download/AccountStore.h"
#include "download/DownloadFile.h"
#include "store/AuditTrail.h"
#include "tests/download/DownloadFileMaker.h"
#include "tests/support/TestContext.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QFile>
#include <QSqlQuery>

// Keys are checked where they enter: a download file whose account, scheme
// or category code holds an apostrophe is refused when it is stored.
class tst_DownloadKeys : public QObject
{
    Q_OBJECT

private slots:
    void apostropheRefusedNamingTheLine_data();
    void apostropheRefusedNamingTheLine();
    void storedDownloadAudited();

private:
    static DownloadFile read(const QByteArray& content)
    {
        QByteArray bytes = content;
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::ReadOnly);
        DownloadFile file;
        if (!file.ReadDownLoadFile(buffer))
            qFatal("fixture rejected: %s", qPrintable(file.errorString()));
        return file;
    }
    static int rows(SharedDatabase& db)
    {
        QSqlQuery q(db.connection());
        q.exec(QStringLiteral("SELECT count(*) FROM BankData"));
        q.next();
        return q.value(0).toInt();
    }
};

void tst_DownloadKeys::apostropheRefusedNamingTheLine_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("said");
    QTest::newRow("account") << "acNumber"
                             << "The account number \"0000000000'0102\"";
    QTest::newRow("scheme") << "scheme"
                            << "The scheme code \"DD'01\"";
    QTest::newRow("category") << "category"
                              << "The category code \"'\"";
}

void tst_DownloadKeys::apostropheRefusedNamingTheLine()
{
    QFETCH(QString, field);
    QFETCH(QString, said);
    TestContext t;
    AccountLine bad = AccountLine::numbered(102);
    if (field == QLatin1String("acNumber"))
        bad.acNumber = QStringLiteral("0000000000'0102");
    else if (field == QLatin1String("scheme"))
        bad.scheme = QStringLiteral("DD'01");
    else
        bad.category = QStringLiteral("'");
    const DownloadFile file =
        read(AccountLine::numbered(101).bytes() + "\r\n" + bad.bytes() + "\r\n" + AccountLine::numbered(103).bytes());
    AccountStore store(t.db);
    QString error;
    QVERIFY(!store.Store_BankData(file, QStringLiteral("D:\\Bank\\0051611d.txt"), &error));
    QVERIFY2(error.startsWith(QStringLiteral("Line 2 of the download file D:\\Bank\\0051611d.txt: ") + said),
             qPrintable(error));
    QVERIFY(error.contains(QStringLiteral("apostrophe")));
    QCOMPARE(rows(t.db), 0);
    QCOMPARE(AuditTrail::read(t.db).size(), 0);
}

void tst_DownloadKeys::storedDownloadAudited()
{
    TestContext t;
    const QByteArray content =
        AccountLine::numbered(101).bytes() + "\r\n" + AccountLine::numbered(102).bytes() + "\r\n";
    const QString path = t.path(QStringLiteral("0051611d.txt"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(content);
    f.close();
    AccountStore store(t.db);
    QString error;
    QVERIFY2(store.Store_BankData(read(content), path, &error), qPrintable(error));
    const QList<AuditTrail::Event> events = AuditTrail::read(t.db);
    QCOMPARE(events.size(), 1);
    QCOMPARE(events.first().action, QStringLiteral("download"));
    const QString sha = QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex());
    QCOMPARE(events.first().details,
             QStringLiteral("agent AG0005: download file %1 stored, 2 records, SHA-256 %2").arg(path, sha));
}

QTEST_GUILESS_MAIN(tst_DownloadKeys)
#include "tst_downloadkeys.moc"
