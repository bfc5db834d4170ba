// Whether a receive may be stored, decided on the summary and the decoded
// entries alone: no database, no files.

#include "link/UploadSession.h"
#include "upload/CollectionCheck.h"
#include "upload/ReceiveValidator.h"

#include <QTest>

using RestoreStore::Entry;
using Verdict = ReceiveValidator::Verdict;

namespace {

UploadSummary summary(const QString& base, int transactions, const QString& totalDigits)
{
    UploadSummary s;
    s.UploadBaseName = base;
    s.BankAgentId = QStringLiteral("AG001          ");
    s.TotalTransactions = transactions;
    s.TotalAmountDigits = totalDigits;
    return s;
}

Entry collection(const QString& account, const QString& amount, const QString& number, bool known = true)
{
    Entry e;
    e.accountNo = account;
    e.amount = amount;
    e.transactionNumber = number;
    e.inBankData = known;
    e.agentId = known ? QStringLiteral("AG001          ") : QString();
    return e;
}

} // namespace

class TestReceiveValidator : public QObject
{
    Q_OBJECT
private slots:
    void soundSummaryProceeds()
    {
        QVERIFY(ReceiveValidator::checkSummary(summary(QStringLiteral("0011611"), 0, QStringLiteral("0"))).proceeds());
    }

    void summaryWithoutAFileNameRefusedForGood()
    {
        const Verdict v = ReceiveValidator::checkSummary(summary(QStringLiteral("0A13213"), 0, QStringLiteral("0")));
        QCOMPARE(v.kind, Verdict::Kind::Refuse);
        QVERIFY(!v.mayAccept);
        QCOMPARE(v.problems.size(), 2); // the agent and the date
    }

    void agentIdWithApostropheFails()
    {
        UploadSummary s = summary(QStringLiteral("0011611"), 0, QStringLiteral("0"));
        s.BankAgentId = QStringLiteral("AG'01");
        const Verdict v = ReceiveValidator::checkSummary(s);
        QCOMPARE(v.kind, Verdict::Kind::Fail);
        QCOMPARE(v.problems.size(), 1);
    }

    void agreeingCollectionsProceed()
    {
        const UploadSummary s = summary(QStringLiteral("0011611"), 2, QStringLiteral("00000300"));
        const QList<Entry> entries = {collection(QStringLiteral("1"), QStringLiteral("0000100.00"), "0001"),
                                      collection(QStringLiteral("2"), QStringLiteral("0000200.00"), "0002")};
        const CollectionCheck::Result check = CollectionCheck::check(s, entries);
        QVERIFY(check.agrees());
        QVERIFY(ReceiveValidator::checkCollections(check, false).proceeds());
    }

    void disagreementRefusedButMayBeAccepted()
    {
        const UploadSummary s = summary(QStringLiteral("0011611"), 2, QStringLiteral("00000300"));
        const QList<Entry> entries = {collection(QStringLiteral("1"), QStringLiteral("0000100.00"), "0001"),
                                      collection(QStringLiteral("9"), QStringLiteral("0000200.00"), "0002", false)};
        const CollectionCheck::Result check = CollectionCheck::check(s, entries);
        const Verdict refused = ReceiveValidator::checkCollections(check, false);
        QCOMPARE(refused.kind, Verdict::Kind::Refuse);
        QVERIFY(refused.mayAccept);
        QCOMPARE(refused.problems, check.problems);
        QVERIFY(ReceiveValidator::checkCollections(check, true).proceeds());
    }

    void transactionNumberTwiceRefused()
    {
        const UploadSummary s = summary(QStringLiteral("0011611"), 2, QStringLiteral("00000300"));
        const QList<Entry> entries = {collection(QStringLiteral("1"), QStringLiteral("0000100.00"), "0001"),
                                      collection(QStringLiteral("2"), QStringLiteral("0000200.00"), "0001")};
        const Verdict v = ReceiveValidator::checkCollections(CollectionCheck::check(s, entries), false);
        QCOMPARE(v.kind, Verdict::Kind::Refuse);
        QVERIFY(v.problems.join(' ').contains(QStringLiteral("transaction number 0001 appears twice")));
    }
};

QTEST_GUILESS_MAIN(TestReceiveValidator)
#include "tst_receivevalidator.moc"
