#include "base/Clock.h"
#include "core/Startup.h"
#include "store/DailyCopy.h"
#include "store/DatabaseBackup.h"
#include "store/DatabaseRestore.h"
#include "store/Schema.h"
#include "store/SharedDatabase.h"
#include "tests/store/StoreFaults.h"
#include "tests/support/DatabaseFile.h"
#include "tests/support/RecordingMessenger.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

using StoreFaults::Fault;

// The checked copies of the database in-process, on a pinned clock: the
// day's copy once a day, seven kept; what the check refuses; what a damaged
// start tells the clerk.
class tst_DatabaseCopy : public QObject
{
    Q_OBJECT

private slots:
    void dailyCopyOncePerDaySevenKept();
    void failedDailyCopyLeavesOlderCopies();
    void partsOfCutOffCopiesAreRemovedByTheNext();
    void copyIsCheckedAndOwnerOnly();
    void copyNeverReplacesAFile();
    void checkRefuses_data();
    void checkRefuses();
    void damagedStartNamesNewestCopy();
    void damagedStartWithoutCopies();
    void foreignFileAtStartGetsNoRestoreAdvice();
    void journalOfReplacedFileGoesAsideWithIt();

private:
    static QStringList dailyFiles(const QString& dataDir);
    static void sql(const QString& path, const QStringList& statements);
};

QStringList tst_DatabaseCopy::dailyFiles(const QString& dataDir)
{
    QStringList names = QDir(DatabaseCopy::dailyFolder(dataDir)).entryList(QDir::Files, QDir::Name);
    return names;
}

void tst_DatabaseCopy::sql(const QString& path, const QStringList& statements)
{
    QString failed;
    QVERIFY2(DatabaseFile::execute(path, statements, &failed), qPrintable(failed));
}

void tst_DatabaseCopy::dailyCopyOncePerDaySevenKept()
{
    QTemporaryDir dir;
    const QString dbPath = dir.filePath("HandHeldData.db");
    QVERIFY(StoreFaults::makeOurDatabase(dbPath));
    // Files of other names are never the pruning's.
    QVERIFY(QDir().mkpath(DatabaseCopy::dailyFolder(dir.path())));
    const QStringList strangers = {"HandHeldData-notes.db", "HandHeldData-2020-13-45.db", "0051611u.txt"};
    for (const QString& name : strangers)
        QVERIFY(StoreFaults::writeBytes(QDir(DatabaseCopy::dailyFolder(dir.path())).filePath(name), "keep"));

    const QDate first(2026, 11, 1);
    for (int d = 0; d < 10; ++d) {
        const QDate day = first.addDays(d);
        bool made = false;
        const DatabaseCopy::Outcome out = DatabaseCopy::makeDailyCopy(dbPath, dir.path(), day, &made);
        QVERIFY2(out.ok, qPrintable(out.text));
        QVERIFY(made);
        QCOMPARE(out.path, DatabaseCopy::dailyPath(dir.path(), day));
        QVERIFY2(DatabaseCopy::problemWith(out.path).isEmpty(), qPrintable(DatabaseCopy::problemWith(out.path)));
        const QByteArray hash = StoreFaults::hashOf(out.path);

        // A later receive the same day leaves the day's copy as it is.
        const DatabaseCopy::Outcome again = DatabaseCopy::makeDailyCopy(dbPath, dir.path(), day, &made);
        QVERIFY(again.ok);
        QVERIFY(!made);
        QCOMPARE(StoreFaults::hashOf(out.path), hash);

        QStringList expected;
        for (int k = qMax(0, d - 6); k <= d; ++k)
            expected << QStringLiteral("HandHeldData-%1.db").arg(first.addDays(k).toString(Qt::ISODate));
        expected += strangers;
        expected.sort();
        QCOMPARE(dailyFiles(dir.path()), expected);
    }
}

