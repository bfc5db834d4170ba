#include "terminal/UploadRecords.h"

#include "base/DayText.h"
#include "link/LinkCodec.h"

#include <QHash>
#include <QRandomGenerator>
#include <QRegularExpression>

namespace {

constexpr int RecordBytes = 127; // bytes 10 to 136 of a reply

// Puts text at a 1-based reply position, blank-padded or cut to count.
void put(QByteArray& record, int position, const QString& text, int count)
{
    const QByteArray bytes = text.toLatin1().leftJustified(count, ' ', true);
    record.replace(position - 10, count, bytes);
}

void putBytes(QByteArray& record, int position, const QByteArray& bytes)
{
    record.replace(position - 10, static_cast<int>(bytes.size()), bytes);
}

char bcd(int value)
{
    return static_cast<char>(((value / 10) << 4) | (value % 10));
}

QByteArray entry(const Collection& c)
{
    QByteArray e = UploadRecords::packed(c.amount, 3);
    const QDate d = c.when.date();
    const QTime t = c.when.time();
    e.append(bcd(d.day()));
    e.append(static_cast<char>((d.month() << 4) | (d.year() % 10)));
    e.append(bcd(t.hour()));
    e.append(bcd(t.minute()));
    e.append(static_cast<char>((c.transactionNumber >> 8) & 0xFF));
    e.append(static_cast<char>(c.transactionNumber & 0xFF));
    return e;
}

} // namespace

QByteArray UploadRecords::packed(qint64 value, int bytes)
{
    QByteArray out(bytes, '\0');
    for (int i = bytes - 1; i >= 0; --i) {
        out[i] = bcd(static_cast<int>(value % 100));
        value /= 100;
    }
    return out;
}

QByteArray UploadRecords::frame(int recordNumber, const QByteArray& record)
{
    QByteArray reply("\x01\xFF\x10\xF0U\x00\x82", 7);
    reply.append(static_cast<char>((recordNumber >> 8) & 0xFF));
    reply.append(static_cast<char>(recordNumber & 0xFF));
    const QByteArray body = record.left(RecordBytes).leftJustified(RecordBytes, '\0', true);
    reply.append(body);
    reply.append(static_cast<char>(LinkCodec::checksum(body)));
    return reply;
}

QByteArray UploadRecords::reply(int n) const
{
    if (n == 0)
        return frame(n, header);
    if (n == 1)
        return frame(n, summary);
    if (n - 2 < transactions.size())
        return frame(n, transactions.at(n - 2));
    return frame(n, QByteArray(RecordBytes, ' ').replace(133 - 10, 1, QByteArray(1, '\0')));
}

