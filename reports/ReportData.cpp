#include "reports/ReportData.h"

#include "store/KeyCheck.h"
#include "store/SharedDatabase.h"
#include "store/StoreProblem.h"

#include <QLocale>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>
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

// The trailing run of digits of an identifier as a number without leading
// zeros ("0" for all zeros); empty when it does not end in a digit.
QString trailingNumber(const QString& text)
{
    qsizetype start = text.size();
    while (start > 0 && text.at(start - 1).isDigit() && text.at(start - 1).unicode() < 128)
        --start;
    if (start == text.size())
        return {};
    qsizetype firstNonZero = start;
    while (firstNonZero < text.size() - 1 && text.at(firstNonZero) == QLatin1Char('0'))
        ++firstNonZero;
    return text.mid(firstNonZero);
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

bool ReportData::agentMatches(const QString& stored, const QString& typed)
{
    const QString want = typed.trimmed();
    const QString have = stored.trimmed();
    if (want.isEmpty())
        return true;
    if (have.compare(want, Qt::CaseInsensitive) == 0)
        return true;
    if (!onlyDigits(want))
        return false;
    const QString number = trailingNumber(have);
    return !number.isEmpty() && number == trailingNumber(want);
}

QStringList ReportData::matchingAgents(SharedDatabase& db, const QString& typed)
{
    // The agents are few and the history is long: step through the distinct
    // identifiers on the agent-led index, one seek each, instead of reading
    // every row.
    QStringList matches;
    QSqlQuery first = run(db, QStringLiteral("SELECT MIN(AgentID) FROM CollectionHistory"), {});
    if (!first.next() || first.value(0).isNull())
        return matches;
    QString agent = first.value(0).toString();
    for (;;) {
        if (agentMatches(agent, typed))
            matches << agent;
        QSqlQuery next = run(db,
                             QStringLiteral("SELECT AgentID FROM CollectionHistory WHERE AgentID > ? "
                                            "ORDER BY AgentID LIMIT 1"),
                             {agent});
        if (!next.next())
            break;
        agent = next.value(0).toString();
    }
    return matches;
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
        m_agents = ReportData::matchingAgents(db, m_limits.agentId);
        m_noAgentMatches = m_agents.isEmpty();
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