void tst_DatabaseCopy::failedDailyCopyLeavesOlderCopies()
{
    QTemporaryDir dir;
    const QString dbPath = dir.filePath("HandHeldData.db");
    QVERIFY(StoreFaults::makeOurDatabase(dbPath));
    const QDate first(2026, 11, 1);
    for (int d = 0; d < 7; ++d)
        QVERIFY(DatabaseCopy::makeDailyCopy(dbPath, dir.path(), first.addDays(d)).ok);
    // The database file is damaged now: the eighth day's copy fails and the
    // seven older ones stay.
    QByteArray bytes = StoreFaults::bytesOf(dbPath);
    StoreFaults::overwritePage(bytes, StoreFaults::rootPage(dbPath, "BankData") + 8);
    QVERIFY(StoreFaults::writeBytes(dbPath, bytes));
    bool made = true;
    const DatabaseCopy::Outcome out = DatabaseCopy::makeDailyCopy(dbPath, dir.path(), first.addDays(7), &made);
    QVERIFY(!out.ok);
    QVERIFY(!made);
    QVERIFY2(out.text.contains(DatabaseCopy::dailyPath(dir.path(), first.addDays(7))), qPrintable(out.text));
    QVERIFY2(out.text.contains("Nothing was kept under that name"), qPrintable(out.text));
    QVERIFY(!out.detail.isEmpty());
    QCOMPARE(dailyFiles(dir.path()).size(), 7);
    QVERIFY(!QFile::exists(DatabaseCopy::dailyPath(dir.path(), first.addDays(7))));
    QVERIFY(!QFile::exists(DatabaseCopy::dailyPath(dir.path(), first.addDays(7)) + ".part"));
}

void tst_DatabaseCopy::partsOfCutOffCopiesAreRemovedByTheNext()
{
    QTemporaryDir dir;
    const QString dbPath = dir.filePath("HandHeldData.db");
    QVERIFY(StoreFaults::makeOurDatabase(dbPath));
    const QDir daily(DatabaseCopy::dailyFolder(dir.path()));
    QVERIFY(QDir().mkpath(daily.path()));
    // What a copy cut off by the program's end leaves: half a file under the
    // part's name (and a journal SQLite may have left beside it), of an
    // earlier day and of today; and files that are none of the copies'.
    const QDate today(2026, 11, 24);
    const QString earlier = DatabaseCopy::dailyPath(dir.path(), today.addDays(-2)) + QStringLiteral(".part");
    const QString todays = DatabaseCopy::dailyPath(dir.path(), today) + QStringLiteral(".part");
    QVERIFY(StoreFaults::writeBytes(earlier, StoreFaults::hashOf(dbPath)));
    QVERIFY(StoreFaults::writeBytes(earlier + QStringLiteral("-journal"), "journal"));
    QVERIFY(StoreFaults::writeBytes(todays, "half"));
    const QStringList strangers = {"notes.part", "HandHeldData-notes.db.part"};
    for (const QString& name : strangers)
        QVERIFY(StoreFaults::writeBytes(daily.filePath(name), "keep"));

    bool made = false;
    const DatabaseCopy::Outcome out = DatabaseCopy::makeDailyCopy(dbPath, dir.path(), today, &made);
    QVERIFY2(out.ok, qPrintable(out.text));
    QVERIFY(made);
    QCOMPARE(DatabaseCopy::problemWith(out.path), QString());
    QStringList expected = strangers;
    expected << QFileInfo(out.path).fileName();
    expected.sort();
    QCOMPARE(dailyFiles(dir.path()), expected);

    // On a day whose copy is made already, the next receive's copy still
    // clears what a cut-off copy left.
    QVERIFY(StoreFaults::writeBytes(earlier, "half"));
    QVERIFY(DatabaseCopy::makeDailyCopy(dbPath, dir.path(), today, &made).ok);
    QVERIFY(!made);
    QVERIFY(!QFile::exists(earlier));
    QCOMPARE(dailyFiles(dir.path()), expected);
}

