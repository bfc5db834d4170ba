#include "base/DayText.h"

#include <QtTest>

// A day typed in the right shape that is not in the calendar is told apart
// from a value in the wrong shape, with the reason.
class tst_DayText : public QObject
{
    Q_OBJECT

private slots:
    void iso_data();
    void iso();
    void dayMonthYear();
    void dayMonth_data();
    void dayMonth();
    void message();
};

void tst_DayText::iso_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("shaped");
    QTest::addColumn<QDate>("date");
    QTest::addColumn<QString>("why");
    QTest::newRow("a day") << "2026-11-30" << true << QDate(2026, 11, 30) << "";
    QTest::newRow("blanks around") << " 2026-11-30 " << true << QDate(2026, 11, 30) << "";
    QTest::newRow("31 November") << "2026-11-31" << true << QDate() << "November 2026 has 30 days";
    QTest::newRow("29 February, not a leap year") << "2026-02-29" << true << QDate() << "February 2026 has 28 days";
    QTest::newRow("29 February, leap year") << "2028-02-29" << true << QDate(2028, 2, 29) << "";
    QTest::newRow("month 13") << "2026-13-01" << true << QDate() << "there is no month 13, months run from 01 to 12";
    QTest::newRow("month 00") << "2026-00-10" << true << QDate() << "there is no month 00, months run from 01 to 12";
    QTest::newRow("day 00") << "2026-11-00" << true << QDate() << "there is no day 00";
    QTest::newRow("year 0") << "0000-01-01" << true << QDate() << "there is no year 0";
    QTest::newRow("day first") << "30-11-2026" << false << QDate() << "";
    QTest::newRow("one-digit month") << "2026-1-30" << false << QDate() << "";
    QTest::newRow("words") << "yesterday" << false << QDate() << "";
    QTest::newRow("empty") << "" << false << QDate() << "";
}

void tst_DayText::iso()
{
    QFETCH(QString, text);
    QFETCH(bool, shaped);
    QFETCH(QDate, date);
    QFETCH(QString, why);
    const DayText::Reading r = DayText::readIso(text);
    QCOMPARE(r.shaped, shaped);
    QCOMPARE(r.date, date);
    QCOMPARE(r.why, why);
}

void tst_DayText::dayMonthYear()
{
    QCOMPARE(DayText::readDayMonthYear("16/11/2007").date, QDate(2007, 11, 16));
    QCOMPARE(DayText::readDayMonthYear("16/11/07").date, QDate(2007, 11, 16));
    QCOMPARE(DayText::readDayMonthYear("31/04/2007").why, QStringLiteral("April 2007 has 30 days"));
    QVERIFY(!DayText::readDayMonthYear("2007-11-16").shaped);
}

void tst_DayText::dayMonth_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("shaped");
    QTest::addColumn<QString>("why");
    QTest::newRow("16 November") << "1611" << true << "";
    QTest::newRow("29 February of some year") << "2902" << true << "";
    QTest::newRow("30 February") << "3002" << true << "February has at most 29 days";
    QTest::newRow("31 June") << "3106" << true << "June has at most 30 days";
    QTest::newRow("month 13") << "0113" << true << "there is no month 13, months run from 01 to 12";
    QTest::newRow("three digits") << "161" << false << "";
}

void tst_DayText::dayMonth()
{
    QFETCH(QString, text);
    QFETCH(bool, shaped);
    QFETCH(QString, why);
    const DayText::Reading r = DayText::readDayMonth(text);
    QCOMPARE(r.shaped, shaped);
    QCOMPARE(r.why, why);
    QCOMPARE(r.date.isValid(), shaped && why.isEmpty());
}

void tst_DayText::message()
{
    QCOMPARE(DayText::noSuchDayText("--from", "2026-11-31", DayText::readIso("2026-11-31")),
             QStringLiteral("--from 2026-11-31 names no real day: November 2026 has 30 days."));
}

QTEST_GUILESS_MAIN(tst_DayText)
#include "tst_daytext.moc"
