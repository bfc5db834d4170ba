#include "reports/ReportData.h"

#include "store/KeyCheck.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "store/StoreProblem.h"

#include <QLocale>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>
#include <algorithm>
#include <cmath>

namespace {

// The history stores its day as YYYY-MM-DD text, so a text comparison is a
// date comparison.
QString dayKey(const QDate& date)
{
    return date.toString(Qt::ISODate);
}

QSqlQuery run(SharedDatabase& db, const QString& sql, const QVariantList& values)
{
    QSqlQuery query(db.connection());
    query.setForwardOnly(true);
    if (!query.prepare(sql))
        throw StoreProblem::error(db.connection(), query.lastError());
    for (const QVariant& v : values)
        query.addBindValue(v);
    if (!query.exec())
        throw StoreProblem::error(db.connection(), query.lastError());
    return query;
}

DailyRow dailyRow(const QSqlQuery& query, int first)
{
    DailyRow row;
    row.agentId = query.value(first).toString();
    row.accountNo = query.value(first + 1).toString();
    row.closingAmt = ReportData::storedPaise(query.value(first + 2));
    row.collectedAmt = ReportData::storedPaise(query.value(first + 3));
    return row;
}

// Digits without leading zeros ("0" for all zeros).
QString numberValue(const QString& digits)
{
    qsizetype first = 0;
    while (first < digits.size() - 1 && digits.at(first) == QLatin1Char('0'))
        ++first;
    return digits.mid(first);
}

bool onlyDigits(const QString& text)
{
    if (text.isEmpty())
        return false;
    for (const QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
    }
    return true;
}

// The distinct values of an indexed column, stepped through one seek each
// instead of reading every row: the agents are few, the history long.
// With `leading`, only the rows whose leading index column holds
// `leadingValue`.
QStringList distinctValues(SharedDatabase& db, const QString& column, const QString& leading = {},
                           const QVariant& leadingValue = {})
{
    const QString where = leading.isEmpty() ? QString() : QStringLiteral("%1 = ? AND ").arg(leading);
    QVariantList firstValues;
    if (!leading.isEmpty())
        firstValues << leadingValue;
    QStringList values;
    QSqlQuery first = run(db,
                          QStringLiteral("SELECT %1 FROM CollectionHistory WHERE %2%1 IS NOT NULL ORDER BY %1 LIMIT 1")
                              .arg(column, where),
                          firstValues);
    if (!first.next())
        return values;
    QString value = first.value(0).toString();
    for (;;) {
        values << value;
        QVariantList nextValues = firstValues;
        nextValues << value;
        QSqlQuery next = run(
            db,
            QStringLiteral("SELECT %1 FROM CollectionHistory WHERE %2%1 > ? ORDER BY %1 LIMIT 1").arg(column, where),
            nextValues);
        if (!next.next())
            break;
        value = next.value(0).toString();
    }
    return values;
}

// Print order within a date. Rows equal in every printed field print alike,
// so this order is complete for what the page shows.
const char* const rowOrder = R"( ORDER BY AgentID, AccountNo, ClosingAmt, CollectedAmt)";

} // namespace

int DailySummary::rowCount() const
{
    int n = 0;
    for (const DailyGroup& g : groups)
        n += static_cast<int>(g.rows.size());
    return n;
}

std::optional<Paise> ReportData::storedPaise(const QVariant& value)
{
    if (value.isNull() || !value.isValid())
        return std::nullopt;
    bool ok = false;
    const qlonglong paise = value.toLongLong(&ok);
    if (!ok)
        return std::nullopt;
    return Paise(paise);
}

std::optional<Paise> ReportData::toPaise(const QVariant& value)
{
    if (value.isNull())
        return std::nullopt;
    bool ok = false;
    const double amount = value.toString().trimmed().toDouble(&ok);
    if (!ok)
        return std::nullopt;
    return static_cast<Paise>(std::llround(amount * 100.0));
}

bool ReportData::checkLimits(const ReportLimits& limits, QString* error)
{
    auto fail = [error](const QString& why) {
        if (error)
            *error = why;
        return false;
    };
    if (!limits.from.isValid() || !limits.to.isValid())
        return fail(QStringLiteral("Please enter both the From Date and the To Date."));
    if (limits.from > limits.to)
        return fail(QStringLiteral("The From Date (%1) is later than the To Date (%2). "
                                   "Choose a From Date on or before the To Date.")
                        .arg(QLocale::c().toString(limits.from, QStringLiteral("dd-MMM-yyyy")),
                             QLocale::c().toString(limits.to, QStringLiteral("dd-MMM-yyyy"))));
    if (!KeyCheck::acceptable(QStringLiteral("agent id"), limits.agentId, error))
        return false;
    if (!KeyCheck::acceptable(QStringLiteral("account number"), limits.accountNo, error))
        return false;
    return true;
}

