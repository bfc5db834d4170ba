#include "tests/store/StoreFaults.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

using StoreFaults::Fault;

// tonvy-cli on a database in trouble: every command ends with a message
// that names the file and says what to do, exit status 1, no signal, and a
// file that is not ours to change stays exactly as it was.
class tst_CliStoreFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void faultyFileIsRefusedByEveryCommand_data();
    void faultyFileIsRefusedByEveryCommand();
    void fileLockedByAnotherProcess_data();
    void fileLockedByAnotherProcess();
    void writeWhileAnotherProcessWrites_data();
    void writeWhileAnotherProcessWrites();
    void diskFillsUpDuringTheCommit_data();
    void diskFillsUpDuringTheCommit();

private:
    struct Result
    {
        QProcess::ExitStatus status = QProcess::CrashExit;
        int code = -1;
        QString out;
        QString err;
    };
    Result run(const QString& dataDir, const QStringList& args, const QProcessEnvironment& env = {});
    static QList<QStringList> commands(const QString& scratch);
    void prepareSend(const QString& dataDir);
    static QString field(const QString& dbPath, const QString& sql);

    QString m_cli;
    QTemporaryDir m_dir;
};

void tst_CliStoreFaults::initTestCase()
{
    m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + "/tonvy-cli";
    QVERIFY2(QFile::exists(m_cli), qPrintable(m_cli));
    QVERIFY(QFile::exists(QStringLiteral(LOCKHOLDER_EXE)));
    QVERIFY(QFile::exists(QStringLiteral(DISKFULL_SHIM)));
}

tst_CliStoreFaults::Result tst_CliStoreFaults::run(const QString& dataDir, const QStringList& args,
                                                   const QProcessEnvironment& env)
{
    QProcess p;
    if (!env.isEmpty())
        p.setProcessEnvironment(env);
    p.start(m_cli, QStringList{"--data-dir", dataDir} + args);
    p.closeWriteChannel();
    Result r;
    if (!p.waitForFinished(60000)) {
        p.kill();
        p.waitForFinished();
        r.err = "timeout";
        return r;
    }
    r.status = p.exitStatus();
    r.code = p.exitCode();
    r.out = QString::fromLocal8Bit(p.readAllStandardOutput());
    r.err = QString::fromLocal8Bit(p.readAllStandardError());
    return r;
}

// Every command that touches the database.
QList<QStringList> tst_CliStoreFaults::commands(const QString& scratch)
{
    const QString port = QDir(scratch).filePath("no-such-port");
    return {{"settings", "show"},
            {"settings", "set", "--bank-name", "NEW BANK"},
            {"password", "set", "--kind", "setup", "--old", "1234", "--new", "5678"},
            {"--port", port, "send", "--agent", "5", "--date", "1611", "--give-up-after", "2"},
            {"--port", port, "receive", "--give-up-after", "2"},
            {"report", "daily", "--output", QDir(scratch).filePath("daily.csv")},
            {"audit", "--output", QDir(scratch).filePath("audit.csv")}};
}

QString tst_CliStoreFaults::field(const QString& dbPath, const QString& sql)
{
    QString value = QStringLiteral("<none>");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("peek"));
        db.setDatabaseName(dbPath);
        if (db.open()) {
            QSqlQuery q(db);
            if (q.exec(sql) && q.next())
                value = q.value(0).toString();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("peek"));
    return value;
}

void tst_CliStoreFaults::faultyFileIsRefusedByEveryCommand_data()
{
    QTest::addColumn<int>("fault");
    StoreFaults::addFaultRows();
}

