#include "link/UploadFrames.h"

#include <QDate>

namespace UploadFrames {

QByteArray request(int recHi, int recLo)
{
    QByteArray frame("\x01\xFF\x10\xF0U\x00\x03\x00\x00\x00", 10);
    renumberRequest(frame, recHi, recLo);
    return frame;
}

bool renumberRequest(QByteArray& frame, int recHi, int recLo)
{
    if (requestedRecord(frame) < 0)
        return false;
    frame[7] = static_cast<char>(recHi & 0xFF);
    frame[8] = static_cast<char>(recLo & 0xFF);
    return true;
}

QByteArray request(int recordNo)
{
    return request(recordNo / 256, recordNo % 256);
}

QByteArray end()
{
    // 0xC4 is the check byte of bytes 8 to 13 (sum 0x13C), kept as a constant.
    return QByteArray("\x01\xFF\x10\xF0U\x00\x07\x00\x00OVER\xC4", 14);
}

int requestedRecord(const QByteArray& frame)
{
    if (frame.size() != 10 || !frame.startsWith(QByteArrayView("\x01\xFF\x10\xF0U\x00\x03", 7)))
        return -1;
    return static_cast<unsigned char>(frame.at(7)) * 256 + static_cast<unsigned char>(frame.at(8));
}

QByteArray content(const QByteArray& reply)
{
    return contentView(reply).toByteArray();
}

QByteArrayView contentView(const QByteArray& reply)
{
    if (reply.size() < ReplySize)
        return {};
    return QByteArrayView(reply).sliced(ContentStart, ContentSize);
}

bool plausibleSummary(const QByteArray& reply)
{
    if (reply.size() < ReplySize)
        return false;
    const QByteArray agent = reply.mid(9, 3);
    const QByteArray ddmm = reply.mid(12, 4);
    for (char c : agent + ddmm)
        if (c < '0' || c > '9')
            return false;
    // 29 February is a real day in a leap year.
    return QDate(2000, ddmm.mid(2, 2).toInt(), ddmm.left(2).toInt()).isValid();
}

bool namesNoAccount(const QByteArray& reply)
{
    if (reply.size() < ReplySize)
        return true;
    for (char c : QByteArrayView(reply).sliced(15, 15))
        if (c != ' ' && c != '\0')
            return false;
    return true;
}

} // namespace UploadFrames
