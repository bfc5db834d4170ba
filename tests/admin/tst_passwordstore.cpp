#include "app/frmPassEntry.h"
#include "store/PasswordStore.h"
#include "store/StoreError.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"

#include <QLineEdit>
#include <QSignalSpy>
#include <QtTest>

// How the passwords rest in the database: the software ones hashed, the
// terminal ones readable, older plain rows converted on first use.
class tst_PasswordStore : public QObject
{
    Q_OBJECT

private slots:
    void knownAnswerOfTheStoredFormat();
    void softwarePasswordIsNotStoredInPlainText_data();
    void softwarePasswordIsNotStoredInPlainText();
    void sameValueGetsAFreshSalt();
    void terminalPasswordsStayReadable_data();
    void terminalPasswordsStayReadable();
    void typedCapitalsNeverMatch_data();
    void typedCapitalsNeverMatch();
    void emptyStoredAcceptsOnlyEmpty();
    void damagedHashMatchesNothing_data();
    void damagedHashMatchesNothing();
    void initialRowIsConvertedOnFirstLoad();
    void plainDatabaseLogsInAndIsConverted_data();
    void plainDatabaseLogsInAndIsConverted();
    void readOnlyDatabaseStillWorksUnconverted();
    void missingRowRefusesTheWrite();

private:
    static QString raw(TestContext& t, const QString& field);
};

QString tst_PasswordStore::raw(TestContext& t, const QString& field)
{
    SharedRecordset& rs = t.db.openSharedRecordset("select * from Password where SNo=?", {"1"});
    const QString value = rs.text(field);
    t.db.closeSharedRecordset();
    return value;
}

void tst_PasswordStore::knownAnswerOfTheStoredFormat()
{
    // PBKDF2-HMAC-SHA256 of "password" with salt "salt", one iteration
    // (the published test vector), written in the stored format.
    const QByteArray hash = QByteArray::fromHex("120fb6cffcf8b32c43e7225256c4f837a86548c92ccc35480805987cb70be17b");
    const QString field = "pbkdf2-sha256$1$" + QString::fromLatin1(QByteArray("salt").toBase64()) + "$" +
                          QString::fromLatin1(hash.toBase64());
    const StoredPassword p = StoredPassword::fromField(field);
    QVERIFY(p.matches("password"));
    QVERIFY(!p.matches("Password"));
    QVERIFY(!p.matches("passwor"));
    QVERIFY(!p.isEmpty());
}

void tst_PasswordStore::softwarePasswordIsNotStoredInPlainText_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("field");
    QTest::newRow("admin") << int(PasswordKind::Admin) << "admin";
    QTest::newRow("user") << int(PasswordKind::User) << "user";
}

void tst_PasswordStore::softwarePasswordIsNotStoredInPlainText()
{
    QFETCH(int, kind);
    QFETCH(QString, field);
    TestContext t;
    PasswordStore::setPassword(t.db, PasswordKind(kind), "  Br4nch  ");
    const QString stored = raw(t, field);
    QVERIFY2(stored.startsWith("pbkdf2-sha256$100000$"), qPrintable(stored));
    QVERIFY(!stored.contains("br4nch", Qt::CaseInsensitive));
    QCOMPARE(stored.split('$').size(), 4);
    // Lower-cased and trimmed before hashing.
    QVERIFY(StoredPassword::fromField(stored).matches("br4nch"));
    QVERIFY(!StoredPassword::fromField(stored).matches("  br4nch  "));
}

void tst_PasswordStore::sameValueGetsAFreshSalt()
{
    TestContext t;
    PasswordStore::setPassword(t.db, PasswordKind::Admin, "same");
    PasswordStore::setPassword(t.db, PasswordKind::User, "same");
    const QString admin = raw(t, "admin");
    const QString user = raw(t, "user");
    QVERIFY(admin != user);
    QVERIFY(admin.split('$').at(2) != user.split('$').at(2));
}

void tst_PasswordStore::terminalPasswordsStayReadable_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("field");
    QTest::newRow("setup") << int(PasswordKind::Setup) << "setup";
    QTest::newRow("main screen") << int(PasswordKind::Download) << "download";
}

void tst_PasswordStore::terminalPasswordsStayReadable()
{
    QFETCH(int, kind);
    QFETCH(QString, field);
    TestContext t;
    PasswordStore::setPassword(t.db, PasswordKind(kind), " 4321 ");
    QCOMPARE(raw(t, field), QStringLiteral("4321"));
    const PasswordStore::Row row = PasswordStore::load(t.db);
    QCOMPARE(PasswordKind(kind) == PasswordKind::Setup ? row.setup : row.download, QStringLiteral("4321"));
}

void tst_PasswordStore::typedCapitalsNeverMatch_data()
{
    QTest::addColumn<QString>("set");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("matches");
    QTest::newRow("set Abc1, typed abc1") << "Abc1"
                                          << "abc1" << true;
    QTest::newRow("set Abc1, typed Abc1") << "Abc1"
                                          << "Abc1" << false;
    QTest::newRow("set abc1, typed ABC1") << "abc1"
                                          << "ABC1" << false;
    QTest::newRow("typed with a blank") << "abc1"
                                        << "abc1 " << false;
}

