#include "base/DayText.h"

#include <QLocale>
#include <QRegularExpression>

namespace DayText {

namespace {

Reading read(const QString& text, const QRegularExpression& shape, int yearAdd)
{
    Reading r;
    const QRegularExpressionMatch m = shape.match(text.trimmed());
    if (!m.hasMatch())
        return r;
    r.shaped = true;
    const int day = m.captured(QStringLiteral("d")).toInt();
    const int month = m.captured(QStringLiteral("m")).toInt();
    const QString yearText = m.captured(QStringLiteral("y"));
    const int year = yearText.isEmpty() ? -1 : yearText.toInt() + yearAdd;
    r.why = whyNoDay(year, month, day);
    if (r.why.isEmpty())
        r.date = QDate(year < 0 ? 2000 : year, month, day);
    return r;
}

} // namespace

Reading readIso(const QString& text)
{
    static const QRegularExpression shape(QStringLiteral("^(?<y>\\d{4})-(?<m>\\d{2})-(?<d>\\d{2})$"));
    return read(text, shape, 0);
}

Reading readDayMonthYear(const QString& text)
{
    static const QRegularExpression full(QStringLiteral("^(?<d>\\d{2})/(?<m>\\d{2})/(?<y>\\d{4})$"));
    static const QRegularExpression shortYear(QStringLiteral("^(?<d>\\d{2})/(?<m>\\d{2})/(?<y>\\d{2})$"));
    const Reading r = read(text, full, 0);
    return r.shaped ? r : read(text, shortYear, 2000);
}

Reading readDayMonth(const QString& text)
{
    static const QRegularExpression shape(QStringLiteral("^(?<d>\\d{2})(?<m>\\d{2})$"));
    return read(text, shape, 0);
}

QString whyNoDay(int year, int month, int day)
{
    if (year == 0)
        return QStringLiteral("there is no year 0");
    if (month < 1 || month > 12)
        return QStringLiteral("there is no month %1, months run from 01 to 12").arg(month, 2, 10, QLatin1Char('0'));
    if (day < 1)
        return QStringLiteral("there is no day 00");
    const QString name = QLocale::c().monthName(month);
    // Any year: 29 February is a day of leap years.
    const int days = QDate(year < 0 ? 2000 : year, month, 1).daysInMonth();
    if (day <= days)
        return {};
    if (year < 0)
        return QStringLiteral("%1 has at most %2 days").arg(name).arg(days);
    return QStringLiteral("%1 %2 has %3 days").arg(name).arg(year).arg(days);
}

QString noSuchDayText(const QString& option, const QString& text, const Reading& reading)
{
    return QStringLiteral("%1 %2 names no real day: %3.").arg(option, text.trimmed(), reading.why);
}

} // namespace DayText
