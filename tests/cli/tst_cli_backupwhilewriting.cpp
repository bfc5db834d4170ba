#include "store/SharedDatabase.h"
#include "store/SteppedCopy.h"
#include "tests/reports/YearOfHistory.h"
#include "tests/support/DatabaseFile.h"
#include "tests/support/TestTiming.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

// 'tonvy-cli backup' of a database of many steps while another program
// writes it: the copy is held half-way (a shim in front of SQLite's backup
// step), and a writer that does not wait at all for a lock commits then;
// the copy goes on, starts again after the write, and holds it.
class tst_CliBackupWhileWriting : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void writerCommitsWhileTheCopyIsUnderWay();

private:
    // Adds the marker row n through a connection of another program that
    // waits for no lock (busy timeout 0): false with why when it is held.
    bool commitMarker(int n, QString* why);
    int markersIn(const QString& path);

    QString m_cli;
    QTemporaryDir m_dir;
    QString m_db;
};

void tst_CliBackupWhileWriting::initTestCase()
{
    m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + "/tonvy-cli";
    QVERIFY2(QFile::exists(m_cli), qPrintable(m_cli));
    QVERIFY(QFile::exists(QStringLiteral(BACKUPHOLD_SHIM)));
    m_db = m_dir.filePath(SharedDatabase::fileName());
    SharedDatabase db;
    QString error;
    QVERIFY2(db.open(m_db, &error), qPrintable(error));
    // A year of three agents of 200 accounts: some 4,800 pages, several
    // steps of the copy.
    QVERIFY(db.connection().transaction());
    QVERIFY2(addDaysOfHistory(db.connection(), QDate(2025, 1, 1), 365, 3, 200, &error), qPrintable(error));
    QVERIFY(db.connection().commit());
}

bool tst_CliBackupWhileWriting::commitMarker(int n, QString* why)
{
    return DatabaseFile::executeWithoutWaiting(
        m_db,
        QStringLiteral("INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, ClosingPaise, "
                       "CollectedPaise) VALUES ('AG0000000000009', '2026-11-24', ?, 0, 100)"),
        {QStringLiteral("%1").arg(n, 15, 10, QLatin1Char('0'))}, why);
}

int tst_CliBackupWhileWriting::markersIn(const QString& path)
{
    // -1 when the file cannot be read, so that no count passes by accident.
    bool ok = false;
    const int n = DatabaseFile::scalar(path, QStringLiteral("SELECT COUNT(*) FROM CollectionHistory WHERE AgentID = "
                                                            "'AG0000000000009'"))
                      .toInt(&ok);
    return ok ? n : -1;
}

void tst_CliBackupWhileWriting::writerCommitsWhileTheCopyIsUnderWay()
{
    QVERIFY2(QFileInfo(m_db).size() > 3LL * DatabaseCopy::pagesPerStep * 4096,
             qPrintable(QString::number(QFileInfo(m_db).size())));
    const QString copy = m_dir.filePath(QStringLiteral("copy.db"));
    const QString notice = m_dir.filePath(QStringLiteral("held"));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(BACKUPHOLD_SHIM));
    // A sanitizer build must be told that its runtime need not come first.
    const QString asan = env.value(QStringLiteral("ASAN_OPTIONS"));
    env.insert(QStringLiteral("ASAN_OPTIONS"),
               asan + (asan.isEmpty() ? "" : ":") + QStringLiteral("verify_asan_link_order=0"));
    env.insert(QStringLiteral("TONVY_TEST_BACKUP_HOLD_AFTER"), QStringLiteral("2"));
    env.insert(QStringLiteral("TONVY_TEST_BACKUP_HOLD_NOTICE"), notice);

    QProcess p;
    p.setProcessEnvironment(env);
    p.start(m_cli, {"--data-dir", m_dir.path(), "backup", "--output", copy});
    p.closeWriteChannel();
    QVERIFY(p.waitForStarted());
    // The copy has begun: two steps are made, the third waits.
    QElapsedTimer waited;
    waited.start();
    while (!QFile::exists(notice)) {
        QVERIFY2(!p.waitForFinished(20),
                 qPrintable("the copy ended without being held: " + QString::fromLocal8Bit(p.readAllStandardError())));
        QVERIFY2(waited.elapsed() < scaledMs(60000), "the copy was never held");
    }
    QVERIFY(QFile::exists(copy + QStringLiteral(".part")));
    QVERIFY(!QFile::exists(copy));

    // Between its start and its end, the copy holds nothing: a writer that
    // waits for no lock commits at once, twice.
    for (int n = 1; n <= 2; ++n) {
        QString why;
        QVERIFY2(commitMarker(n, &why), qPrintable(why));
    }
    QVERIFY(p.state() == QProcess::Running);
    QVERIFY(QFile::remove(notice));

    QVERIFY(p.waitForFinished(scaledMs(120000)));
    const QString out = QString::fromLocal8Bit(p.readAllStandardOutput());
    const QString err = QString::fromLocal8Bit(p.readAllStandardError());
    QVERIFY2(p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0, qPrintable(err));
    QVERIFY2(out.contains(QLatin1String("and the copy checked")), qPrintable(out));
    // The writes made the copy start again: it is the database after them.
    QCOMPARE(markersIn(copy), 2);
    QCOMPARE(markersIn(m_db), 2);
    QVERIFY(!QFile::exists(copy + QStringLiteral(".part")));
}

QTEST_GUILESS_MAIN(tst_CliBackupWhileWriting)
#include "tst_cli_backupwhilewriting.moc"
