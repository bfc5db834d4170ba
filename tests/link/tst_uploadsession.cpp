#include "link/LinkCodec.h"
#include "link/UploadFrames.h"
#include "link/UploadSession.h"
#include "tests/support/FakeChannel.h"
#include "tests/support/TestContext.h"

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
    return UploadFrames::requestedRecord(frame);
}

QByteArray corrupted(QByteArray r)
{
    r[136] = static_cast<char>(r.at(136) + 1);
    return r;
}

} // namespace

class tst_UploadSession : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestContext> t;
    std::unique_ptr<UploadSession> session;
    std::unique_ptr<QSignalSpy> messages;
    std::unique_ptr<QSignalSpy> finished;
    FakeChannel* channel = nullptr;

    LinkState& link() { return t->ctx->link; }

    QStringList messageTexts() const
    {
        QStringList texts;
        for (const QList<QVariant>& m : *messages)
            texts << m.at(0).value<SessionMessage>().text;
        return texts;
    }
    SessionMessage lastMessage() const
    {
        return messages->isEmpty() ? SessionMessage{} : messages->last().at(0).value<SessionMessage>();
    }

    // Header with the given count and the summary: the session then asks
    // for record 2.
    void startUpload(int count)
    {
        session->cmdSend_Click();
        channel->feed(reply(headerRecord(count)));
        channel->feed(reply(summaryRecord("0051611", 0, 3, QByteArray("\x00\x00\x01\x50", 4))));
        QCOMPARE(requested(channel->lastWritten()), 2);
        QCOMPARE(session->phase(), UploadSession::Phase::ReceivingRecords);
    }

    // A reply that fails its check, and the quiet line after it.
    void feedBad(const QByteArray& bad)
    {
        channel->feed(bad);
        if (session && session->flushTimer().isActive())
            session->FlushTimer_Timer();
    }

    // Records 2 .. last answered in order.
    void answerUpTo(int last)
    {
        for (int n = requested(channel->lastWritten()); n <= last; ++n) {
            QCOMPARE(requested(channel->lastWritten()), n);
            channel->feed(reply(transactionRecord(n)));
        }
    }

    void verifyRecordsExactly(int count)
    {
        QCOMPARE(link().Records.at(0), reply(headerRecord(count)));
        for (int n = 2; n <= count + 1; ++n)
            QCOMPARE(UploadFrames::content(link().Records.at(n)), UploadFrames::content(reply(transactionRecord(n))));
    }

