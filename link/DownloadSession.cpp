#include "DownloadSession.h"

#include "AppContext.h"
#include "Clock.h"
#include "LinkChannel.h"
#include "Messenger.h"
#include "PasswordStore.h"
#include "SharedDatabase.h"
#include "SharedRecordset.h"
#include "StoreError.h"

#include <cmath>

namespace {

constexpr int AckFrameSize = 14;

const QByteArray framePrefix = QByteArrayLiteral("\x01\xFF\x10\xF0"
                                                 "D");

// Format(value, "000...") of the original: a number text rounded (halves
// away from zero) and zero-padded to the width; a text that is not a number
// comes back unchanged, so the packed conversion after it fails on it.
QString formatDigits(const QString& text, int width)
{
    bool ok = false;
    const double v = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(v))
        return text;
    const long long rounded = std::llround(v);
    const QString digits = QString::number(rounded < 0 ? -rounded : rounded).rightJustified(width, QLatin1Char('0'));
    return rounded < 0 ? QLatin1Char('-') + digits : digits;
}

char packedByte(const QString& pair)
{
    // Values of 100 and more are not clipped by checkbin1; the frame takes
    // the low 8 bits.
    return static_cast<char>(LinkCodec::checkbin1(formatDigits(pair, 2)) & 0xFF);
}

// A number text cut into two-digit pairs, one packed byte per pair.
QByteArray packedPairs(const QString& text, int pairs)
{
    QByteArray out;
    for (int i = 0; i < pairs; ++i)
        out += packedByte(text.mid(i * 2, 2));
    return out;
}

// A ddmmyy date as three packed bytes. A date of six spaces (the bank left
// it blank) is sent as three zero bytes, which no real date packs to; an
// empty or all-blank value of another length, left by a short download
// line, is treated the same way.
QByteArray packedDate(const QString& date)
{
    if (date == QLatin1String("      ") || date.trimmed().isEmpty())
        return QByteArray(3, '\0');
    return packedPairs(date, 3);
}

QByteArray latin1(const QString& text)
{
    return text.toLatin1();
}

// The character codes at 1-based positions first..last of a frame, added to
// a running sum. A frame shorter than that is the original's failure on an
// empty character.
qint16 addPositions(qint16 sum, const QByteArray& frame, int first, int last)
{
    if (frame.size() < last)
        throw LinkError(LinkError::Kind::InvalidCall,
                        QStringLiteral("header frame of %1 bytes, at least %2 needed").arg(frame.size()).arg(last));
    return LinkCodec::addToSum(sum, frame.mid(first - 1, last - first + 1));
}

} // namespace

DownloadSession::DownloadSession(AppContext& ctx, QObject* parent) : QObject(parent), m_ctx(ctx)
{
    m_timer1.setInterval(10);
    m_timer2.setInterval(1000);
    m_timer3.setInterval(5000);
    connect(&m_timer1, &QTimer::timeout, this, &DownloadSession::Timer1_Timer);
    connect(&m_timer2, &QTimer::timeout, this, &DownloadSession::Timer2_Timer);
    connect(&m_timer3, &QTimer::timeout, this, &DownloadSession::Timer3_Timer);
}

DownloadSession::~DownloadSession()
{
    QObject::disconnect(m_dataConnection);
    QObject::disconnect(m_failConnection);
}

template <typename Step> void DownloadSession::guarded(Step step)
{
    try {
        step();
    } catch (const LinkError& e) {
        fail(e.message());
    } catch (const StoreError& e) {
        fail(e.message());
    }
}

void DownloadSession::fail(const QString& why)
{
    stopTimers();
    m_ctx.link.RxBuffer.clear();
    m_ctx.messenger().critical(
        QStringLiteral("The download to the hand-held terminal was stopped: %1\nCheck the data and press Send again.")
            .arg(why));
    emit stopped();
}

void DownloadSession::onLinkFailed(const QString& message)
{
    if (!m_ctx.ownsLink(this)) {
        // Another screen has opened the port since: it is not ours to use.
        stopTimers();
        return;
    }
    stopTimers();
    m_ctx.link.RxBuffer.clear();
    m_ctx.messenger().critical(message);
    emit stopped();
}

void DownloadSession::stopTimers()
{
    m_timer1.stop();
    m_timer2.stop();
    m_timer3.stop();
}

void DownloadSession::Form_Load()
{
    m_timer1.setInterval(10);
    stopTimers();
    m_ctx.link.RecordNo = QStringLiteral("0");
    m_ctx.link.UploadDone = false;
    guarded([this] {
        const PasswordStore::Row row = PasswordStore::load(m_ctx.db());
        if (row.found) {
            m_downloadPassword = formatDigits(row.download, 4);
            m_setupPassword = formatDigits(row.setup, 4);
        }
    });
}

