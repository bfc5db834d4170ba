#include "store/AuditTrail.h"
#include "tests/reports/HistoryRows.h"
#include "tests/store/StoreFaults.h"

#include <QDate>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// tonvy-cli's files other than the receive's, as the real program: the
// report (PDF and CSV) and the audit trail's CSV on a disk that fills up
// while they are written or cannot sync them, and every command on a
// read-only data folder. A file that is not written whole is not left
// under its name (an earlier file of that name stays as it was), the
// message names the file and says what to do, the exit status is 1, and
// the database is not touched.
class tst_CliOutputFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void diskFillsUpWhileWriting_data();
    void diskFillsUpWhileWriting();
    void diskThatCannotSyncTheReport_data();
    void diskThatCannotSyncTheReport();
    void readOnlyDataFolder_data();
    void readOnlyDataFolder();
    void readOnlyDataFolderWithoutADatabase();

private:
    struct Result
    {
        QProcess::ExitStatus status = QProcess::CrashExit;
        int code = -1;
        QString out;
        QString err;
    };
    // In the data folder made for the tests unless dataDir is given.
    Result run(const QStringList& args, const QMap<QString, QString>& faults = {}, const QString& dataDir = {});
    static QStringList outputCommand(const QString& kind, const QString& output);

    QTemporaryDir m_dir;
    QString m_cli;
    QString m_data;
    QString m_db;
};

void tst_CliOutputFaults::initTestCase()
{
    m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + QStringLiteral("/tonvy-cli");
    QVERIFY2(QFile::exists(m_cli), qPrintable(m_cli));
    QVERIFY(QFile::exists(QStringLiteral(DISKFULL_SHIM)));
    m_data = QFileInfo(m_dir.path()).canonicalFilePath() + QStringLiteral("/data");
    QVERIFY(QDir().mkpath(m_data));
    m_db = QDir(m_data).filePath(QStringLiteral("HandHeldData.db"));
    QVERIFY(StoreFaults::makeOurDatabase(m_db, m_data));
    // A month of collections of three agents, and an audit trail of some
    // length: files of a few pages, larger than what the disk has left.
    SharedDatabase db;
    QString error;
    QVERIFY2(db.open(m_db, &error), qPrintable(error));
    SharedDatabase::Transaction transaction(db);
    const QDate first(2007, 11, 1);
    for (int day = 0; day < 30; ++day) {
        for (int agent = 1; agent <= 3; ++agent) {
            for (int account = 0; account < 12; ++account) {
                addHistory(db, HistoryRow{QStringLiteral("AG%1").arg(agent, 13, 10, QLatin1Char('0')),
                                          first.addDays(day).toString(Qt::ISODate),
                                          QStringLiteral("%1").arg(agent * 1000 + account, 15, 10, QLatin1Char('0')),
                                          1000.0 + account, 50.0 + day,
                                          QStringLiteral("%1").arg(agent, 3, 10, QLatin1Char('0'))});
            }
        }
    }
    for (int i = 0; i < 200; ++i)
        AuditTrail::record(db, QDateTime(first.addDays(i % 30), QTime(9, 0)), AuditTrail::Action::Settings,
                           QStringLiteral("settings changed, step %1").arg(i));
    transaction.commit();
}

tst_CliOutputFaults::Result tst_CliOutputFaults::run(const QStringList& args, const QMap<QString, QString>& faults,
                                                     const QString& dataDir)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (!faults.isEmpty()) {
        env.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(DISKFULL_SHIM));
        // A sanitizer build's runtime would insist on being loaded first.
        env.insert(QStringLiteral("ASAN_OPTIONS"),
                   env.value(QStringLiteral("ASAN_OPTIONS")) + QStringLiteral(":verify_asan_link_order=0"));
        for (auto it = faults.begin(); it != faults.end(); ++it)
            env.insert(it.key(), it.value());
    }
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(m_cli, QStringList{QStringLiteral("--data-dir"), dataDir.isEmpty() ? m_data : dataDir} + args);
    p.closeWriteChannel();
    Result r;
    if (!p.waitForFinished(60000)) {
        p.kill();
        p.waitForFinished();
        r.err = QStringLiteral("timeout");
        return r;
    }
    r.status = p.exitStatus();
    r.code = p.exitCode();
    r.out = QString::fromLocal8Bit(p.readAllStandardOutput());
    r.err = QString::fromLocal8Bit(p.readAllStandardError());
    return r;
}

