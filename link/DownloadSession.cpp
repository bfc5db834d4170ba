#include "link/DownloadSession.h"

#include "base/Clock.h"
#include "link/DownloadAnswers.h"
#include "link/LinkChannel.h"
#include "link/LinkPort.h"

// The send: the port, the frames and what each answer makes go out next.
// The time-outs are in DownloadSessionTimeouts.cpp.

DownloadSession::DownloadSession(LinkPort& port, Clock& clock, QObject* parent)
    : QObject(parent), m_port(port), m_clock(clock)
{
    m_timer1.setInterval(10);
    m_timer2.setInterval(1000);
    m_timer3.setInterval(5000);
    m_headerWatch.setInterval(HeaderWaitMs);
    m_headerWatch.setSingleShot(true);
    connect(&m_timer1, &QTimer::timeout, this, &DownloadSession::Timer1_Timer);
    connect(&m_timer2, &SessionTimer::timeout, this, &DownloadSession::Timer2_Timer);
    connect(&m_timer3, &QTimer::timeout, this, &DownloadSession::Timer3_Timer);
    connect(&m_headerWatch, &QTimer::timeout, this, &DownloadSession::headerTimedOut);
}

DownloadSession::~DownloadSession()
{
    stopTimers();
    m_port.release(this);
}

LinkState& DownloadSession::link()
{
    return m_port.state();
}

bool DownloadSession::busy() const
{
    return m_phase.busy();
}

void DownloadSession::setPhase(Phase phase)
{
    m_phase.moveTo(phase);
}

void DownloadSession::stopTimers()
{
    m_timer1.stop();
    m_timer2.stop();
    m_timer3.stop();
    m_headerWatch.stop();
}

void DownloadSession::stopWith(const SessionMessage& message)
{
    stopTimers();
    link().RxBuffer.clear();
    setPhase(Phase::Stopped);
    emit this->message(message);
    emit stopped();
}

void DownloadSession::complete(const QString& text)
{
    stopTimers();
    link().completion.markComplete();
    setPhase(Phase::Done);
    emit message({text, SessionMessage::Icon::Information});
    emit completed();
}

void DownloadSession::fail(const QString& why)
{
    stopWith({QStringLiteral("The download to the hand-held terminal was stopped: %1\nCheck the data and press Send "
                             "again.")
                  .arg(why),
              SessionMessage::Icon::Critical});
}

void DownloadSession::onLinkFailed(const QString& message)
{
    // The port has closed itself; the one message says what happened.
    if (phase() == Phase::Stopped) {
        stopTimers();
        return;
    }
    stopWith({message, SessionMessage::Icon::Critical});
}

void DownloadSession::onPortTaken()
{
    const bool wasBusy = busy();
    stopTimers();
    if (!wasBusy)
        return;
    stopWith({portTakenText(), SessionMessage::Icon::Critical});
}

void DownloadSession::setCounter(int counter)
{
    m_counter = counter;
    link().setRecordNo(counter);
}

void DownloadSession::Form_Load()
{
    m_timer1.setInterval(10);
    stopTimers();
    setCounter(0);
    link().completion.clear();
}

void DownloadSession::prepareSend()
{
    stopTimers();
    setCounter(0);
    link().RxBuffer.clear();
    setPhase(Phase::Idle);
    m_header.clear();
    m_recordFrames.clear();
    m_lastFrameSent = 0;
    m_highest = 0;
    m_sinceProgress = 0;
    m_quietTicks = 0;
}

bool DownloadSession::OpenCommPort()
{
    LinkPort::Handlers handlers;
    handlers.dataArrived = [this] { MSComm1_OnComm(); };
    handlers.failed = [this](const QString& message) { onLinkFailed(message); };
    handlers.taken = [this] { onPortTaken(); };
    QString error;
    if (!m_port.open(this, std::move(handlers), &error)) {
        stopWith({error, SessionMessage::Icon::Critical});
        return false;
    }
    return true;
}

void DownloadSession::stopTransfer()
{
    stopTimers();
    link().RxBuffer.clear();
    if (busy())
        setPhase(Phase::Stopped);
    m_port.release(this);
}

void DownloadSession::closePort()
{
    stopTransfer();
}

void DownloadSession::send(const QByteArray& frame)
{
    link().TxFrame = frame;
    m_port.write(this, frame);
}

void DownloadSession::FirstProtocol(const DownloadJob& job)
{
    m_job = job;
    guarded([this] { doFirstProtocol(); });
}

void DownloadSession::doFirstProtocol()
{
    // Built after the clock reading and the port, as version 2.1 did;
    // nothing is written until the port is open.
    const QDateTime now = m_clock.now();
    setPhase(Phase::AwaitingHeaderAck);
    if (!OpenCommPort())
        return;
    link().RxBuffer.clear();
    m_header = DownloadFrames::header(m_job, now, link().codec);
    m_recordFrames.clear();
    m_lastFrameSent = 0; // the header carries record number 0
    send(m_header);
    // Sent once: a terminal may take its time to prepare, and a second
    // header is nothing it was made for. After a while without an answer
    // the clerk is told to look at the cable instead.
    m_headerWatch.start();
}

