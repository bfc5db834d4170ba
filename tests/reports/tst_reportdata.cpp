#include "reports/ReportData.h"
#include "store/SharedRecordset.h"
#include "store/StoreError.h"
#include "tests/reports/HistoryRows.h"
#include "tests/support/TestContext.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QtTest>

namespace {

ReportLimits range(const QDate& from, const QDate& to, const QString& agent = {}, const QString& account = {})
{
    return ReportLimits{from, to, agent, account};
}

const QDate d14(2007, 11, 14);
const QDate d15(2007, 11, 15);
const QDate d16(2007, 11, 16);
const QDate d17(2007, 11, 17);
const QDate d18(2007, 11, 18);

// Three days, two agents; collected amounts chosen so that binary sums of
// the stored doubles would drift (10.10 + 20.20 + 0.70).
QList<HistoryRow> threeDays()
{
    return {
        {"001", "2007-11-14", "10020", 1500.50, 10.10},  {"002", "2007-11-14", "20010", 800.00, 20.20},
        {"001", "2007-11-14", "10010", 2400.25, 0.70},   {"001", "2007-11-15", "10010", 2450.25, 50.00},
        {"002", "2007-11-15", "20010", 900.00, 100.00},  {"002", "2007-11-16", "20020", 1200.00, 25.50},
        {"001", "2007-11-17", "10010", 2500.25, 300.00},
    };
}

QStringList keys(const DailyGroup& g)
{
    QStringList k;
    for (const DailyRow& r : g.rows)
        k << r.agentId + "/" + r.accountNo;
    return k;
}

} // namespace

class tst_ReportData : public QObject
{
    Q_OBJECT

private slots:
    void groupsByDateWithGroupAndGrandTotals();
    void rowValuesAreRead();
    void dateLimitsAreInclusive();
    void agentAndAccountLimits_data();
    void agentAndAccountLimits();
    void limitsAreBoundNotPasted();
    void emptyRange();
    void missingAmountCountsAsNothing();
    void sameDayReceivedTwiceIsNotDoubled();
    void agentSummaryOneRowPerAgentAndDay();
    void agentSummaryIgnoresAgentAndAccount();
    void eachCallReadsAfresh();
    void sharedRecordsetIsLeftAlone();
    void checkLimits_data();
    void checkLimits();
    void toPaise_data();
    void toPaise();
    void storedPaise();
    void sameAgentId_data();
    void sameAgentId();
    void sameAgentNumber_data();
    void sameAgentNumber();
    void agentAsTypedOnTheSendScreen_data();
    void agentAsTypedOnTheSendScreen();
    void allDigitIdentifiers_data();
    void allDigitIdentifiers();
    void numberOfTwoAgentsIsRefused();
    void rowsWithoutANumberFollowTheirAgent();
    void groupCountsAndRowsInPieces();
    void queriesUseTheDayIndex_data();
    void queriesUseTheDayIndex();
    void totalsAreExactOverManyRows();
};

void tst_ReportData::groupsByDateWithGroupAndGrandTotals()
{
    TestContext t;
    addHistory(t.db, threeDays());

    const DailySummary s = ReportData::daily(t.db, range(d14, d17));
    QCOMPARE(s.groups.size(), 4);
    QCOMPARE(s.groups[0].date, QString("2007-11-14"));
    QCOMPARE(s.groups[1].date, QString("2007-11-15"));
    QCOMPARE(s.groups[2].date, QString("2007-11-16"));
    QCOMPARE(s.groups[3].date, QString("2007-11-17"));
    // Within a date: by agent, then account.
    QCOMPARE(keys(s.groups[0]), QStringList({"001/10010", "001/10020", "002/20010"}));
    QCOMPARE(keys(s.groups[1]), QStringList({"001/10010", "002/20010"}));
    QCOMPARE(s.groups[0].total, Paise(3100));
    QCOMPARE(s.groups[1].total, Paise(15000));
    QCOMPARE(s.groups[2].total, Paise(2550));
    QCOMPARE(s.groups[3].total, Paise(30000));
    QCOMPARE(s.grandTotal, Paise(3100 + 15000 + 2550 + 30000));
    QCOMPARE(s.rowCount(), 7);
}

