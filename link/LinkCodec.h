#pragma once

#include <QByteArray>
#include <QString>
#include <array>
#include <cstdint>
#include <stdexcept>

// A failure inside a byte conversion (version 2.1's run-time errors:
// overflow, type mismatch, subscript out of range, invalid procedure call).
// The calling protocol session catches and reports it.
class LinkError : public std::runtime_error
{
public:
    enum class Kind { Overflow, TypeMismatch, SubscriptOutOfRange, InvalidCall };
    LinkError(Kind kind, const QString& detail);
    Kind kind() const { return m_kind; }
    QString message() const { return m_message; }

private:
    Kind m_kind;
    QString m_message;
};

// The byte conversions and the frame check byte of the terminal link, with
// the values they leave behind (RecHi, RecLo, HexValue, CRCSum, CrcOk), one
// set shared by the download and the upload side.
class LinkCodec
{
public:
    using Buffer = std::array<std::uint8_t, 11>;

    qint16 RecHi = 0;
    qint16 RecLo = 0;
    qint16 HexValue = 0;
    qint16 CRCSum = 0;
    bool CrcOk = false;

    // Number text to one packed two-digit decimal byte: "45" gives 0x45.
    // Values of 100 and more are not clipped (123 gives 0xC3, 260 gives 416).
    static qint16 checkbin1(const QString& c);
    static qint16 checkbin11(const QString& c) { return checkbin1(c); }
    // The same through byte shifts; keeps only the low byte from 160 on.
    static qint16 checkbin(const QString& c);

    // Splits a number into RecHi (value div 256) and RecLo (value mod 256).
    void checkbin2(const QString& c);
    void checkbin2R(const QString& c) { checkbin2(c); }
    // The same from the number itself, for a request per reply.
    void checkbin2(qint64 value);

    // Packed decimal byte (as number text) back to its value: 153 gives 99.
    static qint16 BinCheck(const QString& c);

    // Joins a high and a low byte into HexValue; a high byte of 0x80 or more
    // is an overflow, which keeps record numbers below 32768.
    void HEX_DECIMAL(std::uint8_t high, std::uint8_t low);

    // The character codes of the first l characters of s, then a zero.
    static Buffer String2byte(const QByteArray& s, int l);

    // The additive check byte: two's complement of the 16-bit sum, low 8 bits.
    // Overflow of the 16-bit sum is a failure.
    static std::uint8_t checksum(const QByteArray& bytes, qint16 start = 0);
    // Adds the bytes to a running signed 16-bit sum, failing on overflow.
    static qint16 addToSum(qint16 sum, const QByteArray& bytes);
    static qint16 addToSum(qint16 sum, int byteValue);
    static std::uint8_t finishChecksum(qint16 sum);

    // Checks a received 137-byte frame: the bytes at positions 10 to 136
    // (1-based) against the check byte at 137. Sets CRCSum and CrcOk.
    void CheckCRC(const QByteArray& frame);

    static std::uint8_t Power2(int exponent);
    static std::uint8_t ShiftLeft(std::uint8_t value, int shift);
    static std::uint8_t ShiftRight(std::uint8_t value, int shift);
};