void DownloadSession::SecondProtocol()
{
    guarded([this] { doSecondProtocol(); });
}

void DownloadSession::doSecondProtocol()
{
    setCounter(2);
    if (m_job.accounts.size() >= FrameCapacity)
        throw LinkError(LinkError::Kind::SubscriptOutOfRange,
                        QStringLiteral("more than %1 accounts to send").arg(FrameCapacity - 1));
    QList<QByteArray> frames(1); // index 0 is never filled
    int n = 1;
    for (const DownloadAccount& account : std::as_const(m_job.accounts)) {
        frames.append(DownloadFrames::record(account, n + 1, link().codec));
        ++n;
    }
    m_recordFrames = frames;
    setPhase(Phase::SendingRecords);
    m_lastFrameSent = 2;
    m_highest = 2;
    send(m_recordFrames.value(1));
    // The response time-out covers the first account frame too, so that a
    // lost acknowledgement of it is resent like any other.
    m_timer2.start();
}

void DownloadSession::SendOneByOne()
{
    guarded([this] { doSendOneByOne(); });
}

void DownloadSession::doSendOneByOne()
{
    if (phase() == Phase::AwaitingHeaderAck) {
        // Only a NACK asks for the header again.
        m_lastFrameSent = 0;
        send(m_header);
        m_headerWatch.start();
        return;
    }
    // Frames are numbered from the header (1), so the accounts are 2 to
    // count + 1 and the counter may reach count + 1.
    if (phase() == Phase::SendingRecords && m_counter <= frameCount() + 1) {
        if (m_counter - 1 < 0 || m_counter - 1 >= FrameCapacity)
            throw LinkError(LinkError::Kind::SubscriptOutOfRange, QStringLiteral("frame %1").arg(m_counter));
        m_lastFrameSent = m_counter;
        send(m_recordFrames.value(m_counter - 1));
    } else if (phase() == Phase::SendingRecords) {
        setPhase(Phase::AwaitingEndAck);
        m_lastFrameSent = 0; // "OVER" carries 00 00
        send(endFrame());
    }
    m_timer2.start();
}

void DownloadSession::MSComm1_OnComm()
{
    guarded([this] { doOnComm(); });
}

void DownloadSession::doOnComm()
{
    LinkState& state = link();
    const QByteArray bytes = m_port.channel().readAll();
    if (!m_phase.readsAnswers()) {
        // Nothing is awaited (left-overs of an earlier exchange, a late
        // answer after the send ended), or the line is being let go quiet:
        // never taken for a reply.
        state.RxBuffer.clear();
        return;
    }
    state.RxBuffer += bytes;
    m_timer3.stop();
    if (state.RxBuffer.size() < DownloadFrames::AnswerSize)
        return;

    const DownloadAnswers::Answer answer = DownloadAnswers::read(state.RxBuffer);
    if (answer.notInDownloadMode) {
        stopWith({notInDownloadModeText(), SessionMessage::Icon::Information});
        return;
    }
    state.RxBuffer.clear();

    if (answer.acknowledged && phase() == Phase::AwaitingEndAck) {
        complete(completedText());
        return;
    }

    if (answer.recordNumber >= 0 && answer.recordNumber == m_lastFrameSent) {
        if (phase() == Phase::AwaitingHeaderAck) {
            m_headerWatch.stop();
            m_timer2.stop();
            setPhase(Phase::HeaderAcknowledged);
            m_timer1.start();
        } else {
            m_timer2.stop();
            m_quietTicks = 0;
            setCounter(m_counter + 1);
            if (m_counter > m_highest) {
                m_highest = m_counter;
                m_sinceProgress = 0;
            } else {
                ++m_sinceProgress;
            }
            // The terminal waits for the next frame, the clerk does not: it
            // goes out before the screen repaints its progress bar.
            doSendOneByOne();
            emit progress(m_counter - 2, m_job.recordCount);
        }
        return;
    }

    if (phase() == Phase::AwaitingHeaderAck) {
        // Any other answer to the header belongs to an earlier exchange.
        if (answer.negative)
            doSendOneByOne();
        return;
    }
    m_timer2.stop();
    if (answer.negative) {
        emit progress(m_counter - 2, m_job.recordCount);
    } else {
        setCounter(std::max(m_counter - 2, 2));
        // Answers that keep lagging behind the frames (a terminal that was
        // paused answers every copy the time-outs sent meanwhile) would
        // otherwise be chased for ever, each resend drawing one more late
        // answer. Stop answering until the line is quiet; the next time-out
        // resends from a clean line.
        if (++m_sinceProgress >= LagLimit) {
            setPhase(DownloadPhase::drainingOf(phase()));
            m_sinceProgress = 0;
            m_timer2.start();
            return;
        }
    }
    doSendOneByOne();
}
