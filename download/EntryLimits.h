#pragma once

#include <QString>

// The widths the download header gives the values the clerk types. The
// terminal reads the header by position, so a longer value shifts every field
// after it; each entry is held to its field's width where it is typed (the
// screens' boxes, the command line) and checked again before a send.
namespace EntryLimits {

constexpr int BankNameWidth = 48;
constexpr int BranchNameWidth = 22;
constexpr int FontSizeWidth = 1;     // "0" Small or "1" Big
constexpr int TransactionsWidth = 1; // one digit, 0 to 7

// Each returns an empty text when the value fits, otherwise the message to
// show. Names are checked as they are stored (blanks around them trimmed).
QString bankNameProblem(const QString& bankName);
QString branchNameProblem(const QString& branchName);
// The font size as the header carries it: a negative value goes out as "0".
QString fontSizeProblem(const QString& fontSize);
// The number of transactions as the send screen keeps it (trimmed; empty is
// sent as "1").
QString transactionsProblem(const QString& transactions);

// The first problem of the four, for the values one header would carry.
QString headerProblem(const QString& bankName, const QString& branchName, const QString& fontSize,
                      const QString& transactions);

} // namespace EntryLimits
