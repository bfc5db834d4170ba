#include "ReportRenderer.h"

#include <QBuffer>
#include <QFont>
#include <QLocale>
#include <QPageLayout>
#include <QPdfWriter>
#include <QSaveFile>
#include <QStringList>
#include <QTextDocument>
#include <cstdlib>

namespace {

const char* const reportStyle = "body { font-family: Arial; font-size: 10pt; }"
                                "h2 { font-size: 14pt; font-weight: bold; }"
                                "td, th { padding: 2px; }"
                                "th { font-weight: bold; background-color: #E0E0E0; }"
                                "td.amount { text-align: right; }"
                                "td.pagehead { background-color: #F4F4F4; }"
                                "td.group { font-weight: bold; padding-top: 10px; }"
                                "td.total { font-weight: bold; text-align: right; white-space: pre; }";

QString esc(const QString& text)
{
    return text.toHtmlEscaped();
}

QString cell(const QString& text, const char* cls = nullptr, int colspan = 1)
{
    QString td = QStringLiteral("<td");
    if (cls)
        td += QStringLiteral(" class=\"%1\"").arg(QLatin1String(cls));
    if (colspan > 1)
        td += QStringLiteral(" colspan=\"%1\"").arg(colspan);
    if (cls && (qstrcmp(cls, "amount") == 0 || qstrcmp(cls, "total") == 0))
        td += QStringLiteral(" align=\"right\"");
    return td + QLatin1Char('>') + text + QStringLiteral("</td>");
}

// A column head; its width fixes the column's share of the page.
QString head(const QString& text, int widthPercent, const char* align = "left")
{
    return QStringLiteral("<th width=\"%1%\" align=\"%2\">%3</th>")
        .arg(QString::number(widthPercent), QLatin1String(align), esc(text));
}

// The page header: "Bank Name :" lbBankName, "Branch ID :" lbBranchID,
// "Date :" lbDate, in a table of their own so that long names do not
// squeeze each other into the report's column widths.
QString pageHeaderRow(const ReportHeader& header, int columns)
{
    const QString bank = QStringLiteral("Bank Name : <b>%1</b>").arg(esc(header.bankName));
    const QString branch = QStringLiteral("Branch ID : <b>%1</b>").arg(esc(header.branchId));
    const QString date = QStringLiteral("Date : <b>%1</b>").arg(esc(ReportRenderer::formatDate(header.printed)));
    return QStringLiteral("<tr><td class=\"pagehead\" colspan=\"%1\">"
                          "<table width=\"100%\" cellspacing=\"0\" cellpadding=\"2\"><tr>"
                          "<td>%2</td><td align=\"center\">%3</td><td align=\"right\">%4</td>"
                          "</tr></table></td></tr>")
        .arg(QString::number(columns), bank, branch, date);
}

QString documentStart(const QString& title)
{
    return QStringLiteral("<html><head><title>%1</title><style>%2</style></head><body>"
                          "<h2 align=\"center\">%1</h2>")
        .arg(esc(title), QLatin1String(reportStyle));
}

QString tableStart()
{
    return QStringLiteral("<table width=\"100%\" cellspacing=\"0\" cellpadding=\"2\" border=\"0\">");
}

QString csvField(const QString& text)
{
    if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"')) && !text.contains(QLatin1Char('\n')) &&
        !text.contains(QLatin1Char('\r')))
        return text;
    return QLatin1Char('"') + QString(text).replace(QLatin1Char('"'), QStringLiteral("\"\"")) + QLatin1Char('"');
}

QString csvLine(const QStringList& fields)
{
    QStringList quoted;
    for (const QString& f : fields)
        quoted << csvField(f);
    return quoted.join(QLatin1Char(',')) + QStringLiteral("\r\n");
}

