// The parts of a terminal's reply the PC reads, and the request frames it
// parses back, from any bytes.
#include "fuzz/FuzzSupport.h"
#include "link/LinkCodec.h"
#include "link/UploadFrames.h"

#include <QDate>

TONVY_FUZZ_START()

namespace {

bool digits(const QByteArray& bytes)
{
    for (char c : bytes)
        if (c < '0' || c > '9')
            return false;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray reply = FuzzSupport::bytes(data, size);
    const bool whole = reply.size() >= UploadFrames::ReplySize;

    const QByteArray content = UploadFrames::content(reply);
    if (whole)
        FUZZ_CHECK(content.size() == UploadFrames::ContentSize && content == reply.mid(9, 128));
    else
        FUZZ_CHECK(content.isEmpty());

    if (UploadFrames::plausibleSummary(reply)) {
        // Agent and ddmm digits, and a day that exists.
        FUZZ_CHECK(whole);
        FUZZ_CHECK(digits(reply.mid(9, 7)));
        const int day = reply.mid(12, 2).toInt();
        const int month = reply.mid(14, 2).toInt();
        FUZZ_CHECK(month >= 1 && month <= 12 && day >= 1 && day <= 31);
        FUZZ_CHECK(QDate(2000, month, day).isValid());
    }

    if (!UploadFrames::namesNoAccount(reply)) {
        FUZZ_CHECK(whole);
        bool named = false;
        for (char c : reply.mid(15, 15))
            named = named || (c != ' ' && c != '\0');
        FUZZ_CHECK(named);
    }

    // The check byte of a whole reply can always be worked out: 127 bytes
    // never overflow the 16-bit sum.
    if (whole) {
        LinkCodec codec;
        try {
            codec.CheckCRC(reply);
        } catch (const LinkError& e) {
            FuzzSupport::broken(__FILE__, __LINE__, "CheckCRC threw on a whole reply", e.message());
        }
        int sum = 0;
        for (int i = 9; i < 137; ++i)
            sum += static_cast<unsigned char>(reply.at(i));
        FUZZ_CHECK(codec.CrcOk == ((sum & 0xFF) == 0));
    }

    // A request frame read back gives the number it was made from.
    const int asked = UploadFrames::requestedRecord(reply);
    FUZZ_CHECK(asked >= -1 && asked <= 0xFFFF);
    if (asked >= 0)
        FUZZ_CHECK(UploadFrames::request(asked).left(9) == reply.left(9));
    if (reply.size() >= 2) {
        const int n = static_cast<unsigned char>(reply.at(0)) * 256 + static_cast<unsigned char>(reply.at(1));
        const QByteArray frame = UploadFrames::request(n);
        FUZZ_CHECK(frame.size() == 10 && frame.at(9) == '\0');
        FUZZ_CHECK(UploadFrames::requestedRecord(frame) == n);
        FUZZ_CHECK(UploadFrames::request(n / 256, n % 256) == frame);
        FUZZ_CHECK(UploadFrames::requestedRecord(UploadFrames::end()) == -1);
    }
    return 0;
}
