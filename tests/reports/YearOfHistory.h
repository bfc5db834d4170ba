#pragma once

#include <QDate>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>

// A year (or any run of days) of collection history put into a database in
// one statement, in well under a second: `agents` agents of `accounts`
// accounts each, one collection per account and day, in day order, as the
// benchmarks' history is made. False with the reason when it fails.
inline bool addDaysOfHistory(QSqlDatabase db, const QDate& first, int days, int agents, int accounts,
                             QString* error = nullptr)
{
    QSqlQuery q(db);
    const bool ok =
        q.prepare(QStringLiteral(
            "WITH RECURSIVE d(n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM d WHERE n + 1 < ?), "
            "a(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM a WHERE n + 1 <= ?), "
            "c(n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM c WHERE n + 1 < ?) "
            "INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, ClosingPaise, CollectedPaise, "
            "DateTime, TransactionNumber, ReceivedAt) "
            "SELECT printf('AG%013d', a.n), date(?, '+' || d.n || ' days'), "
            "printf('%015d', 100000000000000 + a.n * 1000 + c.n), 500000 + d.n * 100 + c.n, "
            "1000 + ((a.n * 7 + c.n * 13 + d.n) % 40) * 500, '10:30', printf('%04d', c.n + 1), "
            "date(?, '+' || d.n || ' days') || 'T18:00:00' "
            "FROM d, a, c ORDER BY d.n, a.n, c.n")) &&
        (q.addBindValue(days), q.addBindValue(agents), q.addBindValue(accounts),
         q.addBindValue(first.toString(Qt::ISODate)), q.addBindValue(first.toString(Qt::ISODate)), q.exec());
    if (!ok && error)
        *error = q.lastError().text();
    return ok;
}
