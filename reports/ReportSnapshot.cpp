#include "reports/ReportSnapshot.h"

#include "store/StoreError.h"
#include "store/StoreProblem.h"

#include <QDir>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

namespace {

std::function<void(int, int)> afterChunkHook;

QString dayKey(const QDate& date)
{
    return date.toString(Qt::ISODate);
}

QStringList columnsOf(QSqlDatabase db, const QString& schema)
{
    QStringList columns;
    QSqlQuery q(db);
    if (q.exec(QStringLiteral("PRAGMA %1.table_info(CollectionHistory)").arg(schema))) {
        while (q.next())
            columns << q.value(1).toString();
    }
    return columns;
}

} // namespace

void ReportSnapshot::setAfterChunkHook(std::function<void(int, int)> hook)
{
    afterChunkHook = std::move(hook);
}

ReportSnapshot::ReportSnapshot(SharedDatabase& live, const ReportLimits& limits)
    : m_dir(QDir(QDir::tempPath()).filePath(QStringLiteral("tonvy-report-XXXXXX"))), m_livePath(live.filePath()),
      m_from(dayKey(limits.from)), m_to(dayKey(limits.to))
{
    // Attached by its name: a file gone since the program opened it would
    // be made anew, empty, in the data folder.
    live.ensureInPlace();
    const QString folder = QDir::toNativeSeparators(QDir::tempPath());
    if (!m_dir.isValid())
        throw StoreError(QStringLiteral("Cannot make the report's working copy of the collections in %1 (%2). Nothing "
                                        "was changed. Let this user write that folder, or point TMPDIR at one with "
                                        "room, and try again.")
                             .arg(folder, m_dir.errorString()));
    QString error;
    // The program's own tables, indexes and report views, empty.
    if (!m_db.open(m_dir.filePath(QStringLiteral("ReportRows.db")), &error))
        throw StoreError(error);
    QSqlDatabase db = m_db.connection();
    {
        // A scratch file: nothing in it needs to survive a power cut.
        QSqlQuery q(db);
        if (!q.exec(QStringLiteral("PRAGMA journal_mode = OFF")) || !q.exec(QStringLiteral("PRAGMA synchronous = OFF")))
            throw failure(q.lastError());
    }
    {
        QSqlQuery attach(db);
        if (!attach.prepare(QStringLiteral("ATTACH DATABASE ? AS live")))
            throw failure(attach.lastError());
        attach.addBindValue(m_livePath);
        if (!attach.exec())
            throw failure(attach.lastError());
    }
    // The columns both have, named: the copy does not depend on their order.
    const QStringList ours = columnsOf(db, QStringLiteral("main"));
    QStringList shared;
    for (const QString& c : columnsOf(db, QStringLiteral("live"))) {
        if (ours.contains(c, Qt::CaseInsensitive))
            shared << QLatin1Char('"') + c + QLatin1Char('"');
    }
    if (shared.isEmpty()) {
        QSqlQuery detach(db);
        detach.exec(QStringLiteral("DETACH DATABASE live"));
        throw StoreProblem::misuse(QStringLiteral("the collection history of %1 cannot be read. Nothing was "
                                                  "changed; keep this message for support.")
                                       .arg(m_livePath));
    }
    m_columns = shared.join(QStringLiteral(", "));

    bool consistent = false;
    try {
        for (int attempt = 0; attempt < chunkedTries && !consistent; ++attempt)
            consistent = copy(false);
        if (!consistent)
            consistent = copy(true);
    } catch (...) {
        QSqlQuery detach(db);
        detach.exec(QStringLiteral("DETACH DATABASE live"));
        throw;
    }
    QSqlQuery detach(db);
    if (!detach.exec(QStringLiteral("DETACH DATABASE live")))
        throw failure(detach.lastError());
}

ReportSnapshot::~ReportSnapshot() = default;