void tst_ReportData::rowValuesAreRead()
{
    TestContext t;
    addHistory(t.db, threeDays());
    const DailySummary s = ReportData::daily(t.db, range(d16, d16));
    QCOMPARE(s.groups.size(), 1);
    const DailyRow& r = s.groups[0].rows.at(0);
    QCOMPARE(r.agentId, QString("002"));
    QCOMPARE(r.accountNo, QString("20020"));
    QCOMPARE(r.closingAmt, std::optional<Paise>(120000));
    QCOMPARE(r.collectedAmt, std::optional<Paise>(2550));
}

void tst_ReportData::dateLimitsAreInclusive()
{
    TestContext t;
    addHistory(t.db, threeDays());

    DailySummary s = ReportData::daily(t.db, range(d15, d16));
    QCOMPARE(s.groups.size(), 2);
    QCOMPARE(s.groups[0].date, QString("2007-11-15"));
    QCOMPARE(s.groups[1].date, QString("2007-11-16"));
    QCOMPARE(s.grandTotal, Paise(15000 + 2550));

    s = ReportData::daily(t.db, range(d17, d17));
    QCOMPARE(s.groups.size(), 1);
    QCOMPARE(s.grandTotal, Paise(30000));

    s = ReportData::daily(t.db, range(QDate(2007, 11, 1), d14));
    QCOMPARE(s.groups.size(), 1);
    QCOMPARE(s.groups[0].date, QString("2007-11-14"));
}

void tst_ReportData::agentAndAccountLimits_data()
{
    QTest::addColumn<QString>("agent");
    QTest::addColumn<QString>("account");
    QTest::addColumn<QStringList>("expected"); // date/agent/account
    QTest::addColumn<qint64>("total");

    QTest::newRow("agent") << "001"
                           << ""
                           << QStringList{"2007-11-14/001/10010", "2007-11-14/001/10020", "2007-11-15/001/10010",
                                          "2007-11-17/001/10010"}
                           << qint64(70 + 1010 + 5000 + 30000);
    QTest::newRow("account") << ""
                             << "20010" << QStringList{"2007-11-14/002/20010", "2007-11-15/002/20010"}
                             << qint64(2020 + 10000);
    QTest::newRow("agent and account") << "001"
                                       << "10010"
                                       << QStringList{"2007-11-14/001/10010", "2007-11-15/001/10010",
                                                      "2007-11-17/001/10010"}
                                       << qint64(70 + 5000 + 30000);
    QTest::newRow("blanks around are ignored") << " 002 "
                                               << " 20020 " << QStringList{"2007-11-16/002/20020"} << qint64(2550);
    QTest::newRow("agent of another's account") << "001"
                                                << "20010" << QStringList{} << qint64(0);
    QTest::newRow("unknown agent") << "999"
                                   << "" << QStringList{} << qint64(0);
}

void tst_ReportData::agentAndAccountLimits()
{
    QFETCH(QString, agent);
    QFETCH(QString, account);
    QFETCH(QStringList, expected);
    QFETCH(qint64, total);

    TestContext t;
    addHistory(t.db, threeDays());
    const DailySummary s = ReportData::daily(t.db, range(d14, d17, agent, account));
    QStringList got;
    Paise groupSum = 0;
    for (const DailyGroup& g : s.groups) {
        for (const DailyRow& r : g.rows)
            got << g.date + "/" + r.agentId + "/" + r.accountNo;
        groupSum += g.total;
    }
    QCOMPARE(got, expected);
    QCOMPARE(s.grandTotal, Paise(total));
    QCOMPARE(groupSum, Paise(total));
}

void tst_ReportData::limitsAreBoundNotPasted()
{
    TestContext t;
    addHistory(t.db, threeDays());
    // Text that would widen a pasted WHERE clause matches nothing when bound.
    const DailySummary s = ReportData::daily(t.db, range(d14, d17, "001 OR 1=1", "x\" OR \"1\"=\"1"));
    QCOMPARE(s.rowCount(), 0);
    QCOMPARE(s.grandTotal, Paise(0));
}