QStringList tst_CliOutputFaults::outputCommand(const QString& kind, const QString& output)
{
    const QStringList month{QStringLiteral("--from"),     QStringLiteral("2007-11-01"), QStringLiteral("--to"),
                            QStringLiteral("2007-11-30"), QStringLiteral("--output"),   output};
    if (kind == QLatin1String("audit"))
        return QStringList{QStringLiteral("audit")} + month;
    return QStringList{QStringLiteral("report"), kind} + month;
}

void tst_CliOutputFaults::diskFillsUpWhileWriting_data()
{
    QTest::addColumn<QString>("kind");   // daily, agent (reports) or audit
    QTest::addColumn<QString>("suffix"); // the output's format
    QTest::addColumn<int>("budget");     // bytes the disk has left
    QTest::addColumn<bool>("earlier");   // a file of that name is there already
    for (const auto& [kind, suffix] : {std::pair{"daily", "pdf"}, std::pair{"daily", "csv"}, std::pair{"agent", "pdf"},
                                       std::pair{"agent", "csv"}, std::pair{"audit", "csv"}}) {
        for (int budget : {0, 2048}) {
            for (bool earlier : {false, true}) {
                QTest::addRow("%s %s, %d bytes left%s", kind, suffix, budget, earlier ? ", earlier file" : "")
                    << kind << suffix << budget << earlier;
            }
        }
    }
}

void tst_CliOutputFaults::diskFillsUpWhileWriting()
{
    QFETCH(QString, kind);
    QFETCH(QString, suffix);
    QFETCH(int, budget);
    QFETCH(bool, earlier);
    const QString folder = QDir(m_dir.path())
                               .filePath(QStringLiteral("full-%1").arg(QTest::currentDataTag()))
                               .replace(QLatin1Char(' '), QLatin1Char('-'))
                               .remove(QLatin1Char(','));
    QVERIFY(QDir().mkpath(folder));
    const QString output = QDir(folder).filePath(QStringLiteral("out.") + suffix);
    const QByteArray before = "an earlier file, kept as it was\r\n";
    if (earlier)
        QVERIFY(StoreFaults::writeBytes(output, before));
    const QByteArray database = StoreFaults::hashOf(m_db);

    const Result r = run(outputCommand(kind, output),
                         {{QStringLiteral("TONVY_TEST_DISK_FULL_MATCH"), QFileInfo(folder).canonicalFilePath()},
                          {QStringLiteral("TONVY_TEST_DISK_FULL_AFTER"), QString::number(budget)}});
    QVERIFY2(r.status == QProcess::NormalExit, qPrintable(r.err));
    QVERIFY2(r.code == 1, qPrintable(r.out + r.err));
    QVERIFY2(r.err.contains(QStringLiteral("Cannot write ")) && r.err.contains(output), qPrintable(r.err));
    QVERIFY2(r.err.contains(QLatin1String("No space left on device")), qPrintable(r.err));
    QVERIFY2(r.err.contains(QLatin1String("Free some space on that disk")), qPrintable(r.err));
    QVERIFY2(r.err.contains(QLatin1String("choose another place with --output")), qPrintable(r.err));
    QVERIFY2(!r.out.contains(QLatin1String("saved")) && !r.out.contains(QLatin1String("written")), qPrintable(r.out));
    // Nothing of the new file under its name, no temporary copy left.
    if (earlier)
        QCOMPARE(StoreFaults::bytesOf(output), before);
    else
        QVERIFY(!QFile::exists(output));
    QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::Hidden).size(), earlier ? 1 : 0);
    QCOMPARE(StoreFaults::hashOf(m_db), database);

    // With room again, the same command writes the file.
    const Result again = run(outputCommand(kind, output));
    QVERIFY2(again.code == 0, qPrintable(again.err));
    QVERIFY(StoreFaults::bytesOf(output).size() > budget);
}

