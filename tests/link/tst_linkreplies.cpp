// Reading the terminal's replies on their own: bytes in, values out, no
// port and no session.
#include "link/DownloadAnswers.h"
#include "link/LinkCodec.h"
#include "link/UploadReplies.h"

#include <QtTest>

namespace {

// A 137-byte reply: nine head bytes, the 127 record bytes, the check byte.
QByteArray reply(const QByteArray& record)
{
    QByteArray out(9, '\0');
    out.append(record.left(127).leftJustified(127, ' ', true));
    int sum = 0;
    for (qsizetype i = 9; i < out.size(); ++i)
        sum += static_cast<unsigned char>(out.at(i));
    out.append(static_cast<char>((256 - (sum & 0xFF)) & 0xFF));
    return out;
}

QByteArray header(int count, const QByteArray& agentId)
{
    QByteArray r(127, ' ');
    r[0] = static_cast<char>(count >> 8);
    r[1] = static_cast<char>(count & 0xFF);
    r.replace(17, 15, agentId);
    return reply(r);
}

QByteArray summary(const QByteArray& agentDdmm, int hi, int lo, const QByteArray& amount)
{
    QByteArray r(127, ' ');
    r.replace(0, 7, agentDdmm);
    r[7] = static_cast<char>(hi);
    r[8] = static_cast<char>(lo);
    r.replace(9, 4, amount);
    return reply(r);
}

QByteArray answer(int number, const QByteArray& word)
{
    QByteArray a("\x01\xFF\x10\xF0"
                 "D\x00\x07",
                 7);
    a += static_cast<char>(number >> 8);
    a += static_cast<char>(number & 0xFF);
    a += word;
    a += '\0';
    return a;
}

} // namespace

class tst_LinkReplies : public QObject
{
    Q_OBJECT
private slots:
    void headerGivesCountAndAgent()
    {
        UploadSummary s;
        UploadReplies::decodeHeader(header(0x0123, "AG005          "), s);
        QCOMPARE(s.TotalRecords, 0x0123);
        QCOMPARE(s.BankAgentId, QStringLiteral("AG005          "));
    }

    void headerCountAbove32767IsAnOverflow()
    {
        UploadSummary s;
        try {
            UploadReplies::decodeHeader(header(0x8000, "AG005          "), s);
            QFAIL("no overflow");
        } catch (const LinkError& e) {
            QCOMPARE(e.kind(), LinkError::Kind::Overflow);
        }
        QCOMPARE(s.TotalRecords, 5000); // left as it was
    }

    void shortHeaderIsOutOfRange()
    {
        UploadSummary s;
        try {
            UploadReplies::decodeHeader(QByteArray(10, '\0'), s);
            QFAIL("no error");
        } catch (const LinkError& e) {
            QCOMPARE(e.kind(), LinkError::Kind::SubscriptOutOfRange);
            QVERIFY(e.message().contains(QStringLiteral("byte 11 of a 10-byte reply")));
        }
    }

    void summaryGivesItsFields()
    {
        UploadSummary s;
        UploadReplies::decodeSummary(summary("0051611", 0x01, 0x2C, QByteArray("\x00\x01\x23\x45", 4)), s);
        QCOMPARE(s.AgentId, QStringLiteral("005"));
        QCOMPARE(s.CollectionDate, QStringLiteral("1611"));
        QCOMPARE(s.UploadBaseName, QStringLiteral("0051611"));
        QCOMPARE(s.TotalTransactions, 300);
        QCOMPARE(s.TotalAmountDigits, QStringLiteral("00012345"));
        QCOMPARE(s.totalAmountText(), QStringLiteral("12345.00"));
    }

    void summaryCountOverflowLeavesTheFieldsBefore()
    {
        UploadSummary s;
        try {
            UploadReplies::decodeSummary(summary("0051611", 0x80, 0x00, QByteArray(4, '\0')), s);
            QFAIL("no overflow");
        } catch (const LinkError& e) {
            QCOMPARE(e.kind(), LinkError::Kind::Overflow);
        }
        QCOMPARE(s.AgentId, QStringLiteral("005"));
        QCOMPARE(s.TotalTransactions, 0);
        QVERIFY(s.TotalAmountDigits.isEmpty());
    }

    void fieldIsLatin1AtOneBasedPositions()
    {
        const QByteArray r("abc\xE9xyz");
        QCOMPARE(UploadReplies::field(r, 3, 3), QStringLiteral("c\u00E9x"));
        QCOMPARE(UploadReplies::byteAt(r, 4), 0xE9);
    }

    void ackCarriesTheNumberBeforeIt()
    {
        const DownloadAnswers::Answer a = DownloadAnswers::read(answer(0x0102, "AACK"));
        QVERIFY(a.acknowledged);
        QCOMPARE(a.recordNumber, 0x0102);
        QVERIFY(!a.negative);
        QVERIFY(!a.notInDownloadMode);
    }

    void ackAtPositionOneOrTwoCarriesNoNumber()
    {
        QByteArray b("xAACK");
        b = b.leftJustified(14, ' ');
        const DownloadAnswers::Answer a = DownloadAnswers::read(b);
        QVERIFY(a.acknowledged);
        QCOMPARE(a.recordNumber, -1);
    }

    void nackAndOtherModes()
    {
        const DownloadAnswers::Answer nack = DownloadAnswers::read(answer(3, "NACK"));
        QVERIFY(nack.negative);
        QVERIFY(!nack.acknowledged);
        QCOMPARE(nack.recordNumber, -1);
        QVERIFY(DownloadAnswers::read(answer(3, "CLOS")).notInDownloadMode);
        QVERIFY(DownloadAnswers::read(answer(3, "BACK")).notInDownloadMode);
    }

    void otherModeIsReadBeforeANumberThatOverflows()
    {
        QByteArray b = answer(0x8001, "AACK") + "CLOS";
        QVERIFY(DownloadAnswers::read(b).notInDownloadMode);
        try {
            DownloadAnswers::read(answer(0x8001, "AACK"));
            QFAIL("no overflow");
        } catch (const LinkError& e) {
            QCOMPARE(e.kind(), LinkError::Kind::Overflow);
        }
    }
};

QTEST_GUILESS_MAIN(tst_LinkReplies)
#include "tst_linkreplies.moc"