void tst_ReportData::emptyRange()
{
    TestContext t;
    DailySummary s = ReportData::daily(t.db, range(d14, d17));
    QVERIFY(s.groups.isEmpty());
    QCOMPARE(s.grandTotal, Paise(0));

    addHistory(t.db, threeDays());
    s = ReportData::daily(t.db, range(QDate(2008, 1, 1), QDate(2008, 1, 31)));
    QVERIFY(s.groups.isEmpty());
    QCOMPARE(s.grandTotal, Paise(0));
    QVERIFY(ReportData::agent(t.db, range(QDate(2008, 1, 1), QDate(2008, 1, 31))).rows.isEmpty());
}

void tst_ReportData::missingAmountCountsAsNothing()
{
    TestContext t;
    addHistory(t.db,
               {{"001", "2007-11-16", "10010", QVariant(), QVariant()}, {"001", "2007-11-16", "10020", 100.0, 40.0}});
    const DailySummary s = ReportData::daily(t.db, range(d16, d16));
    QCOMPARE(s.groups.size(), 1);
    QCOMPARE(s.groups[0].rows.size(), 2);
    QVERIFY(!s.groups[0].rows[0].closingAmt.has_value());
    QVERIFY(!s.groups[0].rows[0].collectedAmt.has_value());
    QCOMPARE(s.groups[0].total, Paise(4000));
    QCOMPARE(s.grandTotal, Paise(4000));
}

void tst_ReportData::sameDayReceivedTwiceIsNotDoubled()
{
    TestContext t;
    addHistory(t.db, threeDays());
    // Agent 001's 14th comes in again with one changed amount and one more account.
    receiveDayAgain(t.db, "001", "2007-11-14",
                    {{"001", "2007-11-14", "10010", 2400.25, 0.70},
                     {"001", "2007-11-14", "10020", 1500.50, 15.00},
                     {"001", "2007-11-14", "10030", 600.00, 5.00}});

    const DailySummary s = ReportData::daily(t.db, range(d14, d14));
    QCOMPARE(s.groups.size(), 1);
    QCOMPARE(keys(s.groups[0]), QStringList({"001/10010", "001/10020", "001/10030", "002/20010"}));
    QCOMPARE(s.groups[0].total, Paise(70 + 1500 + 500 + 2020));
    QCOMPARE(s.grandTotal, Paise(70 + 1500 + 500 + 2020));

    const AgentSummary a = ReportData::agent(t.db, range(d14, d14));
    QCOMPARE(a.rows.size(), 2);
    QCOMPARE(a.rows[0].agentId, QString("001"));
    QCOMPARE(a.rows[0].collectedAmt, Paise(70 + 1500 + 500));
    QCOMPARE(a.rows[1].agentId, QString("002"));
    QCOMPARE(a.rows[1].collectedAmt, Paise(2020));

    // The same receive a third time, unchanged: still the same totals.
    receiveDayAgain(t.db, "001", "2007-11-14",
                    {{"001", "2007-11-14", "10010", 2400.25, 0.70},
                     {"001", "2007-11-14", "10020", 1500.50, 15.00},
                     {"001", "2007-11-14", "10030", 600.00, 5.00}});
    QCOMPARE(ReportData::daily(t.db, range(d14, d14)).grandTotal, Paise(70 + 1500 + 500 + 2020));
    // The other days are untouched.
    QCOMPARE(ReportData::daily(t.db, range(d15, d17)).grandTotal, Paise(15000 + 2550 + 30000));
}

void tst_ReportData::agentSummaryOneRowPerAgentAndDay()
{
    TestContext t;
    addHistory(t.db, threeDays());
    const AgentSummary a = ReportData::agent(t.db, range(d14, d16));
    QCOMPARE(a.rows.size(), 5);
    QStringList got;
    for (const AgentRow& r : a.rows)
        got << r.date + "/" + r.agentId + "/" + QString::number(r.collectedAmt);
    QCOMPARE(got, QStringList({"2007-11-14/001/1080", "2007-11-14/002/2020", "2007-11-15/001/5000",
                               "2007-11-15/002/10000", "2007-11-16/002/2550"}));
}

