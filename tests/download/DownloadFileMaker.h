#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// Builds lines of the bank's download file from their fields, each padded or
// cut to its columns, with "#" in the columns the reader skips.
struct AccountLine
{
    QString branch = QStringLiteral("BR0001");
    QString category = QStringLiteral("1");
    QString scheme = QStringLiteral("DDS01");
    QString acNumber = QStringLiteral("000000000000101");
    QString customer = QStringLiteral("C00101");
    QString name = QStringLiteral("RAMESH KUMAR");
    QString balance = QStringLiteral("00012345");
    QString agreed = QStringLiteral("00100");
    QString date = QStringLiteral("16/11/2007");
    QString agent = QStringLiteral("AG0005");
    QString opening = QStringLiteral("01/04/2005");
    QString txnDate = QStringLiteral("15/11/2007");
    QString bankSoft = QStringLiteral("BS0000000000101");

    static QString field(const QString& value, int width)
    {
        return value.left(width).leftJustified(width, QLatin1Char(' '));
    }

    // The 174-character record.
    QString text() const
    {
        return field(branch, 15) + field(category, 1) + field(scheme, 5) + field(acNumber, 15) + field(customer, 6) +
               field(name, 50) + QStringLiteral("##") + field(balance, 8) + QStringLiteral("###") + field(agreed, 5) +
               QStringLiteral("###") + field(date, 10) + field(agent, 15) + field(opening, 10) + field(txnDate, 10) +
               QStringLiteral("#") + field(bankSoft, 15);
    }
    QByteArray bytes() const { return text().toLatin1(); }

    // Account n of a file: distinct number and name.
    static AccountLine numbered(int n)
    {
        AccountLine a;
        a.acNumber = QString::number(n).rightJustified(15, QLatin1Char('0'));
        a.name = QStringLiteral("HOLDER %1").arg(n, 5, 10, QLatin1Char('0'));
        a.bankSoft = QStringLiteral("BS%1").arg(n, 13, 10, QLatin1Char('0'));
        return a;
    }
};

inline QByteArray joinLines(const QList<QByteArray>& lines, const QByteArray& end = "\r\n")
{
    QByteArray out;
    for (const QByteArray& l : lines)
        out += l + end;
    return out;
}

// A file of `count` numbered accounts.
inline QByteArray accountsFile(int count, const QString& agent = QStringLiteral("AG0005"))
{
    QList<QByteArray> lines;
    for (int n = 1; n <= count; ++n) {
        AccountLine a = AccountLine::numbered(n);
        a.agent = agent;
        lines << a.bytes();
    }
    return joinLines(lines);
}
