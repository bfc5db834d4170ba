#include "base/Clock.h"
#include "store/CheckedCopy.h"
#include "store/DailyCopy.h"
#include "store/DatabaseBackup.h"
#include "store/DatabaseRestore.h"
#include "store/SteppedCopy.h"
#include "tests/store/StoreFaults.h"
#include "tests/support/DatabaseFile.h"
#include "tests/support/FailingSync.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

// The checked copy taken a few pages at a time: writers of another
// connection commit between its steps without waiting (no busy wait at
// all), a database that never stops changing ends the copy with a message,
// and every sync of a copy or a restore is checked.
class tst_CopySteps : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void writerCommitsWhileTheCopyIsUnderWay();
    void databaseThatNeverSettlesEndsTheCopy();
    void failedSyncOfTheCopy_data();
    void failedSyncOfTheCopy();
    void failedSyncOfTheDailyCopy();
    void failedSyncOfTheRestore_data();
    void failedSyncOfTheRestore();

private:
    // A database of this program of many steps' pages.
    void makeBigDatabase();
    // Adds one row through a connection of its own that does not wait for
    // any lock: false when the database was held.
    bool commitOneRow(int n, QString* why);
    int rowsWritten(const QString& path);

    QTemporaryDir m_dir;
    QString m_data;
    QString m_db;
};

void tst_CopySteps::init()
{
    m_data = m_dir.filePath(QString::fromLatin1(QTest::currentTestFunction()));
    QDir(m_data).removeRecursively();
    QVERIFY(QDir().mkpath(m_data));
    m_db = QDir(m_data).filePath(QStringLiteral("HandHeldData.db"));
    QVERIFY(StoreFaults::makeOurDatabase(m_db, m_data));
}

void tst_CopySteps::cleanup()
{
    DatabaseCopy::setStepObserver({});
}

void tst_CopySteps::makeBigDatabase()
{
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("fill"));
        db.setDatabaseName(m_db);
        QVERIFY(db.open());
        QSqlQuery q(db);
        QVERIFY2(q.exec(QStringLiteral(
                     "INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, ClosingPaise, "
                     "CollectedPaise, TransactionNumber) WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 "
                     "FROM n WHERE i < 60000) SELECT 'AG1', '2026-11-20', printf('%015d', i), i, i, "
                     "printf('%0200d', i) FROM n")),
                 qPrintable(q.lastError().text()));
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("fill"));
    QVERIFY2(QFileInfo(m_db).size() > 4LL * DatabaseCopy::pagesPerStep * 4096,
             qPrintable(QString::number(QFileInfo(m_db).size())));
}

bool tst_CopySteps::commitOneRow(int n, QString* why)
{
    return DatabaseFile::executeWithoutWaiting(
        m_db,
        QStringLiteral("INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo) VALUES ('MID', "
                       "'2026-11-24', ?)"),
        {QStringLiteral("%1").arg(n, 15, 10, QLatin1Char('0'))}, why);
}

int tst_CopySteps::rowsWritten(const QString& path)
{
    // -1 when the file cannot be read, so that no count passes by accident.
    bool ok = false;
    const int n =
        DatabaseFile::scalar(path, QStringLiteral("SELECT COUNT(*) FROM CollectionHistory WHERE AgentID = 'MID'"))
            .toInt(&ok);
    return ok ? n : -1;
}

void tst_CopySteps::writerCommitsWhileTheCopyIsUnderWay()
{
    makeBigDatabase();
    // A writer commits after each of the first three steps, between the
    // copy's start and its end, without waiting a moment for any lock.
    int steps = 0;
    int commits = 0;
    int mostRestarts = 0;
    QStringList failures;
    DatabaseCopy::setStepObserver([&](int copied, int total, int restarts) {
        ++steps;
        mostRestarts = std::max(mostRestarts, restarts);
        if (commits < 3 && copied < total) {
            QString why;
            if (commitOneRow(commits, &why))
                ++commits;
            else
                failures << why;
        }
    });
    const QString target = QDir(m_data).filePath(QStringLiteral("copy.db"));
    const DatabaseCopy::Outcome out = DatabaseCopy::makeCopy(m_db, target);
    DatabaseCopy::setStepObserver({});
    QVERIFY2(out.ok, qPrintable(out.text + QLatin1Char('\n') + out.detail));
    QVERIFY2(failures.isEmpty(), qPrintable(failures.join(QLatin1Char('\n'))));
    QCOMPARE(commits, 3);
    QVERIFY2(steps > 3, qPrintable(QString::number(steps)));
    // Each write started the copy again, so the copy holds all three.
    QVERIFY2(mostRestarts >= 2, qPrintable(QString::number(mostRestarts)));
    QCOMPARE(rowsWritten(target), 3);
    QCOMPARE(rowsWritten(m_db), 3);
    QCOMPARE(DatabaseCopy::problemWith(target), QString());
}

