#pragma once

#include <QDate>
#include <QList>
#include <QString>
#include <optional>

class SharedDatabase;

// What a report is limited to. The agent and account limits apply to the
// daily summary only; empty means "every agent" / "every account".
struct ReportLimits
{
    QDate from;
    QDate to;
    QString agentId;
    QString accountNo;
};

// The page-header captions: bank name and branch from the settings row, the
// date of printing from the clock.
struct ReportHeader
{
    QString bankName;
    QString branchId;
    QDate printed;
};

// Amounts are kept in paise so that group and grand totals add up exactly
// whatever the binary form of the stored values.
using Paise = qint64;

struct DailyRow
{
    QString agentId;
    QString accountNo;
    std::optional<Paise> closingAmt;   // empty when not recorded
    std::optional<Paise> collectedAmt; // empty when nothing was recorded; counts as 0 in sums
};

// One date of the daily summary with its rows and its group total.
struct DailyGroup
{
    QString date; // as stored, YYYY-MM-DD
    QList<DailyRow> rows;
    Paise total = 0;
};

struct DailySummary
{
    QList<DailyGroup> groups;
    Paise grandTotal = 0;
    int rowCount() const;
};

struct AgentRow
{
    QString agentId;
    Paise collectedAmt = 0;
    QString date; // as stored, YYYY-MM-DD
};

struct AgentSummary
{
    QList<AgentRow> rows;
};

// Reads the two report row sources, Report1 (one row per collection) and
// Report2 (one row per agent and day), for a range of dates. Each call runs
// its query afresh on its own statement, so the screens' shared result set
// is left alone and every showing sees the current rows.
class ReportData
{
public:
    // False with a reason when the limits cannot be used: a missing or
    // inverted date range, or an agent id or account number with an
    // apostrophe.
    static bool checkLimits(const ReportLimits& limits, QString* error);

    // Report1 rows from limits.from to limits.to (and of the agent and
    // account when given), grouped by date in date order, with the group
    // totals and the grand total of the collected amounts. Throws StoreError.
    static DailySummary daily(SharedDatabase& db, const ReportLimits& limits);

    // Report2 rows from limits.from to limits.to, by date and agent. Throws
    // StoreError.
    static AgentSummary agent(SharedDatabase& db, const ReportLimits& limits);

    // A stored amount in paise (rounded to the nearest paisa); empty for NULL.
    static std::optional<Paise> toPaise(const QVariant& value);
};
