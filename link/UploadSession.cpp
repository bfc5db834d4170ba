#include "link/UploadSession.h"

#include "base/Clock.h"
#include "link/LinkChannel.h"
#include "link/LinkCodec.h"
#include "link/LinkPort.h"
#include "link/UploadFrames.h"

#include <QPointer>
#include <algorithm>
#include <exception>

namespace {

// Characters at 1-based positions of a reply, as Latin-1 text.
QString field(const QByteArray& reply, int position, int count)
{
    return QString::fromLatin1(reply.mid(position - 1, count));
}

std::uint8_t byteAt(const QByteArray& reply, int position)
{
    if (position > reply.size())
        throw LinkError(LinkError::Kind::SubscriptOutOfRange,
                        QStringLiteral("byte %1 of a %2-byte reply").arg(position).arg(reply.size()));
    return static_cast<std::uint8_t>(reply.at(position - 1));
}

QString stoppedAdvice()
{
    return QStringLiteral("The receive has stopped and nothing was stored. Press Receive to start it again.");
}

} // namespace

QString UploadSummary::totalAmountText() const
{
    // The leading digits read as a number, as the screen's field showed it.
    qint64 value = 0;
    for (QChar c : TotalAmountDigits.trimmed()) {
        if (!c.isDigit())
            break;
        value = value * 10 + c.digitValue();
    }
    return QStringLiteral("%1.00").arg(value);
}

UploadSession::UploadSession(LinkPort& port, Clock& clock, QObject* parent)
    : QObject(parent), m_port(port), m_clock(clock)
{
    m_timer1.setInterval(1000);
    m_timer3.setInterval(5000);
    connect(&m_timer1, &QTimer::timeout, this, &UploadSession::Timer1_Timer);
    connect(&m_timer3, &QTimer::timeout, this, &UploadSession::Timer3_Timer);
    m_flushTimer.setSingleShot(true);
    m_flushTimer.setInterval(FlushQuietMs);
    connect(&m_flushTimer, &QTimer::timeout, this, &UploadSession::FlushTimer_Timer);
}

UploadSession::~UploadSession()
{
    closePort();
}

bool UploadSession::isBusy() const
{
    return m_questionOpen || m_phase == Phase::AwaitingHeader || m_phase == Phase::AwaitingSummary ||
           m_phase == Phase::ReceivingRecords;
}

void UploadSession::setPhase(Phase phase)
{
    if (m_phase == phase)
        return;
    m_phase = phase;
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
    m_questionOpen = false;
    m_port.state().RxBuffer.clear();
    setPhase(Phase::Stopped);
    say(text, SessionMessage::Icon::Critical);
    emit stopped();
}

bool UploadSession::ownsLink() const
{
    return m_port.holds(this);
}

template <typename F> void UploadSession::guarded(F&& step)
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

bool UploadSession::Form_Load()
{
    // Timer3 is enabled in the screen's design: it runs from load. With no
    // record asked for yet its tick does nothing.
    m_timer3.start();
    const bool opened = OpenCommPort();
    m_timer1.setInterval(1000);
    m_port.state().UploadDone = false;
    return opened;
}

void UploadSession::cmdSend_Click()
{
    // After a port failure, or when another screen took the port since.
    if ((!ownsLink() || !m_port.channel().isOpen()) && !OpenCommPort())
        return;
    guarded([this] {
        LinkState& link = m_port.state();
        // Whatever waits in the line now was sent before this receive asked
        // for anything: an interrupted exchange, line noise.
        m_port.channel().readAll();
        link.RxBuffer.clear();
        for (QByteArray& r : link.Records)
            r.clear();
        m_kept.clear();
        link.UploadDone = false;
        link.HeaderDecoded = false;
        link.TimeoutCount = 0;
        link.CrcErrorCount = 0;
        m_questionOpen = false;
        m_flushTimer.stop();
        m_badSummaries = 0;
        m_unmatched = 0;
        clearMatching();
        m_summary.TotalRecords = 5000;
        setPhase(Phase::AwaitingHeader);
        FifthProtocol();
    });
}

