// How long opening the database takes with five years of collection
// history, and how much of it the damage check (quick_check) costs.
//
//   bench_open [agents] [collections-a-day] [years]   (default 20 100 5)

#include "store/SharedDatabase.h"

#include <QCoreApplication>
#include <QDate>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <cstdio>

namespace {

double openMs(const QString& path, int times)
{
    QElapsedTimer t;
    t.start();
    for (int i = 0; i < times; ++i) {
        SharedDatabase db;
        QString error;
        if (!db.open(path, &error)) {
            std::fprintf(stderr, "open failed: %s\n", qPrintable(error));
            return -1;
        }
    }
    return t.nsecsElapsed() / 1e6 / times;
}

double pragmaMs(const QString& path, const QString& pragma)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("bench"));
    db.setDatabaseName(path);
    db.open();
    QElapsedTimer t;
    t.start();
    {
        QSqlQuery q(db);
        q.exec(pragma);
        q.next();
    }
    const double ms = t.nsecsElapsed() / 1e6;
    db.close();
    db = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("bench"));
    return ms;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int agents = args.size() > 1 ? args.at(1).toInt() : 20;
    const int perDay = args.size() > 2 ? args.at(2).toInt() : 100;
    const int years = args.size() > 3 ? args.at(3).toInt() : 5;

    QTemporaryDir dir;
    const QString path = QDir(dir.path()).filePath(SharedDatabase::fileName());
    {
        SharedDatabase db;
        QString error;
        if (!db.open(path, &error)) {
            std::fprintf(stderr, "%s\n", qPrintable(error));
            return 1;
        }
        QElapsedTimer fill;
        fill.start();
        QSqlQuery q(db.connection());
        q.prepare(
            QStringLiteral("INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, ClosingAmt, "
                           "CollectedAmt, DateTime, TransactionNumber, ReceivedAt) VALUES (?, ?, ?, ?, ?, ?, ?, ?)"));
        const QDate first = QDate(2021, 1, 1);
        db.connection().transaction();
        for (int d = 0; d < 365 * years; ++d) {
            const QDate day = first.addDays(d);
            const QString date = day.toString(Qt::ISODate);
            const QString dateTime = day.toString(QStringLiteral("dd/MM/yyyy")) + QStringLiteral(" 10:00");
            for (int a = 0; a < agents; ++a) {
                const QString agent = QStringLiteral("AG%1").arg(a, 13, 10, QLatin1Char('0'));
                for (int c = 0; c < perDay; ++c) {
                    q.addBindValue(agent);
                    q.addBindValue(date);
                    q.addBindValue(QStringLiteral("%1").arg(a * 1000 + c, 15, 10, QLatin1Char('0')));
                    q.addBindValue(1000.0 + c);
                    q.addBindValue(50.0);
                    q.addBindValue(dateTime);
                    q.addBindValue(QStringLiteral("%1").arg(c + 1, 4, 10, QLatin1Char('0')));
                    q.addBindValue(date + QStringLiteral("T18:00:00"));
                    q.exec();
                }
            }
        }
        db.connection().commit();
        std::printf("history: %d agents x %d collections a day x %d years = %lld rows, filled in %.1f s\n", agents,
                    perDay, years, static_cast<long long>(agents) * perDay * 365 * years, fill.elapsed() / 1000.0);
    }
    std::printf("database file: %.1f MB\n", QFileInfo(path).size() / 1e6);
    // The first open reads the file from disk; the later ones from the cache.
    std::printf("open with checks, first: %.1f ms\n", openMs(path, 1));
    std::printf("open with checks, warm (average of 3): %.1f ms\n", openMs(path, 3));
    std::printf("  the whole file's PRAGMA quick_check (made up to 64 MB): %.1f ms\n",
                pragmaMs(path, QStringLiteral("PRAGMA quick_check(1)")));
    for (const char* table : {"Path", "Password", "BankData", "RestoreData", "AuditTrail"})
        std::printf("  PRAGMA quick_check(%s): %.1f ms\n", table,
                    pragmaMs(path, QStringLiteral("PRAGMA quick_check(%1)").arg(QLatin1String(table))));
    std::printf("  for comparison PRAGMA integrity_check: %.1f ms\n",
                pragmaMs(path, QStringLiteral("PRAGMA integrity_check(1)")));
    return 0;
}
