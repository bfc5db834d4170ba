// Matching replies to requests on its own: a records array, replies in, a
// verdict out. No port, no timers.
#include "link/ReplyMatcher.h"
#include "link/UploadFrames.h"

#include <QtTest>

namespace {

QByteArray reply(const QByteArray& record, char head = 0)
{
    QByteArray out(9, head);
    out.append(record.left(127).leftJustified(127, ' ', true));
    int sum = 0;
    for (qsizetype i = 9; i < out.size(); ++i)
        sum += static_cast<unsigned char>(out.at(i));
    out.append(static_cast<char>((256 - (sum & 0xFF)) & 0xFF));
    return out;
}

QByteArray transaction(int n)
{
    QByteArray r(127, ' ');
    r[0] = '1';
    r.replace(1, 5, "DD001");
    r.replace(6, 15, QByteArray::number(n).rightJustified(15, '0'));
    return reply(r);
}

QByteArray noAccount()
{
    QByteArray r(127, ' ');
    r[0] = '1';
    return reply(r);
}

QByteArray summary(const QByteArray& agentDdmm)
{
    QByteArray r(127, ' ');
    r.replace(0, 7, agentDdmm);
    return reply(r);
}

using Verdict = ReplyMatcher::Verdict;

} // namespace

class tst_ReplyMatcher : public QObject
{
    Q_OBJECT

    QList<QByteArray> records;

private slots:
    void init() { records = QList<QByteArray>(2501); }

    void aNewRecordIsTakenAndKept()
    {
        ReplyMatcher m(records);
        QCOMPARE(m.match(2, transaction(2)).verdict, Verdict::Take);
        QVERIFY(!m.holds(2));
        m.keep(2, transaction(2));
        QVERIFY(m.holds(2));
        QCOMPARE(records.at(2), transaction(2));
        QCOMPARE(m.keptElsewhere(3, UploadFrames::content(transaction(2))), 2);
        QCOMPARE(m.keptElsewhere(2, UploadFrames::content(transaction(2))), -1);
    }

    void theHeadDoesNotMatter()
    {
        ReplyMatcher m(records);
        m.keep(2, transaction(2));
        QByteArray other = transaction(2);
        other[7] = 'x';
        QCOMPARE(m.match(2, other).verdict, Verdict::Take);
    }

    void aLateReplyForAnotherRecordWaitsTwiceThenAsksForTheOther()
    {
        ReplyMatcher m(records);
        m.keep(2, transaction(2));
        QCOMPARE(m.match(3, transaction(2)).verdict, Verdict::Wait);
        const ReplyMatcher::Decision again = m.match(3, transaction(2));
        QCOMPARE(again.verdict, Verdict::AskForOther);
        QCOMPARE(again.other, 2);
        // Asked at both places and the same each time: two alike records.
        QCOMPARE(m.match(3, transaction(2)).verdict, Verdict::Take);
    }

    void aDifferentAnswerForAKeptRecordIsTakenWhenItComesTwice()
    {
        ReplyMatcher m(records);
        m.keep(2, transaction(2));
        QCOMPARE(m.match(2, transaction(9)).verdict, Verdict::AskAgain);
        QCOMPARE(m.match(2, transaction(9)).verdict, Verdict::Take);
        // The old answer is forgotten, index and all.
        QVERIFY(!m.holds(2));
        QCOMPARE(m.keptElsewhere(5, UploadFrames::content(transaction(2))), -1);
    }

    void aKeptRecordAnsweredByAnotherKeptOneWaits()
    {
        ReplyMatcher m(records);
        m.keep(2, transaction(2));
        m.keep(3, transaction(3));
        QCOMPARE(m.match(2, transaction(3)).verdict, Verdict::Wait);
        QVERIFY(m.holds(2));
    }

    void aRecordNamingNoAccountIsConfirmedFirst()
    {
        ReplyMatcher m(records);
        QCOMPARE(m.match(4, noAccount()).verdict, Verdict::AskAgain);
        QCOMPARE(m.match(4, noAccount()).verdict, Verdict::Take);
    }

    void anUnreadableSummaryWaitsThenGivesUp()
    {
        ReplyMatcher m(records);
        QCOMPARE(m.match(1, summary("0053213")).verdict, Verdict::Wait);
        QCOMPARE(m.match(1, summary("ABC1611")).verdict, Verdict::Wait);
        QCOMPARE(m.match(1, transaction(7)).verdict, Verdict::SummaryUnreadable);
        m.summaryTaken();
        QCOMPARE(m.match(1, summary("0053213")).verdict, Verdict::Wait);
        QCOMPARE(m.match(1, summary("0051611")).verdict, Verdict::Take);
    }

    void twoPlacesWithTheSameContentAreBothIndexed()
    {
        ReplyMatcher m(records);
        m.keep(5, transaction(2));
        m.keep(2, transaction(2));
        const QByteArray content = UploadFrames::content(transaction(2));
        QCOMPARE(m.keptElsewhere(9, content), 2); // the lowest first
        QCOMPARE(m.keptElsewhere(2, content), 5);
        m.forget(2);
        QCOMPARE(m.keptElsewhere(9, content), 5);
    }

    void placesAlikeAreFoundWhateverIsForgottenFirst_data()
    {
        QTest::addColumn<QList<int>>("forgetting");
        QTest::newRow("the first kept first") << QList<int>{5, 2, 9};
        QTest::newRow("the lowest first") << QList<int>{2, 5, 9};
        QTest::newRow("the last kept first") << QList<int>{9, 5, 2};
    }

    void placesAlikeAreFoundWhateverIsForgottenFirst()
    {
        QFETCH(QList<int>, forgetting);
        ReplyMatcher m(records);
        // Kept in this order; one unlike record among them.
        QList<int> alike{5, 2, 9};
        for (int n : alike)
            m.keep(n, transaction(2));
        m.keep(3, transaction(3));
        const QByteArray content = UploadFrames::content(transaction(2));
        for (int gone : forgetting) {
            for (int asker : {0, 2, 5, 9}) {
                int lowest = -1;
                for (int n : std::as_const(alike))
                    if (n != asker && (lowest < 0 || n < lowest))
                        lowest = n;
                QCOMPARE(m.keptElsewhere(asker, content), lowest);
            }
            m.forget(gone);
            alike.removeOne(gone);
            QVERIFY(records.at(gone).isEmpty());
        }
        QCOMPARE(m.keptElsewhere(0, content), -1);
        QCOMPARE(m.keptElsewhere(0, UploadFrames::content(transaction(3))), 3);
        // Kept again after all were forgotten: found again.
        m.keep(7, transaction(2));
        QCOMPARE(m.keptElsewhere(0, content), 7);
    }

    void clearAllForgetsEverything()
    {
        ReplyMatcher m(records);
        for (int n = 2; n < 50; ++n)
            m.keep(n, transaction(n));
        m.clearAll();
        for (const QByteArray& r : std::as_const(records))
            QVERIFY(r.isEmpty());
        QCOMPARE(m.keptElsewhere(0, UploadFrames::content(transaction(10))), -1);
        QCOMPARE(m.match(10, transaction(10)).verdict, Verdict::Take);
    }
};

QTEST_GUILESS_MAIN(tst_ReplyMatcher)
#include "tst_replymatcher.moc"
