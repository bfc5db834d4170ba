#include "store/PasswordStore.h"
#include "store/SharedDatabase.h"
#include "tests/support/TestTiming.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// Runs "tonvy-cli password set" as an administrator would.
class tst_PasswordCommand : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void outcomes_data();
    void outcomes();
    void wrongOldLeavesThePasswordAlone();

private:
    struct Result
    {
        int code;
        QString out;
        QString err;
    };
    Result run(const QString& dataDir, const QStringList& args, const QByteArray& input = {});
    QString m_cli;
};

void tst_PasswordCommand::initTestCase()
{
    m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + "/tonvy-cli";
    QVERIFY2(QFile::exists(m_cli), qPrintable(m_cli));
}

tst_PasswordCommand::Result tst_PasswordCommand::run(const QString& dataDir, const QStringList& args,
                                                     const QByteArray& input)
{
    QProcess p;
    p.start(m_cli, QStringList{"--data-dir", dataDir, "password", "set"} + args);
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(scaledMs(60000)))
        return {-1, {}, "timeout"};
    return {p.exitCode(), QString::fromLocal8Bit(p.readAllStandardOutput()),
            QString::fromLocal8Bit(p.readAllStandardError())};
}

void tst_PasswordCommand::outcomes_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QByteArray>("input"); // standard input
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("said"); // on stdout for 0, stderr otherwise
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("nowMatches"); // what the field accepts afterwards

    QTest::newRow("admin changed") << QStringList{"--kind", "admin",   "--old",     "admin",
                                                  "--new",  "Teller9", "--confirm", "teller9"}
                                   << QByteArray() << 0 << "Data Saved Successfully"
                                   << "admin"
                                   << "teller9";
    QTest::newRow("user without --confirm") << QStringList{"--kind", "user", "--old", "USER", "--new", "clerk"}
                                            << QByteArray() << 0 << "Data Saved Successfully"
                                            << "user"
                                            << "clerk";
    QTest::newRow("setup changed") << QStringList{"--kind", "setup", "--old", "1234", "--new", "4321"} << QByteArray()
                                   << 0 << "Data Saved Successfully"
                                   << "setup"
                                   << "4321";
    QTest::newRow("main screen changed") << QStringList{"--kind", "main", "--old", "5678", "--new", "0007"}
                                         << QByteArray() << 0 << "Data Saved Successfully"
                                         << "download"
                                         << "0007";
    QTest::newRow("wrong old") << QStringList{"--kind", "admin", "--old", "nimda", "--new", "x"} << QByteArray() << 1
                               << "Password entered is incorrect"
                               << "admin"
                               << "admin";
    QTest::newRow("wrong old terminal") << QStringList{"--kind", "setup", "--old", "5678", "--new", "1111"}
                                        << QByteArray() << 1 << "Password entered is incorrect"
                                        << "setup"
                                        << "1234";
    QTest::newRow("inner blank in confirmation")
        << QStringList{"--kind", "admin", "--old", "admin", "--new", "Ab 1", "--confirm", "ab1"} << QByteArray() << 1
        << "Conifrming New Password is Incorrect"
        << "admin"
        << "admin";
    QTest::newRow("letters for the terminal")
        << QStringList{"--kind", "setup", "--old", "1234", "--new", "12a4"} << QByteArray() << 2 << "at most 4 digits"
        << "setup"
        << "1234";
    QTest::newRow("five digits") << QStringList{"--kind", "main", "--old", "5678", "--new", "12345"} << QByteArray()
                                 << 2 << "at most 4 digits"
                                 << "download"
                                 << "5678";
    QTest::newRow("eleven characters") << QStringList{"--kind", "admin", "--old", "admin", "--new", "abcdefghijk"}
                                       << QByteArray() << 2 << "at most 10 characters"
                                       << "admin"
                                       << "admin";
    QTest::newRow("unknown kind") << QStringList{"--kind", "root", "--old", "admin", "--new", "x"} << QByteArray() << 2
                                  << "--kind takes admin, user, setup or main."
                                  << "admin"
                                  << "admin";
    QTest::newRow("no --new") << QStringList{"--kind", "admin", "--old", "admin"} << QByteArray() << 2
                              << "needs the old and the new password"
                              << "admin"
                              << "admin";
    QTest::newRow("all from standard input")
        << QStringList{"--kind", "admin"} << QByteArray("admin\nTeller9\nteller9\n") << 0 << "Data Saved Successfully"
        << "admin"
        << "teller9";
    QTest::newRow("standard input without a confirmation")
        << QStringList{"--kind", "setup"} << QByteArray("1234\r\n4321\r\n") << 0 << "Data Saved Successfully"
        << "setup"
        << "4321";
    QTest::newRow("confirmation differs on standard input")
        << QStringList{"--kind", "admin"} << QByteArray("admin\nab 1\nab1\n") << 1
        << "Conifrming New Password is Incorrect"
        << "admin"
        << "admin";
    QTest::newRow("new from standard input")
        << QStringList{"--kind", "main", "--old", "5678"} << QByteArray("0007\n") << 0 << "Data Saved Successfully"
        << "download"
        << "0007";
    QTest::newRow("standard input ends early")
        << QStringList{"--kind", "admin"} << QByteArray("admin\n") << 2 << "needs the old and the new password"
        << "admin"
        << "admin";
}

void tst_PasswordCommand::outcomes()
{
    QFETCH(QStringList, args);
    QFETCH(QByteArray, input);
    QFETCH(int, code);
    QFETCH(QString, said);
    QFETCH(QString, field);
    QFETCH(QString, nowMatches);
    QTemporaryDir dir;
    const Result r = run(dir.path(), args, input);
    QCOMPARE(r.code, code);
    if (code == 0)
        QCOMPARE(r.out.trimmed(), said);
    else if (code == 1)
        QCOMPARE(r.err.trimmed(), said);
    else
        QVERIFY2(r.err.contains(said), qPrintable(r.err));

    SharedDatabase db;
    QString error;
    QVERIFY2(db.open(QDir(dir.path()).filePath(SharedDatabase::fileName()), &error), qPrintable(error));
    const PasswordStore::Row row = PasswordStore::load(db);
    if (field == "admin")
        QVERIFY(row.admin.matches(nowMatches));
    else if (field == "user")
        QVERIFY(row.user.matches(nowMatches));
    else if (field == "setup")
        QCOMPARE(row.setup, nowMatches);
    else
        QCOMPARE(row.download, nowMatches);
}

void tst_PasswordCommand::wrongOldLeavesThePasswordAlone()
{
    QTemporaryDir dir;
    QCOMPARE(run(dir.path(), {"--kind", "admin", "--old", "admin", "--new", "first"}).code, 0);
    // The old value no longer passes; the new one does.
    QCOMPARE(run(dir.path(), {"--kind", "admin", "--old", "admin", "--new", "second"}).code, 1);
    QCOMPARE(run(dir.path(), {"--kind", "admin", "--old", "first", "--new", "second"}).code, 0);
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(QDir(dir.path()).filePath(SharedDatabase::fileName()), &error));
    SharedRecordset& rs = db.openSharedRecordset("select * from Password where SNo=?", {"1"});
    const QString stored = rs.text("admin");
    QVERIFY(StoredPassword::isHashedField(stored));
    QVERIFY(StoredPassword::fromField(stored).matches("second"));
}

QTEST_GUILESS_MAIN(tst_PasswordCommand)
#include "tst_passwordcommand.moc"