StoreError ReportSnapshot::failure(const QSqlError& error) const
{
    const StoreError::Kind kind = StoreProblem::kindOf(error);
    const QString words =
        error.databaseText().trimmed().isEmpty() ? error.text().trimmed() : error.databaseText().trimmed();
    // Trouble with the database is told as everywhere else.
    if (kind == StoreError::Kind::InUse || kind == StoreError::Kind::Damaged || kind == StoreError::Kind::NotOurs)
        return StoreError(StoreProblem::message(kind, m_livePath, words), kind);
    return StoreError(QStringLiteral("Cannot make the report's working copy of the collections in %1 (%2). Nothing was "
                                     "changed. Free some space in that folder, or point TMPDIR at one with room, and "
                                     "try again.")
                          .arg(QDir::toNativeSeparators(m_dir.path()), words),
                      kind);
}

// One try at the copy: a week of dates a transaction, or all in one. True
// when no other connection committed between the first week and the last.
bool ReportSnapshot::copy(bool oneTransaction)
{
    ++m_attempts;
    m_oneTransaction = oneTransaction;
    QSqlDatabase db = m_db.connection();
    auto exec = [&](QSqlQuery& q, const QString& sql, const QVariantList& values = {}) {
        if (!q.prepare(sql))
            throw failure(q.lastError());
        for (const QVariant& v : values)
            q.addBindValue(v);
        if (!q.exec())
            throw failure(q.lastError());
    };
    auto begin = [&] {
        if (!db.transaction())
            throw failure(db.lastError());
    };
    auto commit = [&] {
        if (!db.commit()) {
            const QSqlError e = db.lastError();
            db.rollback();
            throw failure(e);
        }
    };
    struct Rollback
    {
        QSqlDatabase db;
        bool open = false;
        ~Rollback()
        {
            if (open)
                db.rollback();
        }
    } guard{db};

    {
        QSqlQuery clear(db);
        exec(clear, QStringLiteral("DELETE FROM main.CollectionHistory"));
    }
    if (oneTransaction) {
        begin();
        guard.open = true;
    }
    // The dates are YYYY-MM-DD text, compared as text, as the report's own
    // queries compare them: the weeks follow one another in that order and
    // together cover exactly from..to.
    QString lower = m_from;
    bool first = true;
    qint64 version = -1;
    bool changed = false;
    for (int chunk = 0;; ++chunk) {
        if (!oneTransaction) {
            begin();
            guard.open = true;
        }
        QString start;
        {
            QSqlQuery next(db);
            next.setForwardOnly(true);
            exec(next,
                 QStringLiteral("SELECT MIN(CollectionDate) FROM live.CollectionHistory WHERE CollectionDate %1 ? "
                                "AND CollectionDate <= ?")
                     .arg(first ? QStringLiteral(">=") : QStringLiteral(">")),
                 {lower, m_to});
            if (next.next() && !next.value(0).isNull())
                start = next.value(0).toString();
        }
        QString end;
        if (!start.isEmpty()) {
            const QDate day = QDate::fromString(start, Qt::ISODate);
            end = day.isValid() ? dayKey(day.addDays(chunkDays - 1)) : start;
            if (end < start)
                end = start;
            if (end > m_to)
                end = m_to;
            QSqlQuery insert(db);
            exec(insert,
                 QStringLiteral("INSERT INTO main.CollectionHistory (%1) SELECT %1 FROM live.CollectionHistory "
                                "WHERE CollectionDate >= ? AND CollectionDate <= ?")
                     .arg(m_columns),
                 {start, end});
        }
        // Read inside the week's transaction: it moves when another
        // connection has committed since this one last read the file.
        {
            QSqlQuery dataVersion(db);
            exec(dataVersion, QStringLiteral("PRAGMA live.data_version"));
            if (dataVersion.next()) {
                const qint64 now = dataVersion.value(0).toLongLong();
                changed = changed || (version >= 0 && now != version);
                version = now;
            }
        }
        if (!oneTransaction) {
            guard.open = false;
            commit();
        }
        if (afterChunkHook)
            afterChunkHook(m_attempts, chunk);
        if (start.isEmpty() || end >= m_to)
            break;
        lower = end;
        first = false;
    }
    if (oneTransaction) {
        guard.open = false;
        commit();
        return true;
    }
    return !changed;
}
