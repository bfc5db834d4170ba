#include "reports/PageWriter.h"

#include "reports/PageCanvas.h"
#include "reports/ReportSnapshot.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "store/StoreProblem.h"

#include <QPagedPaintDevice>
#include <QPainter>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

// The daily rows in print order for a writer that paints every page in turn:
// one query, read forward once.
class RowCursor : public DailyRowSource
{
public:
    RowCursor(SharedDatabase& db, const DailyQuery& query) : m_query(db.connection())
    {
        m_query.setForwardOnly(true);
        if (!m_query.prepare(query.allRowsSql()))
            throw StoreProblem::error(db.connection(), m_query.lastError());
        for (const QVariant& v : query.rangeValues())
            m_query.addBindValue(v);
        if (!m_query.exec())
            throw StoreProblem::error(db.connection(), m_query.lastError());
        m_more = m_query.next();
    }

    // The next rows of `date`, at most `count`: the pages ask in print order.
    QList<DailyRow> rows(const QString& date, int, int count) override
    {
        QList<DailyRow> rows;
        while (m_more && rows.size() < count && m_query.value(0).toString() == date) {
            DailyRow row;
            row.agentId = m_query.value(1).toString();
            row.accountNo = m_query.value(2).toString();
            row.closingAmt = ReportData::storedPaise(m_query.value(3));
            row.collectedAmt = ReportData::storedPaise(m_query.value(4));
            rows.append(row);
            m_more = m_query.next();
        }
        return rows;
    }

private:
    QSqlQuery m_query;
    bool m_more = false;
};

} // namespace

PageWriter::PageWriter(SharedDatabase& db, ReportKind kind, const ReportLimits& limits, const ReportHeader& header,
                       QPagedPaintDevice* device)
    : m_device(device)
{
#if defined(__GLIBC__)
    // The PDF writer compresses every page through fresh buffers of ten
    // megabytes. With the C library's default thresholds each one is mapped,
    // touched and unmapped again, page after page: a third of the time of a
    // long report. Kept on the heap (at most 32 MB each is allowed), the same
    // memory is reused.
    static const bool tuned = [] {
        mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
        mallopt(M_TRIM_THRESHOLD, 64 * 1024 * 1024);
        return true;
    }();
    Q_UNUSED(tuned);
#endif
    // The page breaks and the rows from one snapshot of the history, so
    // that painting the pages holds no lock on the database. The agent
    // summary is read whole in one statement and needs none.
    if (kind == ReportKind::Daily) {
        m_snapshot = std::make_unique<ReportSnapshot>(db, limits);
        m_pages = ReportPages::make(m_snapshot->db(), kind, limits, header);
        m_cursor = std::make_unique<RowCursor>(m_snapshot->db(), *m_pages->m_query);
    } else {
        m_pages = ReportPages::make(db, kind, limits, header);
    }
    ReportPages::setUpDevice(device);
    m_painter = std::make_unique<QPainter>();
}

PageWriter::~PageWriter()
{
    finish();
}

int PageWriter::pageCount() const
{
    return m_pages ? m_pages->pageCount() : 0;
}

bool PageWriter::writePages(int pages)
{
    if (!m_painter)
        return true;
    for (int i = 0; i < pages && m_done < pageCount(); ++i) {
        if (m_done == 0) {
            if (!m_painter->begin(m_device))
                throw StoreError(QStringLiteral("Cannot start the report's pages."));
        } else if (!m_device->newPage()) {
            throw StoreError(QStringLiteral("Cannot add a page to the report."));
        }
        ReportPages::beginPage(*m_painter, *m_device);
        PainterCanvas canvas(*m_painter);
        m_pages->paintPage(canvas, m_done, m_cursor.get());
        ++m_done;
    }
    return isDone();
}

bool PageWriter::finish()
{
    bool ok = true;
    if (m_painter && m_painter->isActive())
        ok = m_painter->end();
    m_painter.reset();
    m_cursor.reset();
    return ok;
}
