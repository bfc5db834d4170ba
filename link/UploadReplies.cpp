#include "link/UploadReplies.h"

#include "link/LinkCodec.h"

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

namespace UploadReplies {

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

void decodeHeader(const QByteArray& header, UploadSummary& summary)
{
    const int count = byteAt(header, 10) * 256 + byteAt(header, 11);
    if (count > 32767)
        throw LinkError(LinkError::Kind::Overflow, QStringLiteral("announced record count %1").arg(count));
    summary.TotalRecords = count;
    summary.BankAgentId = field(header, 27, 15);
}

void decodeSummary(const QByteArray& summary, UploadSummary& into)
{
    byteAt(summary, 22);
    into.AgentId = field(summary, 10, 3);
    into.CollectionDate = field(summary, 13, 4);
    into.UploadBaseName = field(summary, 10, 7);

    // Two bytes as four hex digits read as one 16-bit number: a high byte
    // of 0x80 or more is an overflow.
    LinkCodec codec;
    const LinkCodec::Buffer count = LinkCodec::String2byte(summary.mid(16, 2), 2);
    codec.HEX_DECIMAL(count[0], count[1]);
    into.TotalTransactions = codec.HexValue;

    QString digits;
    for (int position = 19; position <= 22; ++position) {
        const qint16 value = LinkCodec::BinCheck(QString::number(byteAt(summary, position)));
        digits += QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0'));
    }
    into.TotalAmountDigits = digits;
}

} // namespace UploadReplies
