// The link's byte conversions and check byte, from any bytes: as number
// text, as byte pairs and as frames. A conversion may refuse with a
// LinkError (the session turns it into a message); nothing else may go
// wrong, and what it returns must be what it promises.
#include "fuzz/FuzzSupport.h"
#include "link/LinkCodec.h"

TONVY_FUZZ_START()

namespace {

void asNumberText(const QByteArray& bytes)
{
    const QString text = QString::fromLatin1(bytes.left(40));
    bool isNumber = false;
    const qint64 value = text.trimmed().toLongLong(&isNumber, 10);

    try {
        const qint16 packed = LinkCodec::checkbin1(text);
        FUZZ_CHECK(isNumber);
        // Two digits pack into one byte that reads back as the number.
        if (value >= 0 && value <= 99) {
            FUZZ_CHECK(packed == (value / 10) * 16 + value % 10);
            FUZZ_CHECK(LinkCodec::BinCheck(QString::number(packed)) == value);
        }
    } catch (const LinkError&) {
    }

    try {
        const qint16 shifted = LinkCodec::checkbin(text);
        FUZZ_CHECK(isNumber && value / 10 >= 0 && value / 10 <= 255);
        if (value >= 0 && value <= 99)
            FUZZ_CHECK(shifted == (value / 10) * 16 + value % 10);
    } catch (const LinkError&) {
    }

    LinkCodec codec;
    try {
        codec.checkbin2(text);
        FUZZ_CHECK(isNumber);
        FUZZ_CHECK(qint64(codec.RecHi) * 256 + codec.RecLo == value);
    } catch (const LinkError&) {
    }

    try {
        const qint16 value2 = LinkCodec::BinCheck(text);
        FUZZ_CHECK(isNumber && value >= -32768 && value <= 32767);
        if (value >= 0 && value <= 255)
            FUZZ_CHECK(value2 == ((value >> 4) & 15) * 10 + (value & 15));
    } catch (const LinkError&) {
    }
}

void asBytes(const QByteArray& bytes)
{
    if (bytes.size() < 2)
        return;
    const auto high = static_cast<std::uint8_t>(bytes.at(0));
    const auto low = static_cast<std::uint8_t>(bytes.at(1));

    LinkCodec codec;
    try {
        codec.HEX_DECIMAL(high, low);
        FUZZ_CHECK(high < 0x80 && codec.HexValue == high * 256 + low);
    } catch (const LinkError& e) {
        FUZZ_CHECK(high >= 0x80 && e.kind() == LinkError::Kind::Overflow);
    }

    const int count = low % 13;
    try {
        const LinkCodec::Buffer b = LinkCodec::String2byte(bytes.mid(2), count);
        FUZZ_CHECK(count < 11 && count <= bytes.size() - 2);
        for (int i = 0; i < count; ++i)
            FUZZ_CHECK(b[static_cast<std::size_t>(i)] == static_cast<std::uint8_t>(bytes.at(2 + i)));
        FUZZ_CHECK(b[static_cast<std::size_t>(count)] == 0);
    } catch (const LinkError&) {
        FUZZ_CHECK(count >= 11 || count > bytes.size() - 2);
    }

    const int shift = static_cast<std::int8_t>(low) % 12;
    try {
        const std::uint8_t left = LinkCodec::ShiftLeft(high, shift);
        const std::uint8_t right = LinkCodec::ShiftRight(high, shift);
        FUZZ_CHECK(shift >= 0);
        FUZZ_CHECK(left == (shift >= 8 ? 0 : static_cast<std::uint8_t>(high << shift)));
        // A shift of none keeps bit 7; any other drops it first.
        if (shift == 0)
            FUZZ_CHECK(right == high);
        else
            FUZZ_CHECK(right == (shift >= 7 ? 0 : static_cast<std::uint8_t>((high & 127) >> shift)));
    } catch (const LinkError&) {
        FUZZ_CHECK(shift < 0);
    }
}

void asFrame(const QByteArray& bytes)
{
    // The additive check byte: the bytes and it add up to a multiple of 256.
    const qint16 start = bytes.size() >= 2 ? static_cast<qint16>(bytes.at(0) * 256 + bytes.at(1)) : 0;
    try {
        const std::uint8_t check = LinkCodec::checksum(bytes, start);
        qint64 sum = start;
        for (char c : bytes)
            sum += static_cast<std::uint8_t>(c);
        FUZZ_CHECK(sum >= -32768 && sum <= 32767);
        FUZZ_CHECK(((sum + check) & 0xFF) == 0);
    } catch (const LinkError& e) {
        FUZZ_CHECK(e.kind() == LinkError::Kind::Overflow);
    }

    LinkCodec codec;
    try {
        codec.CheckCRC(bytes);
        FUZZ_CHECK(bytes.size() >= 137);
        int sum = 0;
        for (int i = 9; i < 137; ++i)
            sum += static_cast<std::uint8_t>(bytes.at(i));
        FUZZ_CHECK(codec.CrcOk == ((sum & 0xFF) == 0));
    } catch (const LinkError&) {
        FUZZ_CHECK(bytes.size() < 137);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    asNumberText(bytes);
    asBytes(bytes);
    asFrame(bytes);
    return 0;
}
