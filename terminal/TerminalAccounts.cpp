#include "terminal/TerminalAccounts.h"

#include <QFile>
#include <QSaveFile>

namespace {

// A packed two-digit byte back to its digits ("45" for 0x45).
QString packedDigits(const QByteArray& bytes)
{
    QString out;
    for (char ch : bytes) {
        const int v = static_cast<unsigned char>(ch);
        out += QStringLiteral("%1").arg((v >> 4) * 10 + (v & 15), 2, 10, QLatin1Char('0'));
    }
    return out;
}

QString latin1(const QByteArray& frame, int position, int count)
{
    return QString::fromLatin1(frame.mid(position - 1, count));
}
} // namespace

QString TerminalAccounts::escape(const QString& value)
{
    QString out;
    out.reserve(value.size());
    for (QChar c : value) {
        if (c == QLatin1Char('\\'))
            out += QStringLiteral("\\\\");
        else if (c == QLatin1Char('\n'))
            out += QStringLiteral("\\n");
        else if (c == QLatin1Char('\r'))
            out += QStringLiteral("\\r");
        else
            out += c;
    }
    return out;
}

QString TerminalAccounts::unescape(const QString& value)
{
    QString out;
    out.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        const QChar c = value.at(i);
        if (c == QLatin1Char('\\') && i + 1 < value.size()) {
            const QChar n = value.at(++i);
            out += n == QLatin1Char('n')   ? QChar(QLatin1Char('\n'))
                   : n == QLatin1Char('r') ? QChar(QLatin1Char('\r'))
                                           : n;
        } else {
            out += c;
        }
    }
    return out;
}

QByteArray TerminalAccounts::toBytes() const
{
    QString text = QString::fromLatin1(magic()) + QLatin1Char('\n');
    auto line = [&text](const char* key, const QString& value) {
        text += QLatin1String(key) + QLatin1Char('=') + escape(value) + QLatin1Char('\n');
    };
    line("BRANCHID", branchId);
    line("AGENTID", agentId);
    line("KEY", agentDateKey);
    line("DOWNLOADPW", downloadPassword);
    line("SETUPPW", setupPassword);
    line("FONTSIZE", fontSize);
    line("BANKNAME", bankName);
    line("BRANCHNAME", branchName);
    line("TRANSACTIONS", transactions);
    line("CLOCK", clock);
    line("RECORDS", QString::number(recordCount));
    for (const TerminalAccount& a : accounts) {
        const QStringList fields = {QString::number(a.frameNumber),
                                    a.categoryCode,
                                    a.schemeCode,
                                    a.accountNumber,
                                    a.name,
                                    a.balance,
                                    a.agreedAmount,
                                    a.openingDate,
                                    a.lastTxnDate};
        QStringList escaped;
        for (const QString& f : fields)
            escaped << escape(f);
        text += QStringLiteral("ACCOUNT=") + escaped.join(QLatin1Char('|')) + QLatin1Char('\n');
    }
    for (const QString& other : otherLines)
        text += other + QLatin1Char('\n');
    return text.toLatin1();
}

