#pragma once

#include <QDate>
#include <QString>
#include <QStringList>

// A branch's five years of collection history, as the benchmarks measure
// against: 10 agents x 200 accounts, one collection per account and day,
// 3.65 million history rows, in one transaction, rows in day order.
namespace HistoryBuilder {

constexpr int agents = 10;
constexpr int accountsPerAgent = 200;
const QDate firstDay(2022, 1, 1);
const QDate lastDay(2026, 12, 31);

// Builds the database at path (a new file). False, with the reason on
// standard error, when that fails.
bool build(const QString& path);

// The database a benchmark measures against: the FILE after --db in args
// (used as it stands; built and kept when missing), else one built in
// tempDir. Prints "<what> against 10 agents x 200 accounts x ... days of
// history", how the file came and its size. Empty when it could not be built.
QString prepare(const QStringList& args, const QString& tempDir, const char* what);

} // namespace HistoryBuilder
