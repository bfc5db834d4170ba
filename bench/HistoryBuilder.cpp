#include "bench/HistoryBuilder.h"

#include "store/SharedDatabase.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <cstdio>

namespace HistoryBuilder {

namespace {

bool exec(QSqlQuery& q, const QString& sql)
{
    if (q.exec(sql))
        return true;
    std::fprintf(stderr, "%s: %s\n", qPrintable(sql), qPrintable(q.lastError().text()));
    return false;
}

} // namespace

// The history as receives leave it, in one transaction, rows in day order.
bool build(const QString& path)
{
    SharedDatabase db;
    QString error;
    if (!db.open(path, &error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return false;
    }
    QSqlQuery q(db.connection());
    // A scratch copy: no journal, no waiting for the disk.
    if (!exec(q, "PRAGMA journal_mode = OFF") || !exec(q, "PRAGMA synchronous = OFF"))
        return false;
    db.connection().transaction();
    QSqlQuery insert(db.connection());
    insert.prepare("INSERT INTO CollectionHistory (AgentID, AgentNo, CollectionDate, AccountNo, ClosingPaise, "
                   "CollectedPaise, DateTime, TransactionNumber, ReceivedAt) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    QStringList agentIds;
    QStringList agentNumbers;
    for (int a = 1; a <= agents; ++a) {
        agentIds << QStringLiteral("AG%1").arg(a, 13, 10, QLatin1Char('0'));
        agentNumbers << QStringLiteral("%1").arg(a, 3, 10, QLatin1Char('0'));
    }
    qint64 rows = 0;
    for (QDate day = firstDay; day <= lastDay; day = day.addDays(1)) {
        const QString date = day.toString(Qt::ISODate);
        const QString time = day.toString(QStringLiteral("dd/MM/yyyy")) + QStringLiteral(" 10:30");
        const QString received = date + QStringLiteral("T18:00:00");
        const qint64 dayNumber = firstDay.daysTo(day);
        for (int a = 0; a < agents; ++a) {
            for (int c = 0; c < accountsPerAgent; ++c) {
                const qint64 account = 100000000000000LL + a * 1000 + c;
                const qint64 collected = 1000 + ((a * 7 + c * 13 + dayNumber) % 40) * 500; // 10.00 to 205.00
                insert.addBindValue(agentIds[a]);
                insert.addBindValue(agentNumbers[a]);
                insert.addBindValue(date);
                insert.addBindValue(QString::number(account));
                insert.addBindValue(500000 + dayNumber * 10000 + c * 100);
                insert.addBindValue(collected);
                insert.addBindValue(time);
                insert.addBindValue(QStringLiteral("%1").arg(c + 1, 4, 10, QLatin1Char('0')));
                insert.addBindValue(received);
                if (!insert.exec()) {
                    std::fprintf(stderr, "insert: %s\n", qPrintable(insert.lastError().text()));
                    return false;
                }
                ++rows;
            }
        }
    }
    db.connection().commit();
    exec(q, "ANALYZE");
    std::printf("  %lld history rows\n", static_cast<long long>(rows));
    return true;
}

QString prepare(const QStringList& args, const QString& tempDir, const char* what)
{
    QString path = QDir(tempDir).filePath(SharedDatabase::fileName());
    const int dbAt = static_cast<int>(args.indexOf(QStringLiteral("--db")));
    if (dbAt > 0 && dbAt + 1 < args.size())
        path = args[dbAt + 1];

    std::printf("%s against %d agents x %d accounts x %lld days of history\n", what, agents, accountsPerAgent,
                static_cast<long long>(firstDay.daysTo(lastDay) + 1));
    if (!QFileInfo::exists(path)) {
        QElapsedTimer fill;
        fill.start();
        if (!build(path))
            return {};
        std::printf("  database built in %.1f s\n", static_cast<double>(fill.nsecsElapsed()) / 1e9);
    } else {
        std::printf("  using %s\n", qPrintable(path));
    }
    std::printf("  database file: %.1f MB\n", static_cast<double>(QFileInfo(path).size()) / 1e6);
    return path;
}

} // namespace HistoryBuilder
