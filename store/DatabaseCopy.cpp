#include "store/DatabaseCopy.h"

#include "base/Clock.h"
#include "base/DurableFile.h"
#include "base/PathUtil.h"
#include "store/AuditTrail.h"
#include "store/Schema.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "store/StoreProblem.h"

#include <QAtomicInt>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <algorithm>
#include <memory>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace DatabaseCopy {

namespace {

QAtomicInt connectionCounter;

const QString requestedPattern = QStringLiteral(R"(^HandHeldData-\d{4}-\d{2}-\d{2}-\d{6}(-\d+)?\.db$)");
const QString dailyPattern = QStringLiteral(R"(^HandHeldData-(\d{4}-\d{2}-\d{2})\.db$)");

QString native(const QString& path)
{
    return QDir::toNativeSeparators(path);
}

// A path as the IT person would type it in a shell.
QString typed(const QString& path)
{
    const QString p = native(path);
    return p.contains(QLatin1Char(' ')) ? QLatin1Char('"') + p + QLatin1Char('"') : p;
}

QString restoreCommand(const QString& dataDir, const QString& file)
{
    return QStringLiteral("tonvy-cli --data-dir %1 restore %2").arg(typed(dataDir), file);
}

// A connection of its own, apart from the program's: a copy or a check must
// not depend on what the screens have open on theirs.
class Connection
{
public:
    Connection(const QString& path, bool readOnly)
        : m_name(QStringLiteral("tonvy-copy-%1").arg(connectionCounter.fetchAndAddRelaxed(1)))
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_name);
        db.setDatabaseName(path);
        QString options = QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(StoreProblem::busyTimeoutMs);
        if (readOnly)
            options += QStringLiteral(";QSQLITE_OPEN_READONLY");
        db.setConnectOptions(options);
        m_open = db.open();
        if (!m_open)
            m_error = db.lastError();
    }
    ~Connection()
    {
        {
            QSqlDatabase db = QSqlDatabase::database(m_name, false);
            if (db.isValid())
                db.close();
        }
        QSqlDatabase::removeDatabase(m_name);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool isOpen() const { return m_open; }
    QSqlError openError() const { return m_error; }
    QSqlDatabase db() const { return QSqlDatabase::database(m_name, false); }

private:
    QString m_name;
    bool m_open = false;
    QSqlError m_error;
};

QString sqliteWords(const QSqlError& error)
{
    const QString db = error.databaseText().trimmed();
    return db.isEmpty() ? error.text().trimmed() : db;
}

struct Examination
{
    QString problem; // empty when sound and ours
    int version = 0;
};

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

#ifdef Q_OS_UNIX
bool syncFile(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    int fd = -1;
    do {
        fd = ::open(name.constData(), O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return false;
    int rc = 0;
    do {
        rc = ::fsync(fd);
    } while (rc != 0 && errno == EINTR);
    ::close(fd);
    return rc == 0;
}
#else
bool syncFile(const QString&)
{
    return true;
}
#endif

// An empty file readable by its owner only, before anything is written into
// it: a copy holds what the database holds, passwords included.
bool createPrivate(const QString& path, QString* why)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        *why = f.errorString();
        return false;
    }
    f.close();
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    return true;
}

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
    if (!syncFile(to)) {
        *why = QStringLiteral("%1 cannot be written to the disk").arg(native(to));
        return false;
    }
    return true;
}

