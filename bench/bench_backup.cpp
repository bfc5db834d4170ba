// What the checked copies of the database cost on a branch's five years of
// history (HistoryBuilder): the day's copy the first receive of each day
// leaves (SQLite's online backup in steps, sync, integrity_check, rename),
// the copy asked for with a writer of another connection committing beside
// it (how long each commit waited at most, how often the copy started
// again), the same copy made off the screen's thread as the receive makes
// it (how long the screen's thread is held meanwhile), and the snapshot a
// report is saved from (a month and a year), with the longest a writer in
// another process can be kept waiting by it.
//
//   bench_backup [--db FILE]     (an existing FILE is used as it stands;
//                                 a missing one is built and kept)

#include "bench/HistoryBuilder.h"
#include "reports/ReportSnapshot.h"
#include "store/CheckedCopy.h"
#include "store/DailyCopy.h"
#include "store/SharedDatabase.h"
#include "store/SteppedCopy.h"
#include "store/StoreProblem.h"
#include "upload/DailyCopyRunner.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <atomic>
#include <cstdio>
#include <thread>

namespace {

double msSince(const QElapsedTimer& t)
{
    return static_cast<double>(t.nsecsElapsed()) / 1e6;
}

void snapshot(SharedDatabase& db, const char* what, const ReportLimits& limits)
{
    QElapsedTimer chunk;
    double longest = 0;
    int chunks = 0;
    ReportSnapshot::setAfterChunkHook([&](int, int) {
        longest = qMax(longest, msSince(chunk));
        ++chunks;
        chunk.restart();
    });
    QElapsedTimer t;
    t.start();
    chunk.start();
    try {
        ReportSnapshot s(db, limits);
        const double ms = msSince(t);
        std::printf("report snapshot, %s: %.0f ms in %d weeks (%d tries); a writer waits at most %.0f ms; working "
                    "copy %.1f MB\n",
                    what, ms, chunks, s.attempts(), longest,
                    static_cast<double>(QFileInfo(s.db().filePath()).size()) / 1e6);
    } catch (const StoreError& e) {
        std::fprintf(stderr, "snapshot failed: %s\n", qPrintable(e.message()));
    }
    ReportSnapshot::setAfterChunkHook({});
}

// The day's copy as a stored receive makes it: on a pool thread, while the
// screen's thread goes on with its events (a 10 ms timer stands for them).
bool offTheScreensThread(const QString& path)
{
    QTemporaryDir data;
    DailyCopyRunner runner;
    QEventLoop loop;
    DatabaseCopy::Outcome outcome;
    QObject::connect(&runner, &DailyCopyRunner::finished, &loop, [&](const DatabaseCopy::Outcome& out) {
        outcome = out;
        loop.quit();
    });
    QTimer tick;
    tick.setInterval(10);
    QElapsedTimer sinceTick;
    double longestWait = 0;
    QObject::connect(&tick, &QTimer::timeout, &loop, [&] {
        longestWait = qMax(longestWait, msSince(sinceTick));
        sinceTick.restart();
    });
    QElapsedTimer t;
    t.start();
    runner.start(path, data.path(), QDate(2026, 11, 24));
    const double startMs = msSince(t);
    sinceTick.start();
    tick.start();
    loop.exec();
    if (!outcome.ok) {
        std::fprintf(stderr, "%s\n%s\n", qPrintable(outcome.text), qPrintable(outcome.detail));
        return false;
    }
    std::printf("the same copy off the screen's thread, as after RECEIVE DATA: %.1f s until its outcome came back; "
                "the screen's thread was held %.2f ms to start it and then waited at most %.0f ms for a 10 ms "
                "timer\n",
                msSince(t) / 1000, startMs, longestWait);
    return true;
}

// The copy asked for (tonvy-cli backup) while another connection commits a
// row every intervalMs, at most `most` times (and for ten seconds at most):
// each commit's wait, the copy's steps and restarts. A copy that gave up
// (the database never settled) is told, not a failure of the bench.
bool copyBesideAWriter(const QString& path, const char* what, int intervalMs, int most)
{
    QTemporaryDir out;
    const QString target = QDir(out.path()).filePath(QStringLiteral("copy.db"));
    std::atomic<int> steps = 0;
    std::atomic<int> restarts = 0;
    std::atomic<bool> done = false;
    QElapsedTimer stepTimer;
    double longestStep = 0; // written by the copy's thread only, read after join
    stepTimer.start();
    DatabaseCopy::setStepObserver([&](int, int, int r) {
        longestStep = qMax(longestStep, msSince(stepTimer));
        ++steps;
        restarts = r;
        stepTimer.restart();
    });
    DatabaseCopy::Outcome outcome;
    QElapsedTimer t;
    t.start();
    std::thread copier([&] {
        stepTimer.restart();
        outcome = DatabaseCopy::makeCopy(path, target);
        done = true;
    });

    int commits = 0;
    int failures = 0;
    double longestWait = 0;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("bench-writer"));
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(StoreProblem::busyTimeoutMs));
        if (db.open()) {
            while (!done && commits + failures < most && t.elapsed() < 10000) {
                QThread::msleep(static_cast<unsigned long>(intervalMs));
                if (done)
                    break;
                QElapsedTimer w;
                w.start();
                QSqlQuery q(db);
                q.prepare(QStringLiteral("INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo) "
                                         "VALUES ('BENCH', '2026-11-24', ?)"));
                q.addBindValue(QString::number(commits));
                if (q.exec())
                    ++commits;
                else {
                    ++failures;
                    std::fprintf(stderr, "writer: %s\n", qPrintable(q.lastError().text()));
                }
                longestWait = qMax(longestWait, msSince(w));
            }
            // The rows go again, so that the history stays as built.
            QSqlQuery(db).exec(QStringLiteral("DELETE FROM CollectionHistory WHERE AgentID = 'BENCH'"));
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("bench-writer"));
    copier.join();
    DatabaseCopy::setStepObserver({});
    std::printf("copy asked for, beside %s: %s after %.1f s, %d steps of %d pages (started again %d times), "
                "longest step %.0f ms; the writer committed %d times during the copy, %d failed, the longest "
                "waited %.0f ms\n",
                what, outcome.ok ? "made" : "gave up", msSince(t) / 1000, steps.load(), DatabaseCopy::pagesPerStep,
                restarts.load(), longestStep, commits, failures, longestWait);
    if (!outcome.ok)
        std::printf("  %s\n", qPrintable(outcome.text));
    return failures == 0;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();

    QTemporaryDir dir;
    const QString path = HistoryBuilder::prepare(args, dir.path(), "Database copies");
    if (path.isEmpty())
        return 1;

    // The day's copy, as after the first receive of a day.
    QTemporaryDir data;
    QElapsedTimer t;
    t.start();
    bool made = false;
    const DatabaseCopy::Outcome daily = DatabaseCopy::makeDailyCopy(path, data.path(), QDate(2026, 11, 23), &made);
    const double dailyMs = msSince(t);
    if (!daily.ok || !made) {
        std::fprintf(stderr, "%s\n%s\n", qPrintable(daily.text), qPrintable(daily.detail));
        return 1;
    }
    // Its parts: the check alone, once more on the copy just made.
    t.restart();
    const QString problem = DatabaseCopy::problemWith(daily.path);
    const double checkMs = msSince(t);
    std::printf("day's copy after a receive (online backup in steps + sync + integrity_check + rename): %.1f s, "
                "copy %.1f MB\n",
                dailyMs / 1000, static_cast<double>(QFileInfo(daily.path).size()) / 1e6);
    std::printf("  of which the integrity_check of the copy: about %.1f s (%s); the copy itself about %.1f s\n",
                checkMs / 1000, problem.isEmpty() ? "ok" : qPrintable(problem), (dailyMs - checkMs) / 1000);

    // As a receive in another process writes: a few commits in a row.
    if (!copyBesideAWriter(path, "a receive's five commits 100 ms apart", 100, 5))
        return 1;
    // A writer that never stops for as long as one whole copy takes.
    if (!copyBesideAWriter(path, "a writer committing every 250 ms", 250, 1000))
        return 1;

    if (!offTheScreensThread(path))
        return 1;

    SharedDatabase db;
    QString error;
    if (!db.open(path, &error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    snapshot(db, "October 2026 (62,000 rows)", {QDate(2026, 10, 1), QDate(2026, 10, 31), {}, {}});
    snapshot(db, "the year 2025 (730,000 rows)", {QDate(2025, 1, 1), QDate(2025, 12, 31), {}, {}});
    return 0;
}
