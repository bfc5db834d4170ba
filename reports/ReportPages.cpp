#include "reports/ReportPages.h"

#include "reports/ReportGeometry.h"
#include "store/SharedDatabase.h"

#include <QColor>
#include <QPageLayout>
#include <QPagedPaintDevice>
#include <QPainter>
#include <QPointF>
#include <QRectF>
#include <QSqlQuery>
#include <QVariant>
#include <cmath>

namespace {

qint64 dataVersion(SharedDatabase& db)
{
    QSqlQuery q(db.connection());
    if (q.exec(QStringLiteral("PRAGMA data_version")) && q.next())
        return q.value(0).toLongLong();
    return -1;
}

} // namespace

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
    return m_kind == ReportKind::Daily ? ReportFormat::dailyTitle() : ReportFormat::agentTitle();
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
    label.left(left, y1, ReportCaptions::bank.trimmed());
    label.left(left, y2, ReportCaptions::branch.trimmed());
    label.left(g.dateLabelX, y2, ReportCaptions::date.trimmed());
    value.use();
    value.left(g.bankValueX, y1, m_header.bankName, g.bankValueW);
    value.left(g.branchValueX, y2, m_header.branchId, g.branchValueW);
    value.left(g.dateValueX, y2, ReportFormat::formatDate(m_header.printed));
    const qreal rule = y2 + g.headerSize * 0.6;
    canvas.line(QPointF(left, rule), QPointF(right, rule));

    if (m_kind == ReportKind::Agent) {
        const qreal top = Band::bodyTop(g, m_kind) + shift - g.line * 1.5;
        canvas.fill(QRectF(left, top + g.line * 0.15, right - left, g.line * 1.1), QColor(0xE0, 0xE0, 0xE0));
        const Pen heads{canvas, g.bodySize, true};
        heads.use();
        const qreal y = top + g.line;
        heads.left(g.agentX[0], y, ReportCaptions::agentHeads[0]);
        heads.right(g.agentX[1] + g.agentW[1], y, ReportCaptions::agentHeads[1]);
        heads.left(g.agentX[2], y, ReportCaptions::agentHeads[2]);
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

void ReportPages::paintPage(PageCanvas& canvas, int index, DailyRowSource* source) const
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
            QString date = ReportFormat::formatDate(group.date);
            if (item.continued)
                date += QStringLiteral(" (continued)");
            bold.left(left, y + g.line * 0.6 + ascent, date);
            const qreal headTop = y + g.line * 1.5;
            canvas.fill(QRectF(left, headTop - g.line * 0.05, right - left, g.line * 1.05), QColor(0xE0, 0xE0, 0xE0));
            const qreal hy = headTop + ascent;
            bold.left(g.dailyX[0], hy, ReportCaptions::dailyHeads[0]);
            bold.left(g.dailyX[1], hy, ReportCaptions::dailyHeads[1]);
            bold.right(g.dailyX[2] + g.dailyW[2], hy, ReportCaptions::dailyHeads[2]);
            bold.right(g.dailyX[3] + g.dailyW[3], hy, ReportCaptions::dailyHeads[3]);
            y += Band::groupHead(g);
            break;
        }
        case Item::Rows:
            if (m_kind == ReportKind::Daily) {
                const QString& date = m_groups.at(item.group).date;
                const QList<DailyRow> rows =
                    source ? source->rows(date, item.offset, item.count) : m_query->rows(date, item.offset, item.count);
                body.use();
                for (const DailyRow& row : rows) {
                    const qreal by = y + ascent;
                    body.left(g.dailyX[0], by, row.agentId.trimmed(), g.dailyW[0]);
                    body.left(g.dailyX[1], by, row.accountNo.trimmed(), g.dailyW[1]);
                    body.right(g.dailyX[2] + g.dailyW[2], by, ReportFormat::formatAmount(row.closingAmt));
                    body.right(g.dailyX[3] + g.dailyW[3], by, ReportFormat::formatAmount(row.collectedAmt));
                    y += g.line;
                }
                y += (item.count - rows.size()) * g.line;
            } else {
                body.use();
                for (int i = item.offset; i < item.offset + item.count && i < m_agent.rows.size(); ++i) {
                    const AgentRow& row = m_agent.rows.at(i);
                    const qreal by = y + ascent;
                    body.left(g.agentX[0], by, row.agentId.trimmed(), g.agentW[0]);
                    body.right(g.agentX[1] + g.agentW[1], by, ReportFormat::formatAmount(row.collectedAmt));
                    body.left(g.agentX[2], by, ReportFormat::formatDate(row.date));
                    y += g.line;
                }
            }
            break;
        case Item::GroupTotal: {
            bold.use();
            const qreal by = y + ascent;
            bold.right(g.dailyX[3] - ReportGeometry::columnGap, by, ReportCaptions::groupTotal);
            bold.right(g.dailyX[3] + g.dailyW[3], by, ReportFormat::formatAmount(m_groups.at(item.group).total));
            y += g.line;
            break;
        }
        case Item::GrandTotal: {
            const qreal ruleY = y + g.line * 0.3;
            canvas.line(QPointF(g.dailyX[2], ruleY), QPointF(right, ruleY));
            bold.use();
            const qreal by = y + g.line * 0.5 + ascent;
            bold.right(g.dailyX[3] - ReportGeometry::columnGap, by, ReportCaptions::grandTotal);
            bold.right(g.dailyX[3] + g.dailyW[3], by, ReportFormat::formatAmount(m_grandTotal));
            y += Band::grandTotal(g);
            break;
        }
        }
    }
}
