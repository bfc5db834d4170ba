#include "terminal/DownloadTerminal.h"

#include "terminal/Pty.h"

#include <QDir>

#include <cmath>

namespace {

const QByteArray prefix = QByteArrayLiteral("\x01\xFF\x10\xF0");
constexpr int headSize = 7; // prefix, command, two length bytes

int byteAt(const QByteArray& bytes, qsizetype i)
{
    return static_cast<unsigned char>(bytes.at(i));
}

int sumOf(const QByteArray& bytes, qsizetype from, qsizetype to) // 0-based, inclusive
{
    int sum = 0;
    for (qsizetype i = from; i <= to; ++i)
        sum += byteAt(bytes, i);
    return sum;
}

} // namespace

DownloadTerminal::DownloadTerminal(Pty* pty, QObject* parent) : QObject(parent), m_pty(pty)
{
    m_lineClock.start();
    m_arrival.setSingleShot(true);
    m_arrival.setTimerType(Qt::PreciseTimer);
    connect(&m_arrival, &QTimer::timeout, this, &DownloadTerminal::releaseArrived);
}

QString DownloadTerminal::statePath() const
{
    return m_stateDir.isEmpty() ? QString() : QDir(m_stateDir).filePath(TerminalAccounts::fileName());
}

void DownloadTerminal::attach()
{
    connect(m_pty, &Pty::readyRead, this, [this] { receive(m_pty->readAll()); });
}

QByteArray DownloadTerminal::answerFrame(int number, const QByteArray& word)
{
    QByteArray frame = prefix + QByteArrayLiteral("D\x00\x07");
    frame += static_cast<char>((number >> 8) & 0xFF);
    frame += static_cast<char>(number & 0xFF);
    frame += word;
    frame += static_cast<char>((-sumOf(frame, 7, frame.size() - 1)) & 0xFF);
    return frame;
}

bool DownloadTerminal::headerCheckOk(const QByteArray& frame)
{
    if (frame.size() < 137)
        return false;
    const qsizetype last = frame.size() - 1;
    // Count bytes, positions 12-129, the six clock bytes, then 12-136 again.
    const int clock = sumOf(frame, last - 7, last - 2);
    const int sum = byteAt(frame, 9) + byteAt(frame, 10) + sumOf(frame, 11, 128) + clock + sumOf(frame, 11, 135);
    return ((sum + byteAt(frame, last)) & 0xFF) == 0;
}

bool DownloadTerminal::recordCheckOk(const QByteArray& frame)
{
    return frame.size() == 137 && (sumOf(frame, 9, 136) & 0xFF) == 0;
}

void DownloadTerminal::receive(const QByteArray& bytes)
{
    if (bytes.isEmpty())
        return;
    m_bytesIn += bytes.size();
    if (m_baud <= 0) {
        take(bytes);
        return;
    }
    // The last of these bytes reaches the terminal when the line has carried
    // everything before it and them.
    const double now = static_cast<double>(m_lineClock.nsecsElapsed()) / 1e6;
    m_lineFreeAtMs = std::max(m_lineFreeAtMs, now) + static_cast<double>(bytes.size()) * 10.0 * 1000.0 / m_baud;
    m_onLine.append({m_lineFreeAtMs, bytes});
    if (!m_arrival.isActive())
        releaseArrived();
}

void DownloadTerminal::releaseArrived()
{
    while (!m_onLine.isEmpty()) {
        const double now = static_cast<double>(m_lineClock.nsecsElapsed()) / 1e6;
        const double due = m_onLine.first().first;
        if (due > now) {
            m_arrival.start(static_cast<int>(std::ceil(due - now)));
            return;
        }
        take(m_onLine.takeFirst().second);
    }
}

void DownloadTerminal::take(const QByteArray& bytes)
{
    m_buffer += bytes;
    for (;;) {
        const qsizetype start = m_buffer.indexOf(prefix);
        if (start < 0) {
            // Keep a possible beginning of a prefix, drop the rest.
            m_buffer = m_buffer.right(std::min<qsizetype>(m_buffer.size(), prefix.size() - 1));
            return;
        }
        m_buffer.remove(0, start);
        if (m_buffer.size() < headSize)
            return;
        const int length = byteAt(m_buffer, 5) * 256 + byteAt(m_buffer, 6);
        if (length != 0x82 && length != 0x07) {
            // A damaged length: waiting for that many bytes would stall the
            // terminal for good. Look for the next frame instead.
            m_buffer.remove(0, 1);
            continue;
        }
        qsizetype size = headSize + length;
        if (m_buffer.size() < size)
            return;
        const qsizetype inner = m_buffer.indexOf(prefix, 1);
        if (inner > 0 && inner < size) {
            // A frame that lost bytes on the way runs into the next one; its
            // check byte would be a matter of luck. Drop it.
            m_buffer.remove(0, inner);
            continue;
        }
        const bool header = size == 137 && byteAt(m_buffer, 7) == 0 && byteAt(m_buffer, 8) == 0;
        if (header) {
            // The header's length byte stays 130 even when a longer
            // transactions text makes it longer: it runs to the next frame.
            const qsizetype next = m_buffer.indexOf(prefix, 1);
            size = std::max<qsizetype>(size, next < 0 ? m_buffer.size() : next);
        }
        const QByteArray frame = m_buffer.left(size);
        m_buffer.remove(0, size);
        handleFrame(frame);
    }
}

