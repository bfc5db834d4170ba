#include "reports/ReportPages.h"

#include "reports/ReportFonts.h"
#include "reports/ReportRenderer.h"
#include "reports/ReportSnapshot.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "store/StoreProblem.h"

#include <QLocale>
#include <QPageLayout>
#include <QPagedPaintDevice>
#include <QPainter>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>
#include <algorithm>
#include <cmath>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

constexpr qreal mm = 72.0 / 25.4;
constexpr qreal columnGap = 12.0;

// Captions exactly as the reports carry them.
const QString bankLabel = QStringLiteral("Bank Name : ");
const QString branchLabel = QStringLiteral("Branch ID : ");
const QString dateLabel = QStringLiteral("Date : ");
const QString groupTotalLabel = QStringLiteral("Group Total :   Rs.");
const QString grandTotalLabel = QStringLiteral("Grand Total :   Rs.");
const QStringList dailyHeads = {QStringLiteral("AgentID"), QStringLiteral("Account No"),
                                QStringLiteral("Closing Amount"), QStringLiteral("Collected Amount")};
const QStringList agentHeads = {QStringLiteral("AgentID"), QStringLiteral("Collected Amount"), QStringLiteral("Date")};

// The largest amounts kept for: a closing balance of ten rupee digits (the
// bank's balance field), and totals of fifteen.
qreal amountWidth(int rupeeDigits, qreal size)
{
    return ReportFonts::width(QStringLiteral("-."), size, false) +
           (rupeeDigits + 2) * ReportFonts::widestDigit(size, false);
}

qreal widestDate(qreal size, bool bold)
{
    qreal month = 0;
    for (int m = 1; m <= 12; ++m)
        month = qMax(month, ReportFonts::width(QLocale::c().monthName(m, QLocale::ShortFormat), size, bold));
    return month + ReportFonts::width(QStringLiteral("//"), size, bold) + 6 * ReportFonts::widestDigit(size, bold);
}

// Places columns of the given widths across the content width, the room
// left over shared out between them. False when they do not fit.
template <int N> bool placeColumns(qreal left, qreal width, const qreal (&w)[N], qreal (&x)[N])
{
    qreal used = 0;
    for (int i = 0; i < N; ++i)
        used += w[i];
    const qreal spare = width - used - (N - 1) * columnGap;
    if (spare < 0)
        return false;
    const qreal gap = columnGap + spare / (N - 1);
    qreal at = left;
    for (int i = 0; i < N; ++i) {
        x[i] = at;
        at += w[i] + gap;
    }
    return true;
}

ReportGeometry computeGeometry()
{
    ReportFonts::ensureLoaded();
    ReportGeometry g;
    g.pageWidth = 210 * mm;
    g.pageHeight = 297 * mm;
    g.margin = 15 * mm;
    g.titleSize = 14;
    g.footerSize = 8;
    const qreal left = g.margin;
    const qreal width = g.contentWidth();

    // Page header: the bank name alone on its line, the branch and the date
    // of printing on the next; the size is the largest (up to 10 points) at
    // which the longest names fit. Sizes are whole points: fonts are made at
    // whole sizes, and a fraction would be rounded away from what was measured.
    for (g.headerSize = 10; g.headerSize > 5; g.headerSize -= 1) {
        const qreal s = g.headerSize;
        const qreal bank =
            ReportFonts::width(bankLabel, s, false) + ReportGeometry::bankNameChars * ReportFonts::widestChar(s, true);
        const qreal branch = ReportFonts::width(branchLabel, s, false) +
                             ReportGeometry::branchNameChars * ReportFonts::widestChar(s, true);
        const qreal date = ReportFonts::width(dateLabel, s, false) + widestDate(s, true);
        if (bank <= width && branch + columnGap + date <= width)
            break;
    }
    const qreal hs = g.headerSize;
    g.headerLine = hs * 1.6;
    g.bankValueX = left + ReportFonts::width(bankLabel, hs, false);
    g.bankValueW = left + width - g.bankValueX;
    g.branchValueX = left + ReportFonts::width(branchLabel, hs, false);
    g.branchValueW = ReportGeometry::branchNameChars * ReportFonts::widestChar(hs, true);
    g.dateValueX = left + width - widestDate(hs, true);
    g.dateLabelX = g.dateValueX - ReportFonts::width(dateLabel, hs, false);

    // Body: the largest size (up to 10 points) at which both reports' columns
    // fit their longest values and their heads.
    for (g.bodySize = 10; g.bodySize > 5; g.bodySize -= 1) {
        const qreal s = g.bodySize;
        auto head = [s](const QString& text) { return ReportFonts::width(text, s, true); };
        const qreal agent = qMax(ReportGeometry::agentIdChars * ReportFonts::widestChar(s, false), head(dailyHeads[0]));
        g.dailyW[0] = agent;
        g.dailyW[1] = qMax(ReportGeometry::accountNoChars * ReportFonts::widestDigit(s, false), head(dailyHeads[1]));
        g.dailyW[2] = qMax(amountWidth(10, s), head(dailyHeads[2]));
        g.dailyW[3] =
            qMax(qMax(amountWidth(15, s), ReportFonts::width(ReportRenderer::formatAmount(Paise(0)), s, true)),
                 head(dailyHeads[3]));
        g.agentW[0] = agent;
        g.agentW[1] = qMax(amountWidth(15, s), head(agentHeads[1]));
        g.agentW[2] = qMax(widestDate(s, false), head(agentHeads[2]));
        if (placeColumns(left, width, g.dailyW, g.dailyX) && placeColumns(left, width, g.agentW, g.agentX))
            break;
    }
    g.line = g.bodySize * 1.45;
    return g;
}