bool UploadSession::OpenCommPort()
{
    disconnect(m_dataConnection);
    disconnect(m_failConnection);
    QString error;
    if (!m_port.open(this, &error)) {
        m_timer1.stop();
        setPhase(Phase::Stopped);
        say(error, SessionMessage::Icon::Critical);
        emit stopped();
        return false;
    }
    LinkChannel& channel = m_port.channel();
    m_dataConnection = connect(&channel, &LinkChannel::dataArrived, this, &UploadSession::MSComm1_OnComm);
    m_failConnection = connect(&channel, &LinkChannel::failed, this, [this](const QString& text) {
        if (!ownsLink())
            return;
        if (m_phase == Phase::Done) {
            // The terminal was unplugged after a complete receive: nothing
            // is lost, only the idle resend ends.
            m_timer1.stop();
            m_timer3.stop();
            return;
        }
        if (m_phase == Phase::Idle || m_phase == Phase::Stopped) {
            fail(QStringLiteral("%1\n\nCheck the cable to the terminal, then press Receive.").arg(text));
            return;
        }
        fail(QStringLiteral("%1\n\nThe receive has stopped and nothing was stored. Check the cable to the "
                            "terminal, put the terminal in upload mode again and press Receive.")
                 .arg(text));
    });
    return true;
}

void UploadSession::closePort()
{
    m_timer1.stop();
    m_timer3.stop();
    m_flushTimer.stop();
    disconnect(m_dataConnection);
    disconnect(m_failConnection);
    m_port.release(this);
}

void UploadSession::stop()
{
    m_questionOpen = false;
    m_port.state().RxBuffer.clear();
    closePort();
    if (m_phase != Phase::Done)
        setPhase(Phase::Stopped);
    emit stopped();
}

void UploadSession::writeRequest()
{
    LinkState& link = m_port.state();
    link.codec.checkbin2R(QString::number(m_recordNo));
    link.RecordNo = QString::number(m_recordNo);
    link.TxFrame = UploadFrames::request(link.codec.RecHi, link.codec.RecLo);
    m_port.channel().write(link.TxFrame);
}

void UploadSession::FifthProtocol()
{
    m_recordNo = 0;
    writeRequest();
}

void UploadSession::ThirdProtocol()
{
    m_recordNo = 1;
    SendRTC();
    writeRequest();
}

void UploadSession::FourthProtocol()
{
    writeRequest();
    m_timer1.start();
}

void UploadSession::CallOver()
{
    m_port.state().TxFrame = UploadFrames::end();
    m_port.channel().write(m_port.state().TxFrame);
}

