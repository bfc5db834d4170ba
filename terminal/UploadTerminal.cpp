#include "terminal/UploadTerminal.h"

#include "link/LinkTrace.h"
#include "terminal/Pty.h"

#include <QPointer>
#include <QTimer>

namespace {
const QByteArray frameHead("\x01\xFF\x10\xF0", 4);
}

UploadTerminal::UploadTerminal(Pty* pty, QObject* parent) : QObject(parent), m_pty(pty) {}

void UploadTerminal::attach()
{
    connect(m_pty, &Pty::readyRead, this, [this] { receive(m_pty->readAll()); });
}

bool UploadTerminal::isUploadFrame(const QByteArray& frame)
{
    return frame.size() >= 5 && frame.startsWith(frameHead) && frame.at(4) == 'U';
}

int UploadTerminal::frameLength(const QByteArray& bytes)
{
    const qsizetype known = std::min<qsizetype>(bytes.size(), frameHead.size());
    if (bytes.left(known) != frameHead.left(known))
        return -1;
    if (bytes.size() < 7)
        return 0;
    const int following = static_cast<unsigned char>(bytes.at(5)) * 256 + static_cast<unsigned char>(bytes.at(6));
    // The PC sends requests (3 bytes follow) and the end frame (7). Any other
    // length is a damaged byte: waiting for that many bytes would leave the
    // terminal deaf for good, so it is not taken for a frame head.
    if (following != 3 && following != 7)
        return -1;
    const int length = 7 + following;
    return bytes.size() >= length ? length : 0;
}

void UploadTerminal::receive(const QByteArray& bytes)
{
    m_input.append(bytes);
    for (;;) {
        const int length = frameLength(m_input);
        if (length < 0) {
            // Line noise or a stray byte: resynchronise on the next frame head.
            const qsizetype next = m_input.indexOf(frameHead, 1);
            emit note(QStringLiteral("skipped %1 byte(s) outside a frame").arg(next < 0 ? m_input.size() : next));
            if (next < 0) {
                m_input.clear();
                return;
            }
            m_input.remove(0, next);
            continue;
        }
        if (length == 0)
            return;
        const qsizetype inner = m_input.indexOf(frameHead, 1);
        if (inner > 0 && inner < length) {
            // A frame that lost bytes on the way runs into the next one:
            // its record number would be a matter of luck. Dropped.
            emit note(QStringLiteral("dropped a frame cut short by the next one: %1")
                          .arg(LinkTrace::hex(m_input.left(inner))));
            m_input.remove(0, inner);
            continue;
        }
        const QByteArray frame = m_input.left(length);
        m_input.remove(0, length);
        if (isUploadFrame(frame))
            handleFrame(frame);
        else
            emit note(QStringLiteral("ignored a frame that is not an upload frame: %1").arg(LinkTrace::hex(frame)));
    }
}

void UploadTerminal::handleFrame(const QByteArray& frame)
{
    if (frame.size() >= 13 && frame.mid(9, 4) == "OVER") {
        ++m_overCount;
        emit note(QStringLiteral("end frame received: %1").arg(LinkTrace::hex(frame)));
        if (!m_stayInUpload && m_inUploadMode) {
            m_inUploadMode = false;
            emit note(QStringLiteral("left upload mode: requests are not answered until the next upload starts "
                                     "with a header request"));
        }
        emit overReceived(frame);
        return;
    }
    if (frame.size() != 10) {
        emit note(
            QStringLiteral("ignored an upload frame of %1 bytes: %2").arg(frame.size()).arg(LinkTrace::hex(frame)));
        return;
    }
    int record = static_cast<unsigned char>(frame.at(7)) * 256 + static_cast<unsigned char>(frame.at(8));
    if (record == m_faults.misreadRecord && !m_misreadDone) {
        m_misreadDone = true;
        emit note(QStringLiteral("request for record %1 read as %2").arg(record).arg(m_faults.misreadAs));
        record = m_faults.misreadAs;
    }
    m_requests.append(record);
    emit requestReceived(record);

    if (!m_inUploadMode) {
        if (record != 0) {
            emit replySent(record, QStringLiteral("not in upload mode"));
            return;
        }
        // The agent chose upload again: a new upload begins.
        m_inUploadMode = true;
    }

    if (record == 0 && m_provider) {
        QString error;
        UploadRecords fresh;
        if (!m_provider(&fresh, &error)) {
            emit note(QStringLiteral("cannot answer the header request: %1").arg(error));
            emit replySent(record, QStringLiteral("silent"));
            return;
        }
        m_records = fresh;
    }
    if (m_faults.mute) {
        emit replySent(record, QStringLiteral("silent"));
        return;
    }
    if (record == m_faults.silentRecord && !m_silenceDone) {
        m_silenceDone = true;
        emit replySent(record, QStringLiteral("silent"));
        return;
    }
    if (record == m_faults.nackRecord && !m_nackDone) {
        m_nackDone = true;
        send(QByteArrayLiteral("NACK"), false);
        emit replySent(record, QStringLiteral("NACK"));
        return;
    }

    QByteArray reply = m_records.reply(record);
    QString how;
    bool corrupt = false;
    if (m_faults.corruptNext > 0) {
        --m_faults.corruptNext;
        corrupt = true;
    } else if (record == m_faults.corruptRecord && m_corrupted < m_faults.corruptTimes) {
        ++m_corrupted;
        corrupt = true;
    }
    if (corrupt) {
        reply[reply.size() - 1] = static_cast<char>(reply.at(reply.size() - 1) ^ 0x5A);
        how = QStringLiteral("corrupted");
    }
    const bool inPieces = m_faults.splitRecord == -2 || record == m_faults.splitRecord;
    if (inPieces)
        how = how.isEmpty() ? QStringLiteral("in pieces") : how + QStringLiteral(", in pieces");
    ++m_replies;
    if (record == m_faults.delayRecord && !m_delayDone) {
        m_delayDone = true;
        QPointer<Pty> pty(m_pty);
        QTimer::singleShot(m_faults.delayMs, this, [pty, reply] {
            if (pty)
                pty->write(reply);
        });
        emit replySent(record, how.isEmpty() ? QStringLiteral("held back") : how + QStringLiteral(", held back"));
        return;
    }
    send(reply, inPieces);
    emit replySent(record, how);
}

void UploadTerminal::send(const QByteArray& bytes, bool inPieces)
{
    if (!inPieces || m_faults.pieces <= 1) {
        m_pty->write(bytes);
        return;
    }
    const int pieces = m_faults.pieces;
    const qsizetype size = (bytes.size() + pieces - 1) / pieces;
    QPointer<Pty> pty(m_pty);
    for (int i = 0; i < pieces; ++i) {
        const QByteArray piece = bytes.mid(i * size, size);
        if (piece.isEmpty())
            break;
        if (i == 0)
            m_pty->write(piece);
        else
            QTimer::singleShot(i * m_faults.pieceDelayMs, this, [pty, piece] {
                if (pty)
                    pty->write(piece);
            });
    }
}
