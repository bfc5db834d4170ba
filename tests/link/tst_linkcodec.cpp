#include "link/LinkCodec.h"

#include <QFile>
#include <QtTest>

class TestLinkCodec : public QObject
{
    Q_OBJECT
private slots:
    void checkbin1_data();
    void checkbin1();
    void checkbin1NotANumber();
    void checkbin1Overflow();
    void checkbin_data();
    void checkbin();
    void checkbinTensAbove255();
    void checkbin2_data();
    void checkbin2();
    void binCheck_data();
    void binCheck();
    void hexDecimal_data();
    void hexDecimal();
    void hexDecimalOverflow_data();
    void hexDecimalOverflow();
    void string2byte();
    void string2byteEmpty();
    void string2byteLimits_data();
    void string2byteLimits();
    void checksumOfFrames_data();
    void checksumOfFrames();
    void checksumOverflow();
    void checksumSummedAtOnce_data();
    void checksumSummedAtOnce();
    void checkCrc_data();
    void checkCrc();
    void checkCrcShortFrame();
    void power2();
    void power2Invalid_data();
    void power2Invalid();
    void shiftLeft_data();
    void shiftLeft();
    void shiftRight_data();
    void shiftRight();
    void negativeShiftFails();
};

void TestLinkCodec::checkbin1_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("expected");
    QTest::newRow("09") << "09" << 9;
    QTest::newRow("10") << "10" << 16;
    QTest::newRow("99") << "99" << 153;
    QTest::newRow("45") << "45" << 0x45;
    QTest::newRow("7") << "7" << 0x07;
    QTest::newRow("0") << "0" << 0;
    QTest::newRow("123 not clipped") << "123" << 0xC3;
    QTest::newRow("260 beyond a byte") << "260" << 416;
}

void TestLinkCodec::checkbin1()
{
    QFETCH(QString, text);
    QFETCH(int, expected);
    QCOMPARE(int(LinkCodec::checkbin1(text)), expected);
    QCOMPARE(int(LinkCodec::checkbin11(text)), expected);
}

void TestLinkCodec::checkbin1NotANumber()
{
    try {
        LinkCodec::checkbin1(QStringLiteral("4x"));
        QFAIL("no failure for a text that is not a number");
    } catch (const LinkError& e) {
        QCOMPARE(e.kind(), LinkError::Kind::TypeMismatch);
    }
}

void TestLinkCodec::checkbin1Overflow()
{
    // 20480 / 10 * 16 = 32768 no longer fits the signed 16-bit result.
    QCOMPARE(int(LinkCodec::checkbin1(QStringLiteral("20479"))), 2047 * 16 + 9);
    QVERIFY_THROWS_EXCEPTION(LinkError, LinkCodec::checkbin1(QStringLiteral("20480")));
    QCOMPARE(int(LinkCodec::checkbin1(QStringLiteral("-20480"))), -32768);
    // Numbers whose tens times 16 do not even fit 64 bits are refused the
    // same way (fuzz_link_codec stopped on the overflow; its input is kept
    // in the corpus).
    for (const QString& text : {QStringLiteral("6666666666666666666"), QStringLiteral("9223372036854775807"),
                                QStringLiteral("-9223372036854775808")}) {
        try {
            LinkCodec::checkbin1(text);
            QFAIL(qPrintable(QStringLiteral("no failure for %1").arg(text)));
        } catch (const LinkError& e) {
            QCOMPARE(e.kind(), LinkError::Kind::Overflow);
            QVERIFY2(e.message().startsWith(QStringLiteral("Overflow: packed value = ")), qPrintable(e.message()));
        }
    }
    QFile file(QStringLiteral(FUZZ_CORPUS "/fuzz_link_codec/crash-59d2cabc-nineteen-digits.bin"));
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName()));
    const QString text = QString::fromLatin1(file.readAll().left(40));
    QVERIFY_THROWS_EXCEPTION(LinkError, LinkCodec::checkbin1(text));
}

void TestLinkCodec::checkbin_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("expected");
    QTest::newRow("45 as checkbin1") << "45" << 0x45;
    QTest::newRow("99 as checkbin1") << "99" << 153;
    QTest::newRow("159 as checkbin1") << "159" << 15 * 16 + 9;
    QTest::newRow("160 keeps the low byte") << "160" << 0x00;
    QTest::newRow("260 keeps the low byte") << "260" << (416 & 0xFF);
}

void TestLinkCodec::checkbin()
{
    QFETCH(QString, text);
    QFETCH(int, expected);
    QCOMPARE(int(LinkCodec::checkbin(text)), expected);
}