bool UploadRecords::build(const TerminalAccounts& accounts, const QList<Collection>& collections,
                          const Options& options, UploadRecords* out, QString* error)
{
    auto fail = [error](const QString& why) {
        if (error)
            *error = why;
        return false;
    };

    QHash<QString, int> byNumber;
    for (int i = 0; i < accounts.accounts.size(); ++i)
        byNumber.insert(accounts.accounts.at(i).accountNumber.trimmed(), i);

    QList<QList<Collection>> perAccount(accounts.accounts.size());
    UploadRecords result;
    for (const Collection& c : collections) {
        const auto it = byNumber.constFind(c.accountNumber.trimmed());
        if (it == byNumber.constEnd())
            return fail(QStringLiteral("account %1 was not downloaded to the terminal").arg(c.accountNumber));
        if (c.amount < 0 || c.amount > 999999)
            return fail(
                QStringLiteral("amount %1 of account %2 does not fit six digits").arg(c.amount).arg(c.accountNumber));
        if (c.transactionNumber < 0 || c.transactionNumber > 32767)
            return fail(QStringLiteral("transaction number %1 is outside 0 to 32767").arg(c.transactionNumber));
        if (!c.when.isValid())
            return fail(QStringLiteral("collection of account %1 has no valid date and time").arg(c.accountNumber));
        perAccount[*it].append(c);
        result.transactionCount += 1;
        result.totalAmount += c.amount;
    }

    for (int i = 0; i < perAccount.size(); ++i) {
        const TerminalAccount& a = accounts.accounts.at(i);
        const QList<Collection>& list = perAccount.at(i);
        for (qsizetype first = 0; first < list.size(); first += EntriesPerRecord) {
            QByteArray record(RecordBytes, ' ');
            put(record, 10, a.categoryCode, 1);
            put(record, 11, a.schemeCode, 5);
            put(record, 16, a.accountNumber, 15);
            put(record, 31, a.name, 28);
            const qsizetype count = std::min<qsizetype>(EntriesPerRecord, list.size() - first);
            QByteArray entries;
            for (qsizetype j = 0; j < EntriesPerRecord; ++j)
                entries.append(j < count ? entry(list.at(first + j)) : QByteArray(9, '\0'));
            putBytes(record, 70, entries);
            putBytes(record, 133, QByteArray(1, bcd(static_cast<int>(count))));
            putBytes(record, 134, QByteArray(3, '\0'));
            result.transactions.append(record);
        }
    }
    if (result.transactions.size() > 32767)
        return fail(QStringLiteral("%1 records do not fit the header's count").arg(result.transactions.size()));

    const int announce = options.announce >= 0 ? options.announce : static_cast<int>(result.transactions.size());
    if (announce > 65535)
        return fail(QStringLiteral("an announced count of %1 does not fit two bytes").arg(announce));
    result.header = QByteArray(RecordBytes, ' ');
    putBytes(result.header, 10, QByteArray(1, static_cast<char>(announce >> 8)) + static_cast<char>(announce & 0xFF));
    put(result.header, 12, accounts.branchId, 15);
    put(result.header, 27, accounts.agentId, 15);

    if (options.summaryMismatch)
        result.totalAmount += 1;
    if (result.totalAmount > 99999999)
        return fail(QStringLiteral("a total of %1 does not fit eight digits").arg(result.totalAmount));
    const QString agent = options.agent.isEmpty() ? accounts.agentDateKey.left(3) : options.agent;
    const QString ddmm = options.ddmm.isEmpty() ? accounts.agentDateKey.mid(3, 4) : options.ddmm;
    result.summary = QByteArray(RecordBytes, ' ');
    put(result.summary, 10, agent, 3);
    put(result.summary, 13, ddmm, 4);
    putBytes(result.summary, 17,
             QByteArray(1, static_cast<char>((result.transactionCount >> 8) & 0xFF)) +
                 static_cast<char>(result.transactionCount & 0xFF));
    putBytes(result.summary, 19, packed(result.totalAmount, 4));

    *out = result;
    return true;
}

bool UploadRecords::parseScript(const QByteArray& text, QList<Collection>* out, QString* error)
{
    QList<Collection> result;
    int previousNumber = 0;
    const QList<QByteArray> lines = text.split('\n');
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString line = QString::fromLatin1(lines.at(i)).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        auto fail = [&](const QString& why) {
            if (error)
                *error = QStringLiteral("line %1: %2").arg(i + 1).arg(why);
            return false;
        };
        const QStringList parts = line.split(QRegularExpression(QStringLiteral("\\s+")));
        if (parts.size() != 4 && parts.size() != 5)
            return fail(QStringLiteral("expected: account amount dd/mm/yyyy hh:mm [transaction number]"));
        Collection c;
        c.accountNumber = parts.at(0);
        bool ok = false;
        c.amount = parts.at(1).toInt(&ok);
        if (!ok || c.amount < 0)
            return fail(QStringLiteral("amount \"%1\" is not a whole number of rupees").arg(parts.at(1)));
        const DayText::Reading day = DayText::readDayMonthYear(parts.at(2));
        if (!day.shaped)
            return fail(QStringLiteral("date \"%1\" is not dd/mm/yyyy").arg(parts.at(2)));
        if (!day.date.isValid())
            return fail(QStringLiteral("date \"%1\" names no real day: %2").arg(parts.at(2), day.why));
        const QDate date = day.date;
        const QTime time = QTime::fromString(parts.at(3), QStringLiteral("hh:mm"));
        if (!time.isValid())
            return fail(QStringLiteral("time \"%1\" is not hh:mm").arg(parts.at(3)));
        c.when = QDateTime(date, time);
        if (parts.size() == 5) {
            c.transactionNumber = parts.at(4).toInt(&ok);
            if (!ok || c.transactionNumber < 0 || c.transactionNumber > 32767)
                return fail(QStringLiteral("transaction number \"%1\" is not 0 to 32767").arg(parts.at(4)));
        } else {
            c.transactionNumber = previousNumber + 1;
        }
        previousNumber = c.transactionNumber;
        result.append(c);
    }
    *out = result;
    return true;
}

