#include "link/UploadSession.h"

#include "link/LinkChannel.h"
#include "link/LinkCodec.h"
#include "link/LinkPort.h"
#include "link/UploadFrames.h"

#include <exception>

// The replies: read, checked, matched to their request, kept; the receive's
// end. What goes out and when is in UploadSessionRequests.cpp.

namespace {

QString stoppedAdvice()
{
    return QStringLiteral("The receive has stopped and nothing was stored. Press Receive to start it again.");
}

} // namespace

bool UploadSession::isBusy() const
{
    return m_phase.isBusy();
}

void UploadSession::setPhase(Phase phase)
{
    if (m_phase.moveTo(phase))
        emit phaseChanged(phase);
}

void UploadSession::say(const QString& text, SessionMessage::Icon icon)
{
    emit message(SessionMessage{text, icon});
}

void UploadSession::fail(const QString& text)
{
    m_timer1.stop();
    m_timer3.stop();
    m_flushTimer.stop();
    m_port.state().RxBuffer.clear();
    setPhase(Phase::Stopped);
    say(text, SessionMessage::Icon::Critical);
    emit stopped();
}

bool UploadSession::ownsLink() const
{
    return m_port.holds(this);
}

void UploadSession::guarded(const std::function<void()>& step)
{
    if (!ownsLink()) {
        // Another screen has opened the port since: it is not ours to use.
        m_timer1.stop();
        m_timer3.stop();
        return;
    }
    try {
        step();
    } catch (const LinkError& e) {
        fail(QStringLiteral("%1\n\n%2").arg(e.message(), stoppedAdvice()));
    } catch (const std::exception& e) {
        fail(QStringLiteral("%1\n\n%2").arg(QString::fromLocal8Bit(e.what()), stoppedAdvice()));
    }
}

void UploadSession::DecodeFifthProtocol()
{
    UploadReplies::decodeHeader(m_port.state().Records.at(0), m_summary);
}

void UploadSession::DecodeThirdProtocol()
{
    UploadReplies::decodeSummary(m_port.state().Records.at(1), m_summary);
    emit summaryDecoded();
}

void UploadSession::MSComm1_OnComm()
{
    guarded([this] { onComm(); });
}

void UploadSession::onComm()
{
    LinkState& link = m_port.state();
    const QByteArray bytes = m_port.channel().readAll();
    if (phase() == Phase::Done) {
        onDone(bytes);
        return;
    }
    // Nothing is asked for: before Receive, after the receive ended, and
    // while the check-failure question waits for its answer.
    if (!m_phase.takesReplies())
        return;
    if (m_flushTimer.isActive()) {
        // The rest of a damaged reply: thrown away, and the quiet time
        // starts again.
        m_flushTimer.start();
        return;
    }

    link.RxBuffer.append(bytes);
    m_timer3.stop();

    if (link.RxBuffer.size() < UploadFrames::ReplySize) {
        m_timer1.start();
        if (link.RxBuffer.toUpper().contains("NACK")) {
            link.RxBuffer.clear();
            say(noAcknowledgementText(), SessionMessage::Icon::Information);
        }
        return;
    }

    link.TimeoutCount = 0;
    m_timer1.stop();
    const int n = m_recordNo;
    if (n < 0 || n >= LinkState::RecordsSize)
        throw LinkError(LinkError::Kind::SubscriptOutOfRange,
                        QStringLiteral("a reply to request %1 cannot be kept: a receive holds records 0 to %2")
                            .arg(n)
                            .arg(LinkState::RecordsSize - 1));
    // A longer buffer is kept whole, as it came; the check covers its
    // first reply.
    const QByteArray reply = link.RxBuffer;
    link.RxBuffer.clear();
    link.codec.CrcOk = true;
    link.codec.CheckCRC(reply);
    if (!link.codec.CrcOk) {
        checkFailed();
        return;
    }
    link.CrcErrorCount = 0;
    if (!accepted(n, reply)) {
        // A terminal that goes on answering with records that were not asked
        // for would otherwise keep the receive going round without a word.
        if (phase() != Phase::Stopped && ++m_unmatched >= UnmatchedRepliesAllowed)
            fail(QStringLiteral("The terminal keeps answering the request for record %1 with other records.\n\n"
                                "The receive has stopped and nothing was stored. Switch the terminal off and "
                                "on, put it in upload mode again and press Receive.")
                     .arg(n));
        return;
    }
    // Only a record not held before is progress: asking again for records
    // already kept can go round in a circle.
    if (!m_matcher.holds(n)) {
        m_unmatched = 0;
        m_matcher.keep(n, reply);
    }
    takeReply(n);
    // The next request is out: the index catches up while the terminal
    // answers it.
    m_matcher.indexKept();
}

