#include "store/DatabaseRestore.h"
#include "tests/store/StoreFaults.h"
#include "tests/support/DatabaseFile.h"
#include "tests/support/TestTiming.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QtTest>

using StoreFaults::Fault;

// 'tonvy-cli backup' and 'tonvy-cli restore' as the real program: copies
// taken while another connection reads, checked, and put back only when
// they are this program's sound database, never while the file is in use.
class tst_CliBackup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void backupWhileAnotherConnectionReads();
    void backupByDefaultGoesToBackupsWithTheTime();
    void backupIntoAFolder();
    void backupNeverReplacesAFile();
    void restoreOfAGoodBackup();
    void restoreOverADamagedDatabase();
    void restoreRefuses_data();
    void restoreRefuses();
    void restoreRefusedWhileLocked();
    void restoreRefusedWhileAnotherProcessHasTheFileOpen();
    void damagedStartTellsHowToRestore();
    void helpListsTheCommands();

private:
    struct Result
    {
        int code = -1;
        QString out;
        QString err;
    };
    Result run(const QString& dataDir, const QStringList& args);
    QString freshDataDir(const QString& name);
    // Every row of every table, in order, as text: what a copy must hold.
    static QStringList rowsOf(const QString& path, const QStringList& skip = {});
    static void execute(const QString& path, const QStringList& statements);

    QString m_cli;
    QTemporaryDir m_dir;
};

void tst_CliBackup::initTestCase()
{
    m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + "/tonvy-cli";
    QVERIFY2(QFile::exists(m_cli), qPrintable(m_cli));
    QVERIFY(QFile::exists(QStringLiteral(LOCKHOLDER_EXE)));
}

tst_CliBackup::Result tst_CliBackup::run(const QString& dataDir, const QStringList& args)
{
    QProcess p;
    p.start(m_cli, QStringList{"--data-dir", dataDir} + args);
    p.closeWriteChannel();
    Result r;
    if (!p.waitForFinished(scaledMs(60000))) {
        p.kill();
        p.waitForFinished();
        r.err = "timeout";
        return r;
    }
    r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -2;
    r.out = QString::fromLocal8Bit(p.readAllStandardOutput());
    r.err = QString::fromLocal8Bit(p.readAllStandardError());
    return r;
}

QString tst_CliBackup::freshDataDir(const QString& name)
{
    const QString dir = m_dir.filePath(name);
    if (!QDir().mkpath(dir))
        return {};
    const QString db = QDir(dir).filePath("HandHeldData.db");
    if (!StoreFaults::makeOurDatabase(db, dir))
        return {};
    execute(db, {"INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, ClosingPaise, CollectedPaise) "
                 "VALUES ('AG9', '2026-11-20', '000000000000001', 150000, 5000)",
                 "INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, ClosingPaise, CollectedPaise) "
                 "VALUES ('AG9', '2026-11-21', '000000000000002', 250000, 7500)"});
    return dir;
}

void tst_CliBackup::execute(const QString& path, const QStringList& statements)
{
    QString failed;
    QVERIFY2(DatabaseFile::execute(path, statements, &failed), qPrintable(failed));
}

QStringList tst_CliBackup::rowsOf(const QString& path, const QStringList& skip)
{
    QStringList rows;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("rows"));
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        if (db.open()) {
            QStringList tables;
            QSqlQuery t(db);
            t.exec("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%' ORDER BY name");
            while (t.next())
                tables << t.value(0).toString();
            for (const QString& table : tables) {
                if (skip.contains(table))
                    continue;
                QSqlQuery q(db);
                q.exec(QStringLiteral("SELECT * FROM \"%1\" ORDER BY rowid").arg(table));
                while (q.next()) {
                    QStringList fields{table};
                    for (int i = 0; i < q.record().count(); ++i)
                        fields << q.value(i).toString();
                    rows << fields.join('|');
                }
            }
            QSqlQuery v(db);
            if (v.exec("PRAGMA user_version") && v.next())
                rows << "user_version|" + v.value(0).toString();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("rows"));
    return rows;
}

