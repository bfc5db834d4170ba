#include "store/DatabaseRestore.h"

#include "base/Clock.h"
#include "base/DurableFile.h"
#include "base/PathUtil.h"
#include "store/AuditTrail.h"
#include "store/CopyParts.h"
#include "store/DailyCopy.h"
#include "store/DatabaseBackup.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "store/StoreProblem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QSqlQuery>
#include <algorithm>
#include <memory>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

namespace DatabaseCopy {

namespace {

bool copyBytes(const QString& from, const QString& to, QString* why)
{
    QFile in(from);
    if (!in.open(QIODevice::ReadOnly)) {
        *why = QStringLiteral("%1 cannot be read (%2)").arg(native(from), in.errorString());
        return false;
    }
    if (!createPrivate(to, why)) {
        *why = QStringLiteral("%1 cannot be created (%2)").arg(native(to), *why);
        return false;
    }
    QFile out(to);
    if (!out.open(QIODevice::WriteOnly)) {
        *why = QStringLiteral("%1 cannot be written (%2)").arg(native(to), out.errorString());
        return false;
    }
    QByteArray chunk;
    while (!(chunk = in.read(1 << 20)).isEmpty()) {
        if (out.write(chunk) != chunk.size()) {
            *why = QStringLiteral("%1 cannot be written (%2)").arg(native(to), out.errorString());
            return false;
        }
    }
    if (in.error() != QFileDevice::NoError) {
        *why = QStringLiteral("%1 cannot be read (%2)").arg(native(from), in.errorString());
        return false;
    }
    if (!out.flush()) {
        *why = QStringLiteral("%1 cannot be written (%2)").arg(native(to), out.errorString());
        return false;
    }
    out.close();
    QString syncError;
    if (!syncFile(to, &syncError)) {
        *why = QStringLiteral("%1 cannot be written to the disk (%2)").arg(native(to), syncError);
        return false;
    }
    return true;
}

#ifdef Q_OS_LINUX
constexpr bool openersKnown = true;

// Other processes that have the file open, as "process 1234 (tonvy)". An
// idle program keeps its database open without holding any SQLite lock, so
// the locks alone would not show it; a file renamed under it would go on
// receiving its writes. Only processes this user may look at are seen.
QStringList otherProcessesHolding(const QString& path)
{
    QStringList holders;
    const QString target = QFileInfo(path).canonicalFilePath();
    if (target.isEmpty())
        return holders;
    const QString self = QString::number(::getpid());
    const QDir proc(QStringLiteral("/proc"));
    for (const QString& pid : proc.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool number = false;
        pid.toLongLong(&number);
        if (!number || pid == self)
            continue;
        const QDir fds(QStringLiteral("/proc/%1/fd").arg(pid));
        for (const QString& fd : fds.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)) {
            if (QFile::symLinkTarget(fds.filePath(fd)) != target)
                continue;
            QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
            const QString name =
                comm.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(comm.readAll()).trimmed() : QString();
            holders << (name.isEmpty() ? QStringLiteral("process %1").arg(pid)
                                       : QStringLiteral("process %1 (%2)").arg(pid, name));
            break;
        }
    }
    return holders;
}
#else
constexpr bool openersKnown = false;

QStringList otherProcessesHolding(const QString&)
{
    return {};
}
#endif

} // namespace

QString newestCopy(const QString& dataDir)
{
    QList<CopyFile> copies = requestedCopies(dataDir);
    copies += dailyCopies(dataDir);
    if (copies.isEmpty())
        return {};
    const auto newest = std::max_element(copies.cbegin(), copies.cend(), [](const CopyFile& a, const CopyFile& b) {
        return a.made != b.made ? a.made < b.made : a.path < b.path;
    });
    return newest->path;
}

QString restoreAdvice(const QString& dataDir)
{
    const QString newest = newestCopy(dataDir);
    if (newest.isEmpty())
        return QStringLiteral("No checked copy was found in %1 or %2. If there is a copy elsewhere (a USB stick, "
                              "another PC), close this program and run: %3")
            .arg(native(requestedFolder(dataDir)), native(dailyFolder(dataDir)),
                 restoreCommand(dataDir, QStringLiteral("FILE")));
    const QString made = QLocale::c().toString(QFileInfo(newest).lastModified(), QStringLiteral("dd/MM/yyyy HH:mm"));
    return QStringLiteral("The newest checked copy is %1 (made %2). To put it in place, close this program and run: "
                          "%3 — the damaged file is kept beside it; receive again what came off the terminals "
                          "after that copy was made.")
        .arg(native(newest), made, restoreCommand(dataDir, typed(newest)));
}

