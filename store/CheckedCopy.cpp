#include "store/CheckedCopy.h"

#include "base/DurableFile.h"
#include "store/CopyParts.h"
#include "store/Schema.h"
#include "store/SharedDatabase.h"
#include "store/SteppedCopy.h"
#include "store/StoreError.h"
#include "store/StoreProblem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlQuery>
#include <QStringList>
#include <sqlite3.h>

namespace DatabaseCopy {

namespace {

// Why the stepped copy failed, and what to do, by SQLite's result code.
StoreError::Kind kindOf(const StepFailure& failure)
{
    switch (failure.code) {
    case SQLITE_FULL:
        return StoreError::Kind::DiskFull;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return StoreError::Kind::InUse;
    case SQLITE_READONLY:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
        return StoreError::Kind::ReadOnly;
    case SQLITE_CORRUPT:
        return StoreError::Kind::Damaged;
    case SQLITE_NOTADB:
        return StoreError::Kind::NotOurs;
    default:
        return StoreError::Kind::Other;
    }
}

void explainCopyFailure(const StepFailure& failure, const QString& dbPath, const QString& target, QString* why,
                        QString* advice)
{
    const QString& words = failure.words;
    const QString folder = native(QFileInfo(target).absolutePath());
    switch (kindOf(failure)) {
    case StoreError::Kind::DiskFull:
        *why = QStringLiteral("there is no space left on the disk of %1 (%2)").arg(folder, words);
        *advice = QStringLiteral("Free some space on that disk, or copy to another disk (tonvy-cli backup --output "
                                 "FILE), and try again.");
        return;
    case StoreError::Kind::InUse:
        if (failure.unsettled)
            *why = QStringLiteral("other programs kept writing to the database file while it was copied (the copy "
                                  "started again %1 times)")
                       .arg(failure.restarts);
        else
            *why = QStringLiteral("another program held the database file for longer than %1 seconds (%2)")
                       .arg(StoreProblem::busyTimeoutMs / 1000)
                       .arg(words);
        *advice = QStringLiteral("Close the other program, or wait for it to finish, and try again.");
        return;
    case StoreError::Kind::Damaged:
    case StoreError::Kind::NotOurs:
        *why = QStringLiteral("the database file %1 is damaged (%2)").arg(native(dbPath), words);
        *advice = QStringLiteral("A damaged file cannot be copied soundly: restore the newest checked copy "
                                 "(docs/backup.md).");
        return;
    case StoreError::Kind::ReadOnly:
        *why = QStringLiteral("the folder %1 cannot be written to (%2)").arg(folder, words);
        *advice = QStringLiteral("Let this user write that folder, or copy elsewhere (tonvy-cli backup --output "
                                 "FILE), and try again.");
        return;
    case StoreError::Kind::Other:
        break;
    }
    *why = QStringLiteral("SQLite could not copy it (%1)").arg(words);
    *advice = QStringLiteral("Try again; if it comes again, keep this message for support.");
}

} // namespace

Examination examine(const QString& path)
{
    Examination e;
    const QFileInfo info(path);
    if (!info.exists()) {
        e.problem = QStringLiteral("the file does not exist");
        return e;
    }
    if (info.isDir()) {
        e.problem = QStringLiteral("it is a folder, not a file");
        return e;
    }
    if (info.size() == 0) {
        e.problem = QStringLiteral("the file is empty");
        return e;
    }
    Connection c(path, true);
    if (!c.isOpen()) {
        e.problem = QStringLiteral("it cannot be opened (%1)").arg(sqliteWords(c.openError()));
        return e;
    }
    QSqlDatabase db = c.db();
    {
        // integrity_check, not the quick_check of every start: a copy is
        // checked once, so it gets the slower cross-checks of every index
        // against its table too.
        QSqlQuery q(db);
        q.setForwardOnly(true);
        if (!q.exec(QStringLiteral("PRAGMA integrity_check"))) {
            const StoreError::Kind kind = StoreProblem::kindOf(q.lastError());
            if (kind == StoreError::Kind::NotOurs)
                e.problem = QStringLiteral("it is not a database at all (%1)").arg(sqliteWords(q.lastError()));
            else if (kind == StoreError::Kind::Damaged)
                e.problem = QStringLiteral("it is damaged (%1)").arg(sqliteWords(q.lastError()));
            else
                e.problem = QStringLiteral("it cannot be read (%1)").arg(sqliteWords(q.lastError()));
            return e;
        }
        QStringList found;
        while (q.next() && found.size() < 3)
            found << q.value(0).toString();
        if (found.isEmpty()) {
            e.problem = QStringLiteral("it is damaged (the check gave no answer)");
            return e;
        }
        if (found.first() != QLatin1String("ok")) {
            e.problem = QStringLiteral("it is damaged (%1)").arg(found.join(QStringLiteral("; ")));
            return e;
        }
    }
    {
        QSqlQuery q(db);
        if (!q.exec(QStringLiteral("PRAGMA user_version")) || !q.next()) {
            e.problem = QStringLiteral("it cannot be read (%1)").arg(sqliteWords(q.lastError()));
            return e;
        }
        e.version = q.value(0).toInt();
    }
    QString readError;
    const QString notOurs = SharedDatabase::notOurs(db, &readError);
    if (!readError.isEmpty()) {
        e.problem = QStringLiteral("it cannot be read (%1)").arg(readError);
        return e;
    }
    if (!notOurs.isEmpty()) {
        e.problem = notOurs;
        return e;
    }
    if (e.version == 0) {
        e.problem = QStringLiteral("it holds none of this program's tables");
        return e;
    }
    if (e.version > Schema::currentVersion) {
        e.problem = QStringLiteral("it was made by a newer version of this program (its tables are of version %1; "
                                   "this version knows up to %2)")
                        .arg(e.version)
                        .arg(Schema::currentVersion);
        return e;
    }
    return e;
}

QString problemWith(const QString& path)
{
    return examine(path).problem;
}

Outcome makeCopy(const QString& dbPath, const QString& target)
{
    Outcome out;
    const QString folder = QFileInfo(target).absolutePath();
    auto fail = [&](const QString& why, const QString& advice) {
        out.ok = false;
        out.text = QStringLiteral("Cannot copy the database %1 to %2: %3. Nothing was kept under that name.")
                       .arg(native(dbPath), native(target), why);
        out.detail = advice;
        return out;
    };
    if (QFileInfo::exists(target))
        return fail(QStringLiteral("a file of that name exists already"),
                    QStringLiteral("Choose another name, or move that file away first; a copy never replaces "
                                   "another."));
    if (!QDir().mkpath(folder))
        return fail(QStringLiteral("the folder %1 cannot be created").arg(native(folder)),
                    QStringLiteral("Let this user write there, or copy elsewhere (tonvy-cli backup --output FILE)."));

    // Written under a name no reader takes for a copy; a part left by a
    // copy that was cut off is ours to replace.
    const QString part = target + QStringLiteral(".part");
    QFile::remove(part);
    QString why;
    if (!createPrivate(part, &why))
        return fail(QStringLiteral("%1 cannot be created (%2)").arg(native(part), why),
                    QStringLiteral("Let this user write the folder %1, or copy elsewhere (tonvy-cli backup --output "
                                   "FILE).")
                        .arg(native(folder)));
    auto discard = [&] {
        QFile::remove(part);
        QFile::remove(part + QStringLiteral("-journal"));
    };
    // A consistent copy of one moment, taken a few pages at a time: between
    // two steps a writer commits, and the copy starts again after it.
    StepFailure stepFailure;
    if (!copyInSteps(dbPath, part, &stepFailure)) {
        discard();
        QString advice;
        explainCopyFailure(stepFailure, dbPath, target, &why, &advice);
        return fail(why, advice);
    }
    if (!syncFile(part)) {
        discard();
        return fail(QStringLiteral("the copy could not be written to the disk of %1").arg(native(folder)),
                    QStringLiteral("Check that disk (a USB stick pulled out, a network folder gone) and try again."));
    }
    const QString problem = problemWith(part);
    if (!problem.isEmpty()) {
        discard();
        return fail(QStringLiteral("the copy did not pass its check: %1").arg(problem),
                    QStringLiteral("Check the disk of %1 and try again; if it comes again, the database file "
                                   "itself may be damaged: keep this message for support.")
                        .arg(native(folder)));
    }
    if (!QFile::rename(part, target)) {
        discard();
        return fail(QStringLiteral("the checked copy could not be given its name"),
                    QStringLiteral("Let this user rename files in %1 and try again.").arg(native(folder)));
    }
    QString syncError;
    if (!DurableFile::syncFolderOf(target, &syncError)) {
        // The name may not survive a power cut: the copy is not told as made.
        QFile::remove(target);
        return fail(QStringLiteral("the checked copy's name could not be written to the disk: %1").arg(syncError),
                    QStringLiteral("Check that disk (a USB stick pulled out, a network folder gone) and try again."));
    }
    out.ok = true;
    out.path = target;
    out.text =
        QStringLiteral("The database %1 was copied to %2 and the copy checked.").arg(native(dbPath), native(target));
    out.detail =
        QStringLiteral("SQLite's integrity_check found the copy sound (%1). Keep a copy off this PC "
                       "too (docs/backup.md); to put this one back: %2")
            .arg(megabytes(QFileInfo(target).size()), restoreCommand(QFileInfo(dbPath).absolutePath(), typed(target)));
    return out;
}

} // namespace DatabaseCopy