void DownloadSession::prepareSend()
{
    m_ctx.link.RecordNo = QStringLiteral("0");
    m_ctx.link.HeaderPending = true;
    m_ctx.link.EndFrameSent = false;
    stopTimers();
}

bool DownloadSession::OpenCommPort()
{
    QObject::disconnect(m_dataConnection);
    QObject::disconnect(m_failConnection);
    QString error;
    if (!m_ctx.openCommPort(&error, this)) {
        stopTimers();
        m_ctx.messenger().critical(error);
        emit stopped();
        return false;
    }
    LinkChannel& link = m_ctx.channel();
    m_dataConnection = connect(&link, &LinkChannel::dataArrived, this, &DownloadSession::MSComm1_OnComm);
    m_failConnection = connect(&link, &LinkChannel::failed, this, &DownloadSession::onLinkFailed);
    return true;
}

void DownloadSession::closePort()
{
    stopTimers();
    QObject::disconnect(m_dataConnection);
    QObject::disconnect(m_failConnection);
    m_ctx.releaseLink(this);
}

QByteArray DownloadSession::endFrame()
{
    return framePrefix + QByteArrayLiteral("\x00\x07\x00\x00OVER\xC4");
}

QByteArray DownloadSession::buildHeaderFrame(const DownloadJob& job, AppSettings& settings, const QDateTime& now,
                                             LinkCodec& codec)
{
    codec.checkbin2(QString::number(job.recordCount).rightJustified(4, QLatin1Char('0')));
    const QString stamp = now.toString(QStringLiteral("dd/MM/yy hh:mm:ss"));
    QByteArray clockBytes;
    for (int position : {1, 4, 7, 10, 13, 16})
        clockBytes += packedByte(stamp.mid(position - 1, 2));

    if (settings.BankName.size() < 48)
        settings.BankName = settings.BankName.leftJustified(48, QLatin1Char(' '));
    if (settings.BranchName.size() < 22)
        settings.BranchName = settings.BranchName.leftJustified(22, QLatin1Char(' '));
    // The terminal expects the font size in the header; without a saved
    // configuration there is none and the frame would come out short.
    if (settings.FontSize.trimmed().isEmpty())
        throw LinkError(LinkError::Kind::TypeMismatch,
                        QStringLiteral("the terminal font size is not set; choose it in CONFIGURE"));
    bool numeric = false;
    if (settings.FontSize.trimmed().toDouble(&numeric) < 0 && numeric)
        settings.FontSize = QStringLiteral("0");
    const QString key = formatDigits(job.agentDateKey, 7);

    QByteArray frame = framePrefix;
    frame += '\x00';
    frame += '\x82'; // 130 bytes follow; a constant, as the terminal expects
    frame += '\x00';
    frame += '\x00';
    frame += static_cast<char>(codec.RecHi & 0xFF);
    frame += static_cast<char>(codec.RecLo & 0xFF);
    frame += latin1(job.branchId);
    frame += latin1(job.agentId);
    frame += latin1(settings.FontSize);
    frame += latin1(settings.BankName);
    frame += latin1(settings.BranchName);
    frame += latin1(job.transactions);
    frame += latin1(job.downloadPassword);
    frame += '1';
    frame += latin1(job.setupPassword);
    frame += latin1(key);
    frame += clockBytes;
    frame += ' ';

    // The terminal checks this exact sum: the count bytes, positions 12-129,
    // the clock bytes, then positions 12-136 once more.
    qint16 sum = LinkCodec::addToSum(codec.RecHi, codec.RecLo);
    sum = addPositions(sum, frame, 12, 129);
    sum = LinkCodec::addToSum(sum, clockBytes);
    sum = addPositions(sum, frame, 12, 136);
    codec.CRCSum = LinkCodec::finishChecksum(sum);
    frame += static_cast<char>(codec.CRCSum);
    return frame;
}

