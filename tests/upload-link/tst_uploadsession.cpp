#include "FakeChannel.h"
#include "LinkCodec.h"
#include "StoreError.h"
#include "TestContext.h"
#include "UploadSession.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

// A reply as the terminal sends it: a nine-byte head, 127 record bytes and
// the check byte over them.
QByteArray reply(const QByteArray& record, int head = 0)
{
    QByteArray body = record.left(127).leftJustified(127, ' ', true);
    QByteArray out(9, static_cast<char>(head));
    out.append(body);
    int sum = 0;
    for (char c : body)
        sum += static_cast<unsigned char>(c);
    out.append(static_cast<char>((256 - (sum & 0xFF)) & 0xFF));
    return out;
}

QByteArray headerRecord(int count, const QByteArray& agentId = "AG005          ")
{
    QByteArray r(127, ' ');
    r[0] = static_cast<char>(count >> 8);
    r[1] = static_cast<char>(count & 0xFF);
    r.replace(17, 15, agentId);
    return r;
}

QByteArray summaryRecord(const QByteArray& agentDdmm, int hi, int lo, const QByteArray& amount)
{
    QByteArray r(127, ' ');
    r.replace(0, 7, agentDdmm);
    r[7] = static_cast<char>(hi);
    r[8] = static_cast<char>(lo);
    r.replace(9, 4, amount);
    return r;
}

QByteArray transactionRecord(int n)
{
    QByteArray r(127, ' ');
    r[0] = '1';
    r.replace(1, 5, "DD001");
    r.replace(6, 15, QByteArray::number(n).rightJustified(15, '0'));
    r[123] = 0x01;
    return r;
}

int requested(const QByteArray& frame)
{
    return static_cast<unsigned char>(frame.at(7)) * 256 + static_cast<unsigned char>(frame.at(8));
}

} // namespace

class tst_UploadSession : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestContext> t;
    std::unique_ptr<UploadSession> session;
    FakeChannel* channel = nullptr;
    int restoreCalls = 0;

    LinkState& link() { return t->ctx->link; }

    // Header with the given count and the summary: the session then asks
    // for record 2.
    void startUpload(int count)
    {
        session->cmdSend_Click();
        channel->feed(reply(headerRecord(count)));
        channel->feed(reply(summaryRecord("0051611", 0, 3, QByteArray("\x00\x00\x01\x50", 4))));
        QCOMPARE(requested(channel->lastWritten()), 2);
    }