bool UploadSession::accepted(int n, const QByteArray& reply)
{
    const ReplyMatcher::Decision decision = m_matcher.match(n, reply);
    switch (decision.verdict) {
    case ReplyMatcher::Verdict::Take:
        return true;
    case ReplyMatcher::Verdict::Wait:
        m_timer1.start();
        return false;
    case ReplyMatcher::Verdict::AskAgain:
        FourthProtocol();
        return false;
    case ReplyMatcher::Verdict::AskForOther:
        m_recordNo = decision.other;
        FourthProtocol();
        return false;
    case ReplyMatcher::Verdict::SummaryUnreadable:
        fail(QStringLiteral("The terminal's summary record cannot be read: agent \"%1\", date \"%2\" are not "
                            "an agent number and a ddmm date.\n\nNothing was stored. Put the terminal in "
                            "upload mode again and press Receive; if this comes again, the terminal's "
                            "collections must be checked on the terminal.")
                 .arg(UploadReplies::field(reply, 10, 3), UploadReplies::field(reply, 13, 4)));
        return false;
    }
    return false;
}

void UploadSession::checkFailed()
{
    LinkState& link = m_port.state();
    // The rest of a damaged reply must not start the next one.
    m_port.channel().readAll();
    ++link.CrcErrorCount;
    if (link.CrcErrorCount != CrcQuestionAfter) {
        // Asked again once the line is quiet: a request sent while the
        // damaged reply is still coming in would have its answer land
        // behind that reply's tail, and fail the check in turn.
        m_timer1.stop();
        m_flushTimer.start();
        return;
    }
    setPhase(Phase::CheckQuestion);
    emit crcQuestion(SessionMessage{crcQuestionText(), SessionMessage::Icon::Critical});
}

void UploadSession::answerCrcQuestion(bool ok)
{
    if (phase() != Phase::CheckQuestion)
        return;
    setPhase(m_phase.beforeQuestion());
    guarded([this, ok] {
        if (ok) {
            m_port.state().CrcErrorCount = 0;
            m_port.channel().readAll();
            FourthProtocol();
            return;
        }
        // Cancel closes the screen; the request for the same record still
        // goes out once more, as version 2.1 did.
        writeRequest();
        m_timer1.stop();
        m_timer3.stop();
        setPhase(Phase::Stopped);
        emit closeRequested();
    });
}

void UploadSession::takeReply(int n)
{
    LinkState& link = m_port.state();
    if (n == 0) {
        emit headerReceived();
        link.codec.CrcOk = false;
        DecodeFifthProtocol();
        ThirdProtocol();
        setPhase(Phase::AwaitingSummary);
        m_timer3.start();
        return;
    }
    if (n == 1) {
        m_matcher.summaryTaken();
        DecodeThirdProtocol();
        link.codec.CrcOk = false;
        m_recordNo = n + 1;
        setPhase(Phase::ReceivingRecords);
        FourthProtocol();
        return;
    }
    if (!UploadPhase::isLastRecord(n, m_summary.TotalRecords)) {
        link.codec.CrcOk = false;
        m_recordNo = n + 1;
        // The terminal waits for the next request, the clerk does not: it
        // goes out before the screen repaints its progress bar.
        FourthProtocol();
        emit busyChanged(true);
        emit progress(n - 1, m_summary.TotalRecords);
        return;
    }
    finish(n);
}

void UploadSession::finish(int n)
{
    LinkState& link = m_port.state();
    // Records are taken one after the other, so every one up to n is in;
    // checked all the same, since what follows stores them.
    for (int i = 0; i <= n; ++i) {
        if (!m_matcher.holds(i)) {
            fail(QStringLiteral("Record %1 of the upload is missing.\n\n%2").arg(i).arg(stoppedAdvice()));
            return;
        }
    }
    link.completion.markComplete();
    setPhase(Phase::Done);
    emit progress(n - 1, m_summary.TotalRecords);
    link.RxBuffer.clear();
    emit busyChanged(true);
    // The summary was read on the way here (record 1 comes before any
    // other), so the end frame goes out.
    CallOver();
    emit finished();
    emit busyChanged(false);
    m_timer3.start();
}

void UploadSession::onDone(const QByteArray& bytes)
{
    // Timer3 goes on repeating the last request after a finished receive.
    // A terminal still answering it is told again that the exchange is
    // over; what it sends is not kept again.
    LinkState& link = m_port.state();
    link.RxBuffer.append(bytes);
    m_timer3.stop();
    if (link.RxBuffer.size() < UploadFrames::ReplySize) {
        if (link.RxBuffer.toUpper().contains("NACK"))
            link.RxBuffer.clear();
        m_timer3.start();
        return;
    }
    const QByteArray reply = link.RxBuffer;
    link.RxBuffer.clear();
    link.codec.CrcOk = true;
    link.codec.CheckCRC(reply);
    if (link.codec.CrcOk && m_recordNo >= 0 && m_recordNo < link.Records.size() &&
        UploadFrames::content(link.Records.at(m_recordNo)) == UploadFrames::content(reply))
        CallOver();
    m_timer3.start();
}