QByteArray DownloadSession::buildRecordFrame(const SharedRecordset& row, int frameNumber, LinkCodec& codec)
{
    QString name = row.text(QStringLiteral("ACName"));
    name = name.size() > 28 ? name.left(28) : name.leftJustified(28, QLatin1Char(' '));
    const QString balance = formatDigits(row.text(QStringLiteral("BalAmount")), 10);
    const QString agreed = formatDigits(row.text(QStringLiteral("AgreedAmount")), 6);
    codec.checkbin2(QString::number(frameNumber));

    QByteArray payload;
    payload += latin1(row.text(QStringLiteral("CATEGORYCODE")));
    payload += latin1(row.text(QStringLiteral("SCHEMECODE")));
    payload += latin1(row.text(QStringLiteral("ACNumber")));
    payload += latin1(name);
    payload += packedPairs(balance, 5);
    payload += packedPairs(agreed, 3);
    payload += packedDate(row.text(QStringLiteral("OpeningDate")));
    payload += packedDate(row.text(QStringLiteral("TxnDate")));
    payload += QByteArray(64, ' ');

    QByteArray frame = framePrefix;
    frame += '\x00';
    frame += '\x82';
    frame += static_cast<char>(codec.RecHi & 0xFF);
    frame += static_cast<char>(codec.RecLo & 0xFF);
    frame += payload;
    // Only the payload is covered, not the prefix or the frame number.
    codec.CRCSum = LinkCodec::checksum(payload);
    frame += static_cast<char>(codec.CRCSum);
    return frame;
}

void DownloadSession::FirstProtocol(const DownloadJob& job)
{
    m_job = job;
    if (m_job.downloadPassword.isEmpty())
        m_job.downloadPassword = m_downloadPassword;
    if (m_job.setupPassword.isEmpty())
        m_job.setupPassword = m_setupPassword;
    guarded([this] { doFirstProtocol(); });
}

void DownloadSession::doFirstProtocol()
{
    LinkState& link = m_ctx.link;
    link.HeaderPending = true;
    // Built before the port is opened, as the clock reading comes first;
    // nothing is written until the port is open.
    const QDateTime now = m_ctx.clock().now();
    if (!OpenCommPort())
        return;
    m_header = buildHeaderFrame(m_job, m_ctx.settings, now, link.codec);
    m_recordFrames.clear();
    m_lastFrameSent = 0; // the header carries record number 0
    link.TxFrame = m_header;
    m_ctx.channel().write(m_header);
    // The header is timed like every other frame: a terminal that is off or
    // a loose cable then gets the header again and, after five tries, the
    // cable message, instead of a screen that waits without a word.
    m_timer2.start();
}

void DownloadSession::SecondProtocol()
{
    guarded([this] { doSecondProtocol(); });
}

void DownloadSession::doSecondProtocol()
{
    LinkState& link = m_ctx.link;
    link.RecordNo = QStringLiteral("2");
    SharedDatabase& db = m_ctx.db();
    SharedRecordset& rs = db.openSharedRecordset(
        QStringLiteral("SELECT * FROM Bankdata WHERE AgentID=? AND SNo='1' AND filename=? ORDER BY ACName,OpeningDate"),
        {m_job.agentId, m_job.fileName});
    QList<QByteArray> frames(1); // index 0 is never filled
    int n = 1;
    if (!(rs.eof() && rs.bof()))
        rs.moveFirst();
    while (!rs.eof()) {
        if (n >= FrameCapacity)
            throw LinkError(LinkError::Kind::SubscriptOutOfRange,
                            QStringLiteral("more than %1 accounts to send").arg(FrameCapacity - 1));
        frames.append(buildRecordFrame(rs, n + 1, link.codec));
        ++n;
        rs.moveNext();
    }
    db.closeSharedRecordset();
    m_recordFrames = frames;
    link.HeaderPending = false;
    m_lastFrameSent = 2;
    const QByteArray first = m_recordFrames.value(1);
    link.TxFrame = first;
    m_ctx.channel().write(first);
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
    LinkState& link = m_ctx.link;
    if (link.HeaderPending) {
        // The accounts are not built until the header is acknowledged: the
        // frame to repeat is the header itself.
        m_lastFrameSent = 0;
        link.TxFrame = m_header;
        m_ctx.channel().write(m_header);
    } else {
        bool ok = false;
        const int counter = link.RecordNo.toInt(&ok);
        if (!ok)
            throw LinkError(LinkError::Kind::TypeMismatch, QStringLiteral("send counter \"%1\"").arg(link.RecordNo));
        // Frames are numbered from the header (1), so the accounts are 2 to
        // count + 1 and the counter may reach count + 1.
        if (!link.EndFrameSent && counter <= frameCount() + 1) {
            if (counter - 1 < 0 || counter - 1 >= FrameCapacity)
                throw LinkError(LinkError::Kind::SubscriptOutOfRange, QStringLiteral("frame %1").arg(counter));
            m_lastFrameSent = counter;
            link.TxFrame = m_recordFrames.value(counter - 1);
            m_ctx.channel().write(link.TxFrame);
        } else if (!link.EndFrameSent) {
            link.EndFrameSent = true;
            m_lastFrameSent = 0; // "OVER" carries 00 00
            link.TxFrame = endFrame();
            m_ctx.channel().write(link.TxFrame);
        }
    }
    m_timer2.start();
}

