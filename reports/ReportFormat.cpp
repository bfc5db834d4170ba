#include "reports/ReportFormat.h"

#include <QLocale>

namespace ReportFormat {

QString formatAmount(Paise amount)
{
    const quint64 magnitude = amount < 0 ? 0 - static_cast<quint64>(amount) : static_cast<quint64>(amount);
    return QStringLiteral("%1%2.%3")
        .arg(amount < 0 ? QStringLiteral("-") : QString())
        .arg(magnitude / 100)
        .arg(magnitude % 100, 2, 10, QLatin1Char('0'));
}

QString formatAmount(const std::optional<Paise>& amount)
{
    return amount ? formatAmount(*amount) : QString();
}

QString formatDate(const QString& stored)
{
    const QDate date = QDate::fromString(stored, Qt::ISODate);
    return date.isValid() ? formatDate(date) : stored;
}

QString formatDate(const QDate& date)
{
    return QLocale::c().toString(date, QStringLiteral("dd/MMM/yyyy"));
}

} // namespace ReportFormat
