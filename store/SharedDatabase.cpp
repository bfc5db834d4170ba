#include "SharedDatabase.h"

#include "Schema.h"
#include "StoreError.h"

#include <QAtomicInt>
#include <QFile>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>

namespace {
QAtomicInt connectionCounter;
}

SharedDatabase::SharedDatabase()
    : m_connectionName(QStringLiteral("tonvy-%1").arg(connectionCounter.fetchAndAddRelaxed(1)))
{
}

SharedDatabase::~SharedDatabase()
{
    m_recordset.close();
    {
        QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
        if (db.isValid())
            db.close();
    }
    if (QSqlDatabase::contains(m_connectionName))
        QSqlDatabase::removeDatabase(m_connectionName);
}

bool SharedDatabase::open(const QString& filePath, QString* error)
{
    auto fail = [&](const QString& why) {
        if (error)
            *error = QStringLiteral("Cannot open the database file %1: %2").arg(filePath, why);
        QSqlDatabase::database(m_connectionName, false).close();
        return false;
    };

    if (!QSqlDatabase::isDriverAvailable(QStringLiteral("QSQLITE")))
        return fail(QStringLiteral("the SQLite driver for Qt is not installed (package libqt6sql6-sqlite)."));

    const QFileInfo info(filePath);
    if (info.exists() && info.isDir())
        return fail(QStringLiteral("it is a folder, not a file."));
    if (info.exists() && !info.isReadable())
        return fail(QStringLiteral("permission denied."));
    const bool isNew = !info.exists() || info.size() == 0;
    if (isNew && !QFileInfo(info.absolutePath()).isDir())
        return fail(QStringLiteral("the folder %1 does not exist.").arg(info.absolutePath()));

    QSqlDatabase db = QSqlDatabase::contains(m_connectionName)
                          ? QSqlDatabase::database(m_connectionName, false)
                          : QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connectionName);
    db.setDatabaseName(filePath);
    if (!db.open())
        return fail(db.lastError().text());

    // SQLite opens lazily: touch the file so that a damaged or foreign file
    // is reported here and not at the first screen.
    QSqlQuery probe(db);
    if (!probe.exec(QStringLiteral("SELECT count(*) FROM sqlite_master")))
        return fail(probe.lastError().text());
    probe.finish();

    if (isNew) {
        // The file holds passwords: readable by its owner only.
        QFile::setPermissions(filePath, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }

    QString why;
    if (!Schema::ensure(db, &why))
        return fail(why);

    m_path = filePath;
    return true;
}

bool SharedDatabase::isOpen() const
{
    return QSqlDatabase::database(m_connectionName, false).isOpen();
}

QSqlDatabase SharedDatabase::connection() const
{
    return QSqlDatabase::database(m_connectionName, false);
}

SharedRecordset& SharedDatabase::openSharedRecordset(const QString& sql, const QVariantList& values)
{
    m_recordset.open(connection(), sql, values);
    return m_recordset;
}

void SharedDatabase::closeSharedRecordset()
{
    m_recordset.close();
}

void SharedDatabase::execute(const QString& sql, const QVariantList& values)
{
    QSqlQuery query(connection());
    if (!query.prepare(sql))
        throw StoreError(QStringLiteral("Database error: %1").arg(query.lastError().text()));
    for (const QVariant& v : values)
        query.addBindValue(v);
    if (!query.exec())
        throw StoreError(QStringLiteral("Database error: %1").arg(query.lastError().text()));
}

SharedDatabase::Transaction::Transaction(SharedDatabase& db) : m_db(db)
{
    if (!m_db.connection().transaction())
        throw StoreError(QStringLiteral("Database error: cannot start a transaction: %1")
                             .arg(m_db.connection().lastError().text()));
}

SharedDatabase::Transaction::~Transaction()
{
    if (!m_done)
        m_db.connection().rollback();
}

void SharedDatabase::Transaction::commit()
{
    if (!m_db.connection().commit())
        throw StoreError(QStringLiteral("Database error: cannot commit: %1")
                             .arg(m_db.connection().lastError().text()));
    m_done = true;
}
