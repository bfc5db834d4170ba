#include "store/SharedDatabase.h"

#include "base/Clock.h"
#include "store/Schema.h"
#include "store/StoreError.h"
#include "store/StoreProblem.h"

#include <QAtomicInt>
#include <QFile>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace {

QAtomicInt connectionCounter;

// The tables every database of this program has had since its first version.
const QStringList ownTables = {QStringLiteral("Path"), QStringLiteral("Password"), QStringLiteral("BankData"),
                               QStringLiteral("RestoreData")};

const QString restoreAdvice = QStringLiteral(" Restore the backup copy of %1 and start the program again.");

// Up to this size the whole file is checked at every open (about 0.2 s on
// this size); a larger file, which only years of collection history make,
// gets the tables the screens write checked instead, so that the start stays
// quick (bench_open: the whole of a 500 MB file takes 1.3 s or more).
constexpr qint64 wholeFileCheckLimit = 64 * 1024 * 1024;

const QStringList workingTables = {QStringLiteral("Path"), QStringLiteral("Password"), QStringLiteral("BankData"),
                                   QStringLiteral("RestoreData"), QStringLiteral("AuditTrail")};

// SQLite's own check of every page and index (quick_check: without the
// slower cross-checks of integrity_check), of the whole file or of one
// table and its indexes. Empty when sound, otherwise the first problem.
QString checkResult(QSqlDatabase& db, const QString& pragma)
{
    QSqlQuery q(db);
    q.setForwardOnly(true);
    if (!q.exec(pragma))
        return q.lastError().text();
    if (!q.next())
        return QStringLiteral("the check gave no answer");
    const QString first = q.value(0).toString();
    return first == QLatin1String("ok") ? QString() : first;
}

QString damage(QSqlDatabase& db, qint64 fileSize)
{
    if (fileSize <= wholeFileCheckLimit)
        return checkResult(db, QStringLiteral("PRAGMA quick_check(1)"));
    QStringList present;
    {
        QSqlQuery q(db);
        if (!q.exec(QStringLiteral("SELECT name FROM sqlite_master WHERE type = 'table'")))
            return q.lastError().text();
        while (q.next())
            present << q.value(0).toString();
    }
    for (const QString& table : workingTables) {
        if (!present.contains(table))
            continue;
        const QString found = checkResult(db, QStringLiteral("PRAGMA quick_check(\"%1\")").arg(table));
        if (!found.isEmpty())
            return found;
    }
    return {};
}

// Why an existing file is not this program's database, or empty when it is.
QString foreign(QSqlDatabase& db, QString* error)
{
    QSqlQuery q(db);
    q.setForwardOnly(true);
    if (!q.exec(QStringLiteral("PRAGMA user_version")) || !q.next()) {
        *error = q.lastError().text();
        return {};
    }
    const int version = q.value(0).toInt();
    q.finish();
    QStringList tables;
    if (!q.exec(QStringLiteral("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%'"))) {
        *error = q.lastError().text();
        return {};
    }
    while (q.next())
        tables << q.value(0).toString();
    if (version == 0 && !tables.isEmpty())
        return QStringLiteral("it was made by another program (it holds the tables %1 and no version of this "
                              "program's tables)")
            .arg(tables.join(QStringLiteral(", ")));
    if (version > 0) {
        QStringList missing;
        for (const QString& t : ownTables) {
            if (!tables.contains(t, Qt::CaseInsensitive))
                missing << t;
        }
        if (!missing.isEmpty())
            return QStringLiteral("it is not a database of this program (the tables %1 are missing)")
                .arg(missing.join(QStringLiteral(", ")));
    }
    return {};
}

} // namespace

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
    m_restoreAdvised = false;
    auto failWith = [&](const QString& message) {
        if (error)
            *error = message;
        m_restoreAdvised = message.contains(QLatin1String("restore the backup copy"), Qt::CaseInsensitive);
        QSqlDatabase::database(m_connectionName, false).close();
        return false;
    };
    auto fail = [&](const QString& why) {
        return failWith(QStringLiteral("Cannot open the database file %1: %2").arg(filePath, why));
    };
    // A statement failed on the file: say what that means for the clerk.
    auto failSql = [&](const QSqlError& sqlError) {
        const StoreError::Kind kind = StoreProblem::kindOf(sqlError);
        if (kind == StoreError::Kind::Other)
            return fail(sqlError.text() + restoreAdvice.arg(QFileInfo(filePath).fileName()));
        return failWith(StoreProblem::message(kind, filePath, sqlError.databaseText().trimmed()));
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
    // Another program holding the file briefly (a copy being taken, the
    // other of this program's two front ends committing) is waited for;
    // after that the clerk is told to close it.
    db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(StoreProblem::busyTimeoutMs));
    if (!db.open()) {
        // A file that is not there yet and cannot be made: the folder is
        // read-only (or full), which restoring a backup would not mend.
        if (!info.exists())
            return fail(QStringLiteral("it does not exist yet and cannot be created (%1): the folder %2 is read-only "
                                       "for this user, or its disk is full. Let this user write to that folder (ask "
                                       "IT) or free some space on its disk, or choose another data folder; then start "
                                       "the program again.")
                            .arg(db.lastError().databaseText().trimmed(), info.absolutePath()));
        return failSql(db.lastError());
    }

    // SQLite opens lazily: touch the file so that a damaged or foreign file
    // is reported here and not at the first screen.
    QSqlQuery probe(db);
    if (!probe.exec(QStringLiteral("SELECT count(*) FROM sqlite_master")))
        return failSql(probe.lastError());
    probe.finish();

    if (!isNew) {
        // Nothing is written into a damaged file or into another program's.
        const QString damaged = damage(db, info.size());
        if (!damaged.isEmpty()) {
            if (damaged.contains(QLatin1String("locked")))
                return failWith(StoreProblem::message(StoreError::Kind::InUse, filePath, damaged));
            return failWith(StoreProblem::message(StoreError::Kind::Damaged, filePath, damaged));
        }
        QString queryError;
        const QString notOurs = SharedDatabase::notOurs(db, &queryError);
        if (!queryError.isEmpty())
            return fail(queryError + restoreAdvice.arg(info.fileName()));
        if (!notOurs.isEmpty())
            return fail(notOurs + QStringLiteral(". It was left unchanged: move it elsewhere or choose another data "
                                                 "folder."));
    }

    if (isNew) {
        // The file holds passwords: readable by its owner only.
        QFile::setPermissions(filePath, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }

    // A receive or a download reported as stored must still be there after
    // a power cut the moment after the message. With a rollback journal a
    // commit is the deletion of the journal; synchronous=EXTRA makes SQLite
    // sync the journal, the file and then the folder after that deletion, so
    // the journal cannot come back after the cut and undo the commit (FULL
    // leaves the deletion unsynced). WAL is not used: it changes the file's
    // header for good and needs shared memory, which fails on the network
    // folders some branches keep the data on. Set only here, for every
    // connection of the program, and only once the file is known to be ours.
    {
        QSqlQuery pragma(db);
        if (!pragma.exec(QStringLiteral("PRAGMA journal_mode = DELETE")))
            return failSql(pragma.lastError());
        pragma.finish();
        if (!pragma.exec(QStringLiteral("PRAGMA synchronous = EXTRA")))
            return failSql(pragma.lastError());
    }

    QString why;
    if (!Schema::ensure(db, &why)) {
        const QSqlError schemaError(why, why, QSqlError::StatementError);
        if (StoreProblem::kindOf(schemaError) != StoreError::Kind::Other)
            return failSql(schemaError);
        return fail(why);
    }

    StoreProblem::allowWrites(db);
    m_path = filePath;
    m_device = m_inode = 0;
#ifdef Q_OS_UNIX
    struct stat st;
    if (::stat(QFile::encodeName(filePath).constData(), &st) == 0) {
        m_device = static_cast<quint64>(st.st_dev);
        m_inode = static_cast<quint64>(st.st_ino);
    }
#endif
    return true;
}

