#pragma once

#include "reports/ReportData.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <memory>

class QColor;
class QPagedPaintDevice;
class QPointF;
class QRectF;
class QPainter;
class QPaintDevice;
class ReportSnapshot;
class SharedDatabase;

enum class ReportKind { Daily, Agent };

// The fixed geometry of the printed reports, in points on an A4 portrait
// page, worked out from the embedded report font's own metrics for the
// longest values that can occur: a bank name of 48 characters, a branch name
// of 22, a 15-character agent identifier, a 15-digit account number and the
// largest amounts. Nothing on a report wraps; a value longer than those
// limits (possible only in an old database) is cut short with "...".
struct ReportGeometry
{
    static constexpr int bankNameChars = 48;
    static constexpr int branchNameChars = 22;
    static constexpr int agentIdChars = 15;
    static constexpr int accountNoChars = 15;

    qreal pageWidth = 0;
    qreal pageHeight = 0;
    qreal margin = 0;
    qreal titleSize = 0;
    qreal headerSize = 0;
    qreal bodySize = 0;
    qreal footerSize = 0;
    qreal line = 0;       // pitch of a body line
    qreal headerLine = 0; // pitch of a page-header line

    // Column left edges and widths, daily summary: agent, account, closing
    // amount, collected amount.
    qreal dailyX[4] = {};
    qreal dailyW[4] = {};
    // Agent summary: agent, collected amount, date.
    qreal agentX[3] = {};
    qreal agentW[3] = {};
    // Page header: where the values after "Bank Name :", "Branch ID :" and
    // "Date :" start, and the width kept for each.
    qreal bankValueX = 0;
    qreal bankValueW = 0;
    qreal branchValueX = 0;
    qreal branchValueW = 0;
    qreal dateLabelX = 0;
    qreal dateValueX = 0;

    qreal contentWidth() const { return pageWidth - 2 * margin; }
    static const ReportGeometry& get();
};

// What a page is painted on: a QPainter, or a collector of the page's text.
class PageCanvas
{
public:
    virtual ~PageCanvas() = default;
    virtual void setFont(qreal pointSize, bool bold) = 0;
    virtual void text(const QPointF& baselineStart, const QString& text) = 0;
    virtual void fill(const QRectF& rect, const QColor& colour) = 0;
    virtual void line(const QPointF& from, const QPointF& to) = 0;
};

// One report laid out in pages. Making it reads only what the page breaks
// depend on: for the daily summary each date's number of rows and total (one
// query on the day index); the agent summary, one row per agent and day, is
// read whole. Rows are read when a page is painted, so the first page of a
// month shows at once and memory stays flat however long the range.
class ReportPages
{
public:
    // Throws StoreError. The limits must have passed ReportData::checkLimits().
    static std::unique_ptr<ReportPages> make(SharedDatabase& db, ReportKind kind, const ReportLimits& limits,
                                             const ReportHeader& header);
    ~ReportPages();

    ReportKind kind() const { return m_kind; }
    QString title() const;
    int pageCount() const { return static_cast<int>(m_pages.size()); }
    Paise grandTotal() const { return m_grandTotal; }
    int rowCount() const { return m_rowCount; }

    // Whether the collections were changed by another program since the
    // pages were made (the preview then asks for a fresh View).
    bool databaseChanged() const;

    // Paints one page (0-based) reading its rows from the database. The
    // painter is in points with the page's top left corner at 0,0 (see
    // beginPage()).
    void paintPage(QPainter& painter, int index) const;
    // The text of one page as lines, top to bottom, the pieces of a line in
    // their order across the page joined by one blank (reads the rows too).
    QStringList pageText(int index) const;

    // Sets a painter up for a page device: points, origin at the corner of
    // the sheet.
    static void beginPage(QPainter& painter, const QPaintDevice& device);
    // A4 portrait, the sheet's full area: the reports keep their own margins.
    static void setUpDevice(QPagedPaintDevice* device);

    // Paints every page in order on a page device, reading the rows in one
    // pass from the writer's snapshot. Made by PageWriter.
    class RowCursor;

private:
    friend class PageWriter;
    struct Item
    {
        enum Kind { Title, GroupHead, Rows, GroupTotal, GrandTotal } kind;
        int group = 0;
        int offset = 0;
        int count = 0;
        bool continued = false;
    };
    using Page = QList<Item>;

    ReportPages(SharedDatabase& db, ReportKind kind, const ReportLimits& limits, const ReportHeader& header);
    void layOutDaily();
    void layOutAgent();
    void paintPage(PageCanvas& canvas, int index, RowCursor* cursor) const;
    void paintHeader(PageCanvas& canvas, int index) const;

    SharedDatabase& m_db;
    ReportKind m_kind;
    ReportLimits m_limits;
    ReportHeader m_header;
    std::unique_ptr<DailyQuery> m_query;
    QList<DailyGroupInfo> m_groups;
    AgentSummary m_agent;
    QList<Page> m_pages;
    Paise m_grandTotal = 0;
    int m_rowCount = 0;
    qint64 m_dataVersion = -1;
};

// Paints a report's pages onto a page device (PDF writer or printer) a few at
// a time, so that a window can stay responsive between steps and a long
// report can be cancelled. The daily summary's page breaks and rows are
// read from one snapshot of the history (ReportSnapshot), so the pages agree
// with themselves, and a receive can be stored meanwhile without waiting.
class PageWriter
{
public:
    // Makes the pages afresh and begins painting on `device`. Throws StoreError.
    PageWriter(SharedDatabase& db, ReportKind kind, const ReportLimits& limits, const ReportHeader& header,
               QPagedPaintDevice* device);
    ~PageWriter();

    int pageCount() const;
    int pagesDone() const { return m_done; }
    bool isDone() const { return m_done >= pageCount(); }
    // Paints up to `pages` more pages; true when every page is painted.
    bool writePages(int pages);
    // Ends painting (after the last page, or to give up). False when the
    // device failed.
    bool finish();

private:
    // Declared before what reads from it, so that it goes last.
    std::unique_ptr<ReportSnapshot> m_snapshot;
    std::unique_ptr<ReportPages> m_pages;
    std::unique_ptr<ReportPages::RowCursor> m_cursor;
    QPagedPaintDevice* m_device;
    std::unique_ptr<QPainter> m_painter;
    int m_done = 0;
};
