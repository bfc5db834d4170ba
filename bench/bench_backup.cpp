// What the checked copies of the database cost on a branch's five years of
// history (HistoryBuilder): the day's copy the first receive of each day
// leaves (VACUUM INTO, sync, integrity_check, rename), and the snapshot a
// report is saved from (a month and a year), with the longest a writer in
// another process can be kept waiting by it.
//
//   bench_backup [--db FILE]     (an existing FILE is used as it stands;
//                                 a missing one is built and kept)

#include "bench/HistoryBuilder.h"
#include "reports/ReportSnapshot.h"
#include "store/DailyCopy.h"
#include "store/SharedDatabase.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <cstdio>

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

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();

    QTemporaryDir dir;
    QString path = QDir(dir.path()).filePath(SharedDatabase::fileName());
    const int dbAt = static_cast<int>(args.indexOf(QStringLiteral("--db")));
    if (dbAt > 0 && dbAt + 1 < args.size())
        path = args[dbAt + 1];

    std::printf("Database copies against %d agents x %d accounts x %lld days of history\n", HistoryBuilder::agents,
                HistoryBuilder::accountsPerAgent,
                static_cast<long long>(HistoryBuilder::firstDay.daysTo(HistoryBuilder::lastDay) + 1));
    if (!QFileInfo::exists(path)) {
        QElapsedTimer fill;
        fill.start();
        if (!HistoryBuilder::build(path))
            return 1;
        std::printf("  database built in %.1f s\n", static_cast<double>(fill.nsecsElapsed()) / 1e9);
    } else {
        std::printf("  using %s\n", qPrintable(path));
    }
    std::printf("  database file: %.1f MB\n", static_cast<double>(QFileInfo(path).size()) / 1e6);

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
    std::printf("day's copy after a receive (VACUUM INTO + sync + integrity_check + rename): %.1f s, copy %.1f MB\n",
                dailyMs / 1000, static_cast<double>(QFileInfo(daily.path).size()) / 1e6);
    std::printf("  of which the integrity_check of the copy: about %.1f s (%s); the copy itself about %.1f s, during "
                "which a writer in another process waits\n",
                checkMs / 1000, problem.isEmpty() ? "ok" : qPrintable(problem), (dailyMs - checkMs) / 1000);

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
