#include "store/Schema.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>

namespace Schema {

namespace {

bool run(QSqlDatabase& db, const QStringList& statements, QString* error)
{
    for (const QString& sql : statements) {
        QSqlQuery q(db);
        if (!q.exec(sql)) {
            if (error)
                *error = QStringLiteral("%1 (in: %2)").arg(q.lastError().text(), sql.simplified());
            return false;
        }
    }
    return true;
}

// Version 1: the four working tables, the collection history behind the
// reports, and the two report row sources.
const QStringList version1 = {
    QStringLiteral(R"(CREATE TABLE Path (
        SNo TEXT, BankName TEXT, BranchName TEXT, "Comm Port" TEXT,
        FontSize TEXT, BankInfoPath TEXT, ReportPath TEXT))"),
    QStringLiteral(R"(CREATE TABLE Password (
        SNo TEXT, admin TEXT, user TEXT, setup TEXT, download TEXT))"),
    QStringLiteral(R"(CREATE TABLE BankData (
        CategoryCode TEXT, SchemeCode TEXT, ACNumber TEXT, ACName TEXT,
        BalAmount TEXT, AgreedAmount TEXT, OpeningDate TEXT, SNo TEXT,
        Txndate TEXT, FileName TEXT, CustomerCode TEXT, BranchID TEXT,
        AgentID TEXT, MyDate TEXT, BankSoftACNumber TEXT))"),
    QStringLiteral("CREATE INDEX BankDataAgent ON BankData (AgentID, SNo, FileName)"),
    QStringLiteral("CREATE INDEX BankDataAccount ON BankData (ACNumber, SchemeCode, CategoryCode, AgentID)"),
    QStringLiteral(R"(CREATE TABLE RestoreData (
        SNo TEXT, AccountNo TEXT, Amtcollected TEXT, DateTime TEXT,
        TransactionNumber TEXT, BranchID TEXT, CategoryCode TEXT, SchemeCode TEXT,
        CustomerCode TEXT, AccountName TEXT, BalanceAmount TEXT, AgreedAmount TEXT,
        LastTxndate TEXT, AgentID TEXT, DatewiseTxn TEXT, BankSoftACNumber TEXT))"),
    QStringLiteral("CREATE INDEX RestoreDataAgent ON RestoreData (AgentID)"),
    // Every received transaction, kept across receives so that the reports
    // can cover a range of dates. CollectionDate is YYYY-MM-DD.
    QStringLiteral(R"(CREATE TABLE CollectionHistory (
        AgentID TEXT NOT NULL, CollectionDate TEXT NOT NULL, AccountNo TEXT,
        ClosingAmt REAL, CollectedAmt REAL, DateTime TEXT,
        TransactionNumber TEXT, ReceivedAt TEXT))"),
    QStringLiteral("CREATE INDEX CollectionHistoryDay ON CollectionHistory (AgentID, CollectionDate)"),
    QStringLiteral(R"(CREATE VIEW Report1 AS
        SELECT CollectionDate AS "Date", AgentID, AccountNo, ClosingAmt, CollectedAmt
        FROM CollectionHistory)"),
    QStringLiteral(R"(CREATE VIEW Report2 AS
        SELECT AgentID, SUM(CollectedAmt) AS CollectedAmt, CollectionDate AS "Date"
        FROM CollectionHistory GROUP BY AgentID, CollectionDate)"),
};

// Version 2: history amounts as whole paise (INTEGER), so that sums are
// exact, and an index led by the day for reports over a range of dates with
// or without an agent. The report views keep their field names; their
// amounts are now in paise. Older REAL rupee values are rounded to the
// nearest paisa; anything that is not a number becomes NULL (no amount).
const QStringList version2 = {
    QStringLiteral("DROP VIEW IF EXISTS Report1"),
    QStringLiteral("DROP VIEW IF EXISTS Report2"),
    QStringLiteral(R"(CREATE TABLE CollectionHistoryPaise (
        AgentID TEXT NOT NULL, CollectionDate TEXT NOT NULL, AccountNo TEXT,
        ClosingPaise INTEGER, CollectedPaise INTEGER, DateTime TEXT,
        TransactionNumber TEXT, ReceivedAt TEXT))"),
    QStringLiteral(R"(INSERT INTO CollectionHistoryPaise
        SELECT AgentID, CollectionDate, AccountNo,
            CASE WHEN typeof(ClosingAmt) IN ('integer', 'real')
                 THEN CAST(ROUND(ClosingAmt * 100) AS INTEGER) END,
            CASE WHEN typeof(CollectedAmt) IN ('integer', 'real')
                 THEN CAST(ROUND(CollectedAmt * 100) AS INTEGER) END,
            DateTime, TransactionNumber, ReceivedAt
        FROM CollectionHistory ORDER BY rowid)"),
    QStringLiteral("DROP TABLE CollectionHistory"),
    QStringLiteral("ALTER TABLE CollectionHistoryPaise RENAME TO CollectionHistory"),
    // Receiving a day again deletes that agent's day: keyed by agent first.
    QStringLiteral("CREATE INDEX CollectionHistoryDay ON CollectionHistory (AgentID, CollectionDate)"),
    // The reports: a range of days, in the order they print, read from the
    // index alone.
    QStringLiteral(R"(CREATE INDEX CollectionHistoryByDate ON CollectionHistory
        (CollectionDate, AgentID, AccountNo, ClosingPaise, CollectedPaise))"),
    QStringLiteral(R"(CREATE VIEW Report1 AS
        SELECT CollectionDate AS "Date", AgentID, AccountNo,
            ClosingPaise AS ClosingAmt, CollectedPaise AS CollectedAmt
        FROM CollectionHistory)"),
    QStringLiteral(R"(CREATE VIEW Report2 AS
        SELECT AgentID, SUM(CollectedPaise) AS CollectedAmt, CollectionDate AS "Date"
        FROM CollectionHistory GROUP BY CollectionDate, AgentID)"),
};

