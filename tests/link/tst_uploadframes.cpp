#include "link/UploadFrames.h"

#include <QtTest>

namespace {

QByteArray replyWith(int position, const QByteArray& bytes)
{
    QByteArray r(UploadFrames::ReplySize, ' ');
    r.replace(position - 1, bytes.size(), bytes);
    return r;
}

} // namespace

class tst_UploadFrames : public QObject
{
    Q_OBJECT

private slots:
    void request_data()
    {
        QTest::addColumn<int>("record");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("header") << 0 << QByteArray::fromHex("01FF10F055000300 0000");
        QTest::newRow("summary") << 1 << QByteArray::fromHex("01FF10F055000300 0100");
        QTest::newRow("255") << 255 << QByteArray::fromHex("01FF10F055000300 FF00");
        QTest::newRow("256") << 256 << QByteArray::fromHex("01FF10F055000301 0000");
        QTest::newRow("2001") << 2001 << QByteArray::fromHex("01FF10F0550003 07D1 00");
    }
    void request()
    {
        QFETCH(int, record);
        QFETCH(QByteArray, bytes);
        QCOMPARE(UploadFrames::request(record), bytes);
        QCOMPARE(UploadFrames::request(record / 256, record % 256), bytes);
        QCOMPARE(UploadFrames::requestedRecord(bytes), record);
        // Another request renumbered in place comes out the same.
        QByteArray renumbered = UploadFrames::request(7);
        QVERIFY(UploadFrames::renumberRequest(renumbered, record / 256, record % 256));
        QCOMPARE(renumbered, bytes);
    }

    void onlyARequestIsRenumbered()
    {
        QByteArray frame = UploadFrames::end();
        QVERIFY(!UploadFrames::renumberRequest(frame, 0, 5));
        QCOMPARE(frame, UploadFrames::end());
        QByteArray empty;
        QVERIFY(!UploadFrames::renumberRequest(empty, 0, 5));
        QVERIFY(empty.isEmpty());
    }

    void endFrame()
    {
        const QByteArray expected = QByteArray::fromHex("01FF10F0550007 0000 4F564552 C4");
        QCOMPARE(UploadFrames::end(), expected);
        int sum = 0;
        for (int i = 7; i < 14; ++i)
            sum += static_cast<unsigned char>(expected.at(i));
        QCOMPARE(sum & 0xFF, 0);
        QCOMPARE(UploadFrames::requestedRecord(expected), -1);
    }

    void contentLeavesTheHeadOut()
    {
        QByteArray a = replyWith(10, "ABC");
        QByteArray b = a;
        b[3] = 'x'; // the head differs
        QCOMPARE(UploadFrames::content(a), UploadFrames::content(b));
        QCOMPARE(UploadFrames::content(a).size(), 128);
        QVERIFY(UploadFrames::content(a.left(136)).isEmpty());
        QCOMPARE(UploadFrames::content(a + "tail"), UploadFrames::content(a));
    }

    void plausibleSummary_data()
    {
        QTest::addColumn<QByteArray>("agentDdmm");
        QTest::addColumn<bool>("plausible");
        QTest::newRow("agent 005, 16 Nov") << QByteArray("0051611") << true;
        QTest::newRow("29 February") << QByteArray("0012902") << true;
        QTest::newRow("31 April") << QByteArray("0013104") << false;
        QTest::newRow("month 13") << QByteArray("0010113") << false;
        QTest::newRow("day 0") << QByteArray("0010011") << false;
        QTest::newRow("transaction record") << QByteArray("1DD0010") << false;
        QTest::newRow("path in the agent") << QByteArray("../1611") << false;
    }
    void plausibleSummary()
    {
        QFETCH(QByteArray, agentDdmm);
        QFETCH(bool, plausible);
        QCOMPARE(UploadFrames::plausibleSummary(replyWith(10, agentDdmm)), plausible);
        QVERIFY(!UploadFrames::plausibleSummary(replyWith(10, agentDdmm).left(100)));
    }

    void namesNoAccount_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<bool>("none");
        QTest::newRow("account 000000000012345") << replyWith(16, "000000000012345") << false;
        QTest::newRow("one character at byte 30") << replyWith(30, "7") << false;
        QTest::newRow("blanks") << replyWith(10, "1DD001") << true;
        QTest::newRow("zero bytes") << replyWith(16, QByteArray(15, '\0')) << true;
        QTest::newRow("short reply") << replyWith(16, "000000000012345").left(100) << true;
    }
    void namesNoAccount()
    {
        QFETCH(QByteArray, reply);
        QFETCH(bool, none);
        QCOMPARE(UploadFrames::namesNoAccount(reply), none);
    }
};

QTEST_GUILESS_MAIN(tst_UploadFrames)
#include "tst_uploadframes.moc"