void tst_DatabaseCopy::copyIsCheckedAndOwnerOnly()
{
    QTemporaryDir dir;
    const QString dbPath = dir.filePath("HandHeldData.db");
    QVERIFY(StoreFaults::makeOurDatabase(dbPath));
    const QString target = dir.filePath("copies/one.db");
    const DatabaseCopy::Outcome out = DatabaseCopy::makeCopy(dbPath, target);
    QVERIFY2(out.ok, qPrintable(out.text));
    QVERIFY(out.text.contains(target));
    QVERIFY(out.detail.contains("restore " + target));
    const QFile::Permissions p = QFile::permissions(target);
    QVERIFY(!p.testFlag(QFileDevice::ReadGroup));
    QVERIFY(!p.testFlag(QFileDevice::ReadOther));
    QCOMPARE(DatabaseCopy::problemWith(target), QString());
}

void tst_DatabaseCopy::copyNeverReplacesAFile()
{
    QTemporaryDir dir;
    const QString dbPath = dir.filePath("HandHeldData.db");
    QVERIFY(StoreFaults::makeOurDatabase(dbPath));
    const QString target = dir.filePath("taken.db");
    QVERIFY(StoreFaults::writeBytes(target, "someone's file"));
    const DatabaseCopy::Outcome out = DatabaseCopy::makeCopy(dbPath, target);
    QVERIFY(!out.ok);
    QVERIFY2(out.text.contains("exists already"), qPrintable(out.text));
    QCOMPARE(StoreFaults::bytesOf(target), QByteArray("someone's file"));
}

void tst_DatabaseCopy::checkRefuses_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("said");
    QTest::newRow("missing") << "missing"
                             << "does not exist";
    QTest::newRow("empty") << "empty"
                           << "the file is empty";
    QTest::newRow("random bytes") << "random"
                                  << "not a database at all";
    QTest::newRow("damaged page") << "damaged"
                                  << "damaged";
    QTest::newRow("truncated") << "truncated"
                               << "";
    QTest::newRow("another program's") << "foreign"
                                       << "made by another program";
    QTest::newRow("no tables") << "none"
                               << "holds none of this program's tables";
    QTest::newRow("newer version") << "newer"
                                   << "made by a newer version of this program";
    QTest::newRow("tables missing") << "missing tables"
                                    << "the tables BankData are missing";
}

void tst_DatabaseCopy::checkRefuses()
{
    QFETCH(QString, kind);
    QFETCH(QString, said);
    QTemporaryDir dir;
    const QString path = dir.filePath("copy.db");
    if (kind == "empty") {
        QVERIFY(StoreFaults::writeBytes(path, {}));
    } else if (kind == "random") {
        QVERIFY(StoreFaults::make(Fault::RandomBytes, path));
    } else if (kind == "damaged") {
        QVERIFY(StoreFaults::make(Fault::DamagedDataPage, path));
    } else if (kind == "truncated") {
        QVERIFY(StoreFaults::make(Fault::Truncated, path));
    } else if (kind == "foreign") {
        QVERIFY(StoreFaults::make(Fault::OtherProgramsFile, path));
    } else if (kind == "none") {
        sql(path, {"CREATE TABLE t (x)", "DROP TABLE t"});
    } else if (kind == "newer") {
        QVERIFY(StoreFaults::makeOurDatabase(path));
        sql(path, {QStringLiteral("PRAGMA user_version = %1").arg(Schema::currentVersion + 1)});
    } else if (kind == "missing tables") {
        QVERIFY(StoreFaults::makeOurDatabase(path));
        sql(path, {"DROP TABLE BankData"});
    }
    const QByteArray before = StoreFaults::hashOf(path);
    const QString problem = DatabaseCopy::problemWith(path);
    QVERIFY2(!problem.isEmpty(), qPrintable(kind));
    QVERIFY2(problem.contains(said), qPrintable(problem));
    // Looked at, never touched.
    QCOMPARE(StoreFaults::hashOf(path), before);
}

