#pragma once

#include "reports/ReportData.h"

#include <QDate>
#include <QString>
#include <optional>

enum class ReportKind { Daily, Agent };

// The words and formats both printed summaries and their CSV share: the
// titles, amounts and dates, exactly as the reports carry them.
namespace ReportFormat {

inline QString dailyTitle()
{
    return QStringLiteral("TONVY DAILY COLLECTION SUMMARY");
}
inline QString agentTitle()
{
    return QStringLiteral("TONVY AGENT COLLECTION SUMMARY");
}
inline QString title(ReportKind kind)
{
    return kind == ReportKind::Daily ? dailyTitle() : agentTitle();
}

// Amount in paise as "0.00"; a missing amount is left blank.
QString formatAmount(Paise amount);
QString formatAmount(const std::optional<Paise>& amount);
// A stored YYYY-MM-DD day as dd/MMM/yyyy (English month); other text as it stands.
QString formatDate(const QString& stored);
QString formatDate(const QDate& date);

} // namespace ReportFormat
