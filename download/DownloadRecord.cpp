#include "download/DownloadRecord.h"

namespace {

// Columns past the end of a short line give empty text, never a null
// string: a null would be stored as NULL, and version 2.1's string cutting
// gave "".
QString cut(const QString& line, qsizetype column, qsizetype width)
{
    const QString field = line.mid(column - 1, width);
    return field.isNull() ? QString::fromLatin1("") : field;
}

// dd/mm/yyyy in ten columns from `column`, kept as ddmmyy.
QString shortDate(const QString& line, qsizetype column)
{
    QString date = cut(line, column, 2) + cut(line, column + 3, 2) + cut(line, column + 8, 2);
    return date.isNull() ? QString::fromLatin1("") : date;
}

} // namespace

DownloadRecord DownloadRecord::fromLine(const QString& line)
{
    DownloadRecord r;
    r.BranchID = cut(line, 1, 15);
    r.CategoryCode = cut(line, 16, 1);
    r.SchemeCode = cut(line, 17, 5);
    r.ACNumber = cut(line, 22, 15);
    r.CustomerCode = cut(line, 37, 6);
    r.ACName = cut(line, 43, 50);
    r.BalAmount = cut(line, 95, 8);
    r.AgreedAmount = cut(line, 106, 5);
    r.MyDate = shortDate(line, 114);
    r.AgentID = cut(line, 124, 15);
    r.OpeningDate = shortDate(line, 139);
    r.Txndate = shortDate(line, 149);
    r.BankSoftACNumber = cut(line, 160, 15);
    return r;
}