void tst_DatabaseCopy::damagedStartNamesNewestCopy()
{
    QTemporaryDir dir;
    const QString dbPath = dir.filePath("HandHeldData.db");
    QVERIFY(StoreFaults::makeOurDatabase(dbPath));
    QVERIFY(DatabaseCopy::makeDailyCopy(dbPath, dir.path(), QDate(2026, 11, 20)).ok);
    // The copy made later is the newest, whatever the names.
    QTest::qWait(1100);
    const DatabaseCopy::Outcome requested = DatabaseCopy::makeCopy(
        dbPath, DatabaseCopy::requestedPath(dir.path(), QDateTime(QDate(2026, 11, 1), QTime(9, 0))));
    QVERIFY(requested.ok);
    QCOMPARE(DatabaseCopy::newestCopy(dir.path()), requested.path);

    QVERIFY(StoreFaults::make(Fault::DamagedSettingsPage, dbPath));
    SharedDatabase db;
    RecordingMessenger m;
    QVERIFY(!Startup::openDatabase(db, dir.path(), m));
    QCOMPARE(m.entries().size(), 1);
    const RecordingMessenger::Entry& e = m.entries().first();
    QVERIFY2(e.text.contains("is damaged"), qPrintable(e.text));
    QVERIFY2(e.detail.contains(QStringLiteral("tonvy-cli --data-dir %1 restore %2").arg(dir.path(), requested.path)),
             qPrintable(e.detail));
    QVERIFY2(e.detail.contains("newest checked copy"), qPrintable(e.detail));
}

void tst_DatabaseCopy::damagedStartWithoutCopies()
{
    QTemporaryDir dir;
    QVERIFY(StoreFaults::make(Fault::RandomBytes, dir.filePath("HandHeldData.db")));
    SharedDatabase db;
    RecordingMessenger m;
    QVERIFY(!Startup::openDatabase(db, dir.path(), m));
    const QString detail = m.entries().value(0).detail;
    QVERIFY2(detail.contains("No checked copy was found"), qPrintable(detail));
    QVERIFY2(detail.contains(QStringLiteral("tonvy-cli --data-dir %1 restore FILE").arg(dir.path())),
             qPrintable(detail));
}

void tst_DatabaseCopy::foreignFileAtStartGetsNoRestoreAdvice()
{
    QTemporaryDir dir;
    QVERIFY(StoreFaults::make(Fault::OtherProgramsFile, dir.filePath("HandHeldData.db")));
    SharedDatabase db;
    RecordingMessenger m;
    QVERIFY(!Startup::openDatabase(db, dir.path(), m));
    QVERIFY(m.entries().value(0).text.contains("made by another program"));
    QCOMPARE(m.entries().value(0).detail, QString());
}

void tst_DatabaseCopy::journalOfReplacedFileGoesAsideWithIt()
{
    QTemporaryDir dir;
    const QString dbPath = dir.filePath("HandHeldData.db");
    const QString backup = dir.filePath("good.db");
    QVERIFY(StoreFaults::makeOurDatabase(backup));
    QVERIFY(StoreFaults::make(Fault::RandomBytes, dbPath));
    // A journal left beside the damaged file belongs to it: played into the
    // restored copy it would damage that too.
    QVERIFY(StoreFaults::writeBytes(dbPath + "-journal", QByteArray(2048, 'j')));
    const FixedClock clock(QDateTime(QDate(2026, 11, 23), QTime(18, 15, 0)));
    const DatabaseCopy::Outcome out = DatabaseCopy::restore(dir.path(), backup, clock);
    QVERIFY2(out.ok, qPrintable(out.text));
    QCOMPARE(out.path, dir.filePath("HandHeldData-before-restore-2026-11-23-181500.db"));
    QVERIFY(!QFile::exists(dbPath + "-journal"));
    QCOMPARE(StoreFaults::bytesOf(out.path + "-journal"), QByteArray(2048, 'j'));
    QCOMPARE(DatabaseCopy::problemWith(dbPath), QString());
}

QTEST_GUILESS_MAIN(tst_DatabaseCopy)
#include "tst_databasecopy.moc"
