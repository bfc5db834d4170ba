#pragma once

#include <QDate>
#include <QString>

// Days typed on a command line. A value in the right shape that names no day
// of the calendar (31 November, month 13) is told apart from a value in the
// wrong shape, so that the message can say which day is wrong and why.
namespace DayText {

struct Reading
{
    QDate date;          // valid when the text names a real day
    bool shaped = false; // the digits are where the format puts them
    QString why;         // for a shaped text that names no day: "November 2026 has 30 days"
};

// YYYY-MM-DD.
Reading readIso(const QString& text);
// DD/MM/YYYY, or DD/MM/YY meaning 20YY.
Reading readDayMonthYear(const QString& text);
// DDMM, a day of any year (29 February included).
Reading readDayMonth(const QString& text);

// Why day/month/year names no day, or empty when it does. A year of -1
// stands for any year.
QString whyNoDay(int year, int month, int day);

// "--from 2026-11-31 names no real day: November 2026 has 30 days."
QString noSuchDayText(const QString& option, const QString& text, const Reading& reading);

} // namespace DayText
