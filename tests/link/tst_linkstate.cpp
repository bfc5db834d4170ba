#include "link/LinkState.h"

#include <QtTest>

// The shared link state's record number, kept as decimal text.
class tst_LinkState : public QObject
{
    Q_OBJECT

private slots:
    void recordNoIsTheNumberInDecimal_data();
    void recordNoIsTheNumberInDecimal();
    void recordNoKeepsItsBufferFromNumberToNumber();
    void aCopyOfRecordNoKeepsItsText();
};

void tst_LinkState::recordNoIsTheNumberInDecimal_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<qint64>("number");
    QTest::addColumn<QString>("text");
    QTest::newRow("first request") << QString() << qint64(0) << QStringLiteral("0");
    QTest::newRow("longer than before") << QStringLiteral("7") << qint64(2500) << QStringLiteral("2500");
    QTest::newRow("shorter than before") << QStringLiteral("2500") << qint64(17) << QStringLiteral("17");
    QTest::newRow("before the first request") << QStringLiteral("3") << qint64(-1) << QStringLiteral("-1");
    QTest::newRow("the widest number") << QStringLiteral("1") << std::numeric_limits<qint64>::min()
                                       << QStringLiteral("-9223372036854775808");
}

void tst_LinkState::recordNoIsTheNumberInDecimal()
{
    QFETCH(QString, before);
    QFETCH(qint64, number);
    QFETCH(QString, text);
    LinkState link;
    link.RecordNo = before;
    link.setRecordNo(number);
    QCOMPARE(link.RecordNo, text);
    QCOMPARE(link.RecordNo, QString::number(number));
}

void tst_LinkState::recordNoKeepsItsBufferFromNumberToNumber()
{
    LinkState link;
    link.setRecordNo(2500);
    const QChar* buffer = link.RecordNo.constData();
    for (qint64 n : {2, 3, 99, 100, 2499}) {
        link.setRecordNo(n);
        QCOMPARE(link.RecordNo, QString::number(n));
        QCOMPARE(link.RecordNo.constData(), buffer);
    }
}

void tst_LinkState::aCopyOfRecordNoKeepsItsText()
{
    LinkState link;
    link.setRecordNo(17);
    const QString held = link.RecordNo;
    link.setRecordNo(18);
    QCOMPARE(held, QStringLiteral("17"));
    QCOMPARE(link.RecordNo, QStringLiteral("18"));
}

QTEST_APPLESS_MAIN(tst_LinkState)
#include "tst_linkstate.moc"
