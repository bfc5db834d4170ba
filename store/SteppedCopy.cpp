#include "store/SteppedCopy.h"

#include "store/StoreProblem.h"

#include <QFile>
#include <sqlite3.h>

namespace DatabaseCopy {

namespace {

StepObserver stepObserver;

// How long one wait for the source's lock lasts, and how long in all the
// copy waits for it before it is "in use", as every statement waits.
constexpr int busyPauseMs = 5;

class Handle
{
public:
    Handle(const QString& path, int flags)
    {
        m_rc = sqlite3_open_v2(QFile::encodeName(path).constData(), &m_db, flags, nullptr);
    }
    ~Handle() { sqlite3_close_v2(m_db); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    sqlite3* db() const { return m_db; }
    int openCode() const { return m_rc; }
    QString words() const { return QString::fromUtf8(m_db ? sqlite3_errmsg(m_db) : sqlite3_errstr(m_rc)); }

private:
    sqlite3* m_db = nullptr;
    int m_rc = SQLITE_OK;
};

unsigned dataVersion(sqlite3* db)
{
    unsigned version = 0;
    sqlite3_file_control(db, "main", SQLITE_FCNTL_DATA_VERSION, &version);
    return version;
}

bool fail(StepFailure* failure, int code, const QString& words)
{
    failure->code = code & 0xFF;
    failure->words = words;
    return false;
}

} // namespace

void setStepObserver(StepObserver observer)
{
    stepObserver = std::move(observer);
}

bool copyInSteps(const QString& from, const QString& to, StepFailure* failure)
{
    // Read-write without create: a hot journal left by a program that
    // stopped mid-write is played back first, as every opening does.
    Handle source(from, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX);
    if (source.openCode() != SQLITE_OK)
        return fail(failure, source.openCode(), source.words());
    Handle target(to, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX);
    if (target.openCode() != SQLITE_OK)
        return fail(failure, target.openCode(), target.words());
    // The copy is synced and checked as a whole once written, and thrown
    // away if anything fails: no journal or sync of its own is needed.
    sqlite3_exec(target.db(), "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF", nullptr, nullptr, nullptr);

    sqlite3_backup* backup = sqlite3_backup_init(target.db(), "main", source.db(), "main");
    if (!backup)
        return fail(failure, sqlite3_errcode(target.db()), target.words());

    int restarts = 0;
    int busyMs = 0;
    unsigned version = 0;
    bool versionKnown = false;
    int rc = SQLITE_OK;
    for (;;) {
        rc = sqlite3_backup_step(backup, pagesPerStep);
        if (rc == SQLITE_DONE)
            break;
        if (rc == SQLITE_BUSY || rc == SQLITE_LOCKED) {
            // A writer is committing: let it, and go on after it.
            if (busyMs >= StoreProblem::busyTimeoutMs)
                break;
            sqlite3_sleep(busyPauseMs);
            busyMs += busyPauseMs;
            continue;
        }
        if (rc != SQLITE_OK)
            break;
        busyMs = 0;
        // Another connection committed since the last step: this step
        // started the copy again.
        const unsigned now = dataVersion(source.db());
        if (versionKnown && now != version && ++restarts > restartsAllowed)
            break;
        version = now;
        versionKnown = true;
        if (stepObserver) {
            const int total = sqlite3_backup_pagecount(backup);
            stepObserver(total - sqlite3_backup_remaining(backup), total, restarts);
        }
    }
    const int finished = sqlite3_backup_finish(backup);
    failure->restarts = restarts;
    if (rc == SQLITE_DONE) {
        // What finishing the copy's own write may have met (a full disk).
        if (finished != SQLITE_OK)
            return fail(failure, finished, QString::fromUtf8(sqlite3_errstr(finished)));
        return true;
    }
    if (restarts > restartsAllowed) {
        failure->unsettled = true;
        return fail(failure, SQLITE_BUSY,
                    QStringLiteral("the database changed during the copy %1 times").arg(restarts));
    }
    return fail(failure, rc, QString::fromUtf8(sqlite3_errstr(rc)));
}

} // namespace DatabaseCopy