void tst_ReportData::agentSummaryIgnoresAgentAndAccount()
{
    TestContext t;
    addHistory(t.db, threeDays());
    // The agent summary is limited by dates only.
    QCOMPARE(ReportData::agent(t.db, range(d14, d17, "001", "10010")).rows.size(),
             ReportData::agent(t.db, range(d14, d17)).rows.size());
    QCOMPARE(ReportData::agent(t.db, range(d14, d17)).rows.size(), 6);
}

void tst_ReportData::eachCallReadsAfresh()
{
    TestContext t;
    addHistory(t.db, {{"001", "2007-11-16", "10010", 100.0, 10.0}});
    QCOMPARE(ReportData::daily(t.db, range(d16, d16)).grandTotal, Paise(1000));
    QCOMPARE(ReportData::agent(t.db, range(d16, d16)).rows.at(0).collectedAmt, Paise(1000));
    addHistory(t.db, {{"002", "2007-11-16", "20010", 100.0, 5.0}});
    QCOMPARE(ReportData::daily(t.db, range(d16, d16)).grandTotal, Paise(1500));
    QCOMPARE(ReportData::agent(t.db, range(d16, d16)).rows.size(), 2);
}

void tst_ReportData::sharedRecordsetIsLeftAlone()
{
    TestContext t;
    addHistory(t.db, threeDays());
    t.db.execute("INSERT INTO Path (SNo, BankName) VALUES ('1', 'Bank')");
    SharedRecordset& rs = t.db.openSharedRecordset("select * from path where SNo='1'");
    ReportData::daily(t.db, range(d14, d17));
    ReportData::agent(t.db, range(d14, d17));
    QVERIFY(rs.isOpen());
    QCOMPARE(rs.table().toLower(), QString("path"));
    QCOMPARE(rs.text("BankName"), QString("Bank"));
}

void tst_ReportData::checkLimits_data()
{
    QTest::addColumn<QDate>("from");
    QTest::addColumn<QDate>("to");
    QTest::addColumn<QString>("agent");
    QTest::addColumn<QString>("account");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("errorPart");

    QTest::newRow("one day") << d16 << d16 << ""
                             << "" << true << "";
    QTest::newRow("range") << d14 << d17 << "001"
                           << "10010" << true << "";
    QTest::newRow("from after to") << d17 << d16 << ""
                                   << "" << false << "later than the To Date";
    QTest::newRow("apostrophe in agent") << d16 << d16 << "0'1"
                                         << "" << false << "apostrophe";
    QTest::newRow("apostrophe in account") << d16 << d16 << "001"
                                           << "10'10" << false << "apostrophe";
    QTest::newRow("no date") << QDate() << d16 << ""
                             << "" << false << "From Date";
}

void tst_ReportData::checkLimits()
{
    QFETCH(QDate, from);
    QFETCH(QDate, to);
    QFETCH(QString, agent);
    QFETCH(QString, account);
    QFETCH(bool, ok);
    QFETCH(QString, errorPart);

    QString error;
    QCOMPARE(ReportData::checkLimits(range(from, to, agent, account), &error), ok);
    if (ok)
        QVERIFY(error.isEmpty());
    else
        QVERIFY2(error.contains(errorPart), qPrintable(error));
}

void tst_ReportData::toPaise_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("present");
    QTest::addColumn<qint64>("paise");
    QTest::newRow("real") << QVariant(12.34) << true << qint64(1234);
    QTest::newRow("binary drift") << QVariant(0.1 + 0.2) << true << qint64(30);
    QTest::newRow("text") << QVariant("0000150.00") << true << qint64(15000);
    QTest::newRow("zero") << QVariant(0) << true << qint64(0);
    QTest::newRow("null") << QVariant() << false << qint64(0);
    QTest::newRow("empty text") << QVariant("") << false << qint64(0);
}

void tst_ReportData::toPaise()
{
    QFETCH(QVariant, value);
    QFETCH(bool, present);
    QFETCH(qint64, paise);
    const std::optional<Paise> got = ReportData::toPaise(value);
    QCOMPARE(got.has_value(), present);
    if (present)
        QCOMPARE(*got, Paise(paise));
}

void tst_ReportData::storedPaise()
{
    QCOMPARE(*ReportData::storedPaise(QVariant(qint64(1234))), Paise(1234));
    QCOMPARE(*ReportData::storedPaise(QVariant(qint64(-5))), Paise(-5));
    QVERIFY(!ReportData::storedPaise(QVariant()).has_value());
    QVERIFY(!ReportData::storedPaise(QVariant("abc")).has_value());
}

