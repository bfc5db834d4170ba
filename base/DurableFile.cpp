#include "base/DurableFile.h"

#include <QFile>
#include <QFileInfo>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace DurableFile {

bool syncFolderOf(const QString& filePath)
{
#ifdef Q_OS_UNIX
    const QByteArray folder = QFile::encodeName(QFileInfo(filePath).absolutePath());
    int fd = -1;
    do {
        fd = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return false;
    int rc = 0;
    do {
        rc = ::fsync(fd);
    } while (rc != 0 && errno == EINTR);
    // Some file systems cannot sync a folder at all; that is not a failure
    // of the file just written.
    const bool ok = rc == 0 || errno == EINVAL || errno == EROFS || errno == ENOTSUP;
    ::close(fd);
    return ok;
#else
    Q_UNUSED(filePath);
    return true;
#endif
}

bool syncFoldersOf(const QStringList& filePaths)
{
    QStringList done;
    bool ok = true;
    for (const QString& path : filePaths) {
        if (path.isEmpty())
            continue;
        const QString folder = QFileInfo(path).absolutePath();
        if (done.contains(folder))
            continue;
        done << folder;
        ok = syncFolderOf(path) && ok;
    }
    return ok;
}

} // namespace DurableFile
