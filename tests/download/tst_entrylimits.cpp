#include "download/EntryLimits.h"

#include <QtTest>

// The widths of the download header's fields, as every entry checks them.
class tst_EntryLimits : public QObject
{
    Q_OBJECT

private slots:
    void widthsKeepTheHeaderAt137Bytes();
    void names_data();
    void names();
    void fontSize_data();
    void fontSize();
    void transactions_data();
    void transactions();
    void headerProblemNamesTheFirst();
};

void tst_EntryLimits::widthsKeepTheHeaderAt137Bytes()
{
    // Prefix and count (11), branch and agent identifiers (30), then the
    // four limited fields, the passwords and flag (9), agent-date key (7),
    // clock (6), a space and the check byte.
    const int header = 11 + 30 + EntryLimits::FontSizeWidth + EntryLimits::BankNameWidth +
                       EntryLimits::BranchNameWidth + EntryLimits::TransactionsWidth + 9 + 7 + 6 + 1 + 1;
    QCOMPARE(header, 137);
}

void tst_EntryLimits::names_data()
{
    QTest::addColumn<bool>("bank"); // bank name, else branch name
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("fits");
    QTest::newRow("empty bank") << true << QString() << true;
    QTest::newRow("bank 48") << true << QString(48, 'B') << true;
    QTest::newRow("bank 48, blanks around") << true << "   " + QString(48, 'B') + " " << true;
    QTest::newRow("bank 49") << true << QString(49, 'B') << false;
    QTest::newRow("bank 100000") << true << QString(100000, 'B') << false;
    QTest::newRow("branch 22") << false << QString(22, 'R') << true;
    QTest::newRow("branch 23") << false << QString(23, 'R') << false;
    QTest::newRow("branch 22 inner blanks count") << false << "A" + QString(20, ' ') + "Z" << true;
}

void tst_EntryLimits::names()
{
    QFETCH(bool, bank);
    QFETCH(QString, name);
    QFETCH(bool, fits);
    const QString problem = bank ? EntryLimits::bankNameProblem(name) : EntryLimits::branchNameProblem(name);
    QCOMPARE(problem.isEmpty(), fits);
    if (!fits) {
        QVERIFY2(problem.contains(bank ? "bank name has" : "branch name has"), qPrintable(problem));
        QVERIFY2(problem.contains(QString::number(name.trimmed().size()) + " characters"), qPrintable(problem));
        QVERIFY2(problem.contains(bank ? "at most 48" : "at most 22"), qPrintable(problem));
    }
}

void tst_EntryLimits::fontSize_data()
{
    QTest::addColumn<QString>("fontSize");
    QTest::addColumn<bool>("fits");
    QTest::newRow("Small") << "0" << true;
    QTest::newRow("Big") << "1" << true;
    QTest::newRow("negative goes out as 0") << "-1" << true;
    QTest::newRow("two digits") << "10" << false;
    QTest::newRow("word") << "Big" << false;
}

void tst_EntryLimits::fontSize()
{
    QFETCH(QString, fontSize);
    QFETCH(bool, fits);
    const QString problem = EntryLimits::fontSizeProblem(fontSize);
    QCOMPARE(problem.isEmpty(), fits);
    if (!fits)
        QVERIFY2(problem.contains("CONFIGURE"), qPrintable(problem));
}

void tst_EntryLimits::transactions_data()
{
    QTest::addColumn<QString>("transactions");
    QTest::addColumn<bool>("fits");
    QTest::newRow("empty (sent as 1)") << "" << true;
    QTest::newRow("one digit") << "7" << true;
    QTest::newRow("one digit, blanks around") << " 3 " << true;
    QTest::newRow("two digits") << "12" << false;
    QTest::newRow("leading zero") << "07" << false;
    QTest::newRow("a hundred thousand digits") << QString(100000, '1') << false;
}

void tst_EntryLimits::transactions()
{
    QFETCH(QString, transactions);
    QFETCH(bool, fits);
    const QString problem = EntryLimits::transactionsProblem(transactions);
    QCOMPARE(problem.isEmpty(), fits);
    if (!fits)
        QVERIFY2(problem.contains("one digit (0 to 7)"), qPrintable(problem));
}

void tst_EntryLimits::headerProblemNamesTheFirst()
{
    QCOMPARE(EntryLimits::headerProblem("Bank", "Branch", "0", "1"), QString());
    QCOMPARE(EntryLimits::headerProblem(QString(49, 'B'), QString(23, 'R'), "0", "1"),
             EntryLimits::bankNameProblem(QString(49, 'B')));
    QCOMPARE(EntryLimits::headerProblem("Bank", QString(23, 'R'), "10", "1"),
             EntryLimits::branchNameProblem(QString(23, 'R')));
    QCOMPARE(EntryLimits::headerProblem("Bank", "Branch", "10", "12"), EntryLimits::fontSizeProblem("10"));
    QCOMPARE(EntryLimits::headerProblem("Bank", "Branch", "1", "12"), EntryLimits::transactionsProblem("12"));
}

QTEST_GUILESS_MAIN(tst_EntryLimits)
#include "tst_entrylimits.moc"