void tst_ReportData::sameAgentId_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("match");
    QTest::newRow("full id") << "AG0000000000001"
                             << "AG0000000000001" << true;
    QTest::newRow("full id, other case, blanks") << "AG0000000000001"
                                                 << " ag0000000000001 " << true;
    QTest::newRow("stored with padding") << "AG0005         "
                                         << "AG0005" << true;
    QTest::newRow("all digits") << "0417000005     "
                                << "0417000005" << true;
    QTest::newRow("the end of an id") << "0417000005"
                                      << "5" << false;
    QTest::newRow("the end, without leading zero") << "0417000005"
                                                   << "417000005" << false;
    QTest::newRow("the same ending, other agent") << "0517000005"
                                                  << "0417000005" << false;
    QTest::newRow("part of an id") << "AG0000000000001"
                                   << "AG00" << false;
    QTest::newRow("nothing typed") << "AG0000000000001"
                                   << "  " << false;
}

void tst_ReportData::sameAgentId()
{
    QFETCH(QString, stored);
    QFETCH(QString, typed);
    QFETCH(bool, match);
    QCOMPARE(ReportData::sameAgentId(stored, typed), match);
}

void tst_ReportData::sameAgentNumber_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("match");
    QTest::newRow("one digit") << "005"
                               << "5" << true;
    QTest::newRow("three digits") << "005"
                                  << "005" << true;
    QTest::newRow("more leading zeros") << "005"
                                        << "0005" << true;
    QTest::newRow("blanks") << "005"
                            << " 5 " << true;
    QTest::newRow("zero") << "000"
                          << "0" << true;
    QTest::newRow("ten") << "010"
                         << "10" << true;
    QTest::newRow("other number") << "015"
                                  << "5" << false;
    QTest::newRow("number is not a prefix") << "050"
                                            << "5" << false;
    QTest::newRow("a whole identifier") << "005"
                                        << "0417000005" << false;
    QTest::newRow("letters are not a number") << "005"
                                              << "A5" << false;
    QTest::newRow("number not known") << ""
                                      << "5" << false;
    QTest::newRow("nothing typed") << "005"
                                   << "" << false;
}

void tst_ReportData::sameAgentNumber()
{
    QFETCH(QString, stored);
    QFETCH(QString, typed);
    QFETCH(bool, match);
    QCOMPARE(ReportData::sameAgentNumber(stored, typed), match);
}

void tst_ReportData::agentAsTypedOnTheSendScreen_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QStringList>("accounts");
    QTest::newRow("1") << "1" << QStringList{"10010", "10020"};
    QTest::newRow("001") << "001" << QStringList{"10010", "10020"};
    QTest::newRow("full") << "AG0000000000001" << QStringList{"10010", "10020"};
    QTest::newRow("11") << "11" << QStringList{"11010"};
    QTest::newRow("padded id as typed") << "AG0005" << QStringList{"50010"};
    QTest::newRow("5") << "005" << QStringList{"50010"};
    QTest::newRow("nobody") << "7" << QStringList{};
}

void tst_ReportData::agentAsTypedOnTheSendScreen()
{
    QFETCH(QString, typed);
    QFETCH(QStringList, accounts);
    TestContext t;
    addHistory(t.db, {{"AG0000000000001", "2007-11-16", "10010", 1.0, 1.0, "001"},
                      {"AG0000000000001", "2007-11-17", "10020", 1.0, 2.0, "001"},
                      {"AG0000000000011", "2007-11-16", "11010", 1.0, 4.0, "011"},
                      {"AG0005         ", "2007-11-16", "50010", 1.0, 8.0, "005"}});
    const DailySummary s = ReportData::daily(t.db, range(d14, d17, typed));
    QStringList got;
    for (const DailyGroup& g : s.groups)
        for (const DailyRow& r : g.rows)
            got << r.accountNo;
    QCOMPARE(got, accounts);
    DailyQuery query(t.db, range(d14, d17, typed));
    int counted = 0;
    for (const DailyGroupInfo& g : query.groups())
        counted += g.rows;
    QCOMPARE(counted, accounts.size());
}

