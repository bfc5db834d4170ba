#include "upload/EntryDecoder.h"

#include "link/LinkCodec.h"
#include "link/LinkState.h"
#include "link/UploadSession.h"
#include "store/KeyCheck.h"

#include <cmath>

namespace EntryDecoder {

using RestoreStore::AccountOnlyCount;
using RestoreStore::Entry;
using RestoreStore::MaxEntries;

namespace {

// Byte positions inside a 137-byte transaction record, counted from 1.
constexpr int CategoryPos = 10;
constexpr int SchemePos = 11;
constexpr int AccountPos = 16;
constexpr int FirstEntryPos = 70;
constexpr int EntryCountPos = 133;
constexpr int EntrySize = 9;

// A decoding fault (version 2.1's run-time errors) with its message.
struct DecodeFault
{
    QString message;
};

QString twoDigits(int v)
{
    if (v >= 0 && v < 100) {
        const QChar digits[2] = {QLatin1Char(char('0' + v / 10)), QLatin1Char(char('0' + v % 10))};
        return QString(digits, 2);
    }
    return QStringLiteral("%1").arg(v, 2, 10, QLatin1Char('0'));
}

int byteAt(const QByteArray& bytes, int index)
{
    return static_cast<unsigned char>(bytes.at(index));
}

// One packed-BCD byte as its two-digit value: the high nibble's ten and
// the low nibble, as LinkCodec::BinCheck reads a byte (a nibble above 9
// counts as it is: 0xA5 gives 105).
int bcd(const QByteArray& bytes, int index)
{
    const int v = byteAt(bytes, index);
    return ((v & 240) / 16) * 10 + (v & 15);
}

// Mid$ of a record: whatever part of the range the record holds.
QString field(const QByteArray& record, int pos, int length)
{
    return QString::fromLatin1(record.mid(pos - 1, length));
}

QString mid(const QString& s, int pos, int length)
{
    return s.mid(pos - 1, length);
}

// Every nibble a decimal digit.
bool packedDigits(const QByteArray& bytes)
{
    for (char c : bytes) {
        const int b = static_cast<unsigned char>(c);
        if ((b >> 4) > 9 || (b & 15) > 9)
            return false;
    }
    return true;
}

QString hexBytes(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toHex(' ').toUpper());
}

class Decoder
{
public:
    Decoder(const QList<QByteArray>& records, const UploadSummary& summary) : m_records(records), m_summary(summary) {}

    QList<Entry> run()
    {
        const int total = m_summary.TotalRecords;
        for (int x = 1; x <= total; ++x) {
            int c = entryCount(x + 1);
            // A count of 20 lists the NEXT record's account without an
            // amount, then that record is examined as any other.
            while (c == AccountOnlyCount) {
                ++x;
                Entry& e = newEntry();
                takeKeys(e, record(x + 1));
                if (x > total)
                    break;
                c = entryCount(x + 1);
            }
            if (x > total)
                break;
            readEntries(x + 1, c);
        }
        return m_entries;
    }

private:
    QByteArray record(int index)
    {
        if (index >= LinkState::RecordsSize)
            throw DecodeFault{QStringLiteral("Record %1 is beyond the last record a receive can hold (%2).")
                                  .arg(index)
                                  .arg(LinkState::RecordsSize - 1)};
        return index < m_records.size() ? m_records.at(index) : QByteArray();
    }

    // The text of what is read is made only when the record is too short.
    template <typename What> static void need(const QByteArray& rec, int index, int lastPos, What what)
    {
        if (rec.size() < lastPos)
            throw DecodeFault{
                QStringLiteral("Record %1 holds %2 bytes, too few for %3.").arg(index).arg(rec.size()).arg(what())};
    }

    int entryCount(int index)
    {
        const QByteArray rec = record(index);
        need(rec, index, EntryCountPos, [] { return QStringLiteral("its number of entries (byte 133)"); });
        if (!packedDigits(rec.mid(EntryCountPos - 1, 1)))
            throw DecodeFault{QStringLiteral("Record %1 holds its number of entries (byte 133) as %2, which is not a "
                                             "packed decimal number: the record is damaged.")
                                  .arg(index)
                                  .arg(hexBytes(rec.mid(EntryCountPos - 1, 1)))};
        return bcd(rec, EntryCountPos - 1);
    }