QString elided(const QString& text, qreal size, bool bold, qreal width)
{
    if (ReportFonts::width(text, size, bold) <= width + 0.01)
        return text;
    const QString dots = QStringLiteral("...");
    QString cut = text;
    while (!cut.isEmpty() && ReportFonts::width(cut + dots, size, bold) > width)
        cut.chop(1);
    return cut + dots;
}

// Draws text with its baseline at y, left-aligned at x or right-aligned to
// x; cut short to `width` points when longer.
struct Pen
{
    PageCanvas& c;
    qreal size;
    bool bold;

    void use() const { c.setFont(size, bold); }
    void left(qreal x, qreal y, const QString& text, qreal width = -1) const
    {
        c.text(QPointF(x, y), width > 0 ? elided(text, size, bold, width) : text);
    }
    void right(qreal x, qreal y, const QString& text, qreal width = -1) const
    {
        const QString shown = width > 0 ? elided(text, size, bold, width) : text;
        c.text(QPointF(x - ReportFonts::width(shown, size, bold), y), shown);
    }
    void centre(qreal x, qreal y, const QString& text) const
    {
        c.text(QPointF(x - ReportFonts::width(text, size, bold) / 2, y), text);
    }
};

// Paints on a QPainter set up by ReportPages::beginPage().
class PainterCanvas : public PageCanvas
{
public:
    explicit PainterCanvas(QPainter& p) : m_p(p), m_dpi(p.device() ? p.device()->logicalDpiY() : 72) {}
    void setFont(qreal size, bool bold) override
    {
        // The painter works in points: a font size in points must not be
        // scaled a second time by the device's resolution.
        m_p.setFont(ReportFonts::font(size * 72.0 / m_dpi, bold));
        m_p.setPen(Qt::black);
    }
    void text(const QPointF& at, const QString& text) override { m_p.drawText(at, text); }
    void fill(const QRectF& rect, const QColor& colour) override { m_p.fillRect(rect, colour); }
    void line(const QPointF& from, const QPointF& to) override
    {
        m_p.setPen(QPen(Qt::black, 0.5));
        m_p.drawLine(from, to);
    }

private:
    QPainter& m_p;
    qreal m_dpi;
};

// Collects the text of a page as lines, top to bottom, pieces on one
// baseline joined by a blank.
class TextCanvas : public PageCanvas
{
public:
    void setFont(qreal, bool) override {}
    void text(const QPointF& at, const QString& text) override { m_pieces.append({at.y(), at.x(), text}); }
    void fill(const QRectF&, const QColor&) override {}
    void line(const QPointF&, const QPointF&) override {}
    QStringList lines()
    {
        std::stable_sort(m_pieces.begin(), m_pieces.end(), [](const Piece& a, const Piece& b) {
            if (qAbs(a.y - b.y) > 0.5)
                return a.y < b.y;
            return a.x < b.x;
        });
        QStringList out;
        qreal lastY = -1e9;
        for (const Piece& p : m_pieces) {
            if (qAbs(p.y - lastY) > 0.5)
                out << p.text;
            else
                out.last() += QLatin1Char(' ') + p.text;
            lastY = p.y;
        }
        return out;
    }

private:
    struct Piece
    {
        qreal y;
        qreal x;
        QString text;
    };
    QList<Piece> m_pieces;
};