private slots:
    void init()
    {
        t = std::make_unique<TestContext>();
        t->ctx->setChannelFactory([this] {
            auto c = std::make_unique<FakeChannel>();
            channel = c.get();
            return c;
        });
        session = std::make_unique<UploadSession>(*t->ctx);
        restoreCalls = 0;
        session->setRestoreHandler([this](UploadSession&) { ++restoreCalls; });
        QVERIFY(session->Form_Load());
    }

    void cleanup()
    {
        session.reset();
        t.reset();
    }

    void formLoadStartsTimer3AndClearsUploadDone()
    {
        QVERIFY(session->timer3().isActive());
        QCOMPARE(session->timer3().interval(), 5000);
        QCOMPARE(session->timer1().interval(), 1000);
        QVERIFY(!session->timer1().isActive());
        QVERIFY(!link().UploadDone);
        QVERIFY(channel->isOpen());
    }

    void requestFrameLayout_data()
    {
        QTest::addColumn<QString>("recordNo");
        QTest::addColumn<int>("hi");
        QTest::addColumn<int>("lo");
        QTest::newRow("header") << "0" << 0x00 << 0x00;
        QTest::newRow("summary") << "1" << 0x00 << 0x01;
        QTest::newRow("255") << "255" << 0x00 << 0xFF;
        QTest::newRow("256") << "256" << 0x01 << 0x00;
        QTest::newRow("300") << "300" << 0x01 << 0x2C;
        QTest::newRow("2001") << "2001" << 0x07 << 0xD1;
    }
    void requestFrameLayout()
    {
        QFETCH(QString, recordNo);
        QFETCH(int, hi);
        QFETCH(int, lo);
        link().RecordNo = recordNo;
        session->FourthProtocol();
        const QByteArray frame = channel->lastWritten();
        QCOMPARE(frame.size(), 10);
        QCOMPARE(frame.left(7), QByteArray("\x01\xFF\x10\xF0U\x00\x03", 7));
        QCOMPARE(static_cast<unsigned char>(frame.at(7)), hi);
        QCOMPARE(static_cast<unsigned char>(frame.at(8)), lo);
        QCOMPARE(frame.at(9), '\0');
        QCOMPARE(link().TxFrame, frame);
        QVERIFY(session->timer1().isActive());
    }

    void endFrameBytes()
    {
        const QByteArray expected("\x01\xFF\x10\xF0\x55\x00\x07\x00\x00\x4F\x56\x45\x52\xC4", 14);
        QCOMPARE(UploadSession::endFrame(), expected);
        int sum = 0;
        for (int i = 7; i < 14; ++i)
            sum += static_cast<unsigned char>(expected.at(i));
        QCOMPARE(sum & 0xFF, 0);
        session->CallOver();
        QCOMPARE(channel->lastWritten(), expected);
    }

    void firstRequestsStartNoTimer1()
    {
        session->cmdSend_Click();
        QCOMPARE(channel->lastWritten(), UploadSession::requestFrame(0, 0));
        QCOMPARE(session->summary().TotalRecords, 5000);
        QVERIFY(!session->timer1().isActive());
        session->ThirdProtocol();
        QCOMPARE(channel->lastWritten(), UploadSession::requestFrame(0, 1));
        QVERIFY(!session->timer1().isActive());
    }

    void replyInPiecesExaminedAt137()
    {
        QSignalSpy header(session.get(), &UploadSession::headerReceived);
        session->cmdSend_Click();
        const QByteArray r = reply(headerRecord(4));
        channel->feed(r.left(60));
        QCOMPARE(link().RxBuffer.size(), 60);
        QVERIFY(link().Records.at(0).isEmpty());
        QVERIFY(session->timer1().isActive());
        QVERIFY(!session->timer3().isActive());
        channel->feed(r.mid(60, 76));
        QCOMPARE(link().RxBuffer.size(), 136);
        QCOMPARE(header.count(), 0);
        channel->feed(r.mid(136));
        QCOMPARE(header.count(), 1);
        QCOMPARE(link().Records.at(0), r);
        QVERIFY(link().RxBuffer.isEmpty());
        QVERIFY(!session->timer1().isActive());
        QVERIFY(session->timer3().isActive());
        QCOMPARE(session->summary().TotalRecords, 4);
        QCOMPARE(session->summary().BankAgentId, QStringLiteral("AG005          "));
        QCOMPARE(channel->lastWritten(), UploadSession::requestFrame(0, 1));
    }

    void longerBufferStoredWhole()
    {
        session->cmdSend_Click();
        const QByteArray r = reply(headerRecord(4)) + QByteArray("EXTRA-BYTES");
        channel->feed(r);
        QCOMPARE(link().Records.at(0).size(), 148);
        QCOMPARE(link().Records.at(0), r);
        QVERIFY(link().RxBuffer.isEmpty());
        QCOMPARE(link().RecordNo, QStringLiteral("1"));
    }

    void nackInIncompleteReply()
    {
        session->cmdSend_Click();
        const int writes = static_cast<int>(channel->written.size());
        channel->feed("xxnAcK");
        QVERIFY(link().RxBuffer.isEmpty());
        QCOMPARE(t->messenger.last(), QStringLiteral("No Acknowledgement from HandHeld Terminal"));
        QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Information);
        QCOMPARE(channel->written.size(), writes);
        QVERIFY(session->timer1().isActive());
    }

    void incompleteReplyWithoutNackIsKept()
    {
        session->cmdSend_Click();
        channel->feed("ACK-ish");
        QCOMPARE(link().RxBuffer, QByteArray("ACK-ish"));
        QVERIFY(t->messenger.entries().isEmpty());
    }

    void timer3RepeatsUnansweredFirstRequest()
    {
        session->cmdSend_Click();
        QCOMPARE(channel->written.size(), 1);
        session->Timer3_Timer();
        QCOMPARE(channel->written.size(), 2);
        QCOMPARE(channel->lastWritten(), UploadSession::requestFrame(0, 0));
        QVERIFY(session->timer3().isActive());
        QVERIFY(session->timer1().isActive());
    }

    void timer3WithoutRequestSendsNothing()
    {
        link().RecordNo.clear();
        session->Timer3_Timer();
        QVERIFY(channel->written.isEmpty());
        QVERIFY(!session->timer3().isActive());
    }

    void summaryDecoding()
    {
        QSignalSpy decoded(session.get(), &UploadSession::summaryDecoded);
        session->cmdSend_Click();
        channel->feed(reply(headerRecord(7)));
        channel->feed(reply(summaryRecord("0051611", 0x01, 0x2C, QByteArray("\x00\x01\x23\x45", 4))));
        QCOMPARE(decoded.count(), 1);
        const UploadSummary& s = session->summary();
        QCOMPARE(s.AgentId, QStringLiteral("005"));
        QCOMPARE(s.CollectionDate, QStringLiteral("1611"));
        QCOMPARE(s.UploadBaseName, QStringLiteral("0051611"));
        QCOMPARE(s.TotalTransactions, 300);
        QCOMPARE(link().codec.HexValue, 300);
        QCOMPARE(s.TotalAmountDigits, QStringLiteral("00012345"));
        QCOMPARE(s.totalAmountText(), QStringLiteral("12345.00"));
        QVERIFY(link().HeaderDecoded);
        QCOMPARE(link().RecordNo, QStringLiteral("2"));
        QVERIFY(session->timer1().isActive());
    }

    void totalAmountText_data()
    {
        QTest::addColumn<QString>("digits");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << "00000000"
                              << "0.00";
        QTest::newRow("leading zeros") << "00000150"
                                       << "150.00";
        QTest::newRow("all digits") << "99999999"
                                    << "99999999.00";
        QTest::newRow("empty") << ""
                               << "0.00";
        QTest::newRow("three-digit field") << "00000123"
                                           << "123.00";
    }
    void totalAmountText()
    {
        QFETCH(QString, digits);
        QFETCH(QString, text);
        UploadSummary s;
        s.TotalAmountDigits = digits;
        QCOMPARE(s.totalAmountText(), text);
    }

    void summaryCountAbove32767IsReported()
    {
        QSignalSpy failed(session.get(), &UploadSession::failed);
        session->cmdSend_Click();
        channel->feed(reply(headerRecord(7)));
        channel->feed(reply(summaryRecord("0051611", 0x80, 0x00, QByteArray(4, '\0'))));
        QCOMPARE(failed.count(), 1);
        QVERIFY(t->messenger.last().startsWith(QStringLiteral("Overflow")));
        QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
    }

    void sendRtcPacksTheClock()
    {
        session->SendRTC();
        const auto& c = session->summary().ClockBytes;
        QCOMPARE(static_cast<unsigned char>(c[0]), 0x16);
        QCOMPARE(static_cast<unsigned char>(c[1]), 0x11);
        QCOMPARE(static_cast<unsigned char>(c[2]), 0x07);
        QCOMPARE(static_cast<unsigned char>(c[3]), 0x10);
        QCOMPARE(static_cast<unsigned char>(c[4]), 0x20);
        QCOMPARE(static_cast<unsigned char>(c[5]), 0x30);
    }

    void announcedFortyEndsAtReply41()
    {
        QSignalSpy finished(session.get(), &UploadSession::finished);
        QSignalSpy progress(session.get(), &UploadSession::progress);
        QSignalSpy busy(session.get(), &UploadSession::busyChanged);
        startUpload(40);
        for (int n = 2; n <= 40; ++n) {
            channel->feed(reply(transactionRecord(n)));
            QCOMPARE(requested(channel->lastWritten()), n + 1);
        }
        QCOMPARE(finished.count(), 0);
        QCOMPARE(progress.last().at(0).toInt(), 39);
        QCOMPARE(progress.last().at(1).toInt(), 40);
        channel->feed(reply(transactionRecord(41)));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(restoreCalls, 1);
        QVERIFY(link().UploadDone);
        QCOMPARE(channel->lastWritten(), UploadSession::endFrame());
        QCOMPARE(progress.last().at(0).toInt(), 40);
        QCOMPARE(busy.last().at(0).toBool(), false);
        QVERIFY(session->timer3().isActive());
        QVERIFY(!session->timer1().isActive());
        QCOMPARE(link().Records.at(41), reply(transactionRecord(41)));
    }

    void largerCountEndsAtReply2001()
    {
        QSignalSpy finished(session.get(), &UploadSession::finished);
        startUpload(2400);
        for (int n = 2; n <= 2000; ++n)
            channel->feed(reply(transactionRecord(n)));
        QCOMPARE(finished.count(), 0);
        QCOMPARE(requested(channel->lastWritten()), 2001);
        channel->feed(reply(transactionRecord(2001)));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(restoreCalls, 1);
        QCOMPARE(channel->lastWritten(), UploadSession::endFrame());
    }

    void timer3AfterFinishRepeatsLastRequestAndRestoresAgain()
    {
        startUpload(1);
        channel->feed(reply(transactionRecord(2)));
        QCOMPARE(restoreCalls, 1);
        session->Timer3_Timer();
        QCOMPARE(channel->lastWritten(), UploadSession::requestFrame(0, 2));
        // Timer1 does nothing once the upload is done.
        const int writes = static_cast<int>(channel->written.size());
        session->Timer1_Timer();
        QCOMPARE(channel->written.size(), writes);
        channel->feed(reply(transactionRecord(2)));
        QCOMPARE(restoreCalls, 2);
    }

    void fourteenthCheckFailureOnlyResends()
    {
        startUpload(10);
        QByteArray bad = reply(transactionRecord(2));
        bad[136] = static_cast<char>(bad.at(136) + 1);
        for (int i = 1; i <= 14; ++i) {
            const int writes = static_cast<int>(channel->written.size());
            channel->feed(bad);
            QCOMPARE(channel->written.size(), writes + 1);
            QCOMPARE(requested(channel->lastWritten()), 2);
            QCOMPARE(link().CrcErrorCount, i);
        }
        QVERIFY(t->messenger.entries().isEmpty());
    }

    void checkFailureFlushesInput()
    {
        startUpload(10);
        QByteArray bad = reply(transactionRecord(2));
        bad[136] = static_cast<char>(bad.at(136) + 1);
        const int readsBefore = channel->reads;
        channel->pending = bad;
        channel->pending.append("stale bytes");
        // One receive event reads everything, fails the check and then
        // reads ten more times.
        session->MSComm1_OnComm();
        QCOMPARE(channel->reads - readsBefore, 11);
        QVERIFY(link().RxBuffer.isEmpty());
        QCOMPARE(link().Records.at(2), bad + "stale bytes");
    }

    void fifteenthCheckFailureAsksOkResets()
    {
        startUpload(10);
        QByteArray bad = reply(transactionRecord(2));
        bad[136] = static_cast<char>(bad.at(136) + 1);
        t->messenger.queueAnswer(true);
        for (int i = 1; i <= 15; ++i)
            channel->feed(bad);
        QCOMPARE(t->messenger.entries().size(), 1);
        QVERIFY(t->messenger.entries().first().question);
        QCOMPARE(t->messenger.last(), QStringLiteral("Error in CRC,Press OK to try again or Cancel to Quit"));
        QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
        QCOMPARE(link().CrcErrorCount, 0);
        QCOMPARE(requested(channel->lastWritten()), 2);
        channel->feed(reply(transactionRecord(2)));
        QCOMPARE(requested(channel->lastWritten()), 3);
    }

    void cancelEmitsCloseAndStillRequestsOnce()
    {
        startUpload(10);
        QByteArray bad = reply(transactionRecord(2));
        bad[136] = static_cast<char>(bad.at(136) + 1);
        t->messenger.queueAnswer(false);
        for (int i = 1; i <= 14; ++i)
            channel->feed(bad);
        int writesAtClose = -1;
        connect(session.get(), &UploadSession::closeRequested, this,
                [&] { writesAtClose = static_cast<int>(channel->written.size()); });
        channel->feed(bad);
        QVERIFY(writesAtClose >= 0);
        QCOMPARE(channel->written.size(), writesAtClose + 1);
        QCOMPARE(requested(channel->lastWritten()), 2);
        QCOMPARE(link().CrcErrorCount, 15);
    }

    void cancelStillRequestsWhenTheSessionIsDeletedAtOnce()
    {
        startUpload(10);
        QByteArray bad = reply(transactionRecord(2));
        bad[136] = static_cast<char>(bad.at(136) + 1);
        t->messenger.queueAnswer(false);
        link().CrcErrorCount = 14;
        connect(session.get(), &UploadSession::closeRequested, this, [this] { delete session.release(); });
        const int writes = static_cast<int>(channel->written.size());
        channel->feed(bad);
        QVERIFY(!session);
        QCOMPARE(channel->written.size(), writes + 1);
        QCOMPARE(requested(channel->lastWritten()), 2);
    }

    void cableMessageEveryFifthTimeout()
    {
        link().RecordNo = QStringLiteral("3");
        for (int i = 1; i <= 15; ++i) {
            session->Timer1_Timer();
            const int expected = i / 5;
            QCOMPARE(t->messenger.count(QStringLiteral("Please Check the Communication Cable")), expected);
        }
        QCOMPARE(t->messenger.entries().last().icon, Messenger::Icon::Critical);
        QCOMPARE(link().TimeoutCount, 0);
        QVERIFY(session->timer1().isActive());
    }

    void stepBackAtFirstSixthEleventhTimeout()
    {
        startUpload(40);
        for (int n = 2; n <= 9; ++n)
            channel->feed(reply(transactionRecord(n)));
        QCOMPARE(link().RecordNo, QStringLiteral("10"));
        QList<int> asked;
        for (int i = 1; i <= 12; ++i) {
            link().RxBuffer = "partial";
            session->Timer1_Timer();
            QVERIFY(link().RxBuffer.isEmpty());
            asked << requested(channel->lastWritten());
        }
        QCOMPARE(asked, (QList<int>{9, 9, 9, 9, 9, 8, 8, 8, 8, 8, 7, 7}));
    }

    void noStepBackAtOrBelowOne()
    {
        session->cmdSend_Click();
        channel->feed(reply(headerRecord(3)));
        QCOMPARE(link().RecordNo, QStringLiteral("1"));
        session->Timer1_Timer();
        QCOMPARE(channel->lastWritten(), UploadSession::requestFrame(0, 1));
        link().RecordNo = QStringLiteral("0");
        link().TimeoutCount = 0;
        session->Timer1_Timer();
        QCOMPARE(channel->lastWritten(), UploadSession::requestFrame(0, 0));
    }

    void timer3UsesTheSameStepBack()
    {
        link().RecordNo = QStringLiteral("7");
        link().TimeoutCount = 1;
        session->Timer3_Timer();
        QCOMPARE(channel->lastWritten(), UploadSession::requestFrame(0, 6));
        link().TimeoutCount = 2;
        session->Timer3_Timer();
        QCOMPARE(channel->lastWritten(), UploadSession::requestFrame(0, 6));
    }

    void request2501IsAClearErrorNotACrash()
    {
        QSignalSpy failed(session.get(), &UploadSession::failed);
        // Left behind by the send side, repeated by Timer3 from load.
        link().RecordNo = QStringLiteral("2501");
        session->Timer3_Timer();
        QCOMPARE(requested(channel->lastWritten()), 2501);
        channel->feed(reply(transactionRecord(1)));
        QCOMPARE(failed.count(), 1);
        QVERIFY(t->messenger.last().contains(QStringLiteral("2501")));
        QVERIFY(t->messenger.last().startsWith(QStringLiteral("Subscript out of range")));
        QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
        QCOMPARE(link().Records.size(), LinkState::RecordsSize);
    }

    void headerCountAbove32767IsReported()
    {
        QSignalSpy failed(session.get(), &UploadSession::failed);
        session->cmdSend_Click();
        channel->feed(reply(headerRecord(40000)));
        QCOMPARE(failed.count(), 1);
        QVERIFY(t->messenger.last().startsWith(QStringLiteral("Overflow")));
    }

    void restoreErrorsAreReported()
    {
        session->setRestoreHandler([](UploadSession&) { throw StoreError(QStringLiteral("disk full")); });
        QSignalSpy failed(session.get(), &UploadSession::failed);
        startUpload(1);
        channel->feed(reply(transactionRecord(2)));
        QCOMPARE(failed.count(), 1);
        QVERIFY(t->messenger.last().contains(QStringLiteral("disk full")));
    }

    void portFailureIsReported()
    {
        QSignalSpy failed(session.get(), &UploadSession::failed);
        emit channel->failed(QStringLiteral("The serial port fake failed: gone"));
        QCOMPARE(failed.count(), 1);
        QCOMPARE(t->messenger.last(), QStringLiteral("The serial port fake failed: gone"));
    }
};

QTEST_GUILESS_MAIN(tst_UploadSession)
#include "tst_uploadsession.moc"
