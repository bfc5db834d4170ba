#include "store/SettingsStore.h"
#include "tests/support/CliReceiveFixture.h"

#include <QDirIterator>
#include <QProcess>
#include <QSqlQuery>
#include <QtTest>

// 'tonvy-cli receive', the real program against the simulated terminal, on
// a disk that fills up at each file the receive writes (the backup dump,
// the upload file, the check listing, the commit of the rows, the
// reconciliation), that cannot sync a file or a folder, and on a read-only
// data folder. Each ends with exit status 1 and a message naming the file
// and saying what to do; nothing is lost: either nothing is stored and the
// receive can be done again, or the rows are stored with the files they owe
// marked, and the next start writes them once there is room. No file under
// its final name is cut short.
class tst_CliReceiveFaults : public QObject, protected CliReceiveFixture
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { tearDown(); }
    void diskFillsUpDuringTheReceive_data();
    void diskFillsUpDuringTheReceive();
    void diskThatCannotSyncDuringTheReceive_data();
    void diskThatCannotSyncDuringTheReceive();
    void readOnlyDataFolder_data();
    void readOnlyDataFolder();

private:
    QString bankFolder() const { return t->path(QStringLiteral("bank")); }
    QString backupFolder() const { return t->path(QStringLiteral("BackupData")); }
    QString uploadFile() const { return QDir(bankFolder()).filePath(QStringLiteral("0011611u.txt")); }
    QString checkListing() const { return QDir(backupFolder()).filePath(QStringLiteral("0011611uCheck.txt")); }

    static QProcessEnvironment faultyEnvironment(const QMap<QString, QString>& variables);
    Result receiveWith(const QProcessEnvironment& env);
    Result cli(const QStringList& args);
    int count(const QString& sql);
    static int lineCount(const QString& path);
    void checkNoFileIsCutShort();
    void checkFaultyReceive(const Result& r, const QString& named, bool stored);
};

void tst_CliReceiveFaults::init()
{
    setUp();
    QVERIFY(QDir().mkpath(bankFolder()));
    SettingsChange change;
    change.bankInfoPath = bankFolder();
    SettingsStore::save(t->db, change);
    prepare();
}

QProcessEnvironment tst_CliReceiveFaults::faultyEnvironment(const QMap<QString, QString>& variables)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(DISKFULL_SHIM));
    // A sanitizer build's runtime would insist on being loaded first.
    env.insert(QStringLiteral("ASAN_OPTIONS"),
               env.value(QStringLiteral("ASAN_OPTIONS")) + QStringLiteral(":verify_asan_link_order=0"));
    for (auto it = variables.begin(); it != variables.end(); ++it)
        env.insert(it.key(), it.value());
    return env;
}

// The receive run with the fault shim while this process answers as the
// terminal.
tst_CliReceiveFaults::Result tst_CliReceiveFaults::receiveWith(const QProcessEnvironment& env)
{
    return receive({}, env);
}

// Another command, on a healthy disk.
tst_CliReceiveFaults::Result tst_CliReceiveFaults::cli(const QStringList& args)
{
    QProcess p;
    p.start(m_cli, QStringList{QStringLiteral("--data-dir"), t->dir.path()} + args);
    p.closeWriteChannel();
    Result r;
    if (!p.waitForFinished(60000))
        return r;
    r.exitCode = p.exitCode();
    r.status = p.exitStatus();
    r.out = QString::fromLocal8Bit(p.readAllStandardOutput());
    r.err = QString::fromLocal8Bit(p.readAllStandardError());
    return r;
}

int tst_CliReceiveFaults::count(const QString& sql)
{
    QSqlQuery q(t->db.connection());
    return q.exec(sql) && q.next() ? q.value(0).toInt() : -1;
}

int tst_CliReceiveFaults::lineCount(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? static_cast<int>(f.readAll().count("\r\n")) : -1;
}