void tst_CliStoreFaults::faultyFileIsRefusedByEveryCommand()
{
    QFETCH(int, fault);
    const QString dir = m_dir.filePath(QStringLiteral("faulty-%1").arg(fault));
    QVERIFY(QDir().mkpath(dir));
    const QString file = QDir(dir).filePath("HandHeldData.db");
    QVERIFY(StoreFaults::make(Fault(fault), file, dir));
    const QByteArray before = StoreFaults::hashOf(file);

    for (const QStringList& command : commands(dir)) {
        const Result r = run(dir, command);
        const QString what = command.join(' ') + "\n" + r.err;
        QVERIFY2(r.status == QProcess::NormalExit, qPrintable(what));
        QVERIFY2(r.code == 1, qPrintable(QString::number(r.code) + ": " + what));
        QVERIFY2(r.err.contains(file), qPrintable(what));
        QVERIFY2(r.err.contains(StoreFaults::adviceFor(Fault(fault))), qPrintable(what));
        QVERIFY2(!r.err.contains("terminate called"), qPrintable(what));
        QVERIFY2(!r.out.contains("Data Saved Successfully"), qPrintable(what));
        QVERIFY2(!r.err.contains("Please Select CommPort and BankName"), qPrintable(what));
        QCOMPARE(StoreFaults::hashOf(file), before);
        QVERIFY2(!QFile::exists(file + "-journal"), qPrintable(what));
    }
}

void tst_CliStoreFaults::fileLockedByAnotherProcess_data()
{
    QTest::addColumn<int>("command");
    const QList<QStringList> all = commands(QString());
    for (int i = 0; i < all.size(); ++i)
        QTest::newRow(qPrintable(all.at(i).mid(all.at(i).first() == "--port" ? 2 : 0, 2).join(' '))) << i;
}

void tst_CliStoreFaults::fileLockedByAnotherProcess()
{
    QFETCH(int, command);
    const QString dir = m_dir.filePath(QStringLiteral("locked-%1").arg(command));
    QVERIFY(QDir().mkpath(dir));
    const QString file = QDir(dir).filePath("HandHeldData.db");
    QVERIFY(StoreFaults::makeOurDatabase(file, dir));
    StoreFaults::LockHolder holder;
    QVERIFY(holder.start(file, "exclusive"));
    const QByteArray before = StoreFaults::hashOf(file);

    QElapsedTimer waited;
    waited.start();
    const Result r = run(dir, commands(dir).at(command));
    QVERIFY2(r.status == QProcess::NormalExit, qPrintable(r.err));
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains(file), qPrintable(r.err));
    QVERIFY2(r.err.contains("in use by another program"), qPrintable(r.err));
    QVERIFY2(r.err.contains("Close the other program"), qPrintable(r.err));
    QVERIFY2(!r.out.contains("Data Saved Successfully"), qPrintable(r.out));
    // It waited a moment for the other program before giving up.
    QVERIFY2(waited.elapsed() >= 2500, qPrintable(QString::number(waited.elapsed())));
    QCOMPARE(StoreFaults::hashOf(file), before);
}

void tst_CliStoreFaults::writeWhileAnotherProcessWrites_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QString>("sql");
    QTest::addColumn<QString>("kept");
    QTest::newRow("settings set") << QStringList{"settings", "set", "--bank-name", "NEW BANK"}
                                  << "SELECT BankName FROM Path"
                                  << "OLD BANK";
    QTest::newRow("password set") << QStringList{"password", "set", "--kind", "setup", "--old", "1234", "--new", "5678"}
                                  << "SELECT setup FROM Password"
                                  << "1234";
}

void tst_CliStoreFaults::writeWhileAnotherProcessWrites()
{
    QFETCH(QStringList, command);
    QFETCH(QString, sql);
    QFETCH(QString, kept);
    const QString dir = m_dir.filePath(QStringLiteral("writing-%1").arg(QTest::currentDataTag()).replace(' ', '-'));
    QVERIFY(QDir().mkpath(dir));
    const QString file = QDir(dir).filePath("HandHeldData.db");
    QVERIFY(StoreFaults::makeOurDatabase(file, dir));
    {
        StoreFaults::LockHolder holder;
        QVERIFY(holder.start(file, "immediate"));
        const Result r = run(dir, command);
        QVERIFY2(r.status == QProcess::NormalExit, qPrintable(r.err));
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains(file), qPrintable(r.err));
        QVERIFY2(r.err.contains("in use by another program"), qPrintable(r.err));
        QVERIFY2(r.err.contains("Nothing was changed"), qPrintable(r.err));
        QVERIFY2(!r.out.contains("Data Saved Successfully"), qPrintable(r.out));
        // Reading goes on while the other program writes.
        const Result show = run(dir, {"settings", "show"});
        QCOMPARE(show.code, 0);
        QVERIFY2(show.out.contains("OLD BANK"), qPrintable(show.out));
    }
    QCOMPARE(field(file, sql), kept);
    // Once the other program is gone, the same command goes through.
    const Result again = run(dir, command);
    QVERIFY2(again.code == 0, qPrintable(again.err));
    QVERIFY2(again.out.contains("Data Saved Successfully"), qPrintable(again.out));
}