void TestLinkCodec::checkbinTensAbove255()
{
    QVERIFY_THROWS_EXCEPTION(LinkError, LinkCodec::checkbin(QStringLiteral("2560")));
}

void TestLinkCodec::checkbin2_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("high");
    QTest::addColumn<int>("low");
    QTest::newRow("256") << "256" << 1 << 0;
    QTest::newRow("255") << "255" << 0 << 255;
    QTest::newRow("300") << "300" << 1 << 44;
    QTest::newRow("0") << "0" << 0 << 0;
    QTest::newRow("65535") << "65535" << 255 << 255;
    QTest::newRow("four-digit text") << "0002" << 0 << 2;
}

void TestLinkCodec::checkbin2()
{
    QFETCH(QString, text);
    QFETCH(int, high);
    QFETCH(int, low);
    LinkCodec codec;
    codec.checkbin2(text);
    QCOMPARE(int(codec.RecHi), high);
    QCOMPARE(int(codec.RecLo), low);
    LinkCodec receiveSide;
    receiveSide.checkbin2R(text);
    QCOMPARE(int(receiveSide.RecHi), high);
    QCOMPARE(int(receiveSide.RecLo), low);
    // A request per reply splits the number itself, with the same result.
    LinkCodec fromNumber;
    fromNumber.checkbin2(text.toLongLong());
    QCOMPARE(int(fromNumber.RecHi), high);
    QCOMPARE(int(fromNumber.RecLo), low);
}

void TestLinkCodec::binCheck_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("expected");
    QTest::newRow("153") << "153" << 99;
    QTest::newRow("0x45") << "69" << 45;
    QTest::newRow("0xC3 nibble not checked") << "195" << 123;
    QTest::newRow("0") << "0" << 0;
    QTest::newRow("0xFF") << "255" << 165;
}

void TestLinkCodec::binCheck()
{
    QFETCH(QString, text);
    QFETCH(int, expected);
    QCOMPARE(int(LinkCodec::BinCheck(text)), expected);
}

void TestLinkCodec::hexDecimal_data()
{
    QTest::addColumn<int>("high");
    QTest::addColumn<int>("low");
    QTest::addColumn<int>("expected");
    QTest::newRow("0x01 0x2C") << 0x01 << 0x2C << 300;
    QTest::newRow("0x7F 0xFF") << 0x7F << 0xFF << 32767;
    QTest::newRow("0x00 0x00") << 0x00 << 0x00 << 0;
    QTest::newRow("0x00 0x02") << 0x00 << 0x02 << 2;
}

void TestLinkCodec::hexDecimal()
{
    QFETCH(int, high);
    QFETCH(int, low);
    QFETCH(int, expected);
    LinkCodec codec;
    codec.HEX_DECIMAL(static_cast<std::uint8_t>(high), static_cast<std::uint8_t>(low));
    QCOMPARE(int(codec.HexValue), expected);
}

void TestLinkCodec::hexDecimalOverflow_data()
{
    QTest::addColumn<int>("high");
    QTest::addColumn<int>("low");
    QTest::newRow("0x80 0x00") << 0x80 << 0x00;
    QTest::newRow("0xFF 0xFF") << 0xFF << 0xFF;
}

void TestLinkCodec::hexDecimalOverflow()
{
    QFETCH(int, high);
    QFETCH(int, low);
    LinkCodec codec;
    codec.HexValue = 7;
    try {
        codec.HEX_DECIMAL(static_cast<std::uint8_t>(high), static_cast<std::uint8_t>(low));
        QFAIL("a high byte of 0x80 or more must overflow");
    } catch (const LinkError& e) {
        QCOMPARE(e.kind(), LinkError::Kind::Overflow);
    }
    QCOMPARE(int(codec.HexValue), 7);
}

void TestLinkCodec::string2byte()
{
    const LinkCodec::Buffer buffer = LinkCodec::String2byte(QByteArrayLiteral("ABC"), 3);
    QCOMPARE(int(buffer[0]), 65);
    QCOMPARE(int(buffer[1]), 66);
    QCOMPARE(int(buffer[2]), 67);
    QCOMPARE(int(buffer[3]), 0);
}

void TestLinkCodec::string2byteEmpty()
{
    const LinkCodec::Buffer buffer = LinkCodec::String2byte(QByteArray(), 0);
    QCOMPARE(int(buffer[0]), 0);
}

