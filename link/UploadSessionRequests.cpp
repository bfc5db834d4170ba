#include "base/Clock.h"
#include "link/LinkChannel.h"
#include "link/LinkCodec.h"
#include "link/LinkPort.h"
#include "link/UploadFrames.h"
#include "link/UploadSession.h"

// What the receive sends and when: the port, the record requests, the end
// frame, and the time-outs that ask again. The replies are handled in
// UploadSession.cpp.

UploadSession::UploadSession(LinkPort& port, Clock& clock, QObject* parent)
    : QObject(parent), m_port(port), m_clock(clock), m_matcher(port.state().Records)
{
    m_timer1.setInterval(1000);
    m_timer3.setInterval(5000);
    connect(&m_timer1, &SessionTimer::timeout, this, &UploadSession::Timer1_Timer);
    connect(&m_timer3, &SessionTimer::timeout, this, &UploadSession::Timer3_Timer);
    m_flushTimer.setSingleShot(true);
    m_flushTimer.setInterval(FlushQuietMs);
    connect(&m_flushTimer, &QTimer::timeout, this, &UploadSession::FlushTimer_Timer);
}

UploadSession::~UploadSession()
{
    closePort();
}

bool UploadSession::Form_Load()
{
    // Timer3 is enabled in the screen's design: it runs from load. With no
    // record asked for yet its tick does nothing.
    m_timer3.start();
    const bool opened = OpenCommPort();
    m_timer1.setInterval(1000);
    m_port.state().completion.clear();
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
        m_matcher.clearAll();
        link.completion.clear();
        link.TimeoutCount = 0;
        link.CrcErrorCount = 0;
        m_flushTimer.stop();
        m_unmatched = 0;
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
        if (phase() == Phase::Done) {
            // The terminal was unplugged after a complete receive: nothing
            // is lost, only the idle resend ends.
            m_timer1.stop();
            m_timer3.stop();
            return;
        }
        if (phase() == Phase::Idle || phase() == Phase::Stopped) {
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
    m_port.state().RxBuffer.clear();
    closePort();
    if (phase() != Phase::Done)
        setPhase(Phase::Stopped);
    emit stopped();
}

void UploadSession::writeRequest()
{
    LinkState& link = m_port.state();
    link.codec.checkbin2(m_recordNo);
    // After a request only its record number changes: no new frame.
    if (!UploadFrames::renumberRequest(link.TxFrame, link.codec.RecHi, link.codec.RecLo))
        link.TxFrame = UploadFrames::request(link.codec.RecHi, link.codec.RecLo);
    m_port.channel().write(link.TxFrame);
    // The shared state keeps the number as text too; nothing on the line
    // waits for that, so it is set once the request is out.
    link.setRecordNo(m_recordNo);
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

void UploadSession::FlushTimer_Timer()
{
    m_flushTimer.stop();
    guarded([this] {
        if (!m_phase.takesReplies())
            return;
        m_port.channel().readAll();
        m_port.state().RxBuffer.clear();
        FourthProtocol();
    });
}

void UploadSession::stepBackAfterTimeout()
{
    m_recordNo = UploadPhase::afterTimeout(m_recordNo, m_port.state().TimeoutCount);
}

void UploadSession::Timer1_Timer()
{
    guarded([this] { onTimer1(); });
}

void UploadSession::onTimer1()
{
    LinkState& link = m_port.state();
    if (!m_phase.responseTimeoutResends() || m_flushTimer.isActive()) {
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
    if (!m_phase.idleResendRuns())
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
