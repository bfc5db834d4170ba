#pragma once

#include "store/SharedRecordset.h"

#include <QDateTime>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QVariantList>

class Clock;

// The program's one database handle and its one shared result set. Every
// screen opens its queries through openSharedRecordset(), which replaces the
// previous result set, exactly as the screens of version 2.1 shared one.
class SharedDatabase
{
public:
    static QString fileName() { return QStringLiteral("HandHeldData.db"); }

    SharedDatabase();
    ~SharedDatabase();
    SharedDatabase(const SharedDatabase&) = delete;
    SharedDatabase& operator=(const SharedDatabase&) = delete;

    // Opens (creating from the built-in schema when missing) the database
    // file. On failure returns false with a message naming the file and why.
    // An existing file is checked first (SQLite's quick_check): a damaged
    // one is refused with the advice to restore the backup copy, and a file
    // made by another program (tables of its own and no schema version of
    // this program) is refused and left exactly as it was. A file held by
    // another program is waited for a few seconds, then refused. The
    // messages are StoreProblem's.
    bool open(const QString& filePath, QString* error);
    // After open() failed: whether its message told the clerk to restore the
    // backup copy (a damaged file, or one damaged beyond reading), so that
    // the caller can say how.
    bool restoreAdvised() const { return m_restoreAdvised; }
    bool isOpen() const;

    // Why a database that opens is not one of this program's (another
    // program's tables, this program's tables missing), or empty when it is
    // or is empty. *error is set when the file could not be read.
    static QString notOurs(QSqlDatabase& db, QString* error);
    QString filePath() const { return m_path; }
    QSqlDatabase connection() const;

    // Throws StoreError (StoreProblem::goneMessage) when the file at
    // filePath() is no longer the one opened: deleted, moved away or
    // replaced while the program ran. SQLite would go on reading the file it
    // holds, which nobody will see again. Checked before every shared result
    // set, statement and transaction.
    void ensureInPlace() const;
    // A statement found the file damaged or not this program's: every
    // further write is refused with that message (empty while writes go on).
    QString writesRefused() const;

    SharedRecordset& openSharedRecordset(const QString& sql, const QVariantList& values = {});
    void closeSharedRecordset();
    SharedRecordset& sharedRecordset() { return m_recordset; }

    // The clock that stamps what the store records (the audit trail). The
    // system clock until the program hands over its own.
    void setClock(const Clock* clock) { m_clock = clock; }
    QDateTime now() const;

    // Runs a statement that returns no rows. Throws StoreError on failure,
    // with StoreProblem's message for the clerk.
    void execute(const QString& sql, const QVariantList& values = {});

    // One statement that returns no rows, prepared once and run for many
    // rows (inserting a receive's collections). Throws StoreError on failure.
    class Batch
    {
    public:
        Batch(SharedDatabase& db, const QString& sql);
        void run(const QVariantList& values);

    private:
        QSqlDatabase m_connection;
        QSqlQuery m_query;
    };

    // All-or-nothing block: commits in commit(), rolls back when destroyed
    // without it.
    class Transaction
    {
    public:
        explicit Transaction(SharedDatabase& db);
        ~Transaction();
        void commit();
        Transaction(const Transaction&) = delete;
        Transaction& operator=(const Transaction&) = delete;

    private:
        SharedDatabase& m_db;
        bool m_done = false;
    };

private:
    QString m_connectionName;
    QString m_path;
    SharedRecordset m_recordset;
    const Clock* m_clock = nullptr;
    bool m_restoreAdvised = false;
    // Which file was opened (device and inode), for ensureInPlace().
    quint64 m_device = 0;
    quint64 m_inode = 0;
};
