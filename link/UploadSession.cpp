#include "UploadSession.h"

#include "AppContext.h"
#include "Clock.h"
#include "LinkChannel.h"
#include "LinkCodec.h"
#include "Messenger.h"
#include "StoreError.h"

#include <QCoreApplication>
#include <QPointer>

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

// The value of a record number text; an empty text counts as 0.
int recordNumber(const QString& text)
{
    if (text.trimmed().isEmpty())
        return 0;
    bool ok = false;
    const int n = text.trimmed().toInt(&ok);
    if (!ok)
        throw LinkError(LinkError::Kind::TypeMismatch, QStringLiteral("record number \"%1\"").arg(text));
    return n;
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

UploadSession::UploadSession(AppContext& ctx, QObject* parent) : QObject(parent), m_ctx(ctx)
{
    m_timer3.setInterval(5000);
    connect(&m_timer1, &QTimer::timeout, this, &UploadSession::Timer1_Timer);
    connect(&m_timer3, &QTimer::timeout, this, &UploadSession::Timer3_Timer);
}

UploadSession::~UploadSession()
{
    disconnect(m_dataConnection);
    disconnect(m_failConnection);
}

void UploadSession::report(const QString& message)
{
    m_ctx.messenger().critical(message);
    emit failed(message);
}

bool UploadSession::Form_Load()
{
    // Timer3 is enabled in the screen's design: it runs from load whatever
    // happens to the port.
    m_timer3.start();
    const bool opened = OpenCommPort();
    m_timer1.setInterval(1000);
    m_ctx.link.UploadDone = false;
    return opened;
}

void UploadSession::cmdSend_Click()
{
    try {
        m_summary.TotalRecords = 5000;
        FifthProtocol();
    } catch (const LinkError& e) {
        report(e.message());
    } catch (const StoreError& e) {
        report(e.message());
    }
}

bool UploadSession::OpenCommPort()
{
    disconnect(m_dataConnection);
    disconnect(m_failConnection);
    QString error;
    if (!m_ctx.openCommPort(&error, this)) {
        report(error);
        return false;
    }
    LinkChannel& channel = m_ctx.channel();
    m_dataConnection = connect(&channel, &LinkChannel::dataArrived, this, &UploadSession::MSComm1_OnComm);
    m_failConnection = connect(&channel, &LinkChannel::failed, this, [this](const QString& message) {
        if (m_ctx.ownsLink(this))
            report(message);
    });
    return true;
}

void UploadSession::closePort()
{
    m_timer1.stop();
    m_timer3.stop();
    disconnect(m_dataConnection);
    disconnect(m_failConnection);
    m_ctx.releaseLink(this);
}

QByteArray UploadSession::requestFrame(int recHi, int recLo)
{
    QByteArray frame("\x01\xFF\x10\xF0U\x00\x03", 7);
    frame.append(static_cast<char>(recHi & 0xFF));
    frame.append(static_cast<char>(recLo & 0xFF));
    // Always zero, not a check byte of the two before it.
    frame.append('\0');
    return frame;
}

QByteArray UploadSession::endFrame()
{
    // 0xC4 is the check byte of bytes 8 to 13 (sum 0x13C), kept as a constant.
    return QByteArray("\x01\xFF\x10\xF0U\x00\x07\x00\x00OVER\xC4", 14);
}

void UploadSession::FifthProtocol()
{
    LinkState& link = m_ctx.link;
    link.RecordNo = QStringLiteral("0");
    link.codec.checkbin2R(link.RecordNo);
    link.TxFrame = requestFrame(link.codec.RecHi, link.codec.RecLo);
    m_ctx.channel().write(link.TxFrame);
}

void UploadSession::ThirdProtocol()
{
    LinkState& link = m_ctx.link;
    link.RecordNo = QStringLiteral("1");
    link.codec.checkbin2R(link.RecordNo);
    SendRTC();
    link.TxFrame = requestFrame(link.codec.RecHi, link.codec.RecLo);
    m_ctx.channel().write(link.TxFrame);
}

void UploadSession::writeRequest(AppContext& ctx)
{
    LinkState& link = ctx.link;
    link.codec.checkbin2R(link.RecordNo);
    link.TxFrame = requestFrame(link.codec.RecHi, link.codec.RecLo);
    ctx.channel().write(link.TxFrame);
}

void UploadSession::FourthProtocol()
{
    writeRequest(m_ctx);
    m_timer1.start();
}

void UploadSession::CallOver()
{
    m_ctx.link.TxFrame = endFrame();
    m_ctx.channel().write(m_ctx.link.TxFrame);
}

void UploadSession::SendRTC()
{
    const QString text = m_ctx.clock().now().toString(QStringLiteral("dd/MM/yy hh:mm:ss"));
    // Day, month, year, hour, minute, second at positions 1, 4, 7, 10, 13, 16.
    for (int i = 0; i < 6; ++i) {
        const int value = text.mid(i * 3, 2).toInt();
        const qint16 packed = LinkCodec::checkbin11(QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0')));
        m_summary.ClockBytes[static_cast<std::size_t>(i)] = static_cast<char>(packed & 0xFF);
    }
}

void UploadSession::DecodeFifthProtocol()
{
    const QByteArray& header = m_ctx.link.Records.at(0);
    const int count = byteAt(header, 10) * 256 + byteAt(header, 11);
    // TotalRecords is a 16-bit signed value on the screen.
    if (count > 32767)
        throw LinkError(LinkError::Kind::Overflow, QStringLiteral("announced record count %1").arg(count));
    m_summary.TotalRecords = count;
    m_summary.BankAgentId = field(header, 27, 15);
}

void UploadSession::DecodeThirdProtocol()
{
    LinkState& link = m_ctx.link;
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

void UploadSession::flushInput()
{
    // Ten reads of whatever is waiting, with one turn of the message loop
    // after each; receive events during it only discard (see onComm).
    m_flushing = true;
    for (int i = 0; i < 10; ++i) {
        m_ctx.channel().readAll();
        QCoreApplication::processEvents();
    }
    m_flushing = false;
}

void UploadSession::MSComm1_OnComm()
{
    if (!m_ctx.ownsLink(this)) {
        // Another screen has opened the port since: it is not ours to use.
        m_timer1.stop();
        m_timer3.stop();
        return;
    }
    try {
        onComm();
    } catch (const LinkError& e) {
        report(e.message());
    } catch (const StoreError& e) {
        report(e.message());
    }
}

void UploadSession::onComm()
{
    LinkState& link = m_ctx.link;
    if (m_flushing) {
        m_ctx.channel().readAll();
        return;
    }
    link.RxBuffer.append(m_ctx.channel().readAll());
    m_timer3.stop();

    if (link.RxBuffer.size() < ReplySize) {
        m_timer1.start();
        if (link.RxBuffer.toUpper().contains("NACK")) {
            link.RxBuffer.clear();
            m_ctx.messenger().information(noAcknowledgementText());
        }
        return;
    }

    link.TimeoutCount = 0;
    m_timer1.stop();
    const int n = recordNumber(link.RecordNo);
    if (n < 0 || n >= LinkState::RecordsSize)
        throw LinkError(LinkError::Kind::SubscriptOutOfRange,
                        QStringLiteral("a reply to request %1 cannot be kept: a receive holds records 0 to %2")
                            .arg(n)
                            .arg(LinkState::RecordsSize - 1));
    link.Records[n] = link.RxBuffer;
    link.RxBuffer.clear();
    link.codec.CrcOk = true;
    link.codec.CheckCRC(link.Records.at(n));

    if (!link.codec.CrcOk) {
        QPointer<UploadSession> self(this);
        flushInput();
        if (!self)
            return;
        ++link.CrcErrorCount;
        if (link.CrcErrorCount != CrcQuestionAfter) {
            FourthProtocol();
            return;
        }
        if (m_ctx.messenger().askOkCancel(crcQuestionText(), Messenger::Icon::Critical)) {
            link.CrcErrorCount = 0;
        } else {
            AppContext& ctx = m_ctx;
            emit closeRequested();
            if (!self) {
                // The screen went at once; the request still goes out.
                writeRequest(ctx);
                return;
            }
        }
        // After Cancel the request still goes out, as it always did.
        FourthProtocol();
        return;
    }

    if (n == 0) {
        emit headerReceived();
        link.codec.CrcOk = false;
        DecodeFifthProtocol();
        ThirdProtocol();
        m_timer3.start();
        return;
    }
    if (n == 1) {
        DecodeThirdProtocol();
        if (!link.HeaderDecoded)
            return;
        link.codec.CrcOk = false;
        link.RecordNo = QString::number(n + 1);
        FourthProtocol();
        return;
    }

    const int received = n - 1;
    if (received != m_summary.TotalRecords && received != RecordCeiling) {
        emit busyChanged(true);
        emit progress(received, m_summary.TotalRecords);
        link.codec.CrcOk = false;
        link.RecordNo = QString::number(n + 1);
        FourthProtocol();
        return;
    }

    link.UploadDone = true;
    emit progress(received, m_summary.TotalRecords);
    link.RxBuffer.clear();
    emit busyChanged(true);
    if (link.HeaderDecoded)
        CallOver();
    if (m_restore)
        m_restore(*this);
    emit busyChanged(false);
    if (link.HeaderDecoded)
        m_timer3.start();
    emit finished();
}

void UploadSession::stepBackAfterTimeout()
{
    LinkState& link = m_ctx.link;
    const int n = recordNumber(link.RecordNo);
    if (n > 1 && link.TimeoutCount == 1)
        link.RecordNo = QString::number(n - 1);
}

void UploadSession::Timer1_Timer()
{
    if (!m_ctx.ownsLink(this)) {
        // Another screen has opened the port since: it is not ours to use.
        m_timer1.stop();
        m_timer3.stop();
        return;
    }
    try {
        onTimer1();
    } catch (const LinkError& e) {
        report(e.message());
    } catch (const StoreError& e) {
        report(e.message());
    }
}

void UploadSession::onTimer1()
{
    LinkState& link = m_ctx.link;
    if (link.UploadDone)
        return;
    ++link.TimeoutCount;
    if (link.TimeoutCount == CableMessageEvery) {
        m_ctx.messenger().critical(checkCableText());
        link.TimeoutCount = 0;
    }
    m_timer1.stop();
    m_ctx.channel().write(QByteArray());
    link.RxBuffer.clear();
    if (!link.RecordNo.isEmpty()) {
        stepBackAfterTimeout();
        FourthProtocol();
        m_timer1.start();
    }
}

void UploadSession::Timer3_Timer()
{
    if (!m_ctx.ownsLink(this)) {
        // Another screen has opened the port since: it is not ours to use.
        m_timer1.stop();
        m_timer3.stop();
        return;
    }
    try {
        onTimer3();
    } catch (const LinkError& e) {
        report(e.message());
    } catch (const StoreError& e) {
        report(e.message());
    }
}

void UploadSession::onTimer3()
{
    LinkState& link = m_ctx.link;
    m_timer3.stop();
    if (!link.RecordNo.isEmpty()) {
        stepBackAfterTimeout();
        FourthProtocol();
        m_timer3.start();
    }
}