bool DownloadTerminal::takeFault(int& frame, int number)
{
    if (frame < 0 || frame != number)
        return false;
    frame = -1;
    return true;
}

void DownloadTerminal::handleFrame(const QByteArray& frame)
{
    if (byteAt(frame, 4) != 'D') {
        emit note(QStringLiteral("ignored a frame with command 0x%1").arg(byteAt(frame, 4), 2, 16, QLatin1Char('0')));
        return;
    }
    const int number = byteAt(frame, 7) * 256 + byteAt(frame, 8);
    const bool endFrame = frame.size() == 14 && frame.mid(9, 4) == "OVER";
    if (!endFrame)
        m_received.append(number);
    if (!m_faults.notDownloadMode.isEmpty()) {
        emit note(
            QStringLiteral("not in download mode: answered %1").arg(QString::fromLatin1(m_faults.notDownloadMode)));
        answer(number, m_faults.notDownloadMode);
        return;
    }
    if (endFrame) {
        ++m_endFrames;
        m_state.accounts = m_accounts.values();
        saveState();
        emit note(QStringLiteral("end of download: %1 accounts kept").arg(m_state.accounts.size()));
        answer(number, QByteArrayLiteral("AACK"));
        emit downloadFinished();
        return;
    }

    if (takeFault(m_faults.silentFrame, number)) {
        emit note(QStringLiteral("frame %1: no answer (fault asked for)").arg(number));
        return;
    }
    if (takeFault(m_faults.nackFrame, number)) {
        emit note(QStringLiteral("frame %1: NACK (fault asked for)").arg(number));
        answer(number, QByteArrayLiteral("NACK"));
        return;
    }
    const bool isHeader = number == 0;
    if (!(isHeader ? headerCheckOk(frame) : recordCheckOk(frame))) {
        ++m_rejected;
        emit note(QStringLiteral("frame %1: bad check byte, NACK").arg(number));
        answer(number, QByteArrayLiteral("NACK"));
        return;
    }
    if (!isHeader && m_headerSeen) {
        // The record number is not covered by the check byte, so the
        // terminal takes accounts in order: the next one, or an exact copy
        // of one it holds (the PC stepping back). Anything else is a frame
        // whose number was damaged on the way.
        const int next = m_frames.isEmpty() ? 2 : m_frames.lastKey() + 1;
        const bool nextOne = number == next && number <= m_state.recordCount + 1;
        const bool sameAgain = m_frames.value(number) == frame;
        // The last account again, changed: its first copy was the damaged
        // one (its answer lost), and the PC sends it until it is taken.
        const bool lastAgain = !m_frames.isEmpty() && number == m_frames.lastKey();
        if (!nextOne && !sameAgain && !lastAgain) {
            ++m_rejected;
            emit note(QStringLiteral("frame %1: not the next account (%2), NACK").arg(number).arg(next));
            answer(number, QByteArrayLiteral("NACK"));
            return;
        }
    }
    if (isHeader) {
        m_headerSeen = true;
        m_state = TerminalAccounts(); // a new download replaces all the terminal held
        m_state.takeHeaderFrame(frame);
        m_accounts.clear();
        m_frames.clear();
        saveState();
        emit note(QStringLiteral("header: agent %1, key %2, %3 accounts announced")
                      .arg(m_state.agentId.trimmed(), m_state.agentDateKey)
                      .arg(m_state.recordCount));
        emit headerReceived();
    } else {
        m_accounts.insert(number, TerminalAccounts::accountFromFrame(frame));
        m_frames.insert(number, frame);
        emit accountReceived(number);
    }
    if (takeFault(m_faults.wrongNumberFrame, number)) {
        emit note(QStringLiteral("frame %1: acknowledged as %2 (fault asked for)").arg(number).arg(number + 1));
        answer(number + 1, QByteArrayLiteral("AACK"));
        return;
    }
    answer(number, QByteArrayLiteral("AACK"));
}

void DownloadTerminal::answer(int number, const QByteArray& word)
{
    const QByteArray reply = answerFrame(number, word);
    m_bytesOut += reply.size();
    m_pty->write(reply);
}

void DownloadTerminal::saveState()
{
    const QString path = statePath();
    if (path.isEmpty())
        return;
    QString error;
    if (!m_state.save(path, &error))
        emit note(error);
}
