#include "store/Schema.h"

#include <QHash>
#include <QPair>
#include <QRegularExpression>
#include <QSet>
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

bool hasColumn(QSqlDatabase& db, const QString& table, const QString& column, bool* found, QString* error)
{
    QSqlQuery q(db);
    if (!q.exec(QStringLiteral("PRAGMA table_info(\"%1\")").arg(table))) {
        if (error)
            *error = q.lastError().text();
        return false;
    }
    *found = false;
    while (q.next()) {
        if (q.value(1).toString().compare(column, Qt::CaseInsensitive) == 0)
            *found = true;
    }
    return true;
}

bool exec(QSqlDatabase& db, const QString& sql, const QVariantList& values, QString* error)
{
    QSqlQuery q(db);
    bool ok = q.prepare(sql);
    if (ok) {
        for (const QVariant& v : values)
            q.addBindValue(v);
        ok = q.exec();
    }
    if (!ok && error)
        *error = QStringLiteral("%1 (in: %2)").arg(q.lastError().text(), sql.simplified());
    return ok;
}

// The agent number of each stored receive, from the audit trail: every
// receive that stored rows recorded, in the same transaction and at the same
// moment as the rows' ReceivedAt, "agent NNN (bank identifier), date ddmm: ...".
// Keyed by the trimmed identifier and the second of the receive; a key given
// two different numbers is left out.
bool receiveNumbers(QSqlDatabase& db, QHash<QPair<QString, QString>, QString>* numbers, QString* error)
{
    QSqlQuery q(db);
    q.setForwardOnly(true);
    if (!q.prepare(QStringLiteral("SELECT Time, Details FROM AuditTrail WHERE Action = ?"))) {
        if (error)
            *error = q.lastError().text();
        return false;
    }
    q.addBindValue(QStringLiteral("receive"));
    if (!q.exec()) {
        if (error)
            *error = q.lastError().text();
        return false;
    }
    static const QRegularExpression details(QStringLiteral(R"(^agent (\d{3}) \((.*?)\), date )"));
    QSet<QPair<QString, QString>> conflicting;
    while (q.next()) {
        const QRegularExpressionMatch m = details.match(q.value(1).toString());
        if (!m.hasMatch())
            continue;
        const QPair<QString, QString> key{m.captured(2).trimmed(), q.value(0).toString().left(19)};
        const QString number = m.captured(1);
        if (numbers->contains(key) && numbers->value(key) != number)
            conflicting.insert(key);
        numbers->insert(key, number);
    }
    for (const auto& key : conflicting)
        numbers->remove(key);
    return true;
}

// The agent number of each identifier's downloaded accounts: the download
// file is named from the agent number, the date (ddmm) and "d.txt". Only an
// identifier whose accounts all name one three-digit number is kept.
bool downloadNumbers(QSqlDatabase& db, QHash<QString, QString>* numbers, QString* error)
{
    QSqlQuery q(db);
    q.setForwardOnly(true);
    if (!q.exec(QStringLiteral("SELECT DISTINCT AgentID, FileName FROM BankData"))) {
        if (error)
            *error = q.lastError().text();
        return false;
    }
    static const QRegularExpression fileName(QStringLiteral(R"((?:^|[\\/])(\d{3})\d{4}d\.txt$)"),
                                             QRegularExpression::CaseInsensitiveOption);
    QSet<QString> conflicting;
    while (q.next()) {
        const QString agent = q.value(0).toString().trimmed();
        const QRegularExpressionMatch m = fileName.match(q.value(1).toString().trimmed());
        const QString number = m.hasMatch() ? m.captured(1) : QString();
        if (number.isEmpty() || (numbers->contains(agent) && numbers->value(agent) != number))
            conflicting.insert(agent);
        else
            numbers->insert(agent, number);
    }
    for (const QString& agent : conflicting)
        numbers->remove(agent);
    return true;
}

// Version 5: the terminal's agent number (the summary record's three digits)
// beside the bank's agent identifier in every history row, so that the
// reports find an agent by the number the clerk knows it by. The column and
// its index are added only where missing, as a database whose version number
// was set back may already hold them.
bool version5(QSqlDatabase& db, QString* error)
{
    bool present = false;
    if (!hasColumn(db, QStringLiteral("CollectionHistory"), QStringLiteral("AgentNo"), &present, error))
        return false;
    // Empty text, never NULL, where the number is not known.
    if (!present &&
        !run(db, {QStringLiteral("ALTER TABLE CollectionHistory ADD COLUMN AgentNo TEXT NOT NULL DEFAULT ''")}, error))
        return false;
    // The report's agent filter steps through the numbers and the
    // identifiers under each, one seek each.
    if (!run(db,
             {QStringLiteral(
                 "CREATE INDEX IF NOT EXISTS CollectionHistoryAgentNo ON CollectionHistory (AgentNo, AgentID)")},
             error))
        return false;

    // Rows written before this version: first the number of the very
    // receive that stored them (audit trail), then, for rows from before the
    // audit trail, the number of the agent's downloaded accounts. Rows
    // neither names stay empty.
    QHash<QPair<QString, QString>, QString> byReceive;
    if (!receiveNumbers(db, &byReceive, error))
        return false;
    if (!byReceive.isEmpty()) {
        if (!run(db,
                 {QStringLiteral("CREATE TEMP TABLE ReceiveAgentNo (AgentID TEXT NOT NULL, ReceivedAt TEXT NOT NULL, "
                                 "AgentNo TEXT NOT NULL, PRIMARY KEY (AgentID, ReceivedAt))")},
                 error))
            return false;
        for (auto it = byReceive.cbegin(); it != byReceive.cend(); ++it) {
            if (!exec(db,
                      QStringLiteral("INSERT INTO temp.ReceiveAgentNo (AgentID, ReceivedAt, AgentNo) VALUES (?, ?, ?)"),
                      {it.key().first, it.key().second, it.value()}, error))
                return false;
        }
        const QString match =
            QStringLiteral("FROM temp.ReceiveAgentNo m WHERE m.AgentID = trim(CollectionHistory.AgentID) "
                           "AND m.ReceivedAt = substr(CollectionHistory.ReceivedAt, 1, 19)");
        if (!run(db,
                 {QStringLiteral("UPDATE CollectionHistory SET AgentNo = (SELECT m.AgentNo %1) "
                                 "WHERE AgentNo = '' AND EXISTS (SELECT 1 %1)")
                      .arg(match),
                  QStringLiteral("DROP TABLE temp.ReceiveAgentNo")},
                 error))
            return false;
    }

    QHash<QString, QString> byDownload;
    if (!downloadNumbers(db, &byDownload, error))
        return false;
    if (byDownload.isEmpty())
        return true;
    // The history's own spellings of each identifier (padded as the
    // terminal sent them), so that the updates go through the agent index.
    QSqlQuery q(db);
    q.setForwardOnly(true);
    if (!q.exec(QStringLiteral("SELECT DISTINCT AgentID FROM CollectionHistory WHERE AgentNo = ''"))) {
        if (error)
            *error = q.lastError().text();
        return false;
    }
    QStringList stored;
    while (q.next())
        stored << q.value(0).toString();
    q.finish();
    for (const QString& agentId : stored) {
        const QString number = byDownload.value(agentId.trimmed());
        if (number.isEmpty())
            continue;
        if (!exec(db, QStringLiteral("UPDATE CollectionHistory SET AgentNo = ? WHERE AgentID = ? AND AgentNo = ''"),
                  {number, agentId}, error))
            return false;
    }
    return true;
}

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
    if (ok && version < 5)
        ok = version5(db, error);
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
