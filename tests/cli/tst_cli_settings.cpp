#include "store/SharedDatabase.h"
#include "tests/support/TestTiming.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// Runs tonvy-cli as a user would and checks what it prints and returns.
class tst_CliSettings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void helpExitsZero();
    void usageErrors_data();
    void usageErrors();
    void showWithoutRowIsARefusal();
    void setThenShowRoundTrips();
    void setTrimsNamesAndEditsTheSameRow();
    void setPartialKeepsOtherFields();
    void namesLimitedToTheHeaderFields_data();
    void namesLimitedToTheHeaderFields();
    void unopenableDatabase();

private:
    struct Result
    {
        int code;
        QString out;
        QString err;
    };
    Result run(const QStringList& args, const QString& dataDir);

    QString m_cli;
    QTemporaryDir m_dir;
};

void tst_CliSettings::initTestCase()
{
    m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + "/tonvy-cli";
    QVERIFY2(QFile::exists(m_cli), qPrintable(m_cli));
}

tst_CliSettings::Result tst_CliSettings::run(const QStringList& args, const QString& dataDir)
{
    QProcess p;
    QStringList all;
    if (!dataDir.isEmpty())
        all << "--data-dir" << dataDir;
    all << args;
    p.start(m_cli, all);
    p.closeWriteChannel();
    if (!p.waitForFinished(scaledMs(30000)))
        return {-1, {}, "timeout"};
    return {p.exitCode(), QString::fromLocal8Bit(p.readAllStandardOutput()),
            QString::fromLocal8Bit(p.readAllStandardError())};
}

void tst_CliSettings::helpExitsZero()
{
    const Result r = run({"--help"}, {});
    QCOMPARE(r.code, 0);
    QVERIFY(r.out.contains("--data-dir"));
    QVERIFY(r.out.contains("--port"));
    QVERIFY(r.out.contains("settings set"));
}

void tst_CliSettings::usageErrors_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::newRow("no command") << QStringList{};
    QTest::newRow("unknown command") << QStringList{"frobnicate"};
    QTest::newRow("settings without verb") << QStringList{"settings"};
    QTest::newRow("settings bad verb") << QStringList{"settings", "delete"};
    QTest::newRow("port 0") << QStringList{"settings", "set", "--comm-port", "0"};
    QTest::newRow("port 11") << QStringList{"settings", "set", "--comm-port", "11"};
    QTest::newRow("port text") << QStringList{"settings", "set", "--comm-port", "two"};
    QTest::newRow("font size") << QStringList{"settings", "set", "--font-size", "huge"};
    QTest::newRow("unknown option") << QStringList{"settings", "set", "--colour", "red"};
}

void tst_CliSettings::usageErrors()
{
    QFETCH(QStringList, args);
    QTemporaryDir dir;
    const Result r = run(args, dir.path());
    QCOMPARE(r.code, 2);
    QVERIFY(!r.err.isEmpty());
}

void tst_CliSettings::showWithoutRowIsARefusal()
{
    QTemporaryDir dir;
    const Result r = run({"settings", "show"}, dir.path());
    QCOMPARE(r.code, 1);
    QCOMPARE(r.err, QStringLiteral("Please Select CommPort and BankName\n"));
    QVERIFY(QFile::exists(dir.filePath("HandHeldData.db")));
}

void tst_CliSettings::setThenShowRoundTrips()
{
    QTemporaryDir dir;
    const Result set =
        run({"settings", "set", "--bank-name", "Coastal Bank", "--branch-name", "Harbour Road", "--comm-port", "3",
             "--font-size", "big", "--bank-info-path", "/srv/bank", "--report-path", "/srv/reports"},
            dir.path());
    QCOMPARE(set.code, 0);
    QCOMPARE(set.out, QStringLiteral("Data Saved Successfully\n"));
    const Result show = run({"settings", "show"}, dir.path());
    QCOMPARE(show.code, 0);
    const QStringList lines = show.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines, QStringList({"Bank Name: Coastal Bank", "Branch Name: Harbour Road", "Comm Port: 3",
                                 "Serial Device: /dev/ttyS2", "Font Size: Big", "Bank Info Path: /srv/bank",
                                 "Report Path: /srv/reports", "Data Folder: " + dir.path()}));
}