void tst_CliBackup::backupWhileAnotherConnectionReads()
{
    const QString dir = freshDataDir("reading");
    QVERIFY(!dir.isEmpty());
    const QString db = QDir(dir).filePath("HandHeldData.db");
    // The backup's own start writes nothing into a database whose passwords
    // are hashed already, so the rows to expect are the ones here now.
    const QStringList expected = rowsOf(db);
    QVERIFY(expected.size() > 1500);
    const QString copy = m_dir.filePath("reading-copy.db");
    {
        QSqlDatabase reader = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("reader"));
        reader.setDatabaseName(db);
        QVERIFY(reader.open());
        QVERIFY(reader.transaction());
        QSqlQuery q(reader);
        QVERIFY(q.exec("SELECT count(*) FROM BankData"));
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toInt(), 1500);

        QElapsedTimer took;
        took.start();
        const Result r = run(dir, {"backup", "--output", copy});
        QVERIFY2(r.code == 0, qPrintable(r.out + r.err));
        // Not held up by the reader: the copy reads alongside it.
        QVERIFY2(took.elapsed() < scaledMs(2500), qPrintable(QString::number(took.elapsed())));
        QVERIFY2(r.out.contains(copy), qPrintable(r.out));
        QVERIFY2(r.out.contains("the copy checked"), qPrintable(r.out));
        QVERIFY2(r.out.contains("restore " + copy), qPrintable(r.out));
        q.finish();
        reader.rollback();
        reader.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("reader"));

    QCOMPARE(DatabaseFile::scalar(copy, "PRAGMA integrity_check"), QString("ok"));
    QCOMPARE(rowsOf(copy), expected);
    QCOMPARE(DatabaseCopy::problemWith(copy), QString());
    const QFile::Permissions p = QFile::permissions(copy);
    QVERIFY(!p.testFlag(QFileDevice::ReadGroup) && !p.testFlag(QFileDevice::ReadOther));
    QVERIFY(!QFile::exists(copy + ".part"));
}

void tst_CliBackup::backupByDefaultGoesToBackupsWithTheTime()
{
    const QString dir = freshDataDir("default");
    QVERIFY(!dir.isEmpty());
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    const Result r = run(dir, {"backup"});
    QVERIFY2(r.code == 0, qPrintable(r.out + r.err));
    const QStringList files = QDir(QDir(dir).filePath("Backups")).entryList(QDir::Files);
    QCOMPARE(files.size(), 1);
    const QRegularExpressionMatch m =
        QRegularExpression(R"(^HandHeldData-(\d{4}-\d{2}-\d{2}-\d{6})\.db$)").match(files.first());
    QVERIFY2(m.hasMatch(), qPrintable(files.first()));
    const QDateTime stamped = QDateTime::fromString(m.captured(1), "yyyy-MM-dd-HHmmss");
    QVERIFY(stamped >= before.addSecs(-1) && stamped <= QDateTime::currentDateTime().addSecs(1));
    QVERIFY(r.out.contains(QDir(dir).filePath("Backups/" + files.first())));
    QCOMPARE(DatabaseCopy::problemWith(QDir(dir).filePath("Backups/" + files.first())), QString());
}

void tst_CliBackup::backupIntoAFolder()
{
    const QString dir = freshDataDir("folder");
    QVERIFY(!dir.isEmpty());
    const QString stick = m_dir.filePath("usb-stick");
    QVERIFY(QDir().mkpath(stick));
    const Result r = run(dir, {"backup", "--output", stick});
    QVERIFY2(r.code == 0, qPrintable(r.out + r.err));
    const QStringList files = QDir(stick).entryList(QDir::Files);
    QCOMPARE(files.size(), 1);
    QVERIFY(files.first().startsWith("HandHeldData-"));
}

void tst_CliBackup::backupNeverReplacesAFile()
{
    const QString dir = freshDataDir("taken");
    QVERIFY(!dir.isEmpty());
    const QString taken = m_dir.filePath("taken.db");
    QVERIFY(StoreFaults::writeBytes(taken, "precious"));
    const Result r = run(dir, {"backup", "--output", taken});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains(taken) && r.err.contains("exists already"), qPrintable(r.err));
    QCOMPARE(StoreFaults::bytesOf(taken), QByteArray("precious"));
}