namespace {

// Agents as real banks number them: all digits, two pairs ending alike.
// Stored as the terminal's header gives them (15 characters, padded), with
// the terminal's agent number from the summary record.
QList<HistoryRow> digitAgents()
{
    return {
        {"0417000005     ", "2007-11-16", "101", 1000.0, 10.0, "005"},
        {"0417000005     ", "2007-11-16", "102", 1000.0, 20.0, "005"},
        {"0417000005     ", "2007-11-17", "101", 1010.0, 40.0, "005"},
        {"0417000015     ", "2007-11-16", "151", 2000.0, 100.0, "015"},
        {"0417000015     ", "2007-11-17", "152", 2000.0, 200.0, "015"},
        {"0517000005     ", "2007-11-16", "501", 3000.0, 1000.0, "050"},
        {"0517000005     ", "2007-11-17", "502", 3000.0, 2000.0, "050"},
        // A short identifier that is also another agent's number as text.
        {"005", "2007-11-16", "901", 9000.0, 5000.0, "009"},
    };
}

QStringList accountsOf(const DailySummary& s)
{
    QStringList got;
    for (const DailyGroup& g : s.groups)
        for (const DailyRow& r : g.rows)
            got << g.date + "/" + r.agentId.trimmed() + "/" + r.accountNo;
    return got;
}

} // namespace

void tst_ReportData::allDigitIdentifiers_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QStringList>("rows"); // date/agent/account
    QTest::addColumn<qint64>("total");
    QTest::addColumn<int>("result"); // AgentChoice::Result

    const QStringList a5 = {"2007-11-16/0417000005/101", "2007-11-16/0417000005/102", "2007-11-17/0417000005/101"};
    const QStringList a15 = {"2007-11-16/0417000015/151", "2007-11-17/0417000015/152"};
    const QStringList b5 = {"2007-11-16/0517000005/501", "2007-11-17/0517000005/502"};
    const int one = int(AgentChoice::Result::OneAgent);
    const int none = int(AgentChoice::Result::NoAgent);
    QTest::newRow("5") << "5" << a5 << qint64(7000) << one;
    QTest::newRow("005") << "005" << QStringList{"2007-11-16/005/901"} << qint64(500000) << one;
    QTest::newRow("0005") << "0005" << a5 << qint64(7000) << one;
    QTest::newRow("full id") << "0417000005" << a5 << qint64(7000) << one;
    QTest::newRow("full id with blanks") << " 0417000005 " << a5 << qint64(7000) << one;
    QTest::newRow("15") << "15" << a15 << qint64(30000) << one;
    QTest::newRow("015") << "015" << a15 << qint64(30000) << one;
    QTest::newRow("full id ending in 15") << "0417000015" << a15 << qint64(30000) << one;
    QTest::newRow("50") << "50" << b5 << qint64(300000) << one;
    QTest::newRow("other full id ending in 5") << "0517000005" << b5 << qint64(300000) << one;
    QTest::newRow("9") << "9" << QStringList{"2007-11-16/005/901"} << qint64(500000) << one;
    QTest::newRow("common ending") << "17000005" << QStringList{} << qint64(0) << none;
    QTest::newRow("id without its leading zero") << "417000005" << QStringList{} << qint64(0) << none;
    QTest::newRow("nobody's number") << "7" << QStringList{} << qint64(0) << none;
    QTest::newRow("nobody's id") << "0417000006" << QStringList{} << qint64(0) << none;
}

