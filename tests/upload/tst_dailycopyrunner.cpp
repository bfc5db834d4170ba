#include "store/DailyCopy.h"
#include "store/SharedDatabase.h"
#include "upload/DailyCopyRunner.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThreadPool>
#include <QtTest>
#include <memory>

Q_DECLARE_METATYPE(DatabaseCopy::Outcome)

// The day's copy made off the screen's thread: its outcome comes back as a
// signal; a runner that goes while its copy is under way (the receive
// screen closed) leaves a whole, checked copy or none, never a half one
// under the copy's name; two at once make one copy.
class tst_DailyCopyRunner : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;
    QString dbPath;
    const QDate today{2026, 11, 24};

    QString copyPath() const { return DatabaseCopy::dailyPath(dir.path(), today); }
    QStringList dailyFolderFiles() const
    {
        return QDir(DatabaseCopy::dailyFolder(dir.path())).entryList(QDir::Files, QDir::Name);
    }

private slots:
    void initTestCase() { qRegisterMetaType<DatabaseCopy::Outcome>(); }
    void init()
    {
        QVERIFY(dir.isValid());
        QDir(DatabaseCopy::dailyFolder(dir.path())).removeRecursively();
        dbPath = dir.filePath(QStringLiteral("HandHeldData.db"));
        QFile::remove(dbPath);
        // A new database of this program: opening makes its tables.
        SharedDatabase db;
        QString error;
        QVERIFY2(db.open(dbPath, &error), qPrintable(error));
    }

    void outcomeComesBackAsASignal()
    {
        DailyCopyRunner runner;
        QSignalSpy finished(&runner, &DailyCopyRunner::finished);
        QVERIFY(runner.start(dbPath, dir.path(), today));
        QTRY_COMPARE(finished.count(), 1);
        const auto out = finished.first().at(0).value<DatabaseCopy::Outcome>();
        QVERIFY2(out.ok, qPrintable(out.text));
        QCOMPARE(out.path, copyPath());
        QCOMPARE(DatabaseCopy::problemWith(copyPath()), QString());
        QVERIFY(!runner.isRunning());
    }

    void aFailureComesBackToo()
    {
        // A folder stands where the part would be written.
        QVERIFY(QDir().mkpath(copyPath() + QStringLiteral(".part")));
        DailyCopyRunner runner;
        QSignalSpy finished(&runner, &DailyCopyRunner::finished);
        QVERIFY(runner.start(dbPath, dir.path(), today));
        QTRY_COMPARE(finished.count(), 1);
        const auto out = finished.first().at(0).value<DatabaseCopy::Outcome>();
        QVERIFY(!out.ok);
        QVERIFY2(out.text.contains(QDir::toNativeSeparators(copyPath())), qPrintable(out.text));
        QVERIFY(!QFile::exists(copyPath()));
    }

    void aRunnerThatGoesLeavesAWholeCopy()
    {
        auto runner = std::make_unique<DailyCopyRunner>();
        QVERIFY(runner->start(dbPath, dir.path(), today));
        // The screen closes while the copy is under way.
        runner.reset();
        // As when the program quits: the pool's copy is waited for.
        QThreadPool::globalInstance()->waitForDone();
        QCOMPARE(DatabaseCopy::problemWith(copyPath()), QString());
        QCOMPARE(dailyFolderFiles(), QStringList{QFileInfo(copyPath()).fileName()});
    }

    void twoRunnersAtOnceMakeOneCopy()
    {
        // A screen closed and opened again while its copy runs.
        DailyCopyRunner first;
        DailyCopyRunner second;
        QSignalSpy firstDone(&first, &DailyCopyRunner::finished);
        QSignalSpy secondDone(&second, &DailyCopyRunner::finished);
        QVERIFY(first.start(dbPath, dir.path(), today));
        QVERIFY(!first.start(dbPath, dir.path(), today));
        QVERIFY(second.start(dbPath, dir.path(), today));
        QTRY_COMPARE(firstDone.count(), 1);
        QTRY_COMPARE(secondDone.count(), 1);
        QVERIFY(firstDone.first().at(0).value<DatabaseCopy::Outcome>().ok);
        QVERIFY(secondDone.first().at(0).value<DatabaseCopy::Outcome>().ok);
        QCOMPARE(DatabaseCopy::problemWith(copyPath()), QString());
        QCOMPARE(dailyFolderFiles(), QStringList{QFileInfo(copyPath()).fileName()});
    }
};

QTEST_GUILESS_MAIN(tst_DailyCopyRunner)
#include "tst_dailycopyrunner.moc"