// Why VACUUM INTO failed, and what to do, by what SQLite said.
void explainCopyFailure(const QSqlError& error, const QString& dbPath, const QString& target, QString* why,
                        QString* advice)
{
    const QString words = sqliteWords(error);
    const QString folder = native(QFileInfo(target).absolutePath());
    switch (StoreProblem::kindOf(error)) {
    case StoreError::Kind::DiskFull:
        *why = QStringLiteral("there is no space left on the disk of %1 (%2)").arg(folder, words);
        *advice = QStringLiteral("Free some space on that disk, or copy to another disk (tonvy-cli backup --output "
                                 "FILE), and try again.");
        return;
    case StoreError::Kind::InUse:
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

struct CopyFile
{
    QString path;
    QDateTime made;
};

QList<CopyFile> copiesIn(const QString& folder, const QString& pattern)
{
    QList<CopyFile> copies;
    const QRegularExpression re(pattern);
    const QDir dir(folder);
    for (const QFileInfo& info : dir.entryInfoList(QDir::Files)) {
        if (re.match(info.fileName()).hasMatch())
            copies.append({info.absoluteFilePath(), info.lastModified()});
    }
    return copies;
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

QString uniquePath(const QString& folder, const QString& stem)
{
    QString path = PathUtil::join(folder, stem + QStringLiteral(".db"));
    for (int n = 2; QFileInfo::exists(path); ++n)
        path = PathUtil::join(folder, QStringLiteral("%1-%2.db").arg(stem).arg(n));
    return path;
}

QString megabytes(qint64 bytes)
{
    return QLocale::c().toString(static_cast<double>(bytes) / 1e6, 'f', 1) + QStringLiteral(" MB");
}

} // namespace

QString requestedFolder(const QString& dataDir)
{
    return PathUtil::join(dataDir, QStringLiteral("Backups"));
}

QString dailyFolder(const QString& dataDir)
{
    return PathUtil::join(dataDir, QStringLiteral("BackupData"));
}

QString requestedPath(const QString& dataDir, const QDateTime& at)
{
    return uniquePath(requestedFolder(dataDir),
                      QStringLiteral("HandHeldData-") + at.toString(QStringLiteral("yyyy-MM-dd-HHmmss")));
}

QString dailyPath(const QString& dataDir, const QDate& day)
{
    return PathUtil::join(dailyFolder(dataDir),
                          QStringLiteral("HandHeldData-%1.db").arg(day.toString(QStringLiteral("yyyy-MM-dd"))));
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
    auto discard = [&] { QFile::remove(part); };
    {
        Connection source(dbPath, false);
        if (!source.isOpen()) {
            discard();
            QString advice;
            explainCopyFailure(source.openError(), dbPath, target, &why, &advice);
            return fail(why, advice);
        }
        QSqlQuery q(source.db());
        // A consistent copy of one moment, taken under a read lock: readers
        // go on, a writer waits until the copy is made.
        const bool copied = q.prepare(QStringLiteral("VACUUM INTO ?")) && (q.addBindValue(part), q.exec());
        if (!copied) {
            const QSqlError error = q.lastError();
            q.finish();
            discard();
            QString advice;
            explainCopyFailure(error, dbPath, target, &why, &advice);
            return fail(why, advice);
        }
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
    DurableFile::syncFolderOf(target);
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

Outcome makeDailyCopy(const QString& dbPath, const QString& dataDir, const QDate& today, bool* made)
{
    if (made)
        *made = false;
    const QString path = dailyPath(dataDir, today);
    if (QFileInfo::exists(path)) {
        Outcome out;
        out.ok = true;
        out.path = path;
        return out;
    }
    Outcome out = makeCopy(dbPath, path);
    if (!out.ok)
        return out;
    if (made)
        *made = true;
    // Pruned only after a copy was made: a day whose copy failed leaves
    // the older ones as they are.
    pruneDailyCopies(dataDir);
    return out;
}

QStringList pruneDailyCopies(const QString& dataDir)
{
    struct Daily
    {
        QDate day;
        QString path;
    };
    QList<Daily> copies;
    const QRegularExpression re(dailyPattern);
    for (const CopyFile& c : copiesIn(dailyFolder(dataDir), dailyPattern)) {
        const QDate day =
            QDate::fromString(re.match(QFileInfo(c.path).fileName()).captured(1), QStringLiteral("yyyy-MM-dd"));
        if (day.isValid())
            copies.append({day, c.path});
    }
    std::sort(copies.begin(), copies.end(), [](const Daily& a, const Daily& b) { return a.day > b.day; });
    QStringList removed;
    for (qsizetype i = dailyCopiesKept; i < copies.size(); ++i) {
        if (QFile::remove(copies.at(i).path))
            removed << copies.at(i).path;
    }
    return removed;
}

QString newestCopy(const QString& dataDir)
{
    QList<CopyFile> copies = copiesIn(requestedFolder(dataDir), requestedPattern);
    copies += copiesIn(dailyFolder(dataDir), dailyPattern);
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
                      QStringLiteral("Free some space on the disk of %1 (the copy needs %2) and try again.")
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
    DurableFile::syncFolderOf(dbPath);
    if (lock) {
        QSqlQuery(lock->db()).exec(QStringLiteral("ROLLBACK"));
        lock.reset();
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