QList<Collection> UploadRecords::generate(const TerminalAccounts& accounts, int count, const QDate& date, quint32 seed)
{
    QList<Collection> result;
    if (accounts.accounts.isEmpty() || count <= 0)
        return result;
    static const int roundSums[] = {10, 20, 25, 50, 100, 150, 200, 250, 500};
    QRandomGenerator random(seed);
    const int accountCount = static_cast<int>(accounts.accounts.size());
    // The agent walks the round once, then comes back to some doors.
    QDateTime when(date, QTime(9, 0));
    for (int i = 0; i < count; ++i) {
        const TerminalAccount& a =
            accounts.accounts.at(i < accountCount ? i : static_cast<int>(random.bounded(accountCount)));
        Collection c;
        c.accountNumber = a.accountNumber;
        const int agreed = a.agreedAmount.toInt();
        c.amount = agreed > 0 && agreed <= 999999 ? agreed : roundSums[random.bounded(9)];
        c.when = when;
        c.transactionNumber = (i % 32767) + 1;
        result.append(c);
        // Spread the day from 09:00 to about 19:00, whatever the count.
        const qint64 step = std::max<qint64>(1, 600 * 60 / count);
        when = when.addSecs(step);
        if (when.date() != date)
            when = QDateTime(date, QTime(23, 59));
    }
    return result;
}

TerminalAccounts UploadRecords::sampleAccounts(int count, const QDate& date)
{
    static const char* const names[] = {"RAMESH KUMAR", "SUNITA DEVI",  "ABDUL RAHIM",    "MEENA PATIL",
                                        "JOHN MATHEW",  "LAKSHMI NAIR", "GURPREET SINGH", "ANITA DAS"};
    TerminalAccounts state;
    state.branchId = QStringLiteral("BR0001").leftJustified(15, QLatin1Char(' '));
    state.agentId = QStringLiteral("AG001").leftJustified(15, QLatin1Char(' '));
    state.agentDateKey = QStringLiteral("001") + date.toString(QStringLiteral("ddMM"));
    state.recordCount = count;
    for (int i = 0; i < count; ++i) {
        TerminalAccount a;
        a.frameNumber = i + 2;
        a.categoryCode = QStringLiteral("1");
        a.schemeCode = QStringLiteral("DD001");
        a.accountNumber = QStringLiteral("%1").arg(100001 + i, 15, 10, QLatin1Char('0'));
        a.name =
            QStringLiteral("%1 %2").arg(QLatin1String(names[i % 8])).arg(i + 1).leftJustified(28, QLatin1Char(' '));
        a.balance = QStringLiteral("%1").arg(1000 + 37 * i, 10, 10, QLatin1Char('0'));
        a.agreedAmount = QStringLiteral("%1").arg((i % 5 + 1) * 50, 6, 10, QLatin1Char('0'));
        a.openingDate = QStringLiteral("010107");
        a.lastTxnDate = date.addDays(-1).toString(QStringLiteral("ddMMyy"));
        state.accounts.append(a);
    }
    return state;
}
