#include "reports/ReportGeometry.h"

#include "reports/ReportFonts.h"
#include "reports/ReportFormat.h"

#include <QLocale>

namespace ReportCaptions {
const QString bank = QStringLiteral("Bank Name : ");
const QString branch = QStringLiteral("Branch ID : ");
const QString date = QStringLiteral("Date : ");
const QString groupTotal = QStringLiteral("Group Total :   Rs.");
const QString grandTotal = QStringLiteral("Grand Total :   Rs.");
const QStringList dailyHeads = {QStringLiteral("AgentID"), QStringLiteral("Account No"),
                                QStringLiteral("Closing Amount"), QStringLiteral("Collected Amount")};
const QStringList agentHeads = {QStringLiteral("AgentID"), QStringLiteral("Collected Amount"), QStringLiteral("Date")};
} // namespace ReportCaptions

namespace {

constexpr qreal mm = 72.0 / 25.4;

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
    const qreal spare = width - used - (N - 1) * ReportGeometry::columnGap;
    if (spare < 0)
        return false;
    const qreal gap = ReportGeometry::columnGap + spare / (N - 1);
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
        const qreal bank = ReportFonts::width(ReportCaptions::bank, s, false) +
                           ReportGeometry::bankNameChars * ReportFonts::widestChar(s, true);
        const qreal branch = ReportFonts::width(ReportCaptions::branch, s, false) +
                             ReportGeometry::branchNameChars * ReportFonts::widestChar(s, true);
        const qreal date = ReportFonts::width(ReportCaptions::date, s, false) + widestDate(s, true);
        if (bank <= width && branch + ReportGeometry::columnGap + date <= width)
            break;
    }
    const qreal hs = g.headerSize;
    g.headerLine = hs * 1.6;
    g.bankValueX = left + ReportFonts::width(ReportCaptions::bank, hs, false);
    g.bankValueW = left + width - g.bankValueX;
    g.branchValueX = left + ReportFonts::width(ReportCaptions::branch, hs, false);
    g.branchValueW = ReportGeometry::branchNameChars * ReportFonts::widestChar(hs, true);
    g.dateValueX = left + width - widestDate(hs, true);
    g.dateLabelX = g.dateValueX - ReportFonts::width(ReportCaptions::date, hs, false);

    // Body: the largest size (up to 10 points) at which both reports' columns
    // fit their longest values and their heads.
    for (g.bodySize = 10; g.bodySize > 5; g.bodySize -= 1) {
        const qreal s = g.bodySize;
        auto head = [s](const QString& text) { return ReportFonts::width(text, s, true); };
        const qreal agent =
            qMax(ReportGeometry::agentIdChars * ReportFonts::widestChar(s, false), head(ReportCaptions::dailyHeads[0]));
        g.dailyW[0] = agent;
        g.dailyW[1] = qMax(ReportGeometry::accountNoChars * ReportFonts::widestDigit(s, false),
                           head(ReportCaptions::dailyHeads[1]));
        g.dailyW[2] = qMax(amountWidth(10, s), head(ReportCaptions::dailyHeads[2]));
        g.dailyW[3] = qMax(qMax(amountWidth(15, s), ReportFonts::width(ReportFormat::formatAmount(Paise(0)), s, true)),
                           head(ReportCaptions::dailyHeads[3]));
        g.agentW[0] = agent;
        g.agentW[1] = qMax(amountWidth(15, s), head(ReportCaptions::agentHeads[1]));
        g.agentW[2] = qMax(widestDate(s, false), head(ReportCaptions::agentHeads[2]));
        if (placeColumns(left, width, g.dailyW, g.dailyX) && placeColumns(left, width, g.agentW, g.agentX))
            break;
    }
    g.line = g.bodySize * 1.45;
    return g;
}

} // namespace

const ReportGeometry& ReportGeometry::get()
{
    static const ReportGeometry geometry = computeGeometry();
    return geometry;
}
