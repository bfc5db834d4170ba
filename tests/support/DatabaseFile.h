#pragma once

#include <QAtomicInt>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVariantList>

// A database file read or changed as an outside program would: through a
// connection of the test's own, apart from the program's, closed at once.
namespace DatabaseFile {

namespace detail {
inline QString connectionName()
{
    static QAtomicInt counter;
    return QStringLiteral("tests-database-file-%1").arg(counter.fetchAndAddRelaxed(1));
}
} // namespace detail

// Runs the statements in order. False at the first that fails, named in
// *failed with SQLite's words.
inline bool execute(const QString& path, const QStringList& statements, QString* failed = nullptr)
{
    const QString name = detail::connectionName();
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        ok = db.open();
        if (!ok && failed)
            *failed = QStringLiteral("open %1: %2").arg(path, db.lastError().text());
        QSqlQuery q(db);
        for (const QString& s : statements) {
            if (!ok)
                break;
            ok = q.exec(s);
            if (!ok && failed)
                *failed = s + QStringLiteral(": ") + q.lastError().text();
        }
        q.finish();
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return ok;
}

// Runs one statement with its values bound, as another program that does
// not wait for locks (connect options "QSQLITE_BUSY_TIMEOUT=0"): a lock held
// anywhere fails it at once, named in *failed.
inline bool executeWithoutWaiting(const QString& path, const QString& sql, const QVariantList& values,
                                  QString* failed = nullptr)
{
    const QString name = detail::connectionName();
    bool ok = false;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=0"));
        if (db.open()) {
            QSqlQuery q(db);
            ok = q.prepare(sql);
            for (const QVariant& value : values)
                q.addBindValue(value);
            ok = ok && q.exec();
            if (!ok && failed)
                *failed = q.lastError().text();
            q.finish();
        } else if (failed) {
            *failed = db.lastError().text();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return ok;
}

// The first value the query gives, read with the file opened read-only;
// "<none>" when there is none or the query fails.
inline QString scalar(const QString& path, const QString& sql)
{
    const QString name = detail::connectionName();
    QString value = QStringLiteral("<none>");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        if (db.open()) {
            QSqlQuery q(db);
            if (q.exec(sql) && q.next())
                value = q.value(0).toString();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return value;
}

} // namespace DatabaseFile