void tst_ReportData::allDigitIdentifiers()
{
    QFETCH(QString, typed);
    QFETCH(QStringList, rows);
    QFETCH(qint64, total);
    QFETCH(int, result);

    TestContext t;
    addHistory(t.db, digitAgents());
    const AgentChoice choice = ReportData::chooseAgent(t.db, typed);
    QCOMPARE(int(choice.result), result);

    const DailySummary s = ReportData::daily(t.db, range(d14, d17, typed));
    QCOMPARE(accountsOf(s), rows);
    QCOMPARE(s.grandTotal, Paise(total));
    // The pieces the printed report reads agree.
    const DailyQuery query(t.db, range(d14, d17, typed));
    Paise grouped = 0;
    int counted = 0;
    for (const DailyGroupInfo& g : query.groups()) {
        grouped += g.total;
        counted += g.rows;
    }
    QCOMPARE(grouped, Paise(total));
    QCOMPARE(counted, rows.size());

    // What the screen and the command line say.
    QString error;
    const bool oneAgent = result == int(AgentChoice::Result::OneAgent);
    QCOMPARE(ReportData::checkAgent(t.db, range(d14, d17, typed), &error), oneAgent);
    if (!oneAgent) {
        QVERIFY2(error.contains("Agent ID \"" + typed.trimmed() + "\" matches no agent"), qPrintable(error));
    }
}

void tst_ReportData::numberOfTwoAgentsIsRefused()
{
    TestContext t;
    // Agent number 005 went from one agent to another: "5" could be either.
    addHistory(t.db, {{"0417000005     ", "2007-11-16", "101", 1000.0, 10.0, "005"},
                      {"0417000099     ", "2007-11-17", "991", 1000.0, 20.0, "005"},
                      {"0417000099     ", "2007-11-18", "991", 1000.0, 40.0, "007"}});
    const AgentChoice choice = ReportData::chooseAgent(t.db, "5");
    QCOMPARE(choice.result, AgentChoice::Result::SeveralAgents);
    QCOMPARE(choice.agentIds, QStringList({"0417000005", "0417000099"}));
    QCOMPARE(ReportData::daily(t.db, range(d14, d17, "5")).rowCount(), 0);
    QString error;
    QVERIFY(!ReportData::checkAgent(t.db, range(d14, d17, "005"), &error));
    QCOMPARE(error, QString("Agent ID \"005\" is the number of more than one agent of the stored collections "
                            "(0417000005, 0417000099). Type the bank's full agent identifier instead."));

    // The full identifiers and the other number still name one agent each.
    QCOMPARE(accountsOf(ReportData::daily(t.db, range(d14, d18, "0417000005"))),
             QStringList({"2007-11-16/0417000005/101"}));
    QCOMPARE(accountsOf(ReportData::daily(t.db, range(d14, d18, "0417000099"))),
             QStringList({"2007-11-17/0417000099/991", "2007-11-18/0417000099/991"}));
    QCOMPARE(ReportData::daily(t.db, range(d14, d18, "7")).grandTotal, Paise(6000));
    QVERIFY(ReportData::checkAgent(t.db, range(d14, d18, "7"), &error));
}

void tst_ReportData::rowsWithoutANumberFollowTheirAgent()
{
    TestContext t;
    // Rows from before the number was kept, where it could not be told.
    addHistory(t.db, {{"0417000005     ", "2007-11-15", "101", 1000.0, 10.0, ""},
                      {"0417000015     ", "2007-11-15", "151", 1000.0, 20.0, ""}});
    QCOMPARE(ReportData::chooseAgent(t.db, "5").result, AgentChoice::Result::NoAgent);
    QCOMPARE(ReportData::daily(t.db, range(d14, d17, "0417000005")).grandTotal, Paise(1000));

    // Once a receive of the agent carries the number, the number finds the
    // agent's earlier rows too, and only that agent's.
    addHistory(t.db, {"0417000005     ", "2007-11-16", "101", 1000.0, 40.0, "005"});
    const DailySummary s = ReportData::daily(t.db, range(d14, d17, "5"));
    QCOMPARE(accountsOf(s), QStringList({"2007-11-15/0417000005/101", "2007-11-16/0417000005/101"}));
    QCOMPARE(s.grandTotal, Paise(5000));
}