bool ReportData::sameAgentId(const QString& stored, const QString& typed)
{
    const QString want = typed.trimmed();
    return !want.isEmpty() && stored.trimmed().compare(want, Qt::CaseInsensitive) == 0;
}

bool ReportData::sameAgentNumber(const QString& stored, const QString& typed)
{
    const QString have = stored.trimmed();
    const QString want = typed.trimmed();
    return onlyDigits(have) && onlyDigits(want) && numberValue(have) == numberValue(want);
}

AgentChoice ReportData::chooseAgent(SharedDatabase& db, const QString& typed)
{
    AgentChoice choice;
    const QString want = typed.trimmed();
    if (want.isEmpty())
        return choice;

    // The full identifier names its agent, even when it is digits only.
    const QStringList identifiers = distinctValues(db, QStringLiteral("AgentID"));
    for (const QString& id : identifiers) {
        if (sameAgentId(id, want))
            choice.agentIds << id;
    }
    if (!choice.agentIds.isEmpty()) {
        choice.result = AgentChoice::Result::OneAgent;
        return choice;
    }
    choice.result = AgentChoice::Result::NoAgent;
    if (!onlyDigits(want))
        return choice;

    // A number: the identifiers its collections carry it with. Rows whose
    // number is not known (empty) are found by their identifier only.
    QStringList agents; // one spelling per agent
    for (const QString& number : distinctValues(db, QStringLiteral("AgentNo"))) {
        if (!sameAgentNumber(number, want))
            continue;
        for (const QString& id : distinctValues(db, QStringLiteral("AgentID"), QStringLiteral("AgentNo"), number)) {
            const bool known = std::any_of(agents.cbegin(), agents.cend(),
                                           [&id](const QString& agent) { return sameAgentId(agent, id); });
            if (!known)
                agents << id.trimmed();
        }
    }
    if (agents.isEmpty())
        return choice;
    if (agents.size() > 1) {
        // Two agents are never shown as one.
        agents.sort();
        choice.result = AgentChoice::Result::SeveralAgents;
        choice.agentIds = agents;
        return choice;
    }
    choice.result = AgentChoice::Result::OneAgent;
    for (const QString& id : identifiers) {
        if (sameAgentId(id, agents.first()))
            choice.agentIds << id;
    }
    return choice;
}

QString ReportData::agentProblem(const QString& typed, const AgentChoice& choice)
{
    switch (choice.result) {
    case AgentChoice::Result::NoAgent:
        return QStringLiteral("Agent ID \"%1\" matches no agent of the stored collections. Type the agent's number "
                              "as on the send screen (5 or 005) or the bank's full agent identifier, or leave "
                              "Agent ID empty for every agent.")
            .arg(typed.trimmed());
    case AgentChoice::Result::SeveralAgents:
        return QStringLiteral("Agent ID \"%1\" is the number of more than one agent of the stored collections (%2). "
                              "Type the bank's full agent identifier instead.")
            .arg(typed.trimmed(), choice.agentIds.join(QStringLiteral(", ")));
    case AgentChoice::Result::Everyone:
    case AgentChoice::Result::OneAgent:
        break;
    }
    return QString();
}

bool ReportData::checkAgent(SharedDatabase& db, const ReportLimits& limits, QString* error)
{
    if (limits.agentId.trimmed().isEmpty())
        return true;
    try {
        const QString problem = agentProblem(limits.agentId, chooseAgent(db, limits.agentId));
        if (problem.isEmpty())
            return true;
        if (error)
            *error = problem;
    } catch (const StoreError& e) {
        if (error)
            *error = e.message();
    }
    return false;
}

DailySummary ReportData::daily(SharedDatabase& db, const ReportLimits& limits)
{
    DailySummary summary;
    DailyQuery(db, limits).forEach([&summary](const QString& date, const DailyRow& row) {
        if (summary.groups.isEmpty() || summary.groups.last().date != date) {
            DailyGroup group;
            group.date = date;
            summary.groups.append(group);
        }
        DailyGroup& group = summary.groups.last();
        group.rows.append(row);
        group.total += row.collectedAmt.value_or(0);
        summary.grandTotal += row.collectedAmt.value_or(0);
        return true;
    });
    return summary;
}

