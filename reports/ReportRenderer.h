#pragma once

#include "reports/ReportData.h"
#include "reports/ReportFormat.h"

#include <QString>

class SharedDatabase;

// The two printed collection summaries written to a file: PDF (their pages,
// painted by PageWriter) and their rows as CSV (the titles and formats are
// ReportFormat's). Needs no widgets; painting text needs a QGuiApplication
// (fonts), which may run on the offscreen platform.
class ReportRenderer
{
public:
    // One line of column heads, then one line per row; CRLF line ends,
    // dates as YYYY-MM-DD, amounts as 0.00, fields quoted only when needed.
    static QString dailyCsv(const DailySummary& summary);
    static QString agentCsv(const AgentSummary& summary);
    // The chosen report's rows as CSV, read afresh. Throws StoreError.
    static QString csv(SharedDatabase& db, ReportKind kind, const ReportLimits& limits);

    // Read the chosen report afresh and write it, page by page (PDF) or row
    // by row (CSV), through QSaveFile, so a failed write never leaves half a
    // file under the chosen name. The limits must have passed
    // ReportData::checkLimits(). False with a reason on failure (a database
    // error included).
    static bool writePdf(SharedDatabase& db, ReportKind kind, const ReportLimits& limits, const ReportHeader& header,
                         const QString& path, QString* error);
    static bool writeCsv(SharedDatabase& db, ReportKind kind, const ReportLimits& limits, const QString& path,
                         QString* error);

    // Where a write failed, in the words the screens and the command line show.
    static QString cannotWrite(const QString& path, const QString& why);
};