void tst_CliBackup::restoreOfAGoodBackup()
{
    const QString dir = freshDataDir("restore");
    QVERIFY(!dir.isEmpty());
    const QString db = QDir(dir).filePath("HandHeldData.db");
    const QString copy = m_dir.filePath("restore-copy.db");
    QCOMPARE(run(dir, {"backup", "--output", copy}).code, 0);
    const QStringList backedUp = rowsOf(copy);

    // Later work, which the restore takes back.
    QCOMPARE(run(dir, {"settings", "set", "--bank-name", "NEW BANK"}).code, 0);
    execute(db, {"DELETE FROM CollectionHistory", "DELETE FROM BankData WHERE rowid % 2 = 0"});
    QCOMPARE(DatabaseFile::scalar(db, "SELECT BankName FROM Path"), QString("NEW BANK"));
    const QByteArray replaced = StoreFaults::hashOf(db);

    const Result r = run(dir, {"restore", copy});
    QVERIFY2(r.code == 0, qPrintable(r.out + r.err));
    QVERIFY2(r.out.contains("was restored from " + copy), qPrintable(r.out));

    // The rows are back: everything the copy held, and the restore's event.
    QCOMPARE(DatabaseFile::scalar(db, "SELECT BankName FROM Path"), QString("OLD BANK"));
    QCOMPARE(DatabaseFile::scalar(db, "SELECT count(*) FROM CollectionHistory"), QString("2"));
    QCOMPARE(rowsOf(db, {"AuditTrail"}), rowsOf(copy, {"AuditTrail"}));
    QCOMPARE(rowsOf(copy), backedUp);
    QCOMPARE(DatabaseFile::scalar(db, "PRAGMA integrity_check"), QString("ok"));

    // The replaced file is kept beside it, exactly as it was.
    const QStringList kept = QDir(dir).entryList({"HandHeldData-before-restore-*.db"}, QDir::Files);
    QCOMPARE(kept.size(), 1);
    QVERIFY(r.out.contains(QDir(dir).filePath(kept.first())));
    QCOMPARE(StoreFaults::hashOf(QDir(dir).filePath(kept.first())), replaced);
    QVERIFY(!QFile::exists(db + ".restoring"));

    // And the audit trail says so.
    const QString audit = m_dir.filePath("restore-audit.csv");
    QCOMPARE(run(dir, {"audit", "--output", audit}).code, 0);
    const QString csv = QString::fromUtf8(StoreFaults::bytesOf(audit));
    QVERIFY2(csv.contains(",restore,\"database restored from " + copy), qPrintable(csv));
    QVERIFY2(csv.contains("kept as " + QDir(dir).filePath(kept.first())), qPrintable(csv));
    QVERIFY2(csv.contains(QString::fromLatin1(StoreFaults::hashOf(copy))), qPrintable(csv));
}

void tst_CliBackup::restoreOverADamagedDatabase()
{
    const QString dir = freshDataDir("damaged");
    QVERIFY(!dir.isEmpty());
    const QString db = QDir(dir).filePath("HandHeldData.db");
    const QString copy = m_dir.filePath("damaged-copy.db");
    QCOMPARE(run(dir, {"backup", "--output", copy}).code, 0);
    QVERIFY(StoreFaults::make(Fault::DamagedDataPage, db, dir));
    const QByteArray damaged = StoreFaults::hashOf(db);
    QCOMPARE(run(dir, {"settings", "show"}).code, 1);

    const Result r = run(dir, {"restore", copy});
    QVERIFY2(r.code == 0, qPrintable(r.out + r.err));
    QCOMPARE(run(dir, {"settings", "show"}).code, 0);
    const QStringList kept = QDir(dir).entryList({"HandHeldData-before-restore-*.db"}, QDir::Files);
    QCOMPARE(kept.size(), 1);
    QCOMPARE(StoreFaults::hashOf(QDir(dir).filePath(kept.first())), damaged);
}

void tst_CliBackup::restoreRefuses_data()
{
    QTest::addColumn<int>("fault");
    QTest::addColumn<QString>("said");
    QTest::newRow("damaged page") << int(Fault::DamagedDataPage) << "it is damaged";
    QTest::newRow("truncated") << int(Fault::Truncated) << "";
    QTest::newRow("another program's SQLite file") << int(Fault::OtherProgramsFile) << "made by another program";
    QTest::newRow("random bytes") << int(Fault::RandomBytes) << "not a database at all";
}

void tst_CliBackup::restoreRefuses()
{
    QFETCH(int, fault);
    QFETCH(QString, said);
    const QString dir = freshDataDir(QStringLiteral("refuse-%1").arg(fault));
    QVERIFY(!dir.isEmpty());
    const QString db = QDir(dir).filePath("HandHeldData.db");
    const QString bad = m_dir.filePath(QStringLiteral("bad-%1.db").arg(fault));
    QVERIFY(StoreFaults::make(Fault(fault), bad, dir));
    const QByteArray before = StoreFaults::hashOf(db);
    const QByteArray badBefore = StoreFaults::hashOf(bad);

    const Result r = run(dir, {"restore", bad});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("Cannot restore the database from " + bad), qPrintable(r.err));
    QVERIFY2(r.err.contains(said), qPrintable(r.err));
    QVERIFY2(r.err.contains("The database file " + db + " was left as it was."), qPrintable(r.err));
    QVERIFY2(r.err.contains(QDir(dir).filePath("BackupData")), qPrintable(r.err));
    QCOMPARE(StoreFaults::hashOf(db), before);
    QCOMPARE(StoreFaults::hashOf(bad), badBefore);
    QVERIFY(QDir(dir).entryList({"HandHeldData-before-restore-*"}, QDir::Files).isEmpty());
    QVERIFY(!QFile::exists(db + ".restoring"));
}