void tst_CliOutputFaults::diskThatCannotSyncTheReport_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<bool>("folderOnly"); // the file is synced, its folder is not
    for (const char* suffix : {"pdf", "csv"}) {
        QTest::addRow("%s, the file", suffix) << "daily" << suffix << false;
        QTest::addRow("%s, its folder", suffix) << "daily" << suffix << true;
    }
    QTest::newRow("audit csv, the file") << "audit"
                                         << "csv" << false;
    QTest::newRow("audit csv, its folder") << "audit"
                                           << "csv" << true;
}

void tst_CliOutputFaults::diskThatCannotSyncTheReport()
{
    QFETCH(QString, kind);
    QFETCH(QString, suffix);
    QFETCH(bool, folderOnly);
    const QString folder =
        QDir(m_dir.path()).filePath(QStringLiteral("nosync-%1-%2-%3").arg(kind, suffix).arg(folderOnly));
    QVERIFY(QDir().mkpath(folder));
    const QString canonical = QFileInfo(folder).canonicalFilePath();
    const QString output = QDir(folder).filePath(QStringLiteral("out.") + suffix);
    const QByteArray database = StoreFaults::hashOf(m_db);
    // "$" ends the match: the folder itself, not the files in it.
    const Result r = run(outputCommand(kind, output),
                         {{QStringLiteral("TONVY_TEST_SYNC_FAIL_MATCH"),
                           folderOnly ? canonical + QStringLiteral("$") : canonical + QStringLiteral("/")}});
    QVERIFY2(r.status == QProcess::NormalExit, qPrintable(r.err));
    QVERIFY2(r.code == 1, qPrintable(r.out + r.err));
    QVERIFY2(r.err.contains(QStringLiteral("Cannot write ")) && r.err.contains(output), qPrintable(r.err));
    QVERIFY2(!r.out.contains(QLatin1String("saved")) && !r.out.contains(QLatin1String("written")), qPrintable(r.out));
    if (folderOnly) {
        // Renamed into place, but its folder's entry may not survive a
        // power cut: said so.
        QVERIFY2(r.err.contains(QStringLiteral("the folder %1 could not be synced to the disk").arg(canonical)),
                 qPrintable(r.err));
        QVERIFY2(r.err.contains(QLatin1String("could still lose it")), qPrintable(r.err));
    } else {
        // A file the disk did not keep is not put in place at all.
        QVERIFY2(r.err.contains(QLatin1String("it could not be synced to the disk (Input/output error)")),
                 qPrintable(r.err));
        QVERIFY(!QFile::exists(output));
        QVERIFY2(r.err.contains(QLatin1String("Nothing was kept under that name")), qPrintable(r.err));
    }
    QCOMPARE(StoreFaults::hashOf(m_db), database);
}

void tst_CliOutputFaults::readOnlyDataFolder_data()
{
    // What users expect of a data folder they may read but not write (a
    // read-only share, a drive mounted read-only, a folder of another
    // user): reading goes on, to files elsewhere; whatever would change the
    // database or write into the folder stops with a message saying so and
    // what to do, and changes nothing.
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("said"); // on standard error (or output, for success)
    const QString writable = QDir(m_dir.path()).filePath(QStringLiteral("elsewhere"));
    const QString inData = QDir(m_dir.path()).filePath(QStringLiteral("data"));
    const QString readOnly = QStringLiteral("read-only");
    QTest::newRow("settings show") << QStringList{"settings", "show"} << 0 << "Bank Name: OLD BANK";
    QTest::newRow("settings set") << QStringList{"settings", "set", "--bank-name", "NEW BANK"} << 1 << readOnly;
    QTest::newRow("password set") << QStringList{"password", "set", "--kind", "setup", "--old", "1234", "--new", "5678"}
                                  << 1 << readOnly;
    QTest::newRow("send") << QStringList{"--port", "/nonexistent/port", "send", "--agent", "5", "--date", "1611"} << 1
                          << readOnly;
    QTest::newRow("report elsewhere") << outputCommand(QStringLiteral("daily"), writable + QStringLiteral("/d.pdf"))
                                      << 0 << "Report saved in";
    QTest::newRow("report into the data folder")
        << outputCommand(QStringLiteral("daily"), inData + QStringLiteral("/d.csv")) << 1
        << "let this user write to that folder";
    QTest::newRow("audit elsewhere") << outputCommand(QStringLiteral("audit"), writable + QStringLiteral("/a.csv")) << 0
                                     << "events written to";
    QTest::newRow("audit into the data folder")
        << outputCommand(QStringLiteral("audit"), inData + QStringLiteral("/a.csv")) << 1
        << "let this user write to that folder";
    QTest::newRow("backup into the data folder") << QStringList{"backup"} << 1 << "cannot be created";
    QTest::newRow("backup elsewhere") << QStringList{"backup", "--output", writable + QStringLiteral("/copy.db")} << 0
                                      << "and the copy checked";
    // A sound copy outside the data folder: the restore cannot put it in
    // place, and says the folder may be read-only, not only full.
    const QString copy = QDir(m_dir.path()).filePath(QStringLiteral("to-restore.db"));
    if (!QFile::exists(copy))
        QFile::copy(m_db, copy);
    QTest::newRow("restore") << QStringList{"restore", copy} << 1 << "if the folder is read-only for this user";
}