    Entry& newEntry()
    {
        if (m_entries.size() >= MaxEntries)
            throw DecodeFault{QStringLiteral("The records hold more than %1 transactions.").arg(MaxEntries)};
        Entry e;
        // The agent list starts out holding the header's agent, so an
        // unknown first account still carries it.
        if (m_entries.isEmpty())
            e.agentId = m_summary.BankAgentId;
        m_entries.append(e);
        return m_entries.last();
    }

    static void takeKeys(Entry& e, const QByteArray& rec)
    {
        e.categoryCode = field(rec, CategoryPos, 1);
        e.schemeCode = field(rec, SchemePos, 5);
        e.accountNo = field(rec, AccountPos, 15);
        QString why;
        if (!KeyCheck::acceptable(QStringLiteral("account number"), e.accountNo, &why) ||
            !KeyCheck::acceptable(QStringLiteral("scheme code"), e.schemeCode, &why) ||
            !KeyCheck::acceptable(QStringLiteral("category code"), e.categoryCode, &why))
            throw DecodeFault{why};
    }

    static void copyKeys(Entry& e, const Entry& from)
    {
        e.categoryCode = from.categoryCode;
        e.schemeCode = from.schemeCode;
        e.accountNo = from.accountNo;
    }

    void readEntries(int index, int count)
    {
        const QByteArray rec = record(index);
        for (int j = 0; j < count; ++j) {
            const int start = FirstEntryPos + EntrySize * j; // 1-based
            need(rec, index, start + EntrySize - 1, [j] { return QStringLiteral("entry %1").arg(j + 1); });
            Entry& e = newEntry();
            // The keys are the record's: read and checked with its first
            // entry, copied to the others.
            if (j == 0)
                takeKeys(e, rec);
            else
                copyKeys(e, m_entries.at(m_entries.size() - 2));
            const QByteArray bytes = rec.mid(start - 1, EntrySize);
            if (const QString why = entryProblem(bytes); !why.isEmpty())
                throw DecodeFault{QStringLiteral("Record %1, entry %2 (%3): %4; the record is damaged.")
                                      .arg(index)
                                      .arg(j + 1)
                                      .arg(hexBytes(bytes), why)};
            e.amount = decodeAmount(bytes.mid(0, 3));
            e.dateTime = decodeDateTime(bytes.mid(3, 4));
            e.transactionNumber = transactionNumber(bytes.mid(7, 2), index);
        }
    }

    static QString transactionNumber(const QByteArray& two, int index)
    {
        try {
            return decodeTransactionNumber(two);
        } catch (const LinkError& e) {
            throw DecodeFault{
                QStringLiteral("Record %1 holds an unreadable transaction number (%2).").arg(index).arg(e.message())};
        }
    }

    const QList<QByteArray>& m_records;
    const UploadSummary& m_summary;
    QList<Entry> m_entries;
};

} // namespace

QString entryProblem(const QByteArray& nineBytes)
{
    if (nineBytes.size() < EntrySize)
        return QStringLiteral("the entry is %1 bytes long, not %2").arg(nineBytes.size()).arg(EntrySize);
    if (!packedDigits(nineBytes.left(3)))
        return QStringLiteral("the amount is not packed decimal");
    if (!packedDigits(nineBytes.mid(3, 1)) || !packedDigits(nineBytes.mid(5, 2)))
        return QStringLiteral("the day or time is not packed decimal");
    const int monthYear = byteAt(nineBytes, 4);
    if ((monthYear >> 4) < 1 || (monthYear >> 4) > 12)
        return QStringLiteral("the month is %1, not 1 to 12").arg(monthYear >> 4);
    if ((monthYear & 15) > 9)
        return QStringLiteral("the year digit is not a digit");
    if (byteAt(nineBytes, 7) >= 0x80)
        return QStringLiteral("the transaction number is past 32767");
    return {};
}

QString decodeAmount(const QByteArray& threeBytes)
{
    QString digits;
    for (int i = 0; i < 3 && i < threeBytes.size(); ++i)
        digits += twoDigits(bcd(threeBytes, i));
    return formatFixed(digits, 7);
}