AgentSummary ReportData::agent(SharedDatabase& db, const ReportLimits& limits)
{
    QSqlQuery query = run(db,
                          QStringLiteral(R"(SELECT AgentID, CollectedAmt, "Date" FROM Report2 )"
                                         R"(WHERE "Date" >= ? AND "Date" <= ? ORDER BY "Date", AgentID)"),
                          {dayKey(limits.from), dayKey(limits.to)});
    AgentSummary summary;
    while (query.next()) {
        AgentRow row;
        row.agentId = query.value(0).toString();
        row.collectedAmt = storedPaise(query.value(1)).value_or(0);
        row.date = query.value(2).toString();
        summary.rows.append(row);
    }
    return summary;
}

DailyQuery::DailyQuery(SharedDatabase& db, const ReportLimits& limits) : m_db(db), m_limits(limits)
{
    m_limits.agentId = m_limits.agentId.trimmed();
    m_limits.accountNo = m_limits.accountNo.trimmed();
    if (!m_limits.agentId.isEmpty()) {
        const AgentChoice choice = ReportData::chooseAgent(db, m_limits.agentId);
        if (choice.result == AgentChoice::Result::OneAgent)
            m_agents = choice.agentIds;
        else
            m_noAgentMatches = true;
    }
}

QString DailyQuery::where() const
{
    QString sql = QStringLiteral(R"( WHERE "Date" >= ? AND "Date" <= ?)");
    if (!m_agents.isEmpty()) {
        QStringList marks(m_agents.size(), QStringLiteral("?"));
        sql += QStringLiteral(" AND AgentID IN (%1)").arg(marks.join(QLatin1Char(',')));
    }
    if (!m_limits.accountNo.isEmpty())
        sql += QStringLiteral(" AND AccountNo = ?");
    return sql;
}

QVariantList DailyQuery::rangeValues() const
{
    QVariantList values{dayKey(m_limits.from), dayKey(m_limits.to)};
    for (const QString& agent : m_agents)
        values << agent;
    if (!m_limits.accountNo.isEmpty())
        values << m_limits.accountNo;
    return values;
}

QString DailyQuery::groupsSql() const
{
    return QStringLiteral(R"(SELECT "Date", COUNT(*), SUM(CollectedAmt) FROM Report1)") + where() +
           QStringLiteral(R"( GROUP BY "Date" ORDER BY "Date")");
}

QString DailyQuery::rowsSql() const
{
    // One date: the range limits stay so that the same index serves.
    return QStringLiteral(R"(SELECT AgentID, AccountNo, ClosingAmt, CollectedAmt FROM Report1)") + where() +
           QStringLiteral(R"( AND "Date" = ?)") + QLatin1String(rowOrder) + QStringLiteral(" LIMIT ? OFFSET ?");
}

QString DailyQuery::allRowsSql() const
{
    return QStringLiteral(R"(SELECT "Date", AgentID, AccountNo, ClosingAmt, CollectedAmt FROM Report1)") + where() +
           QStringLiteral(R"( ORDER BY "Date", AgentID, AccountNo, ClosingAmt, CollectedAmt)");
}

QList<DailyGroupInfo> DailyQuery::groups() const
{
    QList<DailyGroupInfo> groups;
    if (m_noAgentMatches)
        return groups;
    QSqlQuery query = run(m_db, groupsSql(), rangeValues());
    while (query.next()) {
        DailyGroupInfo g;
        g.date = query.value(0).toString();
        g.rows = query.value(1).toInt();
        g.total = ReportData::storedPaise(query.value(2)).value_or(0);
        groups.append(g);
    }
    return groups;
}

QList<DailyRow> DailyQuery::rows(const QString& date, int offset, int count) const
{
    QList<DailyRow> rows;
    if (m_noAgentMatches || count <= 0)
        return rows;
    QVariantList values = rangeValues();
    values << date << count << offset;
    QSqlQuery query = run(m_db, rowsSql(), values);
    while (query.next())
        rows.append(dailyRow(query, 0));
    return rows;
}

void DailyQuery::forEach(const std::function<bool(const QString& date, const DailyRow& row)>& row) const
{
    if (m_noAgentMatches)
        return;
    QSqlQuery query = run(m_db, allRowsSql(), rangeValues());
    while (query.next()) {
        if (!row(query.value(0).toString(), dailyRow(query, 1)))
            return;
    }
}
