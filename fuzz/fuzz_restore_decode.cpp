// The receive's decoders of the terminal's transaction records, from any
// bytes: the entry fields one by one, then whole records as a receive
// decodes them.
#include "fuzz/FuzzSupport.h"
#include "link/LinkCodec.h"
#include "link/UploadSession.h"
#include "upload/RestoreStore.h"

#include <QRegularExpression>

TONVY_FUZZ_START()

namespace {

const QRegularExpression amountPattern(QStringLiteral(R"(^\d{7}\.\d\d$)"));
const QRegularExpression dateTimePattern(QStringLiteral(R"(^\d\d/\d\d/20\d\d \d\d:\d\d$)"));
const QRegularExpression transactionPattern(QStringLiteral(R"(^\d{4,5}$)"));

void checkAmount(const QString& amount, const QByteArray& from)
{
    FUZZ_CHECK_SAYS(amountPattern.match(amount).hasMatch(),
                    QStringLiteral("%1 from %2").arg(amount, QString::fromLatin1(from.left(160).toHex(' '))));
}

void checkDateTime(const QString& dateTime, const QByteArray& from)
{
    FUZZ_CHECK_SAYS(dateTimePattern.match(dateTime).hasMatch(),
                    QStringLiteral("%1 from %2").arg(dateTime, QString::fromLatin1(from.left(160).toHex(' '))));
}

bool packed(const QByteArray& bytes)
{
    for (char c : bytes) {
        const int b = static_cast<unsigned char>(c);
        if ((b >> 4) > 9 || (b & 15) > 9)
            return false;
    }
    return true;
}

// The input read as 9-byte collection entries, each field decoded alone.
void decodeEntries(const QByteArray& bytes)
{
    for (qsizetype at = 0; at + 9 <= bytes.size(); at += 9) {
        const QByteArray entry = bytes.mid(at, 9);
        const int month = static_cast<unsigned char>(entry.at(4)) >> 4;
        const int year = static_cast<unsigned char>(entry.at(4)) & 15;
        const bool readable = packed(entry.left(4)) && packed(entry.mid(5, 2)) && month >= 1 && month <= 12 &&
                              year <= 9 && static_cast<unsigned char>(entry.at(7)) < 0x80;
        const QString problem = RestoreStore::entryProblem(entry);
        FUZZ_CHECK_SAYS(problem.isEmpty() == readable,
                        QStringLiteral("%1: \"%2\"").arg(QString::fromLatin1(entry.toHex(' ')), problem));
        // An entry that can be decoded gives fields of fixed patterns.
        if (readable) {
            checkAmount(RestoreStore::decodeAmount(entry.left(3)), entry);
            checkDateTime(RestoreStore::decodeDateTime(entry.mid(3, 4)), entry);
        }
        try {
            const QString number = RestoreStore::decodeTransactionNumber(entry.mid(7, 2));
            FUZZ_CHECK(transactionPattern.match(number).hasMatch());
            FUZZ_CHECK(static_cast<unsigned char>(entry.at(7)) < 0x80);
        } catch (const LinkError&) {
            // Only a number past 32767 cannot be read.
            FUZZ_CHECK(static_cast<unsigned char>(entry.at(7)) >= 0x80);
        }
    }
    // Shorter input than a field needs gives no date, no exception, and is
    // no entry.
    FUZZ_CHECK(RestoreStore::decodeDateTime(bytes.left(3)).isEmpty());
    FUZZ_CHECK(!RestoreStore::entryProblem(bytes.left(8)).isEmpty());
}

// The input as number text for the fixed patterns of the files.
void formatText(const QByteArray& bytes)
{
    const QString text = QString::fromLatin1(bytes.left(64));
    for (int digits : {7, 10}) {
        const QString out = RestoreStore::formatFixed(text, digits);
        if (out == text)
            continue;
        static const QRegularExpression fixed(QStringLiteral(R"(^-?(\d+)\.\d\d$)"));
        const QRegularExpressionMatch m = fixed.match(out);
        FUZZ_CHECK_SAYS(m.hasMatch() && m.capturedLength(1) >= digits,
                        QStringLiteral("\"%1\" as \"%2\"").arg(text, out));
    }
}

// The input cut into 137-byte replies 2, 3, ... behind a header and a
// summary, decoded as a receive decodes them.
void decodeReplies(const QByteArray& bytes)
{
    QList<QByteArray> records(2);
    for (qsizetype at = 0; at < bytes.size(); at += 137)
        records << bytes.mid(at, 137);
    UploadSummary summary;
    summary.BankAgentId = QStringLiteral("AG005          ");
    summary.TotalRecords = static_cast<int>(records.size()) - 2;
    QList<RestoreStore::Entry> entries;
    QString error;
    if (!RestoreStore::decodeRecords(records, summary, &entries, &error)) {
        FUZZ_CHECK(!error.isEmpty());
        return;
    }
    FUZZ_CHECK(entries.size() <= RestoreStore::MaxEntries);
    for (const RestoreStore::Entry& e : entries) {
        // What goes into the rows and the bank's upload file: fixed widths.
        FUZZ_CHECK(e.accountNo.size() <= 15 && e.schemeCode.size() <= 5 && e.categoryCode.size() <= 1);
        FUZZ_CHECK(!e.accountNo.contains(QLatin1Char('\'')));
        if (!e.amount.isEmpty())
            checkAmount(e.amount, bytes);
        if (!e.dateTime.isEmpty())
            checkDateTime(e.dateTime, bytes);
        if (!e.transactionNumber.isEmpty())
            FUZZ_CHECK(transactionPattern.match(e.transactionNumber).hasMatch());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    decodeEntries(bytes);
    formatText(bytes);
    decodeReplies(bytes);
    return 0;
}
