#include "base/DurableFile.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <cerrno>
#include <cstring>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <unistd.h>
#endif

namespace DurableFile {

namespace {

SyncFunction syncFunction;

#ifdef Q_OS_UNIX
// The sync of one descriptor, through the seam; 0 or the errno of the
// failure. A file system that cannot sync at all is not a failure.
int syncDescriptor(int fd)
{
    int rc = 0;
    do {
        errno = 0;
        rc = syncFunction ? syncFunction(fd) : ::fsync(fd);
    } while (rc != 0 && errno == EINTR);
    if (rc == 0)
        return 0;
    const int failure = errno != 0 ? errno : EIO;
    return failure == EINVAL || failure == EROFS || failure == ENOTSUP ? 0 : failure;
}
#endif

QString causeText(int failure)
{
    return QString::fromLocal8Bit(std::strerror(failure));
}

void setError(QString* error, const QString& text)
{
    if (error)
        *error = text;
}

} // namespace

void setSyncFunction(SyncFunction sync)
{
    syncFunction = std::move(sync);
}

bool syncFile(QFileDevice& file, QString* error)
{
    if (!file.flush()) {
        setError(error, file.errorString());
        return false;
    }
#ifdef Q_OS_UNIX
    const int fd = file.handle();
    if (fd < 0)
        return true; // not a file on a disk: nothing to sync
    if (const int failure = syncDescriptor(fd)) {
        setError(error, QStringLiteral("it could not be synced to the disk (%1)").arg(causeText(failure)));
        return false;
    }
#endif
    return true;
}

bool commit(QSaveFile& file, QString* error)
{
    if (!syncFile(file, error)) {
        // Committing a cancelled file removes the temporary copy and leaves
        // the final name untouched.
        file.cancelWriting();
        file.commit();
        return false;
    }
    errno = 0;
    if (!file.commit()) {
        const int failure = errno;
        const QString qtText = file.errorString();
        setError(error, failure != 0 && (qtText.isEmpty() || qtText == QLatin1String("Unknown error"))
                            ? causeText(failure)
                            : qtText);
        return false;
    }
    return syncFolderOf(file.fileName(), error);
}

bool syncFolderOf(const QString& filePath, QString* error)
{
#ifdef Q_OS_UNIX
    const QString folderPath = QFileInfo(filePath).absolutePath();
    const QByteArray folder = QFile::encodeName(folderPath);
    int fd = -1;
    do {
        fd = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        setError(error, QStringLiteral("the folder %1 could not be opened to sync it to the disk (%2)")
                            .arg(QDir::toNativeSeparators(folderPath), causeText(errno)));
        return false;
    }
    const int failure = syncDescriptor(fd);
    ::close(fd);
    if (failure) {
        setError(error, QStringLiteral("the folder %1 could not be synced to the disk (%2)")
                            .arg(QDir::toNativeSeparators(folderPath), causeText(failure)));
        return false;
    }
    return true;
#else
    Q_UNUSED(filePath);
    Q_UNUSED(error);
    return true;
#endif
}

bool syncFoldersOf(const QStringList& filePaths, QString* error)
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
        QString why;
        if (!syncFolderOf(path, &why)) {
            // The first failure is the one told.
            if (ok)
                setError(error, why);
            ok = false;
        }
    }
    return ok;
}

} // namespace DurableFile
