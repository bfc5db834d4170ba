#pragma once

#include "reports/ReportPages.h"

#include <memory>

class QPagedPaintDevice;
class QPainter;
class ReportSnapshot;

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
    std::unique_ptr<DailyRowSource> m_cursor;
    QPagedPaintDevice* m_device;
    std::unique_ptr<QPainter> m_painter;
    int m_done = 0;
};