void tst_CopySteps::databaseThatNeverSettlesEndsTheCopy()
{
    makeBigDatabase();
    int commits = 0;
    DatabaseCopy::setStepObserver([&](int, int, int) {
        QString why;
        commits += commitOneRow(commits, &why) ? 1 : 0;
    });
    const QString target = QDir(m_data).filePath(QStringLiteral("copy.db"));
    const DatabaseCopy::Outcome out = DatabaseCopy::makeCopy(m_db, target);
    DatabaseCopy::setStepObserver({});
    QVERIFY(!out.ok);
    QVERIFY2(out.text.contains(QStringLiteral("other programs kept writing to the database file while it was copied "
                                              "(the copy started again %1 times)")
                                   .arg(DatabaseCopy::restartsAllowed + 1)),
             qPrintable(out.text));
    QVERIFY2(out.text.contains(QLatin1String("Nothing was kept under that name")), qPrintable(out.text));
    QCOMPARE(out.detail, QStringLiteral("Close the other program, or wait for it to finish, and try again."));
    QVERIFY(commits > DatabaseCopy::restartsAllowed);
    QVERIFY(!QFile::exists(target));
    QVERIFY(!QFile::exists(target + QStringLiteral(".part")));
}

void tst_CopySteps::failedSyncOfTheCopy_data()
{
    QTest::addColumn<int>("fail");
    QTest::addColumn<QString>("said");
    QTest::newRow("file") << int(FailingSync::Fail::Files) << "the copy could not be written to the disk of";
    QTest::newRow("folder") << int(FailingSync::Fail::Folders)
                            << "the checked copy's name could not be written to the disk: the folder";
}

void tst_CopySteps::failedSyncOfTheCopy()
{
    QFETCH(int, fail);
    QFETCH(QString, said);
    const QString folder = DatabaseCopy::requestedFolder(m_data);
    const QString target = QDir(folder).filePath(QStringLiteral("HandHeldData-2026-11-24-101500.db"));
    DatabaseCopy::Outcome out;
    int syncs = 0;
    {
        FailingSync sync(static_cast<FailingSync::Fail>(fail), QStringLiteral("/Backups"));
        out = DatabaseCopy::makeCopy(m_db, target);
        for (const FailingSync::Call& c : sync.calls)
            syncs += c.failed ? 1 : 0;
    }
    QCOMPARE(syncs, 1);
    QVERIFY(!out.ok);
    QVERIFY2(out.text.contains(said), qPrintable(out.text));
    QVERIFY2(out.text.contains(QLatin1String("Nothing was kept under that name")), qPrintable(out.text));
    QVERIFY2(out.detail.contains(QLatin1String("Check that disk")), qPrintable(out.detail));
    QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList());
}

void tst_CopySteps::failedSyncOfTheDailyCopy()
{
    const QDate today(2026, 11, 24);
    QVERIFY(DatabaseCopy::makeDailyCopy(m_db, m_data, today.addDays(-1)).ok);
    for (FailingSync::Fail fail : {FailingSync::Fail::Files, FailingSync::Fail::Folders}) {
        FailingSync sync(fail, QStringLiteral("/BackupData"));
        bool made = true;
        const DatabaseCopy::Outcome out = DatabaseCopy::makeDailyCopy(m_db, m_data, today, &made);
        QVERIFY(!out.ok);
        QVERIFY(!made);
        QVERIFY2(out.text.contains(QLatin1String("could not be written to the disk")), qPrintable(out.text));
        QVERIFY2(out.text.contains(DatabaseCopy::native(DatabaseCopy::dailyPath(m_data, today))), qPrintable(out.text));
        // Only yesterday's copy, whole.
        QCOMPARE(QDir(DatabaseCopy::dailyFolder(m_data)).entryList(QDir::Files),
                 QStringList{QFileInfo(DatabaseCopy::dailyPath(m_data, today.addDays(-1))).fileName()});
    }
}

void tst_CopySteps::failedSyncOfTheRestore_data()
{
    QTest::addColumn<int>("fail");
    QTest::addColumn<QString>("said");
    QTest::addColumn<bool>("inPlace");
    QTest::newRow("file") << int(FailingSync::Fail::Files) << "cannot be written to the disk (it could not be synced"
                          << false;
    QTest::newRow("folder") << int(FailingSync::Fail::Folders)
                            << "but the change could not be written to the disk: the folder" << true;
}

void tst_CopySteps::failedSyncOfTheRestore()
{
    QFETCH(int, fail);
    QFETCH(QString, said);
    QFETCH(bool, inPlace);
    const QString backup = m_dir.filePath(QStringLiteral("restore-from-%1.db").arg(QTest::currentDataTag()));
    QVERIFY(DatabaseCopy::makeCopy(m_db, backup).ok);
    QString why;
    QVERIFY(commitOneRow(1, &why));
    const QByteArray before = StoreFaults::hashOf(m_db);
    const FixedClock clock(QDateTime(QDate(2026, 11, 24), QTime(10, 15)));
    DatabaseCopy::Outcome out;
    {
        FailingSync sync(static_cast<FailingSync::Fail>(fail), m_data);
        out = DatabaseCopy::restore(m_data, backup, clock);
    }
    QVERIFY(!out.ok);
    QVERIFY2(out.text.contains(said), qPrintable(out.text));
    QVERIFY(!out.detail.isEmpty());
    if (inPlace) {
        // The swap was made; the message says where the replaced file is.
        QCOMPARE(rowsWritten(m_db), 0);
        QVERIFY2(out.detail.contains(DatabaseCopy::native(out.path)), qPrintable(out.detail));
        QCOMPARE(StoreFaults::hashOf(out.path), before);
    } else {
        QCOMPARE(StoreFaults::hashOf(m_db), before);
        QVERIFY(!QFile::exists(m_db + QStringLiteral(".restoring")));
    }
}

QTEST_GUILESS_MAIN(tst_CopySteps)
#include "tst_copysteps.moc"