QString decodeDateTime(const QByteArray& fourBytes)
{
    if (fourBytes.size() < 4)
        return {};
    const int monthYear = byteAt(fourBytes, 1);
    const int month = (monthYear & 240) / 16;
    const int yearDigit = monthYear & 15;
    return twoDigits(bcd(fourBytes, 0)) + QLatin1Char('/') + twoDigits(month) + QStringLiteral("/20") +
           twoDigits(yearDigit) + QLatin1Char(' ') + twoDigits(bcd(fourBytes, 2)) + QLatin1Char(':') +
           twoDigits(bcd(fourBytes, 3));
}

QString decodeTransactionNumber(const QByteArray& twoBytes)
{
    LinkCodec codec;
    const LinkCodec::Buffer b = LinkCodec::String2byte(twoBytes, 2);
    codec.HEX_DECIMAL(b[0], b[1]);
    return QStringLiteral("%1").arg(codec.HexValue, 4, 10, QLatin1Char('0'));
}

QString formatFixed(const QString& value, int intDigits)
{
    // Whole numbers of up to 15 digits (every balance and agreed amount the
    // bank sends) are padded as they stand: the same text as the reading
    // through a double below gives them, without its cost.
    if (!value.isEmpty() && value.size() <= 15) {
        bool digits = true;
        for (QChar c : value)
            digits = digits && c >= QLatin1Char('0') && c <= QLatin1Char('9');
        if (digits) {
            qsizetype zeros = 0;
            while (zeros < value.size() - 1 && value.at(zeros) == QLatin1Char('0'))
                ++zeros;
            const qsizetype whole = value.size() - zeros;
            QString text;
            text.reserve(qMax<qsizetype>(whole, intDigits) + 3);
            if (whole < intDigits)
                text.fill(QLatin1Char('0'), intDigits - whole);
            text += QStringView(value).mid(zeros);
            text += QStringLiteral(".00");
            return text;
        }
    }
    bool ok = false;
    const double v = value.trimmed().toDouble(&ok);
    // "inf" and "nan" read as numbers but have no digits to pad.
    if (!ok || !std::isfinite(v))
        return value;
    QString text = QString::number(qAbs(v), 'f', 2);
    const qsizetype point = text.indexOf(QLatin1Char('.'));
    if (point < intDigits)
        text.prepend(QString(intDigits - point, QLatin1Char('0')));
    return v < 0 ? QLatin1Char('-') + text : text;
}

QString expandMyDate(const QString& ddmmyy)
{
    return mid(ddmmyy, 1, 2) + QLatin1Char('/') + mid(ddmmyy, 3, 2) + QStringLiteral("/20") + mid(ddmmyy, 5, 2);
}

// The history's day of a collection as YYYY-MM-DD. The terminal sends only
// the last digit of the year (the text reads "20" and that digit), so the
// year is the latest one ending in that digit that is not after the day of
// the receive: a collection of 2026 received in 2026 or early 2027 files
// under 2026, not 2006.
QString collectionDay(const QString& dateTime, const QDate& receivedOn)
{
    const QString day = mid(dateTime, 1, 2);
    const QString month = mid(dateTime, 4, 2);
    const QString yearText = mid(dateTime, 7, 4);
    bool digitOk = false;
    const int digit = mid(dateTime, 10, 1).toInt(&digitOk);
    if (!digitOk || !receivedOn.isValid())
        return yearText + QLatin1Char('-') + month + QLatin1Char('-') + day;
    const int receivedYear = receivedOn.year();
    const int year = receivedYear - (((receivedYear - digit) % 10) + 10) % 10;
    return QStringLiteral("%1-%2-%3").arg(year, 4, 10, QLatin1Char('0')).arg(month, day);
}

bool decodeRecords(const QList<QByteArray>& records, const UploadSummary& summary, QList<Entry>* entries,
                   QString* error)
{
    try {
        *entries = Decoder(records, summary).run();
        return true;
    } catch (const DecodeFault& f) {
        if (error)
            *error = f.message;
        return false;
    }
}

} // namespace EntryDecoder
