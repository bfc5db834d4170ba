#include "link/LinkCodec.h"

#include <limits>

LinkError::LinkError(Kind kind, const QString& detail) : std::runtime_error(detail.toStdString()), m_kind(kind)
{
    QString name;
    switch (kind) {
    case Kind::Overflow:
        name = QStringLiteral("Overflow");
        break;
    case Kind::TypeMismatch:
        name = QStringLiteral("Type mismatch");
        break;
    case Kind::SubscriptOutOfRange:
        name = QStringLiteral("Subscript out of range");
        break;
    case Kind::InvalidCall:
        name = QStringLiteral("Invalid procedure call or argument");
        break;
    }
    m_message = detail.isEmpty() ? name : name + QStringLiteral(": ") + detail;
}

namespace {

// The decimal value of a number text; anything that is not a whole number is
// a type mismatch (the fields handled here are always whole numbers).
qint64 decimalValue(const QString& c)
{
    bool ok = false;
    const qint64 v = c.trimmed().toLongLong(&ok, 10);
    if (!ok)
        throw LinkError(LinkError::Kind::TypeMismatch, QStringLiteral("\"%1\" is not a number").arg(c));
    return v;
}

qint16 toInt16(qint64 v, const char* what)
{
    if (v > std::numeric_limits<qint16>::max() || v < std::numeric_limits<qint16>::min())
        throw LinkError(LinkError::Kind::Overflow, QStringLiteral("%1 = %2").arg(QLatin1String(what)).arg(v));
    return static_cast<qint16>(v);
}

// The bytes' values added up, with no check on the way.
qint64 plainSum(const char* bytes, qsizetype count)
{
    const auto* values = reinterpret_cast<const unsigned char*>(bytes);
    qint64 sum = 0;
    for (qsizetype i = 0; i < count; ++i)
        sum += values[i];
    return sum;
}

} // namespace

qint16 LinkCodec::checkbin1(const QString& c)
{
    const qint64 v = decimalValue(c);
    // v / 10 truncated toward zero, v mod 10 with the sign of v, as
    // version 2.1's text-based integer part and Mod gave.
    const qint64 t = v / 10;
    const qint64 r = toInt16(v % 10, "remainder");
    // The tens of a 19-digit number times 16 would overflow 64 bits before
    // the 16-bit check could refuse them.
    if (t > std::numeric_limits<qint16>::max() || t < std::numeric_limits<qint16>::min())
        throw LinkError(LinkError::Kind::Overflow, QStringLiteral("packed value = %1 * 16").arg(t));
    const qint16 high = toInt16(t * 16, "packed value");
    return static_cast<qint16>(high | static_cast<qint16>(r));
}

qint16 LinkCodec::checkbin(const QString& c)
{
    const qint64 v = decimalValue(c);
    const qint64 t = v / 10;
    const qint64 r = v % 10;
    if (t < 0 || t > 255)
        throw LinkError(LinkError::Kind::Overflow, QStringLiteral("tens = %1").arg(t));
    const std::uint8_t shifted = ShiftLeft(static_cast<std::uint8_t>(t), 4);
    return static_cast<qint16>(shifted | static_cast<qint16>(r));
}

void LinkCodec::checkbin2(const QString& c)
{
    checkbin2(decimalValue(c));
}

void LinkCodec::checkbin2(qint64 value)
{
    RecHi = toInt16(value / 256, "high byte");
    RecLo = toInt16(value % 256, "low byte");
}

qint16 LinkCodec::BinCheck(const QString& c)
{
    const qint64 v = toInt16(decimalValue(c), "byte");
    const qint64 t = (v & 240) / 16;
    const qint64 u = v & 15;
    return static_cast<qint16>(t * 10 + u);
}

void LinkCodec::HEX_DECIMAL(std::uint8_t high, std::uint8_t low)
{
    const int value = high * 256 + low;
    HexValue = toInt16(value, "record number");
}

LinkCodec::Buffer LinkCodec::String2byte(const QByteArray& s, int l)
{
    Buffer buffer{};
    if (l < 0 || l >= static_cast<int>(buffer.size()))
        throw LinkError(LinkError::Kind::SubscriptOutOfRange, QStringLiteral("byte count %1").arg(l));
    for (int i = 0; i < l; ++i) {
        if (i >= s.size())
            throw LinkError(LinkError::Kind::InvalidCall, QStringLiteral("text shorter than %1 characters").arg(l));
        buffer[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(s.at(i));
    }
    buffer[static_cast<std::size_t>(l)] = 0;
    return buffer;
}

qint16 LinkCodec::addToSum(qint16 sum, int byteValue)
{
    return toInt16(static_cast<qint64>(sum) + byteValue, "check sum");
}

qint16 LinkCodec::addToSum(qint16 sum, const QByteArray& bytes)
{
    // Bytes only add, so the running sum overflows somewhere exactly when
    // the whole sum does: summed plainly first, and only an overflowing sum
    // goes byte by byte again, to fail where version 2.1 failed.
    const qint64 total = sum + plainSum(bytes.constData(), bytes.size());
    if (total <= std::numeric_limits<qint16>::max())
        return static_cast<qint16>(total);
    for (char ch : bytes)
        sum = addToSum(sum, static_cast<std::uint8_t>(ch));
    return sum;
}

std::uint8_t LinkCodec::finishChecksum(qint16 sum)
{
    return static_cast<std::uint8_t>((~sum + 1) & 255);
}

std::uint8_t LinkCodec::checksum(const QByteArray& bytes, qint16 start)
{
    return finishChecksum(addToSum(start, bytes));
}

void LinkCodec::CheckCRC(const QByteArray& frame)
{
    if (frame.size() < 137)
        throw LinkError(LinkError::Kind::InvalidCall,
                        QStringLiteral("frame of %1 bytes, 137 expected").arg(frame.size()));
    // Summed in place, plainly: 127 bytes of at most 255 make at most 32385,
    // so the 16-bit sum cannot overflow here.
    CRCSum = finishChecksum(static_cast<qint16>(plainSum(frame.constData() + 9, 127)));
    CrcOk = CRCSum == static_cast<std::uint8_t>(frame.at(136));
}

std::uint8_t LinkCodec::Power2(int exponent)
{
    static const std::array<std::uint8_t, 8> table = {1, 2, 4, 8, 16, 32, 64, 128};
    if (exponent < 0 || exponent > 7)
        throw LinkError(LinkError::Kind::InvalidCall, QStringLiteral("exponent %1").arg(exponent));
    return table[static_cast<std::size_t>(exponent)];
}

std::uint8_t LinkCodec::ShiftLeft(std::uint8_t value, int shift)
{
    if (shift < 0)
        Power2(shift); // fails as version 2.1 did
    if (shift == 0)
        return value;
    if (shift >= 8)
        return 0;
    // Mask off the bits that would leave the byte, then put back the one that
    // lands on bit 7.
    const std::uint8_t keep = static_cast<std::uint8_t>(Power2(7 - shift) - 1);
    std::uint8_t result = static_cast<std::uint8_t>((value & keep) * Power2(shift));
    if (value & Power2(7 - shift))
        result = static_cast<std::uint8_t>(result | 128);
    return result;
}

std::uint8_t LinkCodec::ShiftRight(std::uint8_t value, int shift)
{
    if (shift < 0)
        Power2(shift);
    if (shift == 0)
        return value;
    if (shift >= 7)
        return 0;
    // Bit 7 is dropped before shifting: ShiftRight(0x80, 1) is 0 (kept).
    return static_cast<std::uint8_t>((value & 127) / Power2(shift));
}
