// How long the start takes with five years of collection history: opening
// the database with its damage check (quick_check), the password row and
// the settings row, as both programs do before their first screen or
// command. The history is the report benchmark's (HistoryBuilder).
//
//   bench_open [--db FILE]     (an existing FILE is used as it stands;
//                               a missing one is built and kept)

#include "bench/HistoryBuilder.h"
#include "store/AppSettings.h"
#include "store/PasswordStore.h"
#include "store/SharedDatabase.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <cstdio>

namespace {

// One start: open (with the checks), password row, settings row.
double startMs(const QString& path, int times)
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
        PasswordStore::load(db);
        AppSettings settings;
        settings.load(db);
    }
    return static_cast<double>(t.nsecsElapsed()) / 1e6 / times;
}

double pragmaMs(const QString& path, const QString& pragma)
{
    double ms = -1;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("bench"));
        db.setDatabaseName(path);
        if (db.open()) {
            QElapsedTimer t;
            t.start();
            QSqlQuery q(db);
            q.exec(pragma);
            q.next();
            q.finish();
            ms = static_cast<double>(t.nsecsElapsed()) / 1e6;
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("bench"));
    return ms;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();

    QTemporaryDir dir;
    const QString path = HistoryBuilder::prepare(args, dir.path(), "Start-up");
    if (path.isEmpty())
        return 1;
    // The first start reads the file from disk (or from the cache the build
    // left); the later ones from the cache.
    std::printf("start (open + damage check + passwords + settings), first: %.1f ms\n", startMs(path, 1));
    std::printf("start, warm (average of 5): %.1f ms\n", startMs(path, 5));
    std::printf("  of which the checks of the working tables:\n");
    for (const char* table : {"Path", "Password", "BankData", "RestoreData", "AuditTrail"})
        std::printf("    PRAGMA quick_check(%s): %.1f ms\n", table,
                    pragmaMs(path, QStringLiteral("PRAGMA quick_check(%1)").arg(QLatin1String(table))));
    std::printf("  for comparison, the whole file's PRAGMA quick_check (made only up to 64 MB): %.1f ms\n",
                pragmaMs(path, QStringLiteral("PRAGMA quick_check(1)")));
    return 0;
}
