#include "ReportData.h"

#include "KeyCheck.h"
#include "SharedDatabase.h"
#include "StoreError.h"

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
        throw StoreError(QStringLiteral("Database error: %1").arg(query.lastError().text()));
    for (const QVariant& v : values)
        query.addBindValue(v);
    if (!query.exec())
        throw StoreError(QStringLiteral("Database error: %1").arg(query.lastError().text()));
    return query;
}

} // namespace

int DailySummary::rowCount() const
{
    int n = 0;
    for (const DailyGroup& g : groups)
        n += static_cast<int>(g.rows.size());
    return n;
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

DailySummary ReportData::daily(SharedDatabase& db, const ReportLimits& limits)
{
    QString sql = QStringLiteral(R"(SELECT "Date", AgentID, AccountNo, ClosingAmt, CollectedAmt FROM Report1 )"
                                 R"(WHERE "Date" >= ? AND "Date" <= ?)");
    QVariantList values{dayKey(limits.from), dayKey(limits.to)};
    const QString agent = limits.agentId.trimmed();
    const QString account = limits.accountNo.trimmed();
    if (!agent.isEmpty()) {
        sql += QStringLiteral(" AND AgentID = ?");
        values << agent;
    }
    if (!account.isEmpty()) {
        sql += QStringLiteral(" AND AccountNo = ?");
        values << account;
    }
    sql += QStringLiteral(R"( ORDER BY "Date", AgentID, AccountNo)");

    DailySummary summary;
    QSqlQuery query = run(db, sql, values);
    while (query.next()) {
        const QString date = query.value(0).toString();
        if (summary.groups.isEmpty() || summary.groups.last().date != date) {
            DailyGroup group;
            group.date = date;
            summary.groups.append(group);
        }
        DailyRow row;
        row.agentId = query.value(1).toString();
        row.accountNo = query.value(2).toString();
        row.closingAmt = toPaise(query.value(3));
        row.collectedAmt = toPaise(query.value(4));
        DailyGroup& group = summary.groups.last();
        group.rows.append(row);
        group.total += row.collectedAmt.value_or(0);
        summary.grandTotal += row.collectedAmt.value_or(0);
    }
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
        row.collectedAmt = toPaise(query.value(1)).value_or(0);
        row.date = query.value(2).toString();
        summary.rows.append(row);
    }
    return summary;
}