bool saveBytes(const QByteArray& bytes, const QString& path, QString* error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        if (error)
            *error = QStringLiteral("Cannot write the report file %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

} // namespace

QString ReportRenderer::formatAmount(Paise amount)
{
    const Paise magnitude = std::llabs(amount);
    return QStringLiteral("%1%2.%3")
        .arg(amount < 0 ? QStringLiteral("-") : QString())
        .arg(magnitude / 100)
        .arg(magnitude % 100, 2, 10, QLatin1Char('0'));
}

QString ReportRenderer::formatAmount(const std::optional<Paise>& amount)
{
    return amount ? formatAmount(*amount) : QString();
}

QString ReportRenderer::formatDate(const QString& stored)
{
    const QDate date = QDate::fromString(stored, Qt::ISODate);
    return date.isValid() ? formatDate(date) : stored;
}

QString ReportRenderer::formatDate(const QDate& date)
{
    return QLocale::c().toString(date, QStringLiteral("dd/MMM/yyyy"));
}

QString ReportRenderer::dailyHtml(const DailySummary& summary, const ReportHeader& header)
{
    QString html = documentStart(dailyTitle()) + tableStart();
    // Rows in <thead> repeat at the top of every printed page.
    html += QStringLiteral("<thead>") + pageHeaderRow(header, 4) + QStringLiteral("</thead><tbody>");
    for (const DailyGroup& group : summary.groups) {
        html += QStringLiteral("<tr>") + cell(esc(formatDate(group.date)), "group", 4) + QStringLiteral("</tr>");
        html += QStringLiteral("<tr>") + head(QStringLiteral("AgentID"), 20) + head(QStringLiteral("Account No"), 30) +
                head(QStringLiteral("Closing Amount"), 25, "right") +
                head(QStringLiteral("Collected Amount"), 25, "right") + QStringLiteral("</tr>");
        for (const DailyRow& row : group.rows) {
            html += QStringLiteral("<tr>") + cell(esc(row.agentId)) + cell(esc(row.accountNo)) +
                    cell(formatAmount(row.closingAmt), "amount") + cell(formatAmount(row.collectedAmt), "amount") +
                    QStringLiteral("</tr>");
        }
        html += QStringLiteral("<tr>") + cell(QStringLiteral("Group Total :   Rs."), "total", 3) +
                cell(formatAmount(group.total), "total") + QStringLiteral("</tr>");
    }
    html += QStringLiteral("<tr>") + cell(QStringLiteral("Grand Total :   Rs."), "total", 3) +
            cell(formatAmount(summary.grandTotal), "total") + QStringLiteral("</tr>");
    return html + QStringLiteral("</tbody></table></body></html>");
}

QString ReportRenderer::agentHtml(const AgentSummary& summary, const ReportHeader& header)
{
    QString html = documentStart(agentTitle()) + tableStart();
    // This report's column heads belong to the page header and repeat with it.
    html += QStringLiteral("<thead>") + pageHeaderRow(header, 3) + QStringLiteral("<tr>") +
            head(QStringLiteral("AgentID"), 30) + head(QStringLiteral("Collected Amount"), 35, "right") +
            head(QStringLiteral("Date"), 35, "center") + QStringLiteral("</tr></thead><tbody>");
    for (const AgentRow& row : summary.rows) {
        html += QStringLiteral("<tr>") + cell(esc(row.agentId)) + cell(formatAmount(row.collectedAmt), "amount") +
                QStringLiteral("<td align=\"center\">%1</td>").arg(esc(formatDate(row.date))) + QStringLiteral("</tr>");
    }
    // An empty table body would drop the column heads from the layout.
    if (summary.rows.isEmpty())
        html += QStringLiteral("<tr><td colspan=\"3\"></td></tr>");
    return html + QStringLiteral("</tbody></table></body></html>");
}

QString ReportRenderer::dailyCsv(const DailySummary& summary)
{
    QString csv = csvLine({QStringLiteral("Date"), QStringLiteral("AgentID"), QStringLiteral("Account No"),
                           QStringLiteral("Closing Amount"), QStringLiteral("Collected Amount")});
    for (const DailyGroup& group : summary.groups) {
        for (const DailyRow& row : group.rows)
            csv += csvLine(
                {group.date, row.agentId, row.accountNo, formatAmount(row.closingAmt), formatAmount(row.collectedAmt)});
    }
    return csv;
}

QString ReportRenderer::agentCsv(const AgentSummary& summary)
{
    QString csv = csvLine({QStringLiteral("AgentID"), QStringLiteral("Collected Amount"), QStringLiteral("Date")});
    for (const AgentRow& row : summary.rows)
        csv += csvLine({row.agentId, formatAmount(row.collectedAmt), row.date});
    return csv;
}

RenderedReport ReportRenderer::render(SharedDatabase& db, ReportKind kind, const ReportLimits& limits,
                                      const ReportHeader& header)
{
    RenderedReport report;
    report.kind = kind;
    if (kind == ReportKind::Daily) {
        const DailySummary summary = ReportData::daily(db, limits);
        report.title = dailyTitle();
        report.html = dailyHtml(summary, header);
        report.csv = dailyCsv(summary);
    } else {
        const AgentSummary summary = ReportData::agent(db, limits);
        report.title = agentTitle();
        report.html = agentHtml(summary, header);
        report.csv = agentCsv(summary);
    }
    return report;
}

void ReportRenderer::setUp(QTextDocument* document, const QString& html)
{
    document->setDefaultFont(QFont(QStringLiteral("Arial"), 10));
    document->setHtml(html);
}

void ReportRenderer::setUpPage(QPagedPaintDevice* device)
{
    device->setPageSize(QPageSize(QPageSize::A4));
    device->setPageOrientation(QPageLayout::Portrait);
    // QTextDocument::print() keeps a 2 cm margin of its own inside the
    // device's margins; a device margin on top would waste a third of the width.
    device->setPageMargins(QMarginsF(0, 0, 0, 0), QPageLayout::Millimeter);
}

void ReportRenderer::print(QTextDocument* document, QPagedPaintDevice* device)
{
    document->print(device);
}

bool ReportRenderer::writePdf(const RenderedReport& report, const QString& path, QString* error)
{
    QByteArray bytes;
    {
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        QPdfWriter writer(&buffer);
        writer.setTitle(report.title);
        writer.setCreator(QStringLiteral("Tonvy Hand-Held Interface Software"));
        writer.setResolution(300);
        QTextDocument document;
        setUp(&document, report.html);
        setUpPage(&writer);
        print(&document, &writer);
    }
    return saveBytes(bytes, path, error);
}

bool ReportRenderer::writeCsv(const RenderedReport& report, const QString& path, QString* error)
{
    return saveBytes(report.csv.toUtf8(), path, error);
}