void tst_ReportData::groupCountsAndRowsInPieces()
{
    TestContext t;
    addHistory(t.db, threeDays());
    DailyQuery query(t.db, range(d14, d17));
    const QList<DailyGroupInfo> groups = query.groups();
    QCOMPARE(groups.size(), 4);
    QCOMPARE(groups[0].date, QString("2007-11-14"));
    QCOMPARE(groups[0].rows, 3);
    QCOMPARE(groups[0].total, Paise(70 + 1010 + 2020));
    // Any piece of a date, in print order.
    const QList<DailyRow> middle = query.rows("2007-11-14", 1, 1);
    QCOMPARE(middle.size(), 1);
    QCOMPARE(middle[0].accountNo, QString("10020"));
    QCOMPARE(query.rows("2007-11-14", 1, 10).size(), 2);
    QCOMPARE(query.rows("2007-11-14", 3, 10).size(), 0);
    QStringList order;
    query.forEach([&order](const QString& date, const DailyRow& row) {
        order << date + "/" + row.accountNo;
        return order.size() < 3; // stops when asked
    });
    QCOMPARE(order, QStringList({"2007-11-14/10010", "2007-11-14/10020", "2007-11-14/20010"}));
}

void tst_ReportData::queriesUseTheDayIndex_data()
{
    QTest::addColumn<QString>("agent");
    QTest::addColumn<QString>("account");
    QTest::newRow("range only") << ""
                                << "";
    QTest::newRow("agent") << "1"
                           << "";
    QTest::newRow("agent and account") << "001"
                                       << "10010";
    QTest::newRow("account") << ""
                             << "10010";
}

void tst_ReportData::queriesUseTheDayIndex()
{
    QFETCH(QString, agent);
    QFETCH(QString, account);
    TestContext t;
    QList<HistoryRow> rows;
    for (int day = 1; day <= 28; ++day)
        for (int a = 1; a <= 3; ++a)
            rows.append({QString("AG000000000000%1").arg(a), QDate(2007, 2, day).toString(Qt::ISODate),
                         QString::number(10000 + a), 1.0, 1.0, QString("00%1").arg(a)});
    addHistory(t.db, rows);
    const DailyQuery query(t.db, range(QDate(2007, 2, 3), QDate(2007, 2, 9), agent, account));
    QVariantList rowValues = query.rangeValues();
    rowValues << "2007-02-04" << 10 << 0;
    const QList<QPair<QString, QVariantList>> statements = {
        {query.groupsSql(), query.rangeValues()},
        {query.rowsSql(), rowValues},
        {query.allRowsSql(), query.rangeValues()},
        {R"(SELECT AgentID, CollectedAmt, "Date" FROM Report2 WHERE "Date" >= ? AND "Date" <= ? ORDER BY "Date", AgentID)",
         {"2007-02-03", "2007-02-09"}},
    };
    for (const auto& [sql, values] : statements) {
        QSqlQuery q(t.db.connection());
        QVERIFY(q.prepare("EXPLAIN QUERY PLAN " + sql));
        for (const QVariant& v : values)
            q.addBindValue(v);
        QVERIFY2(q.exec(), qPrintable(q.lastError().text()));
        QStringList plan;
        while (q.next())
            plan << q.value(3).toString();
        const QString text = plan.join(" | ");
        // The history is searched through an index, never read whole.
        QVERIFY2(text.contains("SEARCH CollectionHistory USING"), qPrintable(sql + "\n" + text));
        QVERIFY2(!text.contains("SCAN CollectionHistory"), qPrintable(sql + "\n" + text));
    }
}

void tst_ReportData::totalsAreExactOverManyRows()
{
    TestContext t;
    QList<HistoryRow> rows;
    // 0.10 a thousand times: a sum of doubles would not come to 100.00 exactly.
    for (int i = 0; i < 1000; ++i)
        rows.append({"001", "2007-11-16", QString::number(i), 0.0, 0.10});
    {
        SharedDatabase::Transaction transaction(t.db);
        addHistory(t.db, rows);
        transaction.commit();
    }
    QCOMPARE(ReportData::daily(t.db, range(d16, d16)).grandTotal, Paise(10000));
    QCOMPARE(DailyQuery(t.db, range(d16, d16)).groups().at(0).total, Paise(10000));
    QCOMPARE(ReportData::agent(t.db, range(d16, d16)).rows.at(0).collectedAmt, Paise(10000));
    QSqlQuery q(t.db.connection());
    QVERIFY(q.exec("SELECT typeof(CollectedAmt) FROM Report2"));
    QVERIFY(q.next());
    QCOMPARE(q.value(0).toString(), QString("integer"));
}

QTEST_GUILESS_MAIN(tst_ReportData)
#include "tst_reportdata.moc"