void TestLinkCodec::string2byteLimits_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("fails");
    QTest::newRow("ten fit") << QByteArray(10, 'x') << 10 << false;
    QTest::newRow("eleven beyond the buffer") << QByteArray(11, 'x') << 11 << true;
    QTest::newRow("text shorter than count") << QByteArray("AB") << 3 << true;
}

void TestLinkCodec::string2byteLimits()
{
    QFETCH(QByteArray, text);
    QFETCH(int, count);
    QFETCH(bool, fails);
    bool failed = false;
    try {
        const LinkCodec::Buffer buffer = LinkCodec::String2byte(text, count);
        QCOMPARE(int(buffer[static_cast<std::size_t>(count)]), 0);
        QCOMPARE(int(buffer[static_cast<std::size_t>(count - 1)]), int('x'));
    } catch (const LinkError&) {
        failed = true;
    }
    QCOMPARE(failed, fails);
}

void TestLinkCodec::checksumOfFrames_data()
{
    QTest::addColumn<QByteArray>("covered");
    QTest::addColumn<int>("expected");
    QByteArray sumOne(127, '\0');
    sumOne[50] = 1;
    QTest::newRow("all zero") << QByteArray(127, '\0') << 0;
    QTest::newRow("sum one") << sumOne << 255;
    QTest::newRow("OVER") << QByteArray("OVER") << 0xC4;
    QTest::newRow("all 255") << QByteArray(127, '\xFF') << ((-(127 * 255)) & 0xFF);
}

void TestLinkCodec::checksumOfFrames()
{
    QFETCH(QByteArray, covered);
    QFETCH(int, expected);
    const std::uint8_t cs = LinkCodec::checksum(covered);
    QCOMPARE(int(cs), expected);
    // A good frame: covered bytes plus check byte add up to a multiple of 256.
    int total = cs;
    for (char ch : covered)
        total += static_cast<unsigned char>(ch);
    QCOMPARE(total % 256, 0);
}

void TestLinkCodec::checksumOverflow()
{
    // 129 bytes of 255 pass 32767: the 16-bit sum overflows.
    QVERIFY_THROWS_EXCEPTION(LinkError, LinkCodec::checksum(QByteArray(129, '\xFF')));
    QCOMPARE(int(LinkCodec::addToSum(qint16(32000), 255)), 32255);
    QVERIFY_THROWS_EXCEPTION(LinkError, LinkCodec::addToSum(qint16(32700), 255));
}

void TestLinkCodec::checksumSummedAtOnce_data()
{
    QTest::addColumn<int>("start");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("failure"); // empty: no overflow
    QTest::newRow("a reply's 127 bytes of 255") << 0 << QByteArray(127, '\xFF') << QString();
    QTest::newRow("ends on the limit") << 32767 - 2 * 255 << QByteArray(2, '\xFF') << QString();
    QTest::newRow("one past the limit") << 32767 - 2 * 255 + 1 << QByteArray(2, '\xFF')
                                        << QStringLiteral("Overflow: check sum = 32768");
    // The failure names the sum at the byte that overflowed, not the total.
    QTest::newRow("129 bytes of 255") << 0 << QByteArray(129, '\xFF') << QStringLiteral("Overflow: check sum = 32895");
    QTest::newRow("negative start") << -32768 << QByteArray(200, '\x80') << QString();
    QTest::newRow("empty") << 5 << QByteArray() << QString();
}

void TestLinkCodec::checksumSummedAtOnce()
{
    QFETCH(int, start);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, failure);
    qint64 expected = start;
    for (char ch : bytes)
        expected += static_cast<unsigned char>(ch);
    try {
        const qint16 sum = LinkCodec::addToSum(static_cast<qint16>(start), bytes);
        QVERIFY2(failure.isEmpty(), "no overflow reported");
        QCOMPARE(qint64(sum), expected);
    } catch (const LinkError& e) {
        QCOMPARE(e.kind(), LinkError::Kind::Overflow);
        QCOMPARE(e.message(), failure);
    }
}

namespace {
QByteArray replyFrame(const QByteArray& covered, char check)
{
    QByteArray frame = QByteArrayLiteral("\x01\xFF\x10\xF0U\x00\x82\x00\x02");
    frame += covered;
    frame += check;
    return frame;
}
} // namespace

