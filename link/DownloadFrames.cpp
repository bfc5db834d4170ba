#include "link/DownloadFrames.h"

#include <cmath>

namespace {

const QByteArray framePrefix = QByteArrayLiteral("\x01\xFF\x10\xF0"
                                                 "D");

char packedByte(const QString& pair)
{
    // Values of 100 and more are not clipped by checkbin1; the frame takes
    // the low 8 bits.
    return static_cast<char>(LinkCodec::checkbin1(DownloadFrames::formatDigits(pair, 2)) & 0xFF);
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
// a running sum. A frame shorter than that is version 2.1's failure on an
// empty character.
qint16 addPositions(qint16 sum, const QByteArray& frame, int first, int last)
{
    if (frame.size() < last)
        throw LinkError(LinkError::Kind::InvalidCall,
                        QStringLiteral("header frame of %1 bytes, at least %2 needed").arg(frame.size()).arg(last));
    return LinkCodec::addToSum(sum, frame.mid(first - 1, last - first + 1));
}

} // namespace

namespace DownloadFrames {

QString formatDigits(const QString& text, int width)
{
    bool ok = false;
    const double v = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(v))
        return text;
    // Rounded as a double, not to a 64-bit integer: a number past 2^63
    // (such as "99999e99" in a database an older version filled) has no such
    // integer; its digits come out as version 2.1's Format gave them.
    const double rounded = std::round(v);
    const QString digits = QString::number(std::fabs(rounded), 'f', 0).rightJustified(width, QLatin1Char('0'));
    return rounded < 0 ? QLatin1Char('-') + digits : digits;
}

QString paddedBankName(const QString& name)
{
    return name.size() < 48 ? name.leftJustified(48, QLatin1Char(' ')) : name;
}

QString paddedBranchName(const QString& name)
{
    return name.size() < 22 ? name.leftJustified(22, QLatin1Char(' ')) : name;
}

QString headerFontSize(const QString& fontSize)
{
    bool numeric = false;
    if (fontSize.trimmed().toDouble(&numeric) < 0 && numeric)
        return QStringLiteral("0");
    return fontSize;
}

QByteArray header(const DownloadJob& job, const QDateTime& now, LinkCodec& codec)
{
    codec.checkbin2(QString::number(job.recordCount).rightJustified(4, QLatin1Char('0')));
    const QString stamp = now.toString(QStringLiteral("dd/MM/yy hh:mm:ss"));
    QByteArray clockBytes;
    for (int position : {1, 4, 7, 10, 13, 16})
        clockBytes += packedByte(stamp.mid(position - 1, 2));

    // The terminal expects the font size in the header; without a saved
    // configuration there is none and the frame would come out short.
    if (job.fontSize.trimmed().isEmpty())
        throw LinkError(LinkError::Kind::TypeMismatch,
                        QStringLiteral("the terminal font size is not set; choose it in CONFIGURE"));
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
    frame += latin1(headerFontSize(job.fontSize));
    frame += latin1(paddedBankName(job.bankName));
    frame += latin1(paddedBranchName(job.branchName));
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

QByteArray record(const DownloadAccount& account, int frameNumber, LinkCodec& codec)
{
    QString name = account.acName;
    name = name.size() > 28 ? name.left(28) : name.leftJustified(28, QLatin1Char(' '));
    const QString balance = formatDigits(account.balAmount, 10);
    const QString agreed = formatDigits(account.agreedAmount, 6);
    codec.checkbin2(frameNumber);

    QByteArray payload;
    payload += latin1(account.categoryCode);
    payload += latin1(account.schemeCode);
    payload += latin1(account.acNumber);
    payload += latin1(name);
    payload += packedPairs(balance, 5);
    payload += packedPairs(agreed, 3);
    payload += packedDate(account.openingDate);
    payload += packedDate(account.txnDate);
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

QByteArray end()
{
    return framePrefix + QByteArrayLiteral("\x00\x07\x00\x00OVER\xC4");
}

} // namespace DownloadFrames