void DownloadSession::MSComm1_OnComm()
{
    if (!m_ctx.ownsLink(this)) {
        // Another screen has opened the port since: it is not ours to use.
        stopTimers();
        return;
    }
    guarded([this] { doOnComm(); });
}

void DownloadSession::doOnComm()
{
    LinkState& link = m_ctx.link;
    link.RxBuffer += m_ctx.channel().readAll();
    m_timer3.stop();
    if (link.RxBuffer.size() < AckFrameSize)
        return;

    if (link.RxBuffer.contains("CLOS") || link.RxBuffer.contains("BACK")) {
        link.RxBuffer.clear();
        stopTimers();
        m_ctx.messenger().information(notInDownloadModeText());
        emit stopped();
        return;
    }

    const qsizetype at = link.RxBuffer.indexOf("AACK"); // 0-based
    const bool ackFound = at >= 0;
    int acknowledged = -1; // an "AACK" at position 1 or 2 carries no number
    if (at >= 2) {
        const LinkCodec::Buffer bytes = LinkCodec::String2byte(link.RxBuffer.mid(at - 2, 2), 2);
        link.codec.HEX_DECIMAL(bytes[0], bytes[1]);
        acknowledged = link.codec.HexValue;
    }
    const QByteArray copy = link.RxBuffer;
    link.RxBuffer.clear();

    if (ackFound && !link.HeaderPending && link.EndFrameSent) {
        stopTimers();
        link.EndFrameSent = false;
        link.UploadDone = true;
        m_ctx.messenger().information(completedText());
        emit completed();
        return;
    }

    if (acknowledged >= 0 && acknowledged == m_lastFrameSent) {
        if (link.HeaderPending) {
            m_timer2.stop();
            m_timer1.start();
            link.HeaderPending = false;
        } else if (link.EndFrameSent) {
            stopTimers();
            link.EndFrameSent = false;
            link.UploadDone = true;
            m_ctx.messenger().information(completedPlainText());
            emit completed();
        } else {
            m_timer2.stop();
            const int counter = link.RecordNo.toInt() + 1;
            link.RecordNo = QString::number(counter);
            emit progress(counter - 2, m_job.recordCount);
            doSendOneByOne();
        }
        return;
    }

    m_timer2.stop();
    if (copy.contains("NACK")) {
        if (!link.HeaderPending)
            emit progress(link.RecordNo.toInt() - 2, m_job.recordCount);
    } else {
        bool ok = false;
        const int counter = link.RecordNo.toInt(&ok);
        link.RecordNo = QString::number(std::max(ok ? counter - 2 : 2, 2));
    }
    doSendOneByOne();
}

void DownloadSession::stepBackSendCounter()
{
    LinkState& link = m_ctx.link;
    if (link.RecordNo.isEmpty())
        return;
    bool ok = false;
    int counter = link.RecordNo.toInt(&ok);
    if (!ok)
        throw LinkError(LinkError::Kind::TypeMismatch, QStringLiteral("send counter \"%1\"").arg(link.RecordNo));
    // The first time-out of a run goes back to the frame before, whose
    // acknowledgement may be the one that was lost.
    if (counter > 1 && link.TimeoutCount == 1)
        --counter;
    if (counter < 2)
        counter = 2;
    link.RecordNo = QString::number(counter);
}

void DownloadSession::Timer1_Timer()
{
    if (!m_ctx.ownsLink(this)) {
        // Another screen has opened the port since: it is not ours to use.
        stopTimers();
        return;
    }
    m_timer1.stop();
    SecondProtocol();
}

void DownloadSession::Timer2_Timer()
{
    if (!m_ctx.ownsLink(this)) {
        // Another screen has opened the port since: it is not ours to use.
        stopTimers();
        return;
    }
    LinkState& link = m_ctx.link;
    if (link.UploadDone)
        return;
    guarded([this, &link] {
        ++link.TimeoutCount;
        if (link.TimeoutCount == 5) {
            m_ctx.messenger().critical(checkCableText());
            link.TimeoutCount = 0;
        }
        m_timer2.stop();
        m_ctx.channel().write(QByteArray());
        link.RxBuffer.clear();
        stepBackSendCounter();
        doSendOneByOne();
        m_timer2.start();
    });
}

void DownloadSession::Timer3_Timer()
{
    if (!m_ctx.ownsLink(this)) {
        // Another screen has opened the port since: it is not ours to use.
        stopTimers();
        return;
    }
    guarded([this] {
        m_ctx.channel().write(QByteArray());
        m_ctx.link.RxBuffer.clear();
        stepBackSendCounter();
    });
}
