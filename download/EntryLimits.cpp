#include "download/EntryLimits.h"

namespace EntryLimits {

namespace {

QString tooLong(const QString& what, qsizetype length, int width)
{
    return QStringLiteral("The %1 has %2 characters; the terminal takes at most %3. Please shorten it.")
        .arg(what)
        .arg(length)
        .arg(width);
}

} // namespace

QString bankNameProblem(const QString& bankName)
{
    const qsizetype length = bankName.trimmed().size();
    return length > BankNameWidth ? tooLong(QStringLiteral("bank name"), length, BankNameWidth) : QString();
}

QString branchNameProblem(const QString& branchName)
{
    const qsizetype length = branchName.trimmed().size();
    return length > BranchNameWidth ? tooLong(QStringLiteral("branch name"), length, BranchNameWidth) : QString();
}

QString fontSizeProblem(const QString& fontSize)
{
    bool numeric = false;
    const double value = fontSize.trimmed().toDouble(&numeric);
    if ((numeric && value < 0) || fontSize.size() <= FontSizeWidth)
        return {};
    return QStringLiteral("The terminal font size \"%1\" is not Small or Big. Please choose it in CONFIGURE.")
        .arg(fontSize);
}

QString transactionsProblem(const QString& transactions)
{
    const qsizetype length = transactions.trimmed().size();
    if (length <= TransactionsWidth)
        return {};
    return QStringLiteral("The number of transactions has %1 digits; the terminal takes one digit (0 to 7).")
        .arg(length);
}

QString headerProblem(const QString& bankName, const QString& branchName, const QString& fontSize,
                      const QString& transactions)
{
    for (const QString& problem : {bankNameProblem(bankName), branchNameProblem(branchName), fontSizeProblem(fontSize),
                                   transactionsProblem(transactions)}) {
        if (!problem.isEmpty())
            return problem;
    }
    return {};
}

} // namespace EntryLimits