qint64 dataVersion(SharedDatabase& db)
{
    QSqlQuery q(db.connection());
    if (q.exec(QStringLiteral("PRAGMA data_version")) && q.next())
        return q.value(0).toLongLong();
    return -1;
}

} // namespace

const ReportGeometry& ReportGeometry::get()
{
    static const ReportGeometry geometry = computeGeometry();
    return geometry;
}

// The daily rows in print order for a writer that paints every page in turn:
// one query, read forward once.
class ReportPages::RowCursor
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

    // The next rows of `date`, at most `count`.
    QList<DailyRow> take(const QString& date, int count)
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

ReportPages::ReportPages(SharedDatabase& db, ReportKind kind, const ReportLimits& limits, const ReportHeader& header)
    : m_db(db), m_kind(kind), m_limits(limits), m_header(header)
{
}

ReportPages::~ReportPages() = default;

std::unique_ptr<ReportPages> ReportPages::make(SharedDatabase& db, ReportKind kind, const ReportLimits& limits,
                                               const ReportHeader& header)
{
    std::unique_ptr<ReportPages> pages(new ReportPages(db, kind, limits, header));
    pages->m_dataVersion = dataVersion(db);
    if (kind == ReportKind::Daily) {
        pages->m_query = std::make_unique<DailyQuery>(db, limits);
        pages->m_groups = pages->m_query->groups();
        pages->layOutDaily();
    } else {
        pages->m_agent = ReportData::agent(db, limits);
        pages->layOutAgent();
    }
    return pages;
}

QString ReportPages::title() const
{
    return m_kind == ReportKind::Daily ? ReportRenderer::dailyTitle() : ReportRenderer::agentTitle();
}

bool ReportPages::databaseChanged() const
{
    return m_dataVersion >= 0 && dataVersion(m_db) != m_dataVersion;
}

namespace {

// Vertical plan of a page, shared by layout and painting.
struct Band
{
    static qreal top(const ReportGeometry& g) { return g.margin; }
    // Below the page header: bank line, branch and date line, a rule; the
    // agent summary's column heads belong to its page header.
    static qreal bodyTop(const ReportGeometry& g, ReportKind kind)
    {
        return g.margin + 2 * g.headerLine + 6 + (kind == ReportKind::Agent ? g.line * 1.5 : 0);
    }
    static qreal bodyBottom(const ReportGeometry& g) { return g.pageHeight - g.margin - g.footerSize * 2; }
    static qreal title(const ReportGeometry& g) { return g.titleSize * 2.4; }
    static qreal groupHead(const ReportGeometry& g) { return g.line * 2.6; }
    static qreal grandTotal(const ReportGeometry& g) { return g.line * 1.6; }
};

} // namespace

void ReportPages::layOutDaily()
{
    const ReportGeometry& g = ReportGeometry::get();
    const qreal bottom = Band::bodyBottom(g);
    qreal y = 0;
    auto newPage = [&] {
        m_pages.append(Page());
        y = Band::bodyTop(g, m_kind);
    };
    newPage();
    m_pages.last().append(Item{Item::Title});
    y += Band::title(g);

    auto head = [&](int group, bool continued) {
        m_pages.last().append(Item{Item::GroupHead, group, 0, 0, continued});
        y += Band::groupHead(g);
    };
    for (int gi = 0; gi < m_groups.size(); ++gi) {
        const DailyGroupInfo& group = m_groups.at(gi);
        m_rowCount += group.rows;
        m_grandTotal += group.total;
        // A date's heading never stands alone at the foot of a page.
        if (y + Band::groupHead(g) + g.line > bottom)
            newPage();
        head(gi, false);
        int offset = 0;
        while (offset < group.rows) {
            const int fit = static_cast<int>(std::floor((bottom - y) / g.line + 1e-9));
            if (fit <= 0) {
                newPage();
                head(gi, true);
                continue;
            }
            const int n = qMin(fit, group.rows - offset);
            m_pages.last().append(Item{Item::Rows, gi, offset, n});
            offset += n;
            y += n * g.line;
        }
        if (y + g.line > bottom) {
            newPage();
            head(gi, true);
        }
        m_pages.last().append(Item{Item::GroupTotal, gi});
        y += g.line;
    }
    if (y + Band::grandTotal(g) > bottom)
        newPage();
    m_pages.last().append(Item{Item::GrandTotal});
}

