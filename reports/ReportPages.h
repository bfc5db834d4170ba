#pragma once

#include "reports/PageCanvas.h"
#include "reports/ReportData.h"
#include "reports/ReportFormat.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <memory>

class QPagedPaintDevice;
class QPainter;
class QPaintDevice;
class SharedDatabase;

// Where the daily rows of a page come from while it is painted: without one,
// the database, page by page; PageWriter reads them in one pass.
class DailyRowSource
{
public:
    virtual ~DailyRowSource() = default;
    virtual QList<DailyRow> rows(const QString& date, int offset, int count) = 0;
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
    void paintPage(PageCanvas& canvas, int index, DailyRowSource* source) const;
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