// Version 3: the audit trail. Append-only: the triggers refuse every change
// and every deletion of a written event, whoever asks.
const QStringList version3 = {
    QStringLiteral(R"(CREATE TABLE AuditTrail (
        Id INTEGER PRIMARY KEY AUTOINCREMENT, Time TEXT NOT NULL, User TEXT NOT NULL,
        Action TEXT NOT NULL, Details TEXT NOT NULL, Version TEXT NOT NULL))"),
    QStringLiteral("CREATE INDEX AuditTrailTime ON AuditTrail (Time)"),
    QStringLiteral(R"(CREATE TRIGGER AuditTrailNoUpdate BEFORE UPDATE ON AuditTrail
        BEGIN SELECT RAISE(ABORT, 'the audit trail cannot be changed'); END)"),
    QStringLiteral(R"(CREATE TRIGGER AuditTrailNoDelete BEFORE DELETE ON AuditTrail
        BEGIN SELECT RAISE(ABORT, 'the audit trail cannot be changed'); END)"),
};

// Version 4: the files a receive still owes. A receive records here, in the
// transaction that replaces its rows, the files it derives from them; the
// marks are removed once the files are in place. A mark still present at the
// next start means the program stopped in between: the files are written
// then from the stored rows (Content holds a file that is not made from the
// rows, the reconciliation).
const QStringList version4 = {
    QStringLiteral(R"(CREATE TABLE IF NOT EXISTS PendingOutputs (
        Id INTEGER PRIMARY KEY AUTOINCREMENT, AgentID TEXT NOT NULL, Agent TEXT NOT NULL,
        Day TEXT NOT NULL, Kind TEXT NOT NULL, FileName TEXT NOT NULL, Content BLOB,
        RecordedAt TEXT NOT NULL))"),
};

bool insertPasswordRow(QSqlDatabase& db, QString* error)
{
    QSqlQuery q(db);
    q.prepare(QStringLiteral("INSERT INTO Password (SNo, admin, user, setup, download) VALUES (?, ?, ?, ?, ?)"));
    for (const char* value :
         {"1", initialAdminPassword, initialUserPassword, initialSetupPassword, initialDownloadPassword})
        q.addBindValue(QString::fromLatin1(value));
    if (!q.exec()) {
        if (error)
            *error = q.lastError().text();
        return false;
    }
    return true;
}

} // namespace

bool ensure(QSqlDatabase db, QString* error)
{
    QSqlQuery q(db);
    if (!q.exec(QStringLiteral("PRAGMA user_version")) || !q.next()) {
        if (error)
            *error = q.lastError().text();
        return false;
    }
    const int version = q.value(0).toInt();
    q.finish();
    if (version >= currentVersion)
        return true;

    if (!db.transaction()) {
        if (error)
            *error = db.lastError().text();
        return false;
    }
    bool ok = true;
    if (version < 1)
        ok = run(db, version1, error) && insertPasswordRow(db, error);
    if (ok && version < 2)
        ok = run(db, version2, error);
    if (ok && version < 3)
        ok = run(db, version3, error);
    if (ok && version < 4)
        ok = run(db, version4, error);
    if (ok)
        ok = run(db, {QStringLiteral("PRAGMA user_version = %1").arg(currentVersion)}, error);
    if (!ok) {
        db.rollback();
        return false;
    }
    if (!db.commit()) {
        if (error)
            *error = db.lastError().text();
        return false;
    }
    return true;
}

} // namespace Schema
