// The download's frames from any field values: the input is the fields of
// one account, one a line (category, scheme, account, name, balance, agreed
// amount, opening date, last transaction date, frame number), then the
// header's font size and transactions.
#include "fuzz/FuzzSupport.h"
#include "link/DownloadFrames.h"

#include <QRegularExpression>

TONVY_FUZZ_START()

namespace {

QString line(const QList<QByteArray>& lines, int i)
{
    return i < lines.size() ? QString::fromLatin1(lines.at(i)) : QString();
}

bool allDigits(const QString& text, int maxLength)
{
    static const QRegularExpression digits(QStringLiteral(R"(^\d+$)"));
    return text.size() <= maxLength && digits.match(text).hasMatch();
}

bool dateOrBlank(const QString& text)
{
    return text.trimmed().isEmpty() || (allDigits(text, 6) && text.size() == 6);
}

void checkFormatDigits(const QString& text, int width)
{
    const QString out = DownloadFrames::formatDigits(text, width);
    if (out == text)
        return;
    // A number comes back as its rounded digits, padded to the width.
    static const QRegularExpression number(QStringLiteral(R"(^-?(\d+)$)"));
    const QRegularExpressionMatch m = number.match(out);
    FUZZ_CHECK_SAYS(m.hasMatch() && m.capturedLength(1) >= width, QStringLiteral("\"%1\" as \"%2\"").arg(text, out));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QList<QByteArray> lines = FuzzSupport::bytes(data, size).split('\n');
    for (int i = 0; i < qMin<qsizetype>(lines.size(), 12); ++i)
        for (int width : {2, 6, 10})
            checkFormatDigits(line(lines, i), width);

    DownloadAccount a;
    a.categoryCode = line(lines, 0);
    a.schemeCode = line(lines, 1);
    a.acNumber = line(lines, 2);
    a.acName = line(lines, 3);
    a.balAmount = line(lines, 4);
    a.agreedAmount = line(lines, 5);
    a.openingDate = line(lines, 6);
    a.txnDate = line(lines, 7);
    bool numbered = false;
    const int frameNumber = line(lines, 8).toInt(&numbered);

    // Fields as the download file gives them: these always make a frame.
    const bool wellFormed = a.categoryCode.size() == 1 && a.schemeCode.size() == 5 && a.acNumber.size() == 15 &&
                            allDigits(a.balAmount, 8) && allDigits(a.agreedAmount, 5) && dateOrBlank(a.openingDate) &&
                            dateOrBlank(a.txnDate) && numbered && frameNumber >= 1 && frameNumber <= 2000;
    LinkCodec codec;
    try {
        const QByteArray frame = DownloadFrames::record(a, frameNumber, codec);
        FUZZ_CHECK(frame.startsWith(QByteArray("\x01\xFF\x10\xF0"
                                               "D\x00\x82",
                                               7)));
        FUZZ_CHECK(static_cast<std::uint8_t>(frame.at(7)) == (codec.RecHi & 0xFF));
        FUZZ_CHECK(static_cast<std::uint8_t>(frame.at(8)) == (codec.RecLo & 0xFF));
        // The check byte covers the payload only.
        int sum = 0;
        for (qsizetype i = 9; i < frame.size(); ++i)
            sum += static_cast<std::uint8_t>(frame.at(i));
        FUZZ_CHECK((sum & 0xFF) == 0);
        if (wellFormed)
            FUZZ_CHECK_SAYS(frame.size() == 137, QStringLiteral("frame of %1 bytes").arg(frame.size()));
    } catch (const LinkError& e) {
        FUZZ_CHECK_SAYS(!wellFormed, e.message());
    }

    DownloadJob job;
    job.agentDateKey = QStringLiteral("0051611");
    job.branchId = a.acNumber;
    job.agentId = a.acNumber;
    job.recordCount = numbered ? frameNumber : 1;
    job.fontSize = line(lines, 9);
    job.transactions = line(lines, 10);
    job.downloadPassword = QStringLiteral("5678");
    job.setupPassword = QStringLiteral("1234");
    job.bankName = a.acName;
    job.branchName = a.schemeCode;
    try {
        const QByteArray header = DownloadFrames::header(job, QDateTime(QDate(2007, 11, 16), QTime(10, 20, 30)), codec);
        FUZZ_CHECK(header.size() >= 137);
        FUZZ_CHECK(header.startsWith(QByteArray("\x01\xFF\x10\xF0"
                                                "D\x00\x82\x00\x00",
                                                9)));
        FUZZ_CHECK(static_cast<std::uint8_t>(header.back()) == codec.CRCSum);
    } catch (const LinkError&) {
    }

    FUZZ_CHECK(DownloadFrames::paddedBankName(a.acName).size() >= 48);
    FUZZ_CHECK(DownloadFrames::paddedBranchName(a.acName).size() >= 22);
    FUZZ_CHECK(DownloadFrames::end().size() == 14);
    return 0;
}
