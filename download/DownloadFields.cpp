#include "download/DownloadFields.h"

#include "download/DownloadRecord.h"

#include <QDir>
#include <QRegularExpression>

namespace {

struct Field
{
    QString DownloadRecord::*member;
    const char* name;
    int first; // column, from 1
    int width;
    bool date;

    QString columns() const { return QStringLiteral("%1-%2").arg(first).arg(first + width - 1); }
};

// The fields the record frame packs, in the order they stand in a line.
const Field packedFields[] = {
    {&DownloadRecord::BalAmount, "balance amount", 95, 8, false},
    {&DownloadRecord::AgreedAmount, "agreed amount", 106, 5, false},
    {&DownloadRecord::OpeningDate, "account opening date", 139, 10, true},
    {&DownloadRecord::Txndate, "last transaction date", 149, 10, true},
};

bool isBlank(const QString& value)
{
    return value.trimmed().isEmpty();
}

// What the frame rounds and packs: whole rupees or rupees and paise, no sign
// (the terminal's packed amounts have none, so -12 would arrive as 12).
bool isAmount(const QString& value)
{
    static const QRegularExpression amount(QStringLiteral(R"(^(\d+(\.\d*)?|\.\d+)$)"));
    return amount.match(value.trimmed()).hasMatch();
}

FieldProblem problem(const Field& f, int line, const QString& value, const QString& why)
{
    return FieldProblem{line, QLatin1String(f.name), f.columns(), value, why};
}

} // namespace

QString FieldProblem::describe(const QString& path) const
{
    return QStringLiteral("The DownLoad File %1, line %2: the %3 (columns %4) \"%5\" %6.")
        .arg(QDir::toNativeSeparators(path))
        .arg(line)
        .arg(field, columns, value, why);
}

namespace DownloadFields {

std::optional<FieldProblem> contentProblem(const DownloadRecord& record, const QString& text, int line)
{
    for (const Field& f : packedFields) {
        const QString& value = record.*f.member;
        if (isBlank(value))
            continue;
        if (f.date) {
            for (const QChar c : value) {
                if (c != QLatin1Char(' ') && !c.isDigit())
                    return problem(f, line, text.mid(f.first - 1, f.width),
                                   QStringLiteral("is not a date (day, month and year must be digits)"));
            }
            continue;
        }
        if (value.trimmed().startsWith(QLatin1Char('-')))
            return problem(f, line, value, QStringLiteral("is negative; the terminal takes amounts without a sign"));
        if (!isAmount(value))
            return problem(f, line, value, QStringLiteral("is not a number"));
    }
    return std::nullopt;
}

std::optional<FieldProblem> frameProblem(const DownloadRecord& record, int line, bool lastRecord)
{
    for (const Field& f : packedFields) {
        const QString& value = record.*f.member;
        if (!f.date) {
            if (isBlank(value))
                return problem(f, line, value,
                               value.isEmpty() ? QStringLiteral("is missing: the line ends before it")
                                               : QStringLiteral("is blank"));
            continue;
        }
        // A date left blank by the bank is sent as "no date"; one with some
        // of its day, month or year missing cannot be sent at all.
        if (isBlank(value))
            continue;
        bool whole = value.size() == 6;
        for (int i = 0; whole && i < 3; ++i)
            whole = !isBlank(value.mid(i * 2, 2));
        if (!whole)
            return problem(f, line, value, QStringLiteral("is incomplete: day, month or year is missing"));
    }
    if (lastRecord && record.AgentID.size() < 15)
        return FieldProblem{line, QStringLiteral("agent identifier"), QStringLiteral("124-138"), record.AgentID,
                            QStringLiteral("is cut short by the end of the line; the terminal needs all 15 "
                                           "columns of the last record's agent identifier")};
    return std::nullopt;
}

} // namespace DownloadFields