bool TerminalAccounts::fromBytes(const QByteArray& bytes, QString* error)
{
    TerminalAccounts result;
    const QList<QByteArray> lines = bytes.split('\n');
    auto fail = [error](int lineNo, const QString& why) {
        if (error)
            *error = QStringLiteral("line %1: %2").arg(lineNo).arg(why);
        return false;
    };
    if (lines.isEmpty() || lines.first() != magic())
        return fail(
            1,
            QStringLiteral("not a terminal state file (first line must be \"%1\")").arg(QString::fromLatin1(magic())));
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const int lineNo = static_cast<int>(i + 1);
        const QString line = QString::fromLatin1(lines.at(i));
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        const QString key = eq < 0 ? QString() : line.left(eq);
        const QString raw = eq < 0 ? QString() : line.mid(eq + 1);
        if (key == QLatin1String("ACCOUNT")) {
            // The name is what lies between the fourth and the fifth-last
            // separator, so a "|" inside it survives.
            const QStringList parts = raw.split(QLatin1Char('|'));
            if (parts.size() < 9)
                return fail(lineNo, QStringLiteral("an ACCOUNT line needs 9 fields separated by |"));
            TerminalAccount a;
            bool ok = false;
            a.frameNumber = parts.at(0).toInt(&ok);
            if (!ok)
                return fail(lineNo, QStringLiteral("frame number \"%1\" is not a number").arg(parts.at(0)));
            a.categoryCode = unescape(parts.at(1));
            a.schemeCode = unescape(parts.at(2));
            a.accountNumber = unescape(parts.at(3));
            a.name = unescape(parts.mid(4, parts.size() - 8).join(QLatin1Char('|')));
            const qsizetype n = parts.size();
            a.balance = unescape(parts.at(n - 4));
            a.agreedAmount = unescape(parts.at(n - 3));
            a.openingDate = unescape(parts.at(n - 2));
            a.lastTxnDate = unescape(parts.at(n - 1));
            result.accounts.append(a);
            continue;
        }
        const QString value = unescape(raw);
        if (key == QLatin1String("BRANCHID"))
            result.branchId = value;
        else if (key == QLatin1String("AGENTID"))
            result.agentId = value;
        else if (key == QLatin1String("KEY"))
            result.agentDateKey = value;
        else if (key == QLatin1String("DOWNLOADPW"))
            result.downloadPassword = value;
        else if (key == QLatin1String("SETUPPW"))
            result.setupPassword = value;
        else if (key == QLatin1String("FONTSIZE"))
            result.fontSize = value;
        else if (key == QLatin1String("BANKNAME"))
            result.bankName = value;
        else if (key == QLatin1String("BRANCHNAME"))
            result.branchName = value;
        else if (key == QLatin1String("TRANSACTIONS"))
            result.transactions = value;
        else if (key == QLatin1String("CLOCK"))
            result.clock = value;
        else if (key == QLatin1String("RECORDS")) {
            bool ok = false;
            result.recordCount = value.toInt(&ok);
            if (!ok)
                return fail(lineNo, QStringLiteral("RECORDS \"%1\" is not a number").arg(value));
        } else {
            result.otherLines.append(line);
        }
    }
    *this = result;
    return true;
}

bool TerminalAccounts::load(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("Cannot read the terminal state file %1: %2").arg(path, file.errorString());
        return false;
    }
    QString why;
    if (!fromBytes(file.readAll(), &why)) {
        if (error)
            *error = QStringLiteral("The terminal state file %1 is damaged: %2").arg(path, why);
        return false;
    }
    return true;
}

bool TerminalAccounts::save(const QString& path, QString* error) const
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(toBytes()) < 0 || !file.commit()) {
        if (error)
            *error = QStringLiteral("Cannot write the terminal state file %1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

TerminalAccount TerminalAccounts::accountFromFrame(const QByteArray& frame)
{
    TerminalAccount a;
    const QByteArray number = frame.mid(7, 2).leftJustified(2, '\0');
    a.frameNumber = static_cast<unsigned char>(number.at(0)) * 256 + static_cast<unsigned char>(number.at(1));
    a.categoryCode = latin1(frame, 10, 1);
    a.schemeCode = latin1(frame, 11, 5);
    a.accountNumber = latin1(frame, 16, 15);
    a.name = latin1(frame, 31, 28);
    a.balance = packedDigits(frame.mid(58, 5));
    a.agreedAmount = packedDigits(frame.mid(63, 3));
    a.openingDate = packedDigits(frame.mid(66, 3));
    a.lastTxnDate = packedDigits(frame.mid(69, 3));
    return a;
}

bool TerminalAccounts::takeHeaderFrame(const QByteArray& frame)
{
    // Fixed head up to the branch name (byte 112), fixed tail of 23 bytes
    // before the check byte; the transactions text lies in between.
    constexpr int tail = 23;
    if (frame.size() < 112 + tail + 1)
        return false;
    const int tailStart = static_cast<int>(frame.size()) - 1 - tail; // 0-based
    recordCount = static_cast<unsigned char>(frame.at(9)) * 256 + static_cast<unsigned char>(frame.at(10));
    branchId = latin1(frame, 12, 15);
    agentId = latin1(frame, 27, 15);
    fontSize = latin1(frame, 42, 1);
    bankName = latin1(frame, 43, 48);
    branchName = latin1(frame, 91, 22);
    transactions = QString::fromLatin1(frame.mid(112, tailStart - 112));
    downloadPassword = QString::fromLatin1(frame.mid(tailStart, 4));
    setupPassword = QString::fromLatin1(frame.mid(tailStart + 5, 4));
    agentDateKey = QString::fromLatin1(frame.mid(tailStart + 9, 7));
    const QString c = packedDigits(frame.mid(tailStart + 16, 6));
    clock = QStringLiteral("%1/%2/%3 %4:%5:%6")
                .arg(c.mid(0, 2), c.mid(2, 2), c.mid(4, 2), c.mid(6, 2), c.mid(8, 2), c.mid(10, 2));
    accounts.clear();
    return true;
}