void ReportPages::layOutAgent()
{
    const ReportGeometry& g = ReportGeometry::get();
    const qreal bottom = Band::bodyBottom(g);
    const int rows = static_cast<int>(m_agent.rows.size());
    m_rowCount = rows;
    for (const AgentRow& r : m_agent.rows)
        m_grandTotal += r.collectedAmt;
    m_pages.append(Page{Item{Item::Title}});
    qreal y = Band::bodyTop(g, m_kind) + Band::title(g);
    int offset = 0;
    while (offset < rows) {
        const int fit = static_cast<int>(std::floor((bottom - y) / g.line + 1e-9));
        if (fit <= 0) {
            m_pages.append(Page());
            y = Band::bodyTop(g, m_kind);
            continue;
        }
        const int n = qMin(fit, rows - offset);
        m_pages.last().append(Item{Item::Rows, 0, offset, n});
        offset += n;
        y += n * g.line;
    }
}

void ReportPages::beginPage(QPainter& painter, const QPaintDevice& device)
{
    const ReportGeometry& g = ReportGeometry::get();
    painter.resetTransform();
    painter.scale(device.width() / g.pageWidth, device.height() / g.pageHeight);
    painter.setRenderHint(QPainter::TextAntialiasing);
}

void ReportPages::setUpDevice(QPagedPaintDevice* device)
{
    device->setPageLayout(
        QPageLayout(QPageSize(QPageSize::A4), QPageLayout::Portrait, QMarginsF(0, 0, 0, 0), QPageLayout::Millimeter));
}

void ReportPages::paintHeader(PageCanvas& canvas, int index) const
{
    const ReportGeometry& g = ReportGeometry::get();
    const Pen label{canvas, g.headerSize, false};
    const Pen value{canvas, g.headerSize, true};
    const qreal left = g.margin;
    const qreal right = g.pageWidth - g.margin;
    // The report header (the title) comes first on the first page; the page
    // header follows it there and stands at the top of every other page.
    const qreal shift = index == 0 ? Band::title(g) : 0;
    const qreal y1 = g.margin + shift + g.headerSize;
    const qreal y2 = y1 + g.headerLine;

    label.use();
    // The captions' trailing blank is left as a gap before the value.
    label.left(left, y1, bankLabel.trimmed());
    label.left(left, y2, branchLabel.trimmed());
    label.left(g.dateLabelX, y2, dateLabel.trimmed());
    value.use();
    value.left(g.bankValueX, y1, m_header.bankName, g.bankValueW);
    value.left(g.branchValueX, y2, m_header.branchId, g.branchValueW);
    value.left(g.dateValueX, y2, ReportRenderer::formatDate(m_header.printed));
    const qreal rule = y2 + g.headerSize * 0.6;
    canvas.line(QPointF(left, rule), QPointF(right, rule));

    if (m_kind == ReportKind::Agent) {
        const qreal top = Band::bodyTop(g, m_kind) + shift - g.line * 1.5;
        canvas.fill(QRectF(left, top + g.line * 0.15, right - left, g.line * 1.1), QColor(0xE0, 0xE0, 0xE0));
        const Pen heads{canvas, g.bodySize, true};
        heads.use();
        const qreal y = top + g.line;
        heads.left(g.agentX[0], y, agentHeads[0]);
        heads.right(g.agentX[1] + g.agentW[1], y, agentHeads[1]);
        heads.left(g.agentX[2], y, agentHeads[2]);
    }

    // Footer: the page number.
    const Pen footer{canvas, g.footerSize, false};
    footer.use();
    footer.centre(g.pageWidth / 2, g.pageHeight - g.margin,
                  QStringLiteral("Page %1 of %2").arg(index + 1).arg(pageCount()));
}

void ReportPages::paintPage(QPainter& painter, int index) const
{
    PainterCanvas canvas(painter);
    paintPage(canvas, index, nullptr);
}

QStringList ReportPages::pageText(int index) const
{
    TextCanvas canvas;
    paintPage(canvas, index, nullptr);
    return canvas.lines();
}

