#pragma once

#include "reports/ReportData.h"
#include "reports/ReportPages.h"

#include <QString>

// The two printed collection summaries as PDF and their rows as CSV, and the
// formats they share. Needs no widgets; painting text needs a
// QGuiApplication (fonts), which may run on the offscreen platform.
class ReportRenderer
{
public:
    static QString dailyTitle() { return QStringLiteral("TONVY DAILY COLLECTION SUMMARY"); }
    static QString agentTitle() { return QStringLiteral("TONVY AGENT COLLECTION SUMMARY"); }
    static QString title(ReportKind kind) { return kind == ReportKind::Daily ? dailyTitle() : agentTitle(); }

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

    // Amount in paise as "0.00"; a missing amount is left blank.
    static QString formatAmount(Paise amount);
    static QString formatAmount(const std::optional<Paise>& amount);
    // A stored YYYY-MM-DD day as dd/MMM/yyyy (English month); other text as it stands.
    static QString formatDate(const QString& stored);
    static QString formatDate(const QDate& date);

    // Where a write failed, in the words the screens and the command line show.
    static QString cannotWrite(const QString& path, const QString& why);
};