void tst_PasswordStore::typedCapitalsNeverMatch()
{
    QFETCH(QString, set);
    QFETCH(QString, typed);
    QFETCH(bool, matches);
    TestContext t;
    PasswordStore::setPassword(t.db, PasswordKind::Admin, set);
    QCOMPARE(PasswordStore::load(t.db).admin.matches(typed), matches);
}

void tst_PasswordStore::emptyStoredAcceptsOnlyEmpty()
{
    TestContext t;
    t.db.execute("UPDATE Password SET admin = '', user = NULL WHERE SNo = '1'");
    const PasswordStore::Row row = PasswordStore::load(t.db);
    QVERIFY(row.found);
    QVERIFY(row.admin.isEmpty());
    QVERIFY(row.admin.matches(""));
    QVERIFY(!row.admin.matches("admin"));
    QVERIFY(row.user.matches(""));
    QCOMPARE(raw(t, "admin"), QString());
}

void tst_PasswordStore::damagedHashMatchesNothing_data()
{
    QTest::addColumn<QString>("field");
    QTest::newRow("too few parts") << "pbkdf2-sha256$100000$c2FsdA==";
    QTest::newRow("iterations not a number") << "pbkdf2-sha256$many$c2FsdA==$AAAA";
    QTest::newRow("zero iterations") << "pbkdf2-sha256$0$c2FsdA==$AAAA";
    QTest::newRow("bad base64") << "pbkdf2-sha256$10$c2Fs*A==$AAAA";
    QTest::newRow("empty hash") << "pbkdf2-sha256$10$c2FsdA==$";
}

void tst_PasswordStore::damagedHashMatchesNothing()
{
    QFETCH(QString, field);
    const StoredPassword p = StoredPassword::fromField(field);
    QVERIFY(!p.isEmpty());
    QVERIFY(!p.matches(""));
    QVERIFY(!p.matches(field));
}

void tst_PasswordStore::initialRowIsConvertedOnFirstLoad()
{
    TestContext t;
    QCOMPARE(raw(t, "admin"), QStringLiteral("admin"));
    const PasswordStore::Row row = PasswordStore::load(t.db);
    QVERIFY(row.admin.matches("admin"));
    QVERIFY(row.user.matches("user"));
    QCOMPARE(row.setup, QStringLiteral("1234"));
    QCOMPARE(row.download, QStringLiteral("5678"));
    QVERIFY(StoredPassword::isHashedField(raw(t, "admin")));
    QVERIFY(StoredPassword::isHashedField(raw(t, "user")));
    QCOMPARE(raw(t, "setup"), QStringLiteral("1234"));
    QCOMPARE(raw(t, "download"), QStringLiteral("5678"));
    // A second load keeps the hashes it wrote.
    const QString hashed = raw(t, "admin");
    QVERIFY(PasswordStore::load(t.db).admin.matches("admin"));
    QCOMPARE(raw(t, "admin"), hashed);
}

void tst_PasswordStore::plainDatabaseLogsInAndIsConverted_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("lower case") << "abc1" << true;
    QTest::newRow("capital letter") << "Abc1" << false;
}

void tst_PasswordStore::plainDatabaseLogsInAndIsConverted()
{
    QFETCH(QString, typed);
    QFETCH(bool, accepted);
    TestContext t;
    // As an older version left it: plain, in any case.
    t.db.execute("UPDATE Password SET admin = ? WHERE SNo = '1'", {"Abc1"});
    auto* prompt = new frmPassEntry(*t.ctx);
    prompt->setAttribute(Qt::WA_DeleteOnClose);
    prompt->show();
    QSignalSpy opened(prompt, &frmPassEntry::loginSucceeded);
    QTest::keyClicks(prompt->findChild<QLineEdit*>("txtNewPass"), typed);
    QTest::mouseClick(prompt->findChild<ColourButton*>("cmdOK"), Qt::LeftButton);
    QCOMPARE(opened.count(), accepted ? 1 : 0);
    QCOMPARE(t.ctx->LoginPassed, accepted);
    QCOMPARE(t.messenger.texts(), accepted ? QStringList() : QStringList{"Password entered is Incorrect"});
    const QString stored = raw(t, "admin");
    QVERIFY(StoredPassword::isHashedField(stored));
    QVERIFY(StoredPassword::fromField(stored).matches("abc1"));
    if (!accepted)
        prompt->close();
}

void tst_PasswordStore::readOnlyDatabaseStillWorksUnconverted()
{
    TestContext t;
    t.db.execute("PRAGMA query_only = 1");
    const PasswordStore::Row row = PasswordStore::load(t.db);
    QVERIFY(row.admin.matches("admin"));
    QCOMPARE(raw(t, "admin"), QStringLiteral("admin"));
    t.db.execute("PRAGMA query_only = 0");
    PasswordStore::load(t.db);
    QVERIFY(StoredPassword::isHashedField(raw(t, "admin")));
}

void tst_PasswordStore::missingRowRefusesTheWrite()
{
    TestContext t;
    t.db.execute("DELETE FROM Password");
    QVERIFY(!PasswordStore::load(t.db).found);
    QVERIFY_THROWS_EXCEPTION(StoreError, PasswordStore::setPassword(t.db, PasswordKind::Admin, "x"));
}

QTEST_MAIN(tst_PasswordStore)
#include "tst_passwordstore.moc"