void tst_CliBackup::restoreRefusedWhileLocked()
{
    const QString dir = freshDataDir("locked");
    QVERIFY(!dir.isEmpty());
    const QString db = QDir(dir).filePath("HandHeldData.db");
    const QString copy = m_dir.filePath("locked-copy.db");
    QCOMPARE(run(dir, {"backup", "--output", copy}).code, 0);
    const QByteArray before = StoreFaults::hashOf(db);
    {
        StoreFaults::LockHolder holder;
        QVERIFY(holder.start(db, "immediate"));
        const Result r = run(dir, {"restore", copy});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains(db), qPrintable(r.err));
        QVERIFY2(r.err.contains("in use by another program"), qPrintable(r.err));
        QVERIFY2(r.err.contains("Nothing was restored"), qPrintable(r.err));
    }
    QCOMPARE(StoreFaults::hashOf(db), before);
    QVERIFY(QDir(dir).entryList({"HandHeldData-before-restore-*"}, QDir::Files).isEmpty());
}

void tst_CliBackup::restoreRefusedWhileAnotherProcessHasTheFileOpen()
{
    // The desktop program between two actions: the file open, no lock held.
    const QString dir = freshDataDir("open");
    QVERIFY(!dir.isEmpty());
    const QString db = QDir(dir).filePath("HandHeldData.db");
    const QString copy = m_dir.filePath("open-copy.db");
    QCOMPARE(run(dir, {"backup", "--output", copy}).code, 0);
    const QByteArray before = StoreFaults::hashOf(db);
    {
        QSqlDatabase idle = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("idle"));
        idle.setDatabaseName(db);
        QVERIFY(idle.open());
        {
            QSqlQuery q(idle);
            QVERIFY(q.exec("SELECT count(*) FROM Path"));
        }
        const Result r = run(dir, {"restore", copy});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("in use by another program"), qPrintable(r.err));
        QVERIFY2(r.err.contains(QStringLiteral("process %1").arg(QCoreApplication::applicationPid())),
                 qPrintable(r.err));
        idle.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("idle"));
    QCOMPARE(StoreFaults::hashOf(db), before);
    // Once it is closed the restore goes ahead.
    const Result r = run(dir, {"restore", copy});
    QVERIFY2(r.code == 0, qPrintable(r.out + r.err));
}

void tst_CliBackup::damagedStartTellsHowToRestore()
{
    const QString dir = freshDataDir("advice");
    QVERIFY(!dir.isEmpty());
    const QString db = QDir(dir).filePath("HandHeldData.db");
    QCOMPARE(run(dir, {"backup"}).code, 0);
    const QString newest = DatabaseCopy::newestCopy(dir);
    QVERIFY(!newest.isEmpty());
    QVERIFY(StoreFaults::make(Fault::DamagedSettingsPage, db, dir));
    const Result r = run(dir, {"settings", "show"});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("is damaged"), qPrintable(r.err));
    const QString command = QStringLiteral("tonvy-cli --data-dir %1 restore %2").arg(dir, newest);
    QVERIFY2(r.err.contains(command), qPrintable(r.err));

    // And the command it names does the job.
    const Result restored = run(dir, {"restore", newest});
    QVERIFY2(restored.code == 0, qPrintable(restored.out + restored.err));
    QCOMPARE(run(dir, {"settings", "show"}).code, 0);
}

void tst_CliBackup::helpListsTheCommands()
{
    QProcess p;
    p.start(m_cli, {"--help"});
    QVERIFY(p.waitForFinished(scaledMs(30000)));
    const QString out = QString::fromLocal8Bit(p.readAllStandardOutput());
    QVERIFY2(out.contains("backup [--output FILE|FOLDER]"), qPrintable(out));
    QVERIFY2(out.contains("restore FILE"), qPrintable(out));
}

QTEST_GUILESS_MAIN(tst_CliBackup)
#include "tst_cli_backup.moc"
