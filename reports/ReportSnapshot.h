#pragma once

#include "reports/ReportData.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"

#include <QTemporaryDir>
#include <functional>

class QSqlError;

// The collection history of one report's dates, copied out of the database
// into a working copy of its own (a private file in the system's temporary
// folder, removed with the snapshot), so that saving or printing a long
// report holds no lock on HandHeldData.db: a receive in another process can
// store its collections while the pages are painted.
//
// The guarantee: the report shows the database as it was at one moment.
// Its rows, group totals and grand total all come from the same committed
// state, so a receive is in it whole or not at all, and no row is skipped or
// repeated. Reading page by page in short transactions could not promise
// that: a receive replaces an agent's days, so pages read before and after
// it would mix the two, and the totals worked out first would not add up to
// the rows printed. The copy is taken a week of dates at a time, each week
// in a short read transaction, so a writer waits for one week's copy at
// most; the database's change counter (data_version) is read in each of
// them, and if anything was committed in between the copy is taken again.
// After three tries it is taken in one read transaction, which a writer
// waits for only as long as the copy itself (about a second a year of a
// large branch), never for the painting of the pages.
//
// The working copy has the program's own tables, indexes and report views,
// so the report is read from it exactly as from the database, and makes the
// same bytes.
class ReportSnapshot
{
public:
    // Copies the history rows from limits.from to limits.to. Throws
    // StoreError: the database's own messages for trouble with
    // HandHeldData.db (in use, damaged), one naming the temporary folder for
    // trouble with the working copy (no space).
    ReportSnapshot(SharedDatabase& live, const ReportLimits& limits);
    ~ReportSnapshot();
    ReportSnapshot(const ReportSnapshot&) = delete;
    ReportSnapshot& operator=(const ReportSnapshot&) = delete;

    SharedDatabase& db() { return m_db; }
    // How many times the copy was taken (1 unless something was committed
    // meanwhile).
    int attempts() const { return m_attempts; }
    // Whether the last try was made in one read transaction.
    bool tookOneTransaction() const { return m_oneTransaction; }

    // Days of history copied in one short read transaction.
    static constexpr int chunkDays = 7;
    // Chunked tries before the copy is taken in one read transaction.
    static constexpr int chunkedTries = 3;

    // Test seam: called after each week is copied (attempt from 1, week from
    // 0). An empty function (the default) removes it.
    static void setAfterChunkHook(std::function<void(int attempt, int chunk)> hook);

private:
    bool copy(bool oneTransaction);
    StoreError failure(const QSqlError& error) const;

    QTemporaryDir m_dir;
    SharedDatabase m_db;
    QString m_livePath;
    QString m_from;
    QString m_to;
    QString m_columns;
    int m_attempts = 0;
    bool m_oneTransaction = false;
};