void tst_CliSettings::setTrimsNamesAndEditsTheSameRow()
{
    QTemporaryDir dir;
    QCOMPARE(run({"settings", "set", "--bank-name", "  Spaced Bank  "}, dir.path()).code, 0);
    QCOMPARE(run({"settings", "set", "--bank-name", "Second"}, dir.path()).code, 0);
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(dir.filePath("HandHeldData.db"), &error));
    SharedRecordset& rs = db.openSharedRecordset("select * from Path");
    QCOMPARE(rs.recordCount(), 1);
    QCOMPARE(rs.text("SNo"), QStringLiteral("1"));
    QCOMPARE(rs.text("BankName"), QStringLiteral("Second"));
    QCOMPARE(run({"settings", "set", "--bank-name", "  Spaced Bank  "}, dir.path()).code, 0);
    SharedRecordset& again = db.openSharedRecordset("select * from Path");
    QCOMPARE(again.text("BankName"), QStringLiteral("Spaced Bank"));
}

void tst_CliSettings::setPartialKeepsOtherFields()
{
    QTemporaryDir dir;
    QCOMPARE(run({"settings", "set", "--comm-port", "10", "--font-size", "small"}, dir.path()).code, 0);
    QCOMPARE(run({"settings", "set", "--branch-name", "North"}, dir.path()).code, 0);
    const Result show = run({"settings", "show"}, dir.path());
    QVERIFY(show.out.contains("Comm Port: 10\n"));
    QVERIFY(show.out.contains("Serial Device: /dev/ttyS9\n"));
    QVERIFY(show.out.contains("Font Size: Small\n"));
    QVERIFY(show.out.contains("Branch Name: North\n"));
}

void tst_CliSettings::namesLimitedToTheHeaderFields_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<QString>("value");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("stored"); // what settings show prints afterwards
    const QString bank48 = QString(48, 'B');
    const QString branch22 = QString(22, 'R');
    QTest::newRow("bank name of 48") << "--bank-name" << bank48 << 0 << "Bank Name: " + bank48;
    QTest::newRow("bank name of 48 with blanks around") << "--bank-name"
                                                        << "  " + bank48 + "  " << 0 << "Bank Name: " + bank48;
    QTest::newRow("bank name of 49") << "--bank-name" << bank48 + "X" << 2 << "Bank Name: Old Bank";
    QTest::newRow("bank name of 100000") << "--bank-name" << QString(100000, 'Y') << 2 << "Bank Name: Old Bank";
    QTest::newRow("branch name of 22") << "--branch-name" << branch22 << 0 << "Branch Name: " + branch22;
    QTest::newRow("branch name of 23") << "--branch-name" << branch22 + "X" << 2 << "Branch Name: Old Branch";
}

void tst_CliSettings::namesLimitedToTheHeaderFields()
{
    QFETCH(QString, option);
    QFETCH(QString, value);
    QFETCH(int, code);
    QFETCH(QString, stored);
    QTemporaryDir dir;
    QCOMPARE(run({"settings", "set", "--bank-name", "Old Bank", "--branch-name", "Old Branch"}, dir.path()).code, 0);
    const Result r = run({"settings", "set", option, value}, dir.path());
    QCOMPARE(r.code, code);
    if (code != 0) {
        QVERIFY2(r.err.contains(option + ": "), qPrintable(r.err));
        QVERIFY2(r.err.contains(option == "--bank-name" ? "at most 48" : "at most 22"), qPrintable(r.err));
        QVERIFY(r.out.isEmpty());
    }
    const Result show = run({"settings", "show"}, dir.path());
    QVERIFY2(show.out.split('\n').contains(stored), qPrintable(show.out));
}

void tst_CliSettings::unopenableDatabase()
{
    QTemporaryDir dir;
    QFile bad(dir.filePath("HandHeldData.db"));
    QVERIFY(bad.open(QIODevice::WriteOnly));
    bad.write(QByteArray(4096, 'q'));
    bad.close();
    const Result r = run({"settings", "show"}, dir.path());
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains(dir.filePath("HandHeldData.db")), qPrintable(r.err));
    QVERIFY(r.out.isEmpty());
}

QTEST_GUILESS_MAIN(tst_CliSettings)
#include "tst_cli_settings.moc"