// Every file the receives left in the bank folder and in BackupData is
// whole: no temporary copy left behind, every text file ends with its last
// line, the upload file and the check listing hold every row.
void tst_CliReceiveFaults::checkNoFileIsCutShort()
{
    for (const QString& folder : {bankFolder(), backupFolder()}) {
        QDirIterator it(folder, QDir::Files | QDir::Hidden);
        while (it.hasNext()) {
            const QString path = it.next();
            const QString name = QFileInfo(path).fileName();
            QVERIFY2(name.endsWith(QLatin1String(".txt")) || name.endsWith(QLatin1String(".db")), qPrintable(path));
            if (!name.endsWith(QLatin1String(".txt")))
                continue;
            QFile f(path);
            QVERIFY(f.open(QIODevice::ReadOnly));
            const QByteArray bytes = f.readAll();
            QVERIFY2(bytes.isEmpty() || bytes.endsWith("\r\n"), qPrintable(path));
        }
    }
    if (QFile::exists(uploadFile()))
        QCOMPARE(lineCount(uploadFile()), records.transactionCount);
    if (QFile::exists(checkListing()))
        QCOMPARE(lineCount(checkListing()), count(QStringLiteral("SELECT count(*) FROM RestoreData")));
}

void tst_CliReceiveFaults::diskFillsUpDuringTheReceive_data()
{
    QTest::addColumn<QString>("match"); // the files on the disk that fills up
    QTest::addColumn<int>("fromFile");  // the first of them that cannot grow
    QTest::addColumn<QString>("named"); // the file the message names
    QTest::addColumn<bool>("stored");   // the rows are in, their files owed
    // The files of BackupData in the order the receive writes them: the
    // backup dump, the check listing, the reconciliation.
    QTest::newRow("the backup dump") << "/BackupData/" << 1 << "BackupData/001_" << false;
    QTest::newRow("the upload file") << "/bank/" << 1 << "bank/0011611u.txt" << false;
    QTest::newRow("the check listing") << "/BackupData/" << 2 << "BackupData/0011611uCheck.txt" << false;
    // The journal cannot grow; or it can (the first file of the database to
    // grow), and the database file cannot as the commit writes into it.
    QTest::newRow("the commit, journal") << "/HandHeldData.db" << 1 << "HandHeldData.db" << false;
    QTest::newRow("the commit, database file") << "/HandHeldData.db" << 2 << "HandHeldData.db" << false;
    QTest::newRow("the reconciliation") << "/BackupData/" << 3 << "Reconciliation.txt" << true;
}

void tst_CliReceiveFaults::diskFillsUpDuringTheReceive()
{
    QFETCH(QString, match);
    QFETCH(int, fromFile);
    QFETCH(QString, named);
    QFETCH(bool, stored);
    const QString folder = QFileInfo(t->dir.path()).canonicalFilePath();
    const Result r = receiveWith(faultyEnvironment({{"TONVY_TEST_DISK_FULL_MATCH", folder + match},
                                                    {"TONVY_TEST_DISK_FULL_FROM_FILE", QString::number(fromFile)},
                                                    {"TONVY_TEST_DISK_FULL_AFTER", "0"}}));
    QVERIFY2(r.err.contains(QLatin1String("No space left on device")) ||
                 r.err.contains(QLatin1String("no space left on the disk")),
             qPrintable(r.err));
    QVERIFY2(r.err.contains(QLatin1String("Free some space")), qPrintable(r.err));
    checkFaultyReceive(r, named, stored);
}

void tst_CliReceiveFaults::diskThatCannotSyncDuringTheReceive_data()
{
    QTest::addColumn<QString>("match"); // the files or folders whose syncs fail ("$": the folder alone)
    QTest::addColumn<QString>("named");
    QTest::addColumn<bool>("stored");
    // A file is synced before it is renamed into place: one that cannot be
    // is not put in place, and nothing is stored.
    QTest::newRow("the upload file") << "/bank/"
                                     << "bank/0011611u.txt" << false;
    QTest::newRow("the check listing and backup") << "/BackupData/"
                                                  << "BackupData/0011611uCheck.txt" << false;
    // A folder is synced after the rename, once the rows are in: its file
    // stays owed and the next start writes it again.
    QTest::newRow("the bank folder") << "/bank$"
                                     << "the folder " << true;
    QTest::newRow("the BackupData folder") << "/BackupData$"
                                           << "the folder " << true;
}

void tst_CliReceiveFaults::diskThatCannotSyncDuringTheReceive()
{
    QFETCH(QString, match);
    QFETCH(QString, named);
    QFETCH(bool, stored);
    const QString folder = QFileInfo(t->dir.path()).canonicalFilePath();
    const Result r = receiveWith(faultyEnvironment({{"TONVY_TEST_SYNC_FAIL_MATCH", folder + match}}));
    QVERIFY2(r.err.contains(QLatin1String("could not be synced to the disk (Input/output error)")), qPrintable(r.err));
    checkFaultyReceive(r, named, stored);
}