void tst_CliOutputFaults::readOnlyDataFolder()
{
    QFETCH(QStringList, command);
    QFETCH(int, code);
    QFETCH(QString, said);
    QVERIFY(QFile::copy(QStringLiteral(DOWNLOAD_FIXTURES "/0051611d.txt"), QDir(m_data).filePath("0051611d.txt")) ||
            QFile::exists(QDir(m_data).filePath("0051611d.txt")));
    const QStringList before = QDir(m_data).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    const QByteArray database = StoreFaults::hashOf(m_db);

    const QString elsewhere = QDir(m_dir.path()).filePath(QStringLiteral("elsewhere"));
    for (const char* refusal : {"EACCES", "EROFS"}) {
        QVERIFY(QDir(elsewhere).removeRecursively() && QDir().mkpath(elsewhere));
        const Result r = run(command, {{QStringLiteral("TONVY_TEST_READONLY_FOLDER"), m_data},
                                       {QStringLiteral("TONVY_TEST_READONLY_ERRNO"), QLatin1String(refusal)}});
        const QString all = QLatin1String(refusal) + QLatin1Char('\n') + r.out + r.err;
        QVERIFY2(r.status == QProcess::NormalExit, qPrintable(all));
        QVERIFY2(r.code == code, qPrintable(all));
        QVERIFY2((code == 0 ? r.out : r.err).contains(said), qPrintable(all));
        QVERIFY2(!r.out.contains(QLatin1String("Data Saved Successfully")), qPrintable(all));
        if (code != 0)
            QVERIFY2(r.err.contains(m_data), qPrintable(all));
        // Nothing changed in the folder.
        QCOMPARE(StoreFaults::hashOf(m_db), database);
        QCOMPARE(QDir(m_data).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), before);
    }
}

void tst_CliOutputFaults::readOnlyDataFolderWithoutADatabase()
{
    // A new data folder that cannot be written: the database cannot be
    // made, which is said as it is (no advice to restore a backup).
    const QString empty = QFileInfo(m_dir.path()).canonicalFilePath() + QStringLiteral("/empty");
    QVERIFY(QDir().mkpath(empty));
    const Result r = run({QStringLiteral("settings"), QStringLiteral("show")},
                         {{QStringLiteral("TONVY_TEST_READONLY_FOLDER"), empty}}, empty);
    QVERIFY2(r.status == QProcess::NormalExit, qPrintable(r.err));
    QCOMPARE(r.code, 1);
    QVERIFY2(
        r.err.contains(QStringLiteral("Cannot open the database file %1/HandHeldData.db: it does not exist yet and "
                                      "cannot be created")
                           .arg(empty)),
        qPrintable(r.err));
    QVERIFY2(r.err.contains(QStringLiteral("the folder %1 is read-only for this user").arg(empty)), qPrintable(r.err));
    QVERIFY2(!r.err.contains(QLatin1String("Restore")) && !r.err.contains(QLatin1String("restore")), qPrintable(r.err));
    QVERIFY(QDir(empty).isEmpty());
}

QTEST_GUILESS_MAIN(tst_CliOutputFaults)
#include "tst_cli_outputfaults.moc"
