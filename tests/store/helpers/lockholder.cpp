// Holds a lock on a database file from a process of its own, as another
// program would: tonvy_test_lockholder FILE exclusive|immediate. Prints
// "locked" once the lock is taken and keeps it until standard input closes.
#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 3) {
        std::fprintf(stderr, "usage: tonvy_test_lockholder FILE exclusive|immediate\n");
        return 2;
    }
    int code = 0;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("holder"));
        db.setDatabaseName(args.at(1));
        if (!db.open()) {
            std::fprintf(stderr, "cannot open: %s\n", qPrintable(db.lastError().text()));
            return 1;
        }
        QSqlQuery q(db);
        const QString begin = args.at(2) == QLatin1String("exclusive") ? QStringLiteral("BEGIN EXCLUSIVE")
                                                                       : QStringLiteral("BEGIN IMMEDIATE");
        if (!q.exec(begin)) {
            std::fprintf(stderr, "cannot lock: %s\n", qPrintable(q.lastError().text()));
            code = 1;
        } else {
            std::printf("locked\n");
            std::fflush(stdout);
            while (std::getchar() != EOF) {
            }
            q.exec(QStringLiteral("ROLLBACK"));
        }
        q.finish();
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("holder"));
    return code;
}
