#pragma once

#include "base/DurableFile.h"

#include <QFile>
#include <QList>
#include <QString>
#include <cerrno>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

// Every sync of DurableFile goes through this for as long as it lives: each
// is recorded (what was synced and whether it failed), and those of the
// files or folders whose path contains `failing` fail as on a disk that
// cannot keep the bytes (EIO); an empty `failing` means every path. The
// others are real syncs. Restores plain fsync when it goes.
class FailingSync
{
public:
    enum class Fail { Nothing, Files, Folders, Both };

    struct Call
    {
        QString path; // what the descriptor names (a file's temporary copy, a folder)
        bool folder = false;
        bool failed = false;
        ino_t inode = 0;
    };

    explicit FailingSync(Fail what = Fail::Nothing, const QString& failing = QString())
        : m_failing(failing), m_what(what)
    {
        DurableFile::setSyncFunction([this](int fd) { return sync(fd); });
    }
    ~FailingSync() { DurableFile::setSyncFunction({}); }
    FailingSync(const FailingSync&) = delete;
    FailingSync& operator=(const FailingSync&) = delete;

    QList<Call> calls;

    int folderSyncs(const QString& folder) const
    {
        int n = 0;
        for (const Call& c : calls)
            n += c.folder && c.path == folder ? 1 : 0;
        return n;
    }
    int fileSyncs() const
    {
        int n = 0;
        for (const Call& c : calls)
            n += c.folder ? 0 : 1;
        return n;
    }

    // Called at each sync, before it is made (for checks of the moment).
    std::function<void(const Call&)> onSync;

private:
    int sync(int fd)
    {
        Call call;
        call.path = QFile::symLinkTarget(QStringLiteral("/proc/self/fd/%1").arg(fd));
        struct stat st;
        if (::fstat(fd, &st) == 0) {
            call.folder = S_ISDIR(st.st_mode);
            call.inode = st.st_ino;
        }
        const bool kindFails =
            m_what == Fail::Both || (m_what == Fail::Files && !call.folder) || (m_what == Fail::Folders && call.folder);
        call.failed = m_what != Fail::Nothing && kindFails && call.path.contains(m_failing);
        calls << call;
        if (onSync)
            onSync(call);
        if (call.failed) {
            errno = EIO;
            return -1;
        }
        return ::fsync(fd);
    }

    QString m_failing;
    Fail m_what;
};