Outcome restore(const QString& dataDir, const QString& backupGiven, const Clock& clock)
{
    Outcome out;
    const QString dbPath = PathUtil::join(dataDir, SharedDatabase::fileName());
    const QString backup = QFileInfo(backupGiven).absoluteFilePath();
    const QString keptNote = QStringLiteral("The database file %1 was left as it was.").arg(native(dbPath));
    const QString elsewhere =
        QStringLiteral("Choose another copy: the checked copies are in %1 and %2 (docs/backup.md).")
            .arg(native(requestedFolder(dataDir)), native(dailyFolder(dataDir)));
    auto refuse = [&](const QString& why, const QString& detail) {
        out.ok = false;
        out.text = QStringLiteral("Cannot restore the database from %1: %2. %3").arg(native(backup), why, keptNote);
        out.detail = detail;
        return out;
    };

    const bool current = QFileInfo::exists(dbPath);
    if (current && QFileInfo(dbPath).canonicalFilePath() == QFileInfo(backup).canonicalFilePath())
        return refuse(QStringLiteral("it is the database file itself"), elsewhere);
    const Examination examined = examine(backup);
    if (!examined.problem.isEmpty())
        return refuse(examined.problem, elsewhere);

    // Nobody may be using the file that is about to be put aside: neither
    // holding it (SQLite's lock, waited for as every statement waits) nor
    // keeping it open.
    if (current) {
        const QStringList holders = otherProcessesHolding(dbPath);
        if (!holders.isEmpty()) {
            out.text = StoreProblem::message(StoreError::Kind::InUse, dbPath,
                                             holders.join(QStringLiteral(", ")) + QStringLiteral(" has it open"));
            out.detail = QStringLiteral("Nothing was restored. Close the program that has it open (the desktop "
                                        "program included), then run the restore again.");
            return out;
        }
    }
    // A journal beside a file nobody has open was left by a program that
    // stopped mid-write: it belongs to that file and goes aside with it
    // untouched, so the lock below must not play it back (or throw it away).
    const QString journal = dbPath + QStringLiteral("-journal");
    const bool leftJournal = current && openersKnown && QFileInfo::exists(journal);
    std::unique_ptr<Connection> lock;
    if (current && !leftJournal && QFileInfo(dbPath).size() > 0) {
        lock = std::make_unique<Connection>(dbPath, false);
        QSqlError error = lock->openError();
        bool locked = false;
        if (lock->isOpen()) {
            QSqlQuery q(lock->db());
            locked = q.exec(QStringLiteral("BEGIN EXCLUSIVE"));
            error = q.lastError();
        }
        if (!locked) {
            lock.reset();
            const StoreError::Kind kind = StoreProblem::kindOf(error);
            if (kind == StoreError::Kind::InUse) {
                out.text = StoreProblem::message(kind, dbPath, sqliteWords(error));
                out.detail = QStringLiteral("Nothing was restored. Close the other program (the desktop program "
                                            "included), then run the restore again.");
                return out;
            }
            // A file that is not a database, or too damaged to lock, is used
            // by nobody: it is put aside as it is.
            if (kind != StoreError::Kind::NotOurs && kind != StoreError::Kind::Damaged &&
                kind != StoreError::Kind::ReadOnly)
                return refuse(QStringLiteral("the current file cannot be locked (%1)").arg(sqliteWords(error)),
                              QStringLiteral("Try again; if it comes again, keep this message for support."));
        }
    }

    const QString now = clock.now().toString(QStringLiteral("yyyy-MM-dd-HHmmss"));
    const QString aside =
        current ? uniquePath(dataDir, QStringLiteral("HandHeldData-before-restore-") + now) : QString();
    const QString staged = dbPath + QStringLiteral(".restoring");
    QFile::remove(staged);
    QFile::remove(staged + QStringLiteral("-journal"));
    auto unstage = [&] {
        QFile::remove(staged);
        QFile::remove(staged + QStringLiteral("-journal"));
    };

    QString why;
    if (!copyBytes(backup, staged, &why)) {
        unstage();
        return refuse(QStringLiteral("it could not be copied into the data folder: %1").arg(why),
                      QStringLiteral("Free some space on the disk of %1 (the copy needs %2), or, if the folder is "
                                     "read-only for this user, let this user write it (or run the restore as a "
                                     "user who may), and try again.")
                          .arg(native(dataDir), megabytes(QFileInfo(backup).size())));
    }
    const QString backupHash = AuditTrail::sha256File(backup);
    if (AuditTrail::sha256File(staged) != backupHash) {
        unstage();
        return refuse(QStringLiteral("it changed while it was being copied"),
                      QStringLiteral("Wait until nothing writes to it any more, then try again."));
    }

    // The event goes into the copy before the copy goes in place: a
    // restore is never in place without it. Opening it also brings a copy
    // made by an earlier version up to this version's tables.
    {
        const QString replaced = current ? QStringLiteral("the replaced file kept as %1 (SHA-256 %2)")
                                               .arg(native(aside), AuditTrail::sha256File(dbPath))
                                         : QStringLiteral("there was no database file to replace");
        SharedDatabase restored;
        restored.setClock(&clock);
        QString error;
        if (!restored.open(staged, &error)) {
            unstage();
            return refuse(QStringLiteral("its copy in the data folder could not be opened: %1").arg(error), elsewhere);
        }
        const QString details =
            QStringLiteral("database restored from %1 (SHA-256 %2, made %3, tables of version %4); %5")
                .arg(native(backup), backupHash,
                     QFileInfo(backup).lastModified().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")))
                .arg(examined.version)
                .arg(replaced);
        QString auditError;
        if (!AuditTrail::tryRecord(restored, clock.now(), AuditTrail::Action::Restore, details, &auditError)) {
            unstage();
            return refuse(QStringLiteral("the restore could not be written to the audit trail: %1").arg(auditError),
                          QStringLiteral("Free some space on the disk of %1 and try again.").arg(native(dataDir)));
        }
    }

    // The swap, under the lock: the current file (and a journal it may
    // have left, which belongs to it and must never be played into the
    // copy) goes aside, the copy takes its name.
    const bool hadJournal = current && QFileInfo::exists(journal);
    if (current && !QFile::rename(dbPath, aside)) {
        unstage();
        return refuse(QStringLiteral("the current file could not be renamed to %1").arg(native(aside)),
                      QStringLiteral("Let this user rename files in %1 and try again.").arg(native(dataDir)));
    }
    if (hadJournal)
        QFile::rename(journal, aside + QStringLiteral("-journal"));
    if (!QFile::rename(staged, dbPath)) {
        if (current)
            QFile::rename(aside, dbPath);
        if (hadJournal)
            QFile::rename(aside + QStringLiteral("-journal"), journal);
        unstage();
        return refuse(QStringLiteral("the copy could not be renamed to %1").arg(native(dbPath)),
                      QStringLiteral("Let this user rename files in %1 and try again.").arg(native(dataDir)));
    }
    if (lock) {
        QSqlQuery(lock->db()).exec(QStringLiteral("ROLLBACK"));
        lock.reset();
    }
    // The swap is done only once the folder's new entries are on the disk;
    // after a power cut the old names could come back.
    QString syncError;
    if (!DurableFile::syncFolderOf(dbPath, &syncError)) {
        out.ok = false;
        out.text = QStringLiteral("The database %1 was restored from %2, but the change could not be written to the "
                                  "disk: %3.")
                       .arg(native(dbPath), native(backup), syncError);
        out.detail = current ? QStringLiteral("Check the disk of %1 and run the restore again: the file it replaced "
                                              "is kept as %2; after a power cut it may be back in place.")
                                   .arg(native(dataDir), native(aside))
                             : QStringLiteral("Check the disk of %1 and run the restore again.").arg(native(dataDir));
        out.path = aside;
        return out;
    }

    out.ok = true;
    out.path = aside;
    const QString made = QLocale::c().toString(QFileInfo(backup).lastModified(), QStringLiteral("dd/MM/yyyy HH:mm"));
    out.text = current ? QStringLiteral("The database %1 was restored from %2. The file it replaced is kept as %3.")
                             .arg(native(dbPath), native(backup), native(aside))
                       : QStringLiteral("The database %1 was restored from %2 (there was no database file to "
                                        "replace).")
                             .arg(native(dbPath), native(backup));
    out.detail = QStringLiteral("Receive again what came off the terminals after the copy was made (%1). The restore "
                                "is recorded in the audit trail.")
                     .arg(made);
    return out;
}

} // namespace DatabaseCopy