void TestLinkCodec::checkCrc_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<int>("expectedSum");
    QTest::addColumn<bool>("ok");
    QByteArray sumOne(127, '\0');
    sumOne[0] = 1;
    QTest::newRow("zeros with 0") << replyFrame(QByteArray(127, '\0'), '\0') << 0 << true;
    QTest::newRow("zeros with 1") << replyFrame(QByteArray(127, '\0'), '\x01') << 0 << false;
    QTest::newRow("sum one with 255") << replyFrame(sumOne, '\xFF') << 255 << true;
    QTest::newRow("sum one with 0") << replyFrame(sumOne, '\0') << 255 << false;
    QByteArray headChanged = replyFrame(QByteArray(127, '\0'), '\0');
    headChanged[3] = 'z'; // bytes 1 to 9 are not covered
    QTest::newRow("head not covered") << headChanged << 0 << true;
}

void TestLinkCodec::checkCrc()
{
    QFETCH(QByteArray, frame);
    QFETCH(int, expectedSum);
    QFETCH(bool, ok);
    QCOMPARE(frame.size(), 137);
    LinkCodec codec;
    codec.CheckCRC(frame);
    QCOMPARE(int(codec.CRCSum), expectedSum);
    QCOMPARE(codec.CrcOk, ok);
}

void TestLinkCodec::checkCrcShortFrame()
{
    LinkCodec codec;
    QVERIFY_THROWS_EXCEPTION(LinkError, codec.CheckCRC(QByteArray(100, '\0')));
}

void TestLinkCodec::power2()
{
    const int expected[] = {1, 2, 4, 8, 16, 32, 64, 128};
    for (int e = 0; e < 8; ++e)
        QCOMPARE(int(LinkCodec::Power2(e)), expected[e]);
}

void TestLinkCodec::power2Invalid_data()
{
    QTest::addColumn<int>("exponent");
    QTest::newRow("8") << 8;
    QTest::newRow("-1") << -1;
}

void TestLinkCodec::power2Invalid()
{
    QFETCH(int, exponent);
    try {
        LinkCodec::Power2(exponent);
        QFAIL("an exponent outside 0 to 7 must fail");
    } catch (const LinkError& e) {
        QCOMPARE(e.kind(), LinkError::Kind::InvalidCall);
    }
}

void TestLinkCodec::shiftLeft_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("shift");
    QTest::addColumn<int>("expected");
    QTest::newRow("by 0") << 0xAB << 0 << 0xAB;
    QTest::newRow("1 by 1") << 0x01 << 1 << 0x02;
    QTest::newRow("9 by 4") << 0x09 << 4 << 0x90;
    QTest::newRow("high bits dropped") << 0x1A << 4 << 0xA0;
    QTest::newRow("bit reaching 7") << 0x01 << 7 << 0x80;
    QTest::newRow("0x81 by 1") << 0x81 << 1 << 0x02;
    QTest::newRow("0x40 by 1") << 0x40 << 1 << 0x80;
    QTest::newRow("by 8") << 0xFF << 8 << 0;
    QTest::newRow("by 12") << 0xFF << 12 << 0;
}

void TestLinkCodec::shiftLeft()
{
    QFETCH(int, value);
    QFETCH(int, shift);
    QFETCH(int, expected);
    QCOMPARE(int(LinkCodec::ShiftLeft(static_cast<std::uint8_t>(value), shift)), expected);
}

void TestLinkCodec::shiftRight_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("shift");
    QTest::addColumn<int>("expected");
    QTest::newRow("by 0 keeps bit 7") << 0x80 << 0 << 0x80;
    QTest::newRow("0x80 by 1 drops bit 7") << 0x80 << 1 << 0x00;
    QTest::newRow("0xFF by 1") << 0xFF << 1 << 0x3F;
    QTest::newRow("0x40 by 1") << 0x40 << 1 << 0x20;
    QTest::newRow("0x7F by 6") << 0x7F << 6 << 0x01;
    QTest::newRow("by 7 always 0") << 0xFF << 7 << 0;
    QTest::newRow("by 8") << 0xFF << 8 << 0;
}

void TestLinkCodec::shiftRight()
{
    QFETCH(int, value);
    QFETCH(int, shift);
    QFETCH(int, expected);
    QCOMPARE(int(LinkCodec::ShiftRight(static_cast<std::uint8_t>(value), shift)), expected);
}

void TestLinkCodec::negativeShiftFails()
{
    QVERIFY_THROWS_EXCEPTION(LinkError, LinkCodec::ShiftLeft(1, -1));
    QVERIFY_THROWS_EXCEPTION(LinkError, LinkCodec::ShiftRight(1, -1));
}

QTEST_GUILESS_MAIN(TestLinkCodec)
#include "tst_linkcodec.moc"