private slots:
    void init()
    {
        qRegisterMetaType<SessionMessage>();
        t = std::make_unique<TestContext>();
        t->ctx->setChannelFactory([this] {
            auto c = std::make_unique<FakeChannel>();
            channel = c.get();
            return c;
        });
        session = std::make_unique<UploadSession>(t->ctx->port(), t->ctx->clock());
        messages = std::make_unique<QSignalSpy>(session.get(), &UploadSession::message);
        finished = std::make_unique<QSignalSpy>(session.get(), &UploadSession::finished);
        QVERIFY(session->Form_Load());
    }

    void cleanup()
    {
        messages.reset();
        finished.reset();
        session.reset();
        t.reset();
    }

    void formLoadStartsTimer3AndClearsCompletion()
    {
        QVERIFY(session->timer3().isActive());
        QCOMPARE(session->timer3().interval(), 5000);
        QCOMPARE(session->timer1().interval(), 1000);
        QVERIFY(!session->timer1().isActive());
        QVERIFY(!link().completion.isComplete());
        QVERIFY(channel->isOpen());
        QCOMPARE(session->phase(), UploadSession::Phase::Idle);
        QCOMPARE(session->recordNo(), -1);
        QVERIFY(!session->isBusy());
    }

    void requestFrameLayout_data()
    {
        QTest::addColumn<int>("recordNo");
        QTest::addColumn<int>("hi");
        QTest::addColumn<int>("lo");
        QTest::newRow("header") << 0 << 0x00 << 0x00;
        QTest::newRow("summary") << 1 << 0x00 << 0x01;
        QTest::newRow("255") << 255 << 0x00 << 0xFF;
        QTest::newRow("256") << 256 << 0x01 << 0x00;
        QTest::newRow("300") << 300 << 0x01 << 0x2C;
        QTest::newRow("2001") << 2001 << 0x07 << 0xD1;
    }
    void requestFrameLayout()
    {
        QFETCH(int, recordNo);
        QFETCH(int, hi);
        QFETCH(int, lo);
        session->setRecordNo(recordNo);
        session->FourthProtocol();
        const QByteArray frame = channel->lastWritten();
        QCOMPARE(frame.size(), 10);
        QCOMPARE(frame.left(7), QByteArray("\x01\xFF\x10\xF0U\x00\x03", 7));
        QCOMPARE(static_cast<unsigned char>(frame.at(7)), hi);
        QCOMPARE(static_cast<unsigned char>(frame.at(8)), lo);
        QCOMPARE(frame.at(9), '\0');
        QCOMPARE(link().TxFrame, frame);
        QCOMPARE(link().RecordNo, QString::number(recordNo));
        QVERIFY(session->timer1().isActive());
    }

    void endFrameBytes()
    {
        const QByteArray expected("\x01\xFF\x10\xF0\x55\x00\x07\x00\x00\x4F\x56\x45\x52\xC4", 14);
        session->CallOver();
        QCOMPARE(channel->lastWritten(), expected);
    }

    void firstRequestsStartNoTimer1()
    {
        session->cmdSend_Click();
        QCOMPARE(channel->lastWritten(), UploadFrames::request(0));
        QCOMPARE(session->summary().TotalRecords, 5000);
        QCOMPARE(session->phase(), UploadSession::Phase::AwaitingHeader);
        QVERIFY(session->isBusy());
        QVERIFY(!session->timer1().isActive());
        session->ThirdProtocol();
        QCOMPARE(channel->lastWritten(), UploadFrames::request(1));
        QVERIFY(!session->timer1().isActive());
    }

    void receiveEmptiesTheLineFirst()
    {
        // Left by an interrupted exchange: a whole transaction reply.
        channel->pending = reply(transactionRecord(7)) + "xx";
        session->cmdSend_Click();
        QVERIFY(channel->pending.isEmpty());
        QVERIFY(link().RxBuffer.isEmpty());
        channel->feed(reply(headerRecord(4)));
        QCOMPARE(session->summary().TotalRecords, 4);
        QCOMPARE(link().Records.at(0), reply(headerRecord(4)));
    }

    void receiveStartsAfresh()
    {
        startUpload(3);
        answerUpTo(2);
        link().CrcErrorCount = 9;
        session->cmdSend_Click();
        QVERIFY(link().Records.at(2).isEmpty());
        QVERIFY(link().Records.at(1).isEmpty());
        QCOMPARE(link().CrcErrorCount, 0);
        QCOMPARE(session->phase(), UploadSession::Phase::AwaitingHeader);
        QCOMPARE(session->summary().TotalRecords, 5000);
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
        QCOMPARE(channel->lastWritten(), UploadFrames::request(1));
        QCOMPARE(session->phase(), UploadSession::Phase::AwaitingSummary);
    }

    void longerBufferStoredWhole()
    {
        session->cmdSend_Click();
        const QByteArray r = reply(headerRecord(4)) + QByteArray("EXTRA-BYTES");
        channel->feed(r);
        QCOMPARE(link().Records.at(0).size(), 148);
        QCOMPARE(link().Records.at(0), r);
        QVERIFY(link().RxBuffer.isEmpty());
        QCOMPARE(session->recordNo(), 1);
    }

    void nackInIncompleteReply()
    {
        session->cmdSend_Click();
        const int writes = static_cast<int>(channel->written.size());
        channel->feed("xxnAcK");
        QVERIFY(link().RxBuffer.isEmpty());
        QCOMPARE(lastMessage(), (SessionMessage{QStringLiteral("No Acknowledgement from HandHeld Terminal"),
                                                SessionMessage::Icon::Information}));
        QCOMPARE(channel->written.size(), writes);
        QVERIFY(session->timer1().isActive());
    }

    void incompleteReplyWithoutNackIsKept()
    {
        session->cmdSend_Click();
        channel->feed("ACK-ish");
        QCOMPARE(link().RxBuffer, QByteArray("ACK-ish"));
        QVERIFY(messages->isEmpty());
    }

    void bytesBeforeReceiveAreDropped()
    {
        channel->feed(reply(headerRecord(4)));
        QVERIFY(link().RxBuffer.isEmpty());
        QVERIFY(link().Records.at(0).isEmpty());
        QVERIFY(channel->written.isEmpty());
    }

    void timer3RepeatsUnansweredFirstRequest()
    {
        session->cmdSend_Click();
        QCOMPARE(channel->written.size(), 1);
        session->Timer3_Timer();
        QCOMPARE(channel->written.size(), 2);
        QCOMPARE(channel->lastWritten(), UploadFrames::request(0));
        QVERIFY(session->timer3().isActive());
        QVERIFY(session->timer1().isActive());
    }

    void timer3BeforeReceiveSendsNothing()
    {
        // The send side's record number is its own: nothing is asked for
        // before Receive.
        link().RecordNo = QStringLiteral("17");
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
        QCOMPARE(s.TotalAmountDigits, QStringLiteral("00012345"));
        QCOMPARE(s.totalAmountText(), QStringLiteral("12345.00"));
        QCOMPARE(session->phase(), UploadSession::Phase::ReceivingRecords);
        QCOMPARE(session->recordNo(), 2);
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

    void summaryCountAbove32767StopsTheReceive()
    {
        QSignalSpy stopped(session.get(), &UploadSession::stopped);
        session->cmdSend_Click();
        channel->feed(reply(headerRecord(7)));
        channel->feed(reply(summaryRecord("0051611", 0x80, 0x00, QByteArray(4, '\0'))));
        QCOMPARE(stopped.count(), 1);
        QVERIFY(lastMessage().text.startsWith(QStringLiteral("Overflow")));
        QVERIFY(lastMessage().text.contains(QStringLiteral("press Receive"), Qt::CaseInsensitive));
        QCOMPARE(lastMessage().icon, SessionMessage::Icon::Critical);
        QCOMPARE(session->phase(), UploadSession::Phase::Stopped);
        QVERIFY(!session->timer1().isActive());
        QVERIFY(!session->timer3().isActive());
        QCOMPARE(finished->count(), 0);
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

    void nextRequestIsOutBeforeTheProgressIsShown()
    {
        // The screen's progress bar repaints at once when told: the terminal
        // must not wait for that.
        startUpload(40);
        QList<int> requestedAtProgress;
        connect(session.get(), &UploadSession::progress, this,
                [&] { requestedAtProgress.append(requested(channel->lastWritten())); });
        for (int n = 2; n <= 5; ++n)
            channel->feed(reply(transactionRecord(n)));
        QCOMPARE(requestedAtProgress, (QList<int>{3, 4, 5, 6}));
    }

    void announcedFortyEndsAtReply41()
    {
        QSignalSpy progress(session.get(), &UploadSession::progress);
        QSignalSpy busy(session.get(), &UploadSession::busyChanged);
        startUpload(40);
        for (int n = 2; n <= 40; ++n) {
            channel->feed(reply(transactionRecord(n)));
            QCOMPARE(requested(channel->lastWritten()), n + 1);
        }
        QCOMPARE(finished->count(), 0);
        QCOMPARE(progress.last().at(0).toInt(), 39);
        QCOMPARE(progress.last().at(1).toInt(), 40);
        channel->feed(reply(transactionRecord(41)));
        QCOMPARE(finished->count(), 1);
        QVERIFY(link().completion.isComplete());
        QCOMPARE(session->phase(), UploadSession::Phase::Done);
        QVERIFY(!session->isBusy());
        QCOMPARE(channel->lastWritten(), UploadFrames::end());
        QCOMPARE(progress.last().at(0).toInt(), 40);
        QCOMPARE(busy.last().at(0).toBool(), false);
        QVERIFY(session->timer3().isActive());
        QVERIFY(!session->timer1().isActive());
        QCOMPARE(link().Records.at(41), reply(transactionRecord(41)));
        verifyRecordsExactly(40);
    }

    void largerCountEndsAtReply2001()
    {
        startUpload(2400);
        for (int n = 2; n <= 2000; ++n)
            channel->feed(reply(transactionRecord(n)));
        QCOMPARE(finished->count(), 0);
        QCOMPARE(requested(channel->lastWritten()), 2001);
        channel->feed(reply(transactionRecord(2001)));
        QCOMPARE(finished->count(), 1);
        QCOMPARE(channel->lastWritten(), UploadFrames::end());
    }

    void timer3AfterFinishRepeatsLastRequestButFinishesOnce()
    {
        startUpload(1);
        channel->feed(reply(transactionRecord(2)));
        QCOMPARE(finished->count(), 1);
        session->Timer3_Timer();
        QCOMPARE(channel->lastWritten(), UploadFrames::request(2));
        QVERIFY(session->timer3().isActive());
        // Timer1 does nothing once the upload is done.
        const int writes = static_cast<int>(channel->written.size());
        session->Timer1_Timer();
        QCOMPARE(channel->written.size(), writes);
        // The terminal answers the repeat: told again that it is over,
        // nothing kept or finished a second time.
        channel->feed(reply(transactionRecord(2)));
        QCOMPARE(channel->lastWritten(), UploadFrames::end());
        QCOMPARE(finished->count(), 1);
        // Something else in answer is dropped.
        channel->feed(reply(transactionRecord(9)));
        QCOMPARE(channel->lastWritten(), UploadFrames::end());
        QCOMPARE(channel->written.size(), writes + 1);
        QCOMPARE(link().Records.at(2), reply(transactionRecord(2)));
        QCOMPARE(finished->count(), 1);
    }

    void fourteenthCheckFailureOnlyResends()
    {
        QSignalSpy question(session.get(), &UploadSession::crcQuestion);
        startUpload(10);
        const QByteArray bad = corrupted(reply(transactionRecord(2)));
        for (int i = 1; i <= 14; ++i) {
            const int writes = static_cast<int>(channel->written.size());
            feedBad(bad);
            QCOMPARE(channel->written.size(), writes + 1);
            QCOMPARE(requested(channel->lastWritten()), 2);
            QCOMPARE(link().CrcErrorCount, i);
        }
        QVERIFY(messages->isEmpty());
        QCOMPARE(question.count(), 0);
        // A failed reply is never kept.
        QVERIFY(link().Records.at(2).isEmpty());
    }

    void checkFailureEmptiesTheInput()
    {
        startUpload(10);
        const QByteArray bad = corrupted(reply(transactionRecord(2)));
        const int readsBefore = channel->reads;
        channel->pending = bad;
        channel->feed("stale bytes");
        QCOMPARE(channel->reads - readsBefore, 2);
        QVERIFY(channel->pending.isEmpty());
        QVERIFY(link().RxBuffer.isEmpty());
        QCOMPARE(requested(channel->lastWritten()), 2);
        session->FlushTimer_Timer();
        channel->feed(reply(transactionRecord(2)));
        QCOMPARE(requested(channel->lastWritten()), 3);
        QCOMPARE(link().CrcErrorCount, 0);
    }

    void checkFailureWaitsForAQuietLine()
    {
        startUpload(10);
        const int writes = static_cast<int>(channel->written.size());
        channel->feed(corrupted(reply(transactionRecord(2))));
        QCOMPARE(channel->written.size(), writes);
        QVERIFY(session->flushTimer().isActive());
        QCOMPARE(session->flushTimer().interval(), UploadSession::FlushQuietMs);
        QVERIFY(!session->timer1().isActive());
        // The damaged reply's tail and whatever else comes meanwhile is
        // thrown away; the time-outs wait too.
        channel->feed(QByteArray(100, 'x'));
        channel->feed(reply(transactionRecord(2)));
        session->Timer1_Timer();
        QCOMPARE(channel->written.size(), writes);
        QVERIFY(link().RxBuffer.isEmpty());
        QVERIFY(link().Records.at(2).isEmpty());
        QTRY_COMPARE(channel->written.size(), writes + 1);
        QCOMPARE(requested(channel->lastWritten()), 2);
        QVERIFY(session->timer1().isActive());
        channel->feed(reply(transactionRecord(2)));
        QCOMPARE(requested(channel->lastWritten()), 3);
    }

    void fifteenthCheckFailureAsksOkResets()
    {
        QSignalSpy question(session.get(), &UploadSession::crcQuestion);
        startUpload(10);
        const QByteArray bad = corrupted(reply(transactionRecord(2)));
        for (int i = 1; i <= 15; ++i)
            feedBad(bad);
        QCOMPARE(question.count(), 1);
        QCOMPARE(question.last().at(0).value<SessionMessage>(),
                 (SessionMessage{QStringLiteral("Error in CRC,Press OK to try again or Cancel to Quit"),
                                 SessionMessage::Icon::Critical}));
        QVERIFY(session->questionOpen());
        QVERIFY(session->isBusy());
        // Nothing is asked until the answer comes.
        const int writes = static_cast<int>(channel->written.size());
        QCOMPARE(requested(channel->lastWritten()), 2);
        session->answerCrcQuestion(true);
        QCOMPARE(link().CrcErrorCount, 0);
        QCOMPARE(channel->written.size(), writes + 1);
        QCOMPARE(requested(channel->lastWritten()), 2);
        QVERIFY(session->timer1().isActive());
        channel->feed(reply(transactionRecord(2)));
        QCOMPARE(requested(channel->lastWritten()), 3);
        QVERIFY(messages->isEmpty());
    }

    void bytesAndTicksWhileTheQuestionIsOpen()
    {
        QSignalSpy question(session.get(), &UploadSession::crcQuestion);
        startUpload(3);
        link().CrcErrorCount = 14;
        feedBad(corrupted(reply(transactionRecord(2))));
        QCOMPARE(question.count(), 1);
        const int writes = static_cast<int>(channel->written.size());
        // A late reply, a NACK and every timer: nothing is asked or kept
        // while the clerk has not answered.
        channel->feed(reply(transactionRecord(2)));
        channel->feed("NACK");
        for (int i = 0; i < 12; ++i) {
            session->Timer1_Timer();
            session->Timer3_Timer();
        }
        QCOMPARE(channel->written.size(), writes);
        QVERIFY(link().Records.at(2).isEmpty());
        QVERIFY(messages->isEmpty());
        QCOMPARE(question.count(), 1);
        session->answerCrcQuestion(true);
        answerUpTo(4);
        QCOMPARE(finished->count(), 1);
        verifyRecordsExactly(3);
    }

    void cancelEmitsCloseAndStillRequestsOnce()
    {
        startUpload(10);
        const QByteArray bad = corrupted(reply(transactionRecord(2)));
        for (int i = 1; i <= 15; ++i)
            feedBad(bad);
        int writesAtClose = -1;
        connect(session.get(), &UploadSession::closeRequested, this,
                [&] { writesAtClose = static_cast<int>(channel->written.size()); });
        const int writes = static_cast<int>(channel->written.size());
        session->answerCrcQuestion(false);
        QCOMPARE(writesAtClose, writes + 1);
        QCOMPARE(requested(channel->lastWritten()), 2);
        QCOMPARE(link().CrcErrorCount, 15);
        QCOMPARE(session->phase(), UploadSession::Phase::Stopped);
        QVERIFY(!session->timer1().isActive());
        QVERIFY(!session->timer3().isActive());
        QCOMPARE(finished->count(), 0);
    }

    void cancelStillRequestsWhenTheSessionIsDeletedAtOnce()
    {
        startUpload(10);
        link().CrcErrorCount = 14;
        feedBad(corrupted(reply(transactionRecord(2))));
        connect(session.get(), &UploadSession::closeRequested, this, [this] {
            messages.reset();
            finished.reset();
            delete session.release();
        });
        const int writes = static_cast<int>(channel->written.size());
        session->answerCrcQuestion(false);
        QVERIFY(!session);
        QCOMPARE(channel->written.size(), writes + 1);
        QCOMPARE(requested(channel->lastWritten()), 2);
    }

    void cableMessageEveryFifthTimeout()
    {
        startUpload(10);
        for (int i = 1; i <= 15; ++i) {
            session->Timer1_Timer();
            QCOMPARE(messageTexts().count(QStringLiteral("Please Check the Communication Cable")), i / 5);
        }
        QCOMPARE(lastMessage().icon, SessionMessage::Icon::Critical);
        QCOMPARE(link().TimeoutCount, 0);
        QVERIFY(session->timer1().isActive());
    }

    void stepBackAtFirstSixthEleventhTimeout()
    {
        startUpload(40);
        for (int n = 2; n <= 9; ++n)
            channel->feed(reply(transactionRecord(n)));
        QCOMPARE(session->recordNo(), 10);
        QList<int> asked;
        for (int i = 1; i <= 12; ++i) {
            link().RxBuffer = "partial";
            session->Timer1_Timer();
            QVERIFY(link().RxBuffer.isEmpty());
            asked << requested(channel->lastWritten());
        }
        QCOMPARE(asked, (QList<int>{9, 9, 9, 9, 9, 8, 8, 8, 8, 8, 7, 7}));
        // The line comes back: the records asked again are checked against
        // what was kept, and the receive goes on to the end.
        answerUpTo(41);
        QCOMPARE(finished->count(), 1);
        verifyRecordsExactly(40);
    }

    void noStepBackAtOrBelowOne()
    {
        session->cmdSend_Click();
        channel->feed(reply(headerRecord(3)));
        QCOMPARE(session->recordNo(), 1);
        session->Timer1_Timer();
        QCOMPARE(channel->lastWritten(), UploadFrames::request(1));
        session->setRecordNo(0);
        link().TimeoutCount = 0;
        session->Timer1_Timer();
        QCOMPARE(channel->lastWritten(), UploadFrames::request(0));
    }

    void timer3UsesTheSameStepBack()
    {
        startUpload(10);
        session->setRecordNo(7);
        link().TimeoutCount = 1;
        session->Timer3_Timer();
        QCOMPARE(channel->lastWritten(), UploadFrames::request(6));
        link().TimeoutCount = 2;
        session->Timer3_Timer();
        QCOMPARE(channel->lastWritten(), UploadFrames::request(6));
    }

    void request2501IsAClearErrorNotACrash()
    {
        QSignalSpy stopped(session.get(), &UploadSession::stopped);
        startUpload(3000);
        session->setRecordNo(2501);
        session->FourthProtocol();
        QCOMPARE(requested(channel->lastWritten()), 2501);
        channel->feed(reply(transactionRecord(1)));
        QCOMPARE(stopped.count(), 1);
        QVERIFY(lastMessage().text.contains(QStringLiteral("2501")));
        QVERIFY(lastMessage().text.startsWith(QStringLiteral("Subscript out of range")));
        QCOMPARE(lastMessage().icon, SessionMessage::Icon::Critical);
        QCOMPARE(link().Records.size(), LinkState::RecordsSize);
    }

    void headerCountAbove32767StopsTheReceive()
    {
        QSignalSpy stopped(session.get(), &UploadSession::stopped);
        session->cmdSend_Click();
        channel->feed(reply(headerRecord(40000)));
        QCOMPARE(stopped.count(), 1);
        QVERIFY(lastMessage().text.startsWith(QStringLiteral("Overflow")));
    }

    void portFailureStopsWithWhatToDo()
    {
        QSignalSpy stopped(session.get(), &UploadSession::stopped);
        startUpload(10);
        emit channel->failed(QStringLiteral("The serial port fake failed: gone"));
        QCOMPARE(stopped.count(), 1);
        QVERIFY(lastMessage().text.startsWith(QStringLiteral("The serial port fake failed: gone")));
        QVERIFY(lastMessage().text.contains(QStringLiteral("press Receive"), Qt::CaseInsensitive));
        QCOMPARE(session->phase(), UploadSession::Phase::Stopped);
        QVERIFY(!session->timer1().isActive());
        QVERIFY(!session->timer3().isActive());
        // Receive again opens the port again and starts afresh.
        channel->close();
        const int opens = channel->opens;
        session->cmdSend_Click();
        QCOMPARE(channel->opens, opens + 1);
        QCOMPARE(channel->lastWritten(), UploadFrames::request(0));
        QCOMPARE(session->phase(), UploadSession::Phase::AwaitingHeader);
    }

    void portThatDoesNotOpenIsAMessage()
    {
        session.reset();
        t->ctx->setChannelFactory([this] {
            auto c = std::make_unique<FakeChannel>();
            c->openError = QStringLiteral("The serial port /dev/ttyS0 does not exist.");
            channel = c.get();
            return c;
        });
        session = std::make_unique<UploadSession>(t->ctx->port(), t->ctx->clock());
        QSignalSpy said(session.get(), &UploadSession::message);
        QVERIFY(!session->Form_Load());
        QCOMPARE(said.count(), 1);
        QCOMPARE(said.first().at(0).value<SessionMessage>().text,
                 QStringLiteral("The serial port /dev/ttyS0 does not exist."));
    }

    void stopEndsEverything()
    {
        QSignalSpy stopped(session.get(), &UploadSession::stopped);
        startUpload(3);
        answerUpTo(3);
        session->stop();
        QCOMPARE(stopped.count(), 1);
        QVERIFY(!channel->isOpen());
        QVERIFY(!session->timer1().isActive());
        QVERIFY(!session->timer3().isActive());
        QCOMPARE(session->phase(), UploadSession::Phase::Stopped);
        const int writes = static_cast<int>(channel->written.size());
        session->Timer1_Timer();
        session->Timer3_Timer();
        channel->feed(reply(transactionRecord(4)));
        QCOMPARE(channel->written.size(), writes);
        QCOMPARE(finished->count(), 0);
    }

    // A reply held back past the time-out crosses the step-back request.
    void lateReplyCrossingTheStepBack()
    {
        startUpload(6);
        answerUpTo(4);
        QCOMPARE(requested(channel->lastWritten()), 5);
        session->Timer1_Timer(); // no answer in time: record 4 asked again
        QCOMPARE(requested(channel->lastWritten()), 4);
        channel->feed(reply(transactionRecord(5))); // the late answer to 5
        channel->feed(reply(transactionRecord(4))); // the answer to 4
        channel->feed(reply(transactionRecord(4))); // answer to the extra request for 4
        channel->feed(reply(transactionRecord(5)));
        answerUpTo(7);
        QCOMPARE(finished->count(), 1);
        verifyRecordsExactly(6);
    }

    void lateReplyWithoutStepBack()
    {
        startUpload(6);
        answerUpTo(4);
        link().TimeoutCount = 3; // not the first time-out: record 5 asked again
        session->Timer1_Timer();
        QCOMPARE(requested(channel->lastWritten()), 5);
        channel->feed(reply(transactionRecord(5))); // late answer to the first request
        QCOMPARE(requested(channel->lastWritten()), 6);
        channel->feed(reply(transactionRecord(5))); // answer to the second: not record 6
        QCOMPARE(requested(channel->lastWritten()), 6);
        QVERIFY(link().Records.at(6).isEmpty());
        channel->feed(reply(transactionRecord(6)));
        answerUpTo(7);
        QCOMPARE(finished->count(), 1);
        verifyRecordsExactly(6);
    }

    void requestReadAsTheNextRecord()
    {
        startUpload(6);
        answerUpTo(3);
        // The request for 4 reached the terminal as 5.
        channel->feed(reply(transactionRecord(5)));
        QCOMPARE(requested(channel->lastWritten()), 5);
        channel->feed(reply(transactionRecord(5))); // seen at 4 already: not taken
        QCOMPARE(requested(channel->lastWritten()), 5);
        session->Timer1_Timer(); // steps back to 4
        QCOMPARE(requested(channel->lastWritten()), 4);
        channel->feed(reply(transactionRecord(4))); // differs from what 4 holds: asked again
        QCOMPARE(requested(channel->lastWritten()), 4);
        channel->feed(reply(transactionRecord(4))); // the same twice: 4 corrected
        QCOMPARE(requested(channel->lastWritten()), 5);
        answerUpTo(7);
        QCOMPARE(finished->count(), 1);
        verifyRecordsExactly(6);
    }

    void requestReadAsThePreviousRecord()
    {
        startUpload(6);
        answerUpTo(4);
        // The request for 5 reached the terminal as 4.
        channel->feed(reply(transactionRecord(4)));
        QVERIFY(link().Records.at(5).isEmpty());
        QCOMPARE(requested(channel->lastWritten()), 5);
        session->Timer1_Timer();
        answerUpTo(7);
        QCOMPARE(finished->count(), 1);
        verifyRecordsExactly(6);
    }

    void aMisplacedRecordIsFoundWhenTheTerminalInsists()
    {
        startUpload(6);
        answerUpTo(3);
        channel->feed(reply(transactionRecord(6))); // asked 4, got 6
        answerUpTo(5);
        QCOMPARE(requested(channel->lastWritten()), 6);
        channel->feed(reply(transactionRecord(6))); // held at 4 already
        link().TimeoutCount = 3;
        session->Timer1_Timer();                    // asked 6 again, no step back
        channel->feed(reply(transactionRecord(6))); // the same again: 4 is checked
        QCOMPARE(requested(channel->lastWritten()), 4);
        channel->feed(reply(transactionRecord(4)));
        channel->feed(reply(transactionRecord(4)));
        answerUpTo(7);
        QCOMPARE(finished->count(), 1);
        verifyRecordsExactly(6);
    }

    void recordsThatAreReallyAlikeAreTaken()
    {
        startUpload(3);
        const QByteArray same = reply(transactionRecord(2));
        channel->feed(same);
        QCOMPARE(requested(channel->lastWritten()), 3);
        channel->feed(same);
        link().TimeoutCount = 3;
        session->Timer1_Timer();
        channel->feed(same); // twice: record 2 is asked again
        QCOMPARE(requested(channel->lastWritten()), 2);
        channel->feed(same); // 2 confirmed
        QCOMPARE(requested(channel->lastWritten()), 3);
        channel->feed(same); // and 3 is the same again: alike
        QCOMPARE(requested(channel->lastWritten()), 4);
        QCOMPARE(link().Records.at(3), same);
        channel->feed(reply(transactionRecord(4)));
        QCOMPARE(finished->count(), 1);
    }

    void lateHeaderIsNotTheSummary()
    {
        session->cmdSend_Click();
        session->cmdSend_Click(); // pressed twice: two header requests
        channel->feed(reply(headerRecord(2)));
        channel->feed(reply(headerRecord(2))); // the second header, while the summary is asked
        QVERIFY(link().Records.at(1).isEmpty());
        QCOMPARE(session->phase(), UploadSession::Phase::AwaitingSummary);
        channel->feed(reply(summaryRecord("0051611", 0, 3, QByteArray(4, '\0'))));
        QCOMPARE(session->summary().AgentId, QStringLiteral("005"));
        answerUpTo(3);
        QCOMPARE(finished->count(), 1);
    }

    void transactionRecordIsNotTheSummary()
    {
        QSignalSpy decoded(session.get(), &UploadSession::summaryDecoded);
        session->cmdSend_Click();
        channel->feed(reply(headerRecord(2)));
        channel->feed(reply(transactionRecord(9)));
        QCOMPARE(decoded.count(), 0);
        QVERIFY(link().Records.at(1).isEmpty());
        QVERIFY(session->timer1().isActive());
        session->Timer1_Timer();
        QCOMPARE(channel->lastWritten(), UploadFrames::request(1));
        channel->feed(reply(summaryRecord("0051611", 0, 3, QByteArray(4, '\0'))));
        QCOMPARE(decoded.count(), 1);
    }

    void terminalAnsweringWithOneRecordForeverStops()
    {
        QSignalSpy stopped(session.get(), &UploadSession::stopped);
        startUpload(9);
        answerUpTo(6);
        // From here on every request is answered with record 3 at once;
        // the response time-out fires only when no new request went out.
        for (int i = 0; i < 200 && session->phase() != UploadSession::Phase::Stopped; ++i) {
            const qsizetype writes = channel->written.size();
            channel->feed(reply(transactionRecord(3)));
            if (channel->written.size() == writes && session->timer1().isActive())
                session->Timer1_Timer();
        }
        QCOMPARE(stopped.count(), 1);
        QVERIFY(lastMessage().text.startsWith(QStringLiteral("The terminal keeps answering")));
        QCOMPARE(finished->count(), 0);
        for (int n = 2; n <= 6; ++n)
            QCOMPARE(link().Records.at(n), reply(transactionRecord(n)));
    }

    void summaryThatNeverReadsStops()
    {
        QSignalSpy stopped(session.get(), &UploadSession::stopped);
        session->cmdSend_Click();
        channel->feed(reply(headerRecord(2)));
        for (int i = 0; i < UploadSession::BadSummariesAllowed; ++i)
            channel->feed(reply(summaryRecord("0A51399", 0, 3, QByteArray(4, '\0'))));
        QCOMPARE(stopped.count(), 1);
        QVERIFY(lastMessage().text.contains(QStringLiteral("\"0A5\"")));
        QCOMPARE(session->phase(), UploadSession::Phase::Stopped);
        QCOMPARE(finished->count(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_UploadSession)
#include "tst_uploadsession.moc"
