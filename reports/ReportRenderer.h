#pragma once

#include "ReportData.h"

#include <QString>

class QPagedPaintDevice;
class QTextDocument;

enum class ReportKind { Daily, Agent };

// One report ready to show: the rich text laid out by QTextDocument for
// preview, printing and PDF, and the same rows as CSV.
struct RenderedReport
{
    ReportKind kind = ReportKind::Daily;
    QString title;
    QString html;
    QString csv;
};

// Turns report rows into the two printed collection summaries and their CSV
// form. Needs no widgets; laying out and printing text needs a
// QGuiApplication (fonts), which may run on the offscreen platform.
class ReportRenderer
{
public:
    static QString dailyTitle() { return QStringLiteral("TONVY DAILY COLLECTION SUMMARY"); }
    static QString agentTitle() { return QStringLiteral("TONVY AGENT COLLECTION SUMMARY"); }

    static QString dailyHtml(const DailySummary& summary, const ReportHeader& header);
    static QString agentHtml(const AgentSummary& summary, const ReportHeader& header);
    // One line of column heads, then one line per row; CRLF line ends,
    // dates as YYYY-MM-DD, amounts as 0.00, fields quoted only when needed.
    static QString dailyCsv(const DailySummary& summary);
    static QString agentCsv(const AgentSummary& summary);

    // Reads the chosen report afresh and renders it. The limits must have
    // passed ReportData::checkLimits(). Throws StoreError.
    static RenderedReport render(SharedDatabase& db, ReportKind kind, const ReportLimits& limits,
                                 const ReportHeader& header);

    // Fills a document with a report's rich text in the report font.
    static void setUp(QTextDocument* document, const QString& html);
    // The reports' page: A4 portrait, 2 cm margins.
    static void setUpPage(QPagedPaintDevice* device);
    // Prints the document on a page device (printer, preview or PDF writer);
    // the page header repeats at the top of every page.
    static void print(QTextDocument* document, QPagedPaintDevice* device);

    // Write through QSaveFile, so a failed write never leaves half a file
    // under the chosen name. False with a reason on failure.
    static bool writePdf(const RenderedReport& report, const QString& path, QString* error);
    static bool writeCsv(const RenderedReport& report, const QString& path, QString* error);

    // Amount in paise as "0.00"; a missing amount is left blank.
    static QString formatAmount(Paise amount);
    static QString formatAmount(const std::optional<Paise>& amount);
    // A stored YYYY-MM-DD day as dd/MMM/yyyy (English month); other text as it stands.
    static QString formatDate(const QString& stored);
    static QString formatDate(const QDate& date);
};
