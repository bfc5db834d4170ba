#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

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

    // Least room between two columns.
    static constexpr qreal columnGap = 12.0;

    qreal contentWidth() const { return pageWidth - 2 * margin; }
    static const ReportGeometry& get();
};

// Captions exactly as the reports carry them.
namespace ReportCaptions {
extern const QString bank;
extern const QString branch;
extern const QString date;
extern const QString groupTotal;
extern const QString grandTotal;
extern const QStringList dailyHeads;
extern const QStringList agentHeads;
} // namespace ReportCaptions