void ReportPages::paintPage(PageCanvas& canvas, int index, RowCursor* cursor) const
{
    if (index < 0 || index >= pageCount())
        return;
    const ReportGeometry& g = ReportGeometry::get();
    paintHeader(canvas, index);

    const Pen body{canvas, g.bodySize, false};
    const Pen bold{canvas, g.bodySize, true};
    const qreal left = g.margin;
    const qreal right = g.pageWidth - g.margin;
    // Baseline of a body line that starts at y.
    const qreal ascent = g.bodySize * 1.05;
    qreal y = Band::bodyTop(g, m_kind);

    for (const Item& item : m_pages.at(index)) {
        switch (item.kind) {
        case Item::Title: {
            const Pen title{canvas, g.titleSize, true};
            title.use();
            title.centre(g.pageWidth / 2, g.margin + g.titleSize * 1.2, this->title());
            y += Band::title(g);
            break;
        }
        case Item::GroupHead: {
            const DailyGroupInfo& group = m_groups.at(item.group);
            bold.use();
            QString date = ReportRenderer::formatDate(group.date);
            if (item.continued)
                date += QStringLiteral(" (continued)");
            bold.left(left, y + g.line * 0.6 + ascent, date);
            const qreal headTop = y + g.line * 1.5;
            canvas.fill(QRectF(left, headTop - g.line * 0.05, right - left, g.line * 1.05), QColor(0xE0, 0xE0, 0xE0));
            const qreal hy = headTop + ascent;
            bold.left(g.dailyX[0], hy, dailyHeads[0]);
            bold.left(g.dailyX[1], hy, dailyHeads[1]);
            bold.right(g.dailyX[2] + g.dailyW[2], hy, dailyHeads[2]);
            bold.right(g.dailyX[3] + g.dailyW[3], hy, dailyHeads[3]);
            y += Band::groupHead(g);
            break;
        }
        case Item::Rows:
            if (m_kind == ReportKind::Daily) {
                const QString& date = m_groups.at(item.group).date;
                const QList<DailyRow> rows =
                    cursor ? cursor->take(date, item.count) : m_query->rows(date, item.offset, item.count);
                body.use();
                for (const DailyRow& row : rows) {
                    const qreal by = y + ascent;
                    body.left(g.dailyX[0], by, row.agentId.trimmed(), g.dailyW[0]);
                    body.left(g.dailyX[1], by, row.accountNo.trimmed(), g.dailyW[1]);
                    body.right(g.dailyX[2] + g.dailyW[2], by, ReportRenderer::formatAmount(row.closingAmt));
                    body.right(g.dailyX[3] + g.dailyW[3], by, ReportRenderer::formatAmount(row.collectedAmt));
                    y += g.line;
                }
                y += (item.count - rows.size()) * g.line;
            } else {
                body.use();
                for (int i = item.offset; i < item.offset + item.count && i < m_agent.rows.size(); ++i) {
                    const AgentRow& row = m_agent.rows.at(i);
                    const qreal by = y + ascent;
                    body.left(g.agentX[0], by, row.agentId.trimmed(), g.agentW[0]);
                    body.right(g.agentX[1] + g.agentW[1], by, ReportRenderer::formatAmount(row.collectedAmt));
                    body.left(g.agentX[2], by, ReportRenderer::formatDate(row.date));
                    y += g.line;
                }
            }
            break;
        case Item::GroupTotal: {
            bold.use();
            const qreal by = y + ascent;
            bold.right(g.dailyX[3] - columnGap, by, groupTotalLabel);
            bold.right(g.dailyX[3] + g.dailyW[3], by, ReportRenderer::formatAmount(m_groups.at(item.group).total));
            y += g.line;
            break;
        }
        case Item::GrandTotal: {
            const qreal ruleY = y + g.line * 0.3;
            canvas.line(QPointF(g.dailyX[2], ruleY), QPointF(right, ruleY));
            bold.use();
            const qreal by = y + g.line * 0.5 + ascent;
            bold.right(g.dailyX[3] - columnGap, by, grandTotalLabel);
            bold.right(g.dailyX[3] + g.dailyW[3], by, ReportRenderer::formatAmount(m_grandTotal));
            y += Band::grandTotal(g);
            break;
        }
        }
    }
}

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
        m_cursor = std::make_unique<ReportPages::RowCursor>(m_snapshot->db(), *m_pages->m_query);
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