// How a receive that met a fault ends, and that nothing is lost: either
// nothing was stored and the same receive goes through once the disk is
// healthy, or the rows are in with their files owed, and the next start
// writes them.
void tst_CliReceiveFaults::checkFaultyReceive(const Result& r, const QString& named, bool stored)
{
    const QString all = r.out + r.err;
    QVERIFY2(r.status == QProcess::NormalExit, qPrintable(all));
    QVERIFY2(r.exitCode == 1, qPrintable(all));
    QVERIFY2(!r.err.contains(QLatin1String("terminate called")), qPrintable(all));
    QVERIFY2(r.err.contains(named), qPrintable(all));
    checkNoFileIsCutShort();

    const int pending = count(QStringLiteral("SELECT count(*) FROM PendingOutputs"));
    if (!stored) {
        QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), 0);
        QCOMPARE(count(QStringLiteral("SELECT count(*) FROM CollectionHistory")), 0);
        QCOMPARE(pending, 0);
        QVERIFY(!QFile::exists(uploadFile()));
        QVERIFY(!QFile::exists(checkListing()));
        QVERIFY2(r.err.contains(QLatin1String("Nothing was replaced")) ||
                     r.err.contains(QLatin1String("Nothing was changed")),
                 qPrintable(all));
        QVERIFY2(r.err.contains(QLatin1String("receive again")) || r.err.contains(QLatin1String("try again")),
                 qPrintable(all));
        QVERIFY2(!r.out.contains(QLatin1String("Upload Completed Successfully")), qPrintable(all));
        terminal->setRecords(records);
        const Result again = receive({});
        QVERIFY2(again.exitCode == 0, qPrintable(again.out + again.err));
    } else {
        QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), records.transactionCount);
        QVERIFY2(pending > 0, qPrintable(all));
        QVERIFY2(r.err.contains(QLatin1String("start the program again or run any tonvy-cli command")),
                 qPrintable(all));
        const Result next = cli({QStringLiteral("settings"), QStringLiteral("show")});
        QVERIFY2(next.exitCode == 0, qPrintable(next.out + next.err));
    }
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), records.transactionCount);
    QCOMPARE(lineCount(uploadFile()), records.transactionCount);
    QVERIFY(QFile::exists(checkListing()));
    const QStringList reconciliations =
        QDir(backupFolder()).entryList({QStringLiteral("*Reconciliation.txt")}, QDir::Files);
    QVERIFY2(!reconciliations.isEmpty(), qPrintable(reconciliations.join(' ')));
    checkNoFileIsCutShort();
}

void tst_CliReceiveFaults::readOnlyDataFolder_data()
{
    QTest::addColumn<QString>("error"); // how the system refuses
    QTest::newRow("no permission") << "EACCES";
    QTest::newRow("read-only file system") << "EROFS";
}

void tst_CliReceiveFaults::readOnlyDataFolder()
{
    QFETCH(QString, error);
    // The data folder read-only, the bank folder inside it too (as when the
    // whole drive is): nothing is stored and nothing written, the
    // terminal's collections can be received again once it can be written.
    const Result r = receiveWith(
        faultyEnvironment({{"TONVY_TEST_READONLY_FOLDER", t->dir.path()}, {"TONVY_TEST_READONLY_ERRNO", error}}));
    const QString all = r.out + r.err;
    QVERIFY2(r.status == QProcess::NormalExit, qPrintable(all));
    QVERIFY2(r.exitCode == 1, qPrintable(all));
    QVERIFY2(r.err.contains(t->dir.path()), qPrintable(all));
    QVERIFY2(r.err.contains(QLatin1String("read-only")), qPrintable(all));
    QVERIFY2(!r.out.contains(QLatin1String("Upload Completed Successfully")), qPrintable(all));
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), 0);
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);
    QVERIFY(!QFile::exists(backupFolder()));
    QVERIFY(!QFile::exists(uploadFile()));

    terminal->setRecords(records);
    const Result again = receive({});
    QVERIFY2(again.exitCode == 0, qPrintable(again.out + again.err));
    checkNoFileIsCutShort();
}

QTEST_GUILESS_MAIN(tst_CliReceiveFaults)
#include "tst_cli_receivefaults.moc"
