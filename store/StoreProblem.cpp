#include "store/StoreProblem.h"

#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>

namespace StoreProblem {

namespace {

// SQLite's primary result codes (sqlite3.h), as the Qt driver reports them.
enum SqliteCode {
    Busy = 5,
    Locked = 6,
    ReadOnlyCode = 8,
    Corrupt = 11,
    Full = 13,
    NotADb = 26,
    // SQLITE_READONLY_DBMOVED: a write to a file that was deleted or moved
    // while it was open.
    ReadOnlyDbMoved = ReadOnlyCode | (4 << 8),
};

// The property of a connection's driver that holds the message a damaged
// file's writes are refused with.
const char* const refusedProperty = "tonvyWritesRefused";

QString detailOf(const QSqlError& error)
{
    const QString db = error.databaseText().trimmed();
    return db.isEmpty() ? error.text().trimmed() : db;
}

} // namespace

StoreError::Kind kindOf(const QSqlError& error)
{
    bool numeric = false;
    const int code = error.nativeErrorCode().toInt(&numeric) & 0xFF;
    if (numeric) {
        switch (code) {
        case Busy:
        case Locked:
            return StoreError::Kind::InUse;
        case ReadOnlyCode:
            return StoreError::Kind::ReadOnly;
        case Corrupt:
            return StoreError::Kind::Damaged;
        case Full:
            return StoreError::Kind::DiskFull;
        case NotADb:
            return StoreError::Kind::NotOurs;
        default:
            break;
        }
    }
    const QString text = error.text().toLower();
    if (text.contains(QLatin1String("malformed")) || text.contains(QLatin1String("corrupt")))
        return StoreError::Kind::Damaged;
    if (text.contains(QLatin1String("not a database")))
        return StoreError::Kind::NotOurs;
    if (text.contains(QLatin1String("database is locked")) || text.contains(QLatin1String("database table is locked")))
        return StoreError::Kind::InUse;
    if (text.contains(QLatin1String("database or disk is full")) || text.contains(QLatin1String("no space left")))
        return StoreError::Kind::DiskFull;
    if (text.contains(QLatin1String("readonly database")) || text.contains(QLatin1String("read-only")))
        return StoreError::Kind::ReadOnly;
    return StoreError::Kind::Other;
}

QString message(StoreError::Kind kind, const QString& filePath, const QString& detail)
{
    const QString name = QFileInfo(filePath).fileName();
    const QString why = detail.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(detail);
    switch (kind) {
    case StoreError::Kind::Damaged:
        return QStringLiteral("The database file %1 is damaged%2. Nothing was written into it. Restore the backup "
                              "copy of %3 and start the program again.")
            .arg(filePath, why, name);
    case StoreError::Kind::NotOurs:
        return QStringLiteral("The file %1 is not a database of this program, or it is damaged beyond reading%2. It "
                              "was left unchanged. If it is this program's database, restore the backup copy of %3; "
                              "otherwise move it elsewhere or choose another data folder.")
            .arg(filePath, why, name);
    case StoreError::Kind::InUse:
        return QStringLiteral("The database file %1 is in use by another program%2. Nothing was changed. Close the "
                              "other program (or the other copy of this program) and try again.")
            .arg(filePath, why);
    case StoreError::Kind::DiskFull:
        return QStringLiteral("There is no space left on the disk of the database file %1%2. Nothing was changed. "
                              "Free some space on that disk and try again.")
            .arg(filePath, why);
    case StoreError::Kind::ReadOnly:
        return QStringLiteral("The database file %1 cannot be written to%2: the file or its folder is read-only for "
                              "this user. Nothing was changed. Let this user write the file and its folder, then try "
                              "again.")
            .arg(filePath, why);
    case StoreError::Kind::Other:
        break;
    }
    return QStringLiteral("Database error on %1%2. Nothing was changed; try again, and if it comes again, keep "
                          "this message for support.")
        .arg(filePath, why);
}

StoreError error(const QSqlDatabase& db, const QSqlError& sqlError)
{
    if (sqlError.nativeErrorCode().toInt() == ReadOnlyDbMoved)
        return StoreError(goneMessage(db.databaseName()), StoreError::Kind::Damaged);
    const StoreError::Kind kind = kindOf(sqlError);
    const StoreError failure(message(kind, db.databaseName(), detailOf(sqlError)), kind);
    // Nothing more is written into a file found damaged or foreign, as
    // nothing is at the start: a later write could spread the damage.
    if ((kind == StoreError::Kind::Damaged || kind == StoreError::Kind::NotOurs) && db.driver() &&
        db.driver()->property(refusedProperty).toString().isEmpty())
        db.driver()->setProperty(refusedProperty, failure.message());
    return failure;
}

QString goneMessage(const QString& filePath)
{
    return QStringLiteral("The database file %1 is no longer there: it was deleted, moved or replaced by another "
                          "file while the program was running. Nothing was written into it. Close the program, put "
                          "%2 back into its folder (or restore its backup copy) and start the program again.")
        .arg(filePath, QFileInfo(filePath).fileName());
}

QString writesRefused(const QSqlDatabase& db)
{
    return db.driver() ? db.driver()->property(refusedProperty).toString() : QString();
}

void allowWrites(const QSqlDatabase& db)
{
    if (db.driver())
        db.driver()->setProperty(refusedProperty, QVariant());
}

StoreError misuse(const QString& what)
{
    return StoreError(QStringLiteral("Database error: %1").arg(what));
}

} // namespace StoreProblem
