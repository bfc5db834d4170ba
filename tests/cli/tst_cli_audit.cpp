#include "tests/support/TestTiming.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// Runs "tonvy-cli audit" after commands that leave events behind.
class tst_CliAudit : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void eventsWrittenAsCsv();
    void rangeLimitsTheEvents();
    void usageErrors_data();
    void usageErrors();
    void dateThatIsNoDay();
    void traceFileIsOwnerOnly();
    void diskThatCannotSyncIsAFailure_data();
    void diskThatCannotSyncIsAFailure();

private:
    struct Result
    {
        int code;
        QString out;
        QString err;
    };
    Result run(const QStringList& args, const QByteArray& input = {},
               const QProcessEnvironment& env = QProcessEnvironment());
    QByteArray csv(const QStringList& range);

    QString m_cli;
    QTemporaryDir m_dir;
};

void tst_CliAudit::initTestCase()
{
    m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + "/tonvy-cli";
    QVERIFY2(QFile::exists(m_cli), qPrintable(m_cli));
    QCOMPARE(run({"settings", "set", "--bank-name", "GRAMIN BANK"}).code, 0);
    QCOMPARE(run({"password", "set", "--kind", "user"}, "user\nteller1\nteller1\n").code, 0);
}

tst_CliAudit::Result tst_CliAudit::run(const QStringList& args, const QByteArray& input, const QProcessEnvironment& env)
{
    QProcess p;
    if (!env.isEmpty())
        p.setProcessEnvironment(env);
    p.start(m_cli, QStringList{"--data-dir", m_dir.path()} + args);
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(scaledMs(60000)))
        return {-1, {}, "timeout"};
    return {p.exitCode(), QString::fromLocal8Bit(p.readAllStandardOutput()),
            QString::fromLocal8Bit(p.readAllStandardError())};
}

QByteArray tst_CliAudit::csv(const QStringList& range)
{
    const QString out = m_dir.filePath("audit.csv");
    QFile::remove(out);
    const Result r = run(QStringList{"audit"} + range + QStringList{"--output", out});
    if (r.code != 0)
        qWarning("audit: %s", qPrintable(r.err));
    QFile f(out);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void tst_CliAudit::eventsWrittenAsCsv()
{
    const QByteArray text = csv({});
    const QList<QByteArray> lines = text.split('\n');
    QVERIFY(lines.first().startsWith("Time,User,Action,Details,Version\r"));
    QVERIFY2(text.contains(",settings,"), text.constData());
    QVERIFY2(text.contains("bank name \"\"GRAMIN BANK\"\""), text.constData());
    QVERIFY2(text.contains(",password,software user password changed,2.1\r\n"), text.constData());
    QVERIFY(!text.contains("teller1"));
}

void tst_CliAudit::rangeLimitsTheEvents()
{
    const QString today = QDate::currentDate().toString(Qt::ISODate);
    QCOMPARE(csv({"--from", today, "--to", today}).count("\r\n"), 3);
    QCOMPARE(csv({"--to", "2000-01-01"}), QByteArray("Time,User,Action,Details,Version\r\n"));
}

void tst_CliAudit::usageErrors_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("said");
    QTest::newRow("no output") << QStringList{"audit"} << "needs --output";
    QTest::newRow("bad date") << QStringList{"audit", "--from", "23/11/2026", "--output", "x.csv"} << "YYYY-MM-DD";
    QTest::newRow("from after to") << QStringList{"audit",      "--from",   "2026-11-23", "--to",
                                                  "2026-11-01", "--output", "x.csv"}
                                   << "--from is after --to";
}

void tst_CliAudit::usageErrors()
{
    QFETCH(QStringList, args);
    QFETCH(QString, said);
    const Result r = run(args);
    QCOMPARE(r.code, 2);
    QVERIFY2(r.err.contains(said), qPrintable(r.err));
}

void tst_CliAudit::dateThatIsNoDay()
{
    const QString output = m_dir.filePath("nothing.csv");
    const Result r = run({"audit", "--from", "2026-11-01", "--to", "2026-11-31", "--output", output});
    QCOMPARE(r.code, 2);
    QCOMPARE(r.err, QStringLiteral("--to 2026-11-31 names no real day: November 2026 has 30 days.\n"
                                   "Try 'tonvy-cli --help'.\n"));
    QCOMPARE(r.out, QString());
    QVERIFY(!QFile::exists(output));
}

void tst_CliAudit::traceFileIsOwnerOnly()
{
    const QString trace = m_dir.filePath("trace.txt");
    QCOMPARE(run({"--trace", trace, "settings", "show"}).code, 0);
    QVERIFY(QFile::exists(trace));
    const QFile::Permissions p = QFile::permissions(trace);
    QVERIFY(!p.testFlag(QFileDevice::ReadGroup));
    QVERIFY(!p.testFlag(QFileDevice::ReadOther));
    QVERIFY(!p.testFlag(QFileDevice::WriteOther));
}

void tst_CliAudit::diskThatCannotSyncIsAFailure_data()
{
    QTest::addColumn<QString>("failing"); // what the disk cannot sync
    QTest::newRow("the file") << "exports/";
    QTest::newRow("its folder") << "exports$";
}

void tst_CliAudit::diskThatCannotSyncIsAFailure()
{
    // The real program on a disk whose syncs fail (the fault shim refuses
    // fsync): the export is not reported written.
    QFETCH(QString, failing);
    const QString folder = m_dir.filePath("exports");
    QVERIFY(QDir().mkpath(folder));
    const QString out = QDir(folder).filePath("audit.csv");
    QFile::remove(out);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("LD_PRELOAD", QStringLiteral(DISKFULL_SHIM));
    // A sanitizer build's runtime would insist on being loaded first.
    env.insert("ASAN_OPTIONS", env.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
    env.insert("TONVY_TEST_SYNC_FAIL_MATCH", QDir(m_dir.path()).canonicalPath() + "/" + failing);
    const Result r = run({"audit", "--output", out}, {}, env);
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("Cannot write " + out), qPrintable(r.err));
    QVERIFY2(r.err.contains("could not be synced to the disk"), qPrintable(r.err));
    QVERIFY2(!r.out.contains("events written"), qPrintable(r.out));
    // A file that could not be synced is not put in place at all.
    if (failing.endsWith('/'))
        QVERIFY(!QFile::exists(out));
    // The same disk healthy again: written.
    QCOMPARE(run({"audit", "--output", out}).code, 0);
    QVERIFY(QFile::exists(out));
}

QTEST_GUILESS_MAIN(tst_CliAudit)
#include "tst_cli_audit.moc"