void UploadSession::SendRTC()
{
    const QString text = m_clock.now().toString(QStringLiteral("dd/MM/yy hh:mm:ss"));
    // Day, month, year, hour, minute, second at positions 1, 4, 7, 10, 13, 16.
    for (int i = 0; i < 6; ++i) {
        const int value = text.mid(i * 3, 2).toInt();
        const qint16 packed = LinkCodec::checkbin11(QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0')));
        m_summary.ClockBytes[static_cast<std::size_t>(i)] = static_cast<char>(packed & 0xFF);
    }
}

void UploadSession::DecodeFifthProtocol()
{
    const QByteArray& header = m_port.state().Records.at(0);
    const int count = byteAt(header, 10) * 256 + byteAt(header, 11);
    // TotalRecords is a 16-bit signed value on the screen.
    if (count > 32767)
        throw LinkError(LinkError::Kind::Overflow, QStringLiteral("announced record count %1").arg(count));
    m_summary.TotalRecords = count;
    m_summary.BankAgentId = field(header, 27, 15);
}

void UploadSession::DecodeThirdProtocol()
{
    LinkState& link = m_port.state();
    const QByteArray& summary = link.Records.at(1);
    byteAt(summary, 22);
    m_summary.AgentId = field(summary, 10, 3);
    m_summary.CollectionDate = field(summary, 13, 4);
    m_summary.UploadBaseName = field(summary, 10, 7);

    const LinkCodec::Buffer count = LinkCodec::String2byte(summary.mid(16, 2), 2);
    link.codec.HEX_DECIMAL(count[0], count[1]);
    m_summary.TotalTransactions = link.codec.HexValue;

    QString digits;
    for (int position = 19; position <= 22; ++position) {
        const qint16 value = LinkCodec::BinCheck(QString::number(byteAt(summary, position)));
        digits += QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0'));
    }
    m_summary.TotalAmountDigits = digits;
    link.HeaderDecoded = true;
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
    if (m_phase == Phase::Done) {
        onDone(bytes);
        return;
    }
    // Nothing is asked for: before Receive, after the receive ended, and
    // while the check-failure question waits for its answer.
    if (m_phase == Phase::Idle || m_phase == Phase::Stopped || m_questionOpen)
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
    if (!matchReply(n, reply)) {
        // A terminal that goes on answering with records that were not asked
        // for would otherwise keep the receive going round without a word.
        if (m_phase != Phase::Stopped && ++m_unmatched >= UnmatchedRepliesAllowed)
            fail(QStringLiteral("The terminal keeps answering the request for record %1 with other records.\n\n"
                                "The receive has stopped and nothing was stored. Switch the terminal off and "
                                "on, put it in upload mode again and press Receive.")
                     .arg(n));
        return;
    }
    // Only a record not held before is progress: asking again for records
    // already kept can go round in a circle.
    if (link.Records.at(n).isEmpty())
        m_unmatched = 0;
    takeReply(n, reply);
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
    m_questionOpen = true;
    emit crcQuestion(SessionMessage{crcQuestionText(), SessionMessage::Icon::Critical});
}

void UploadSession::FlushTimer_Timer()
{
    m_flushTimer.stop();
    guarded([this] {
        if (!isBusy() || m_questionOpen)
            return;
        m_port.channel().readAll();
        m_port.state().RxBuffer.clear();
        FourthProtocol();
    });
}

void UploadSession::answerCrcQuestion(bool ok)
{
    if (!m_questionOpen)
        return;
    m_questionOpen = false;
    guarded([this, ok] {
        if (ok) {
            m_port.state().CrcErrorCount = 0;
            m_port.channel().readAll();
            FourthProtocol();
            return;
        }
        // Cancel closes the screen; the request for the same record still
        // goes out once more, as it always did.
        writeRequest();
        m_timer1.stop();
        m_timer3.stop();
        setPhase(Phase::Stopped);
        emit closeRequested();
    });
}

int UploadSession::keptElsewhere(int n, const QByteArray& content) const
{
    const auto found = m_kept.constFind(content);
    if (found == m_kept.constEnd())
        return -1;
    for (int i : *found) {
        if (i != n)
            return i;
    }
    return -1;
}

void UploadSession::keep(int n, const QByteArray& reply)
{
    m_port.state().Records[n] = reply;
    QList<int>& places = m_kept[UploadFrames::content(reply)];
    places.insert(std::lower_bound(places.begin(), places.end(), n), n);
}

void UploadSession::forget(int n)
{
    QByteArray& kept = m_port.state().Records[n];
    if (kept.isEmpty())
        return;
    const QByteArray content = UploadFrames::content(kept);
    if (auto found = m_kept.find(content); found != m_kept.end()) {
        found->removeOne(n);
        if (found->isEmpty())
            m_kept.erase(found);
    }
    kept.clear();
}

void UploadSession::clearMatching()
{
    m_disputed = -1;
    m_candidate.clear();
    m_unconfirmed = -1;
    m_unconfirmedContent.clear();
    m_duplicateFor = -1;
    m_duplicateOf = -1;
    m_duplicateCount = 0;
}

// Whether a good reply is the answer to request n. The reply's head says
// nothing we may rely on, so replies are told apart by their records: no two
// records of one upload are alike (each holds its account and its
// transaction numbers), so the same record at two places means a late reply
// or a request the terminal read as another one.
bool UploadSession::matchReply(int n, const QByteArray& reply)
{
    LinkState& link = m_port.state();
    const QByteArray content = UploadFrames::content(reply);
    const int other = keptElsewhere(n, content);

    if (!link.Records.at(n).isEmpty()) {
        // A record asked for again (step back, check question, walk back).
        if (UploadFrames::content(link.Records.at(n)) == content) {
            if (m_disputed == n)
                m_disputed = -1;
            return true;
        }
        if (other >= 0) {
            // Another record's late reply: the answer to this request is
            // still to come.
            m_timer1.start();
            return false;
        }
        // A different answer than the one kept: ask again, and take
        // whichever comes twice in a row.
        if (m_disputed == n && m_candidate == content) {
            m_disputed = -1;
            forget(n);
            return true;
        }
        m_disputed = n;
        m_candidate = content;
        FourthProtocol();
        return false;
    }

    if (other >= 0) {
        if (m_duplicateFor == n && m_duplicateOf == other) {
            ++m_duplicateCount;
        } else {
            m_duplicateFor = n;
            m_duplicateOf = other;
            m_duplicateCount = 1;
        }
        if (m_duplicateCount == 2) {
            // The terminal gives the same answer again: the record kept at
            // `other` may be the misplaced one. Ask for it again and come
            // back from there.
            m_recordNo = other;
            FourthProtocol();
            return false;
        }
        if (m_duplicateCount < 2) {
            m_timer1.start();
            return false;
        }
        // Asked again at both places and the same each time: the two
        // records really are alike.
        m_duplicateFor = -1;
        m_duplicateCount = 0;
        return true;
    }

    if (n == 1 && !UploadFrames::plausibleSummary(reply)) {
        // A transaction record or noise in the summary's place would show
        // as agent and date and name the upload file.
        if (++m_badSummaries >= BadSummariesAllowed) {
            fail(QStringLiteral("The terminal's summary record cannot be read: agent \"%1\", date \"%2\" are not "
                                "an agent number and a ddmm date.\n\nNothing was stored. Put the terminal in "
                                "upload mode again and press Receive; if this comes again, the terminal's "
                                "collections must be checked on the terminal.")
                     .arg(field(reply, 10, 3), field(reply, 13, 4)));
            return false;
        }
        m_timer1.start();
        return false;
    }
    if (n >= 2 && UploadFrames::namesNoAccount(reply)) {
        // What the terminal answers for a record beyond its last. A request
        // whose number was damaged on the line gets it too, and kept here it
        // would lose this record's collections without a trace (it appears
        // nowhere else). Asked again: the same answer twice in a row is taken.
        if (m_unconfirmed == n && m_unconfirmedContent == content) {
            m_unconfirmed = -1;
            m_unconfirmedContent.clear();
            return true;
        }
        m_unconfirmed = n;
        m_unconfirmedContent = content;
        FourthProtocol();
        return false;
    }
    return true;
}

void UploadSession::takeReply(int n, const QByteArray& reply)
{
    LinkState& link = m_port.state();
    if (link.Records.at(n).isEmpty())
        keep(n, reply);

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
        m_badSummaries = 0;
        DecodeThirdProtocol();
        if (!link.HeaderDecoded)
            return;
        link.codec.CrcOk = false;
        m_recordNo = n + 1;
        setPhase(Phase::ReceivingRecords);
        FourthProtocol();
        return;
    }

    const int received = n - 1;
    if (received != m_summary.TotalRecords && received != RecordCeiling) {
        emit busyChanged(true);
        emit progress(received, m_summary.TotalRecords);
        link.codec.CrcOk = false;
        m_recordNo = n + 1;
        FourthProtocol();
        return;
    }

    // Records are taken one after the other, so every one up to n is in;
    // checked all the same, since what follows stores them.
    for (int i = 0; i <= n; ++i) {
        if (link.Records.at(i).isEmpty()) {
            fail(QStringLiteral("Record %1 of the upload is missing.\n\n%2").arg(i).arg(stoppedAdvice()));
            return;
        }
    }
    link.UploadDone = true;
    setPhase(Phase::Done);
    emit progress(received, m_summary.TotalRecords);
    link.RxBuffer.clear();
    emit busyChanged(true);
    if (link.HeaderDecoded)
        CallOver();
    emit finished();
    emit busyChanged(false);
    if (link.HeaderDecoded)
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

void UploadSession::stepBackAfterTimeout()
{
    if (m_recordNo > 1 && m_port.state().TimeoutCount == 1)
        --m_recordNo;
}

void UploadSession::Timer1_Timer()
{
    guarded([this] { onTimer1(); });
}

void UploadSession::onTimer1()
{
    LinkState& link = m_port.state();
    if (link.UploadDone || m_phase == Phase::Done) {
        m_timer1.stop();
        return;
    }
    if (m_phase == Phase::Idle || m_phase == Phase::Stopped || m_questionOpen || m_flushTimer.isActive()) {
        m_timer1.stop();
        return;
    }
    ++link.TimeoutCount;
    if (link.TimeoutCount == CableMessageEvery) {
        say(checkCableText(), SessionMessage::Icon::Critical);
        link.TimeoutCount = 0;
    }
    m_timer1.stop();
    m_port.channel().write(QByteArray());
    link.RxBuffer.clear();
    if (m_recordNo >= 0) {
        stepBackAfterTimeout();
        FourthProtocol();
        m_timer1.start();
    }
}

void UploadSession::Timer3_Timer()
{
    guarded([this] { onTimer3(); });
}

void UploadSession::onTimer3()
{
    m_timer3.stop();
    if (m_phase == Phase::Stopped || m_questionOpen)
        return;
    if (m_flushTimer.isActive()) {
        m_timer3.start();
        return;
    }
    if (m_recordNo >= 0) {
        stepBackAfterTimeout();
        FourthProtocol();
        m_timer3.start();
    }
}
