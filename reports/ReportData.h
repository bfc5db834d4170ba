#pragma once

#include <QDate>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <functional>
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

// Amounts are whole paise from the history table up, so that group and grand
// totals add up exactly.
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

// One date of the daily summary counted before its rows are read: enough to
// lay the pages out.
struct DailyGroupInfo
{
    QString date; // YYYY-MM-DD
    int rows = 0;
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

// Which stored agent a typed Agent ID stands for.
struct AgentChoice
{
    enum class Result {
        Everyone,      // nothing typed
        OneAgent,      // one agent; agentIds holds every stored spelling of its identifier
        NoAgent,       // no stored agent has that identifier or that number
        SeveralAgents, // the typed number is held by more than one identifier; agentIds names them
    };
    Result result = Result::Everyone;
    QStringList agentIds;
};

// Reads the two report row sources, Report1 (one row per collection) and
// Report2 (one row per agent and day), for a range of dates. Every query is
// bound, runs afresh on its own statement (the screens' shared result set is
// left alone) and is served by an index led by the day.
class ReportData
{
public:
    // False with a reason when the limits cannot be used: a missing or
    // inverted date range, or an agent id or account number with an
    // apostrophe.
    static bool checkLimits(const ReportLimits& limits, QString* error);

    // Whether a stored bank identifier is the one typed: the same text,
    // blanks around and letter case aside.
    static bool sameAgentId(const QString& stored, const QString& typed);
    // Whether a stored terminal agent number is the number typed: both
    // digits only and of the same value ("5" and "005" are 005).
    static bool sameAgentNumber(const QString& stored, const QString& typed);

    // The agent that `typed` stands for in the collection history. Text equal
    // to a stored identifier means that identifier, whatever else it might
    // be; otherwise digits mean the identifier that carries that terminal
    // agent number. Never more than one agent. Throws StoreError.
    static AgentChoice chooseAgent(SharedDatabase& db, const QString& typed);
    // What to tell the clerk when the choice names no agent or several;
    // empty otherwise.
    static QString agentProblem(const QString& typed, const AgentChoice& choice);
    // False with the reason when the agent limit names no stored agent or
    // several, or the history cannot be read; true for no agent limit.
    static bool checkAgent(SharedDatabase& db, const ReportLimits& limits, QString* error);

    // The whole daily summary in memory: for small ranges and tests. The
    // printed report reads it through DailyQuery. Throws StoreError.
    static DailySummary daily(SharedDatabase& db, const ReportLimits& limits);

    // Report2 rows from limits.from to limits.to, by date and agent (one row
    // per agent and day, so small even for years). Throws StoreError.
    static AgentSummary agent(SharedDatabase& db, const ReportLimits& limits);

    // A stored history amount (whole paise); empty for NULL or a value that
    // is not a number.
    static std::optional<Paise> storedPaise(const QVariant& value);
    // An amount in rupees (number or text such as "0000150.00") in paise,
    // rounded to the nearest paisa; empty for NULL or text that is no number.
    static std::optional<Paise> toPaise(const QVariant& value);
};

// The daily summary's rows for one set of limits, read in pieces: the dates
// with their row counts and totals first (one query), then the rows of any
// date from any offset, or every row in print order, one at a time. The agent
// limit is resolved to stored identifiers once, when the query is made; one
// that names no agent, or several, gives no rows.
class DailyQuery
{
public:
    // Throws StoreError.
    DailyQuery(SharedDatabase& db, const ReportLimits& limits);

    // Each date in range with its number of rows and its total, in date order.
    QList<DailyGroupInfo> groups() const;
    // Up to `count` rows of one date from `offset`, in print order.
    QList<DailyRow> rows(const QString& date, int offset, int count) const;
    // Every row in range in print order; `row` returns false to stop.
    void forEach(const std::function<bool(const QString& date, const DailyRow& row)>& row) const;

    // The statements, for checking how the database runs them.
    QString groupsSql() const;
    QString rowsSql() const;
    QString allRowsSql() const;
    QVariantList rangeValues() const;

private:
    QString where() const;

    SharedDatabase& m_db;
    ReportLimits m_limits;
    QStringList m_agents; // the stored spellings of the agent's identifier when an agent is given
    bool m_noAgentMatches = false;
};