void SharedDatabase::ensureInPlace() const
{
    if (m_path.isEmpty() || (m_device == 0 && m_inode == 0))
        return;
#ifdef Q_OS_UNIX
    struct stat st;
    if (::stat(QFile::encodeName(m_path).constData(), &st) != 0 || static_cast<quint64>(st.st_dev) != m_device ||
        static_cast<quint64>(st.st_ino) != m_inode)
        throw StoreError(StoreProblem::goneMessage(m_path), StoreError::Kind::Damaged);
#endif
}

QString SharedDatabase::writesRefused() const
{
    return StoreProblem::writesRefused(connection());
}

QString SharedDatabase::notOurs(QSqlDatabase& db, QString* error)
{
    return foreign(db, error);
}

QDateTime SharedDatabase::now() const
{
    if (m_clock)
        return m_clock->now();
    return Clock().now();
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
    ensureInPlace();
    m_recordset.open(connection(), sql, values);
    return m_recordset;
}

void SharedDatabase::closeSharedRecordset()
{
    m_recordset.close();
}

void SharedDatabase::execute(const QString& sql, const QVariantList& values)
{
    ensureInPlace();
    if (const QString refused = writesRefused(); !refused.isEmpty())
        throw StoreError(refused, StoreError::Kind::Damaged);
    QSqlQuery query(connection());
    if (!query.prepare(sql))
        throw StoreProblem::error(connection(), query.lastError());
    for (const QVariant& v : values)
        query.addBindValue(v);
    if (!query.exec())
        throw StoreProblem::error(connection(), query.lastError());
}

SharedDatabase::Batch::Batch(SharedDatabase& db, const QString& sql)
    : m_connection(db.connection()), m_query(m_connection)
{
    if (!m_query.prepare(sql))
        throw StoreProblem::error(m_connection, m_query.lastError());
}

void SharedDatabase::Batch::run(const QVariantList& values)
{
    for (int i = 0; i < values.size(); ++i)
        m_query.bindValue(i, values.at(i));
    const bool ran = m_query.exec();
    const QSqlError error = m_query.lastError();
    m_query.finish();
    if (!ran)
        throw StoreProblem::error(m_connection, error);
}

SharedDatabase::Transaction::Transaction(SharedDatabase& db) : m_db(db)
{
    m_db.ensureInPlace();
    if (const QString refused = m_db.writesRefused(); !refused.isEmpty())
        throw StoreError(refused, StoreError::Kind::Damaged);
    if (!m_db.connection().transaction())
        throw StoreProblem::error(m_db.connection(), m_db.connection().lastError());
}

SharedDatabase::Transaction::~Transaction()
{
    if (!m_done)
        m_db.connection().rollback();
}

void SharedDatabase::Transaction::commit()
{
    QSqlDatabase connection = m_db.connection();
    if (!connection.commit()) {
        const StoreError failure = StoreProblem::error(connection, connection.lastError());
        // A commit that failed (disk full, file taken) leaves the
        // transaction open: undo it now so that nothing of it stays.
        connection.rollback();
        m_done = true;
        throw failure;
    }
    m_done = true;
}