void tst_CliStoreFaults::prepareSend(const QString& dataDir)
{
    QVERIFY(QFile::copy(QStringLiteral(DOWNLOAD_FIXTURES "/0051611d.txt"), QDir(dataDir).filePath("0051611d.txt")));
}

void tst_CliStoreFaults::diskFillsUpDuringTheCommit_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<int>("budget"); // bytes the files may still grow by
    QTest::addColumn<QString>("sql");
    QTest::addColumn<QString>("kept");
    const QStringList settings{"settings", "set", "--bank-name", "NEW BANK"};
    const QStringList password{"password", "set", "--kind", "setup", "--old", "1234", "--new", "5678"};
    const QStringList send{"--port", "/nonexistent/port", "send", "--agent", "5", "--date", "1611"};
    QTest::newRow("settings set, journal cannot grow") << settings << 0 << "SELECT BankName FROM Path"
                                                       << "OLD BANK";
    QTest::newRow("password set, journal cannot grow") << password << 0 << "SELECT setup FROM Password"
                                                       << "1234";
    QTest::newRow("send stores accounts, journal cannot grow") << send << 0 << "SELECT count(*) FROM BankData"
                                                               << "1500";
    QTest::newRow("send stores accounts, file cannot grow") << send << 20000 << "SELECT count(*) FROM BankData"
                                                            << "1500";
}

void tst_CliStoreFaults::diskFillsUpDuringTheCommit()
{
    QFETCH(QStringList, command);
    QFETCH(int, budget);
    QFETCH(QString, sql);
    QFETCH(QString, kept);
    const QString dir = m_dir.filePath(QStringLiteral("full-%1").arg(QTest::currentDataTag()).replace(' ', '-'));
    QVERIFY(QDir().mkpath(dir));
    const QString file = QDir(dir).filePath("HandHeldData.db");
    QVERIFY(StoreFaults::makeOurDatabase(file, dir));
    prepareSend(dir);
    const QByteArray before = StoreFaults::hashOf(file);

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("LD_PRELOAD", QStringLiteral(DISKFULL_SHIM));
    // A sanitizer build's runtime would insist on being loaded first.
    env.insert("ASAN_OPTIONS", env.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
    env.insert("TONVY_TEST_DISK_FULL_AFTER", QString::number(budget));
    const Result r = run(dir, command, env);
    QVERIFY2(r.status == QProcess::NormalExit, qPrintable(r.err));
    QVERIFY2(r.code == 1, qPrintable(r.out + r.err));
    QVERIFY2(r.err.contains(file), qPrintable(r.err));
    QVERIFY2(r.err.contains("no space left on the disk"), qPrintable(r.err));
    QVERIFY2(r.err.contains("Free some space"), qPrintable(r.err));
    QVERIFY2(!r.out.contains("Data Saved Successfully"), qPrintable(r.out));
    QVERIFY2(!r.out.contains("Record Sent"), qPrintable(r.out));

    // Nothing of the failed change is left: the file reads as before.
    QCOMPARE(field(file, "PRAGMA integrity_check"), QStringLiteral("ok"));
    QCOMPARE(field(file, sql), kept);
    QCOMPARE(StoreFaults::hashOf(file), before);
}

QTEST_GUILESS_MAIN(tst_CliStoreFaults)
#include "tst_cli_storefaults.moc"
