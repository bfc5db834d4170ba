#pragma once

#include <QString>
#include <QStringList>
#include <functional>

class QFileDevice;
class QSaveFile;

// Files that survive a power cut once they are reported written: the bytes
// are synced to the disk before the file is renamed into place, and its
// folder after the rename, so that the folder's entry for the new name is on
// the disk too. A sync that fails is a failure like a write that fails (a
// disk that reports an error on sync may have lost the bytes): the caller is
// told why and must say so.
//
// Where the platform or file system cannot sync at all (Windows for folders,
// some network file systems: EINVAL, EROFS, ENOTSUP) nothing is synced and
// that is no failure.
namespace DurableFile {

// Flushes what was written to an open file and syncs it to the disk. False
// with *error saying why ("it could not be synced to the disk: ...").
bool syncFile(QFileDevice& file, QString* error = nullptr);

// Commits a QSaveFile for good: syncFile, the rename into place
// (QSaveFile::commit, which ignores a failed sync of its own), then
// syncFolderOf. When the file cannot be synced it is not renamed: an
// earlier file of that name stays as it was. False with *error saying why.
bool commit(QSaveFile& file, QString* error = nullptr);

// Syncs the folder of a file just renamed into place (the file itself need
// not exist yet). False with *error when the folder could not be opened or
// the sync failed.
bool syncFolderOf(const QString& filePath, QString* error = nullptr);

// The same for several files renamed into place together; empty paths (a
// file that was not written) are skipped and each folder is synced once.
bool syncFoldersOf(const QStringList& filePaths, QString* error = nullptr);

// Test seam: every sync of a file or a folder goes through this function,
// given the open descriptor; it returns 0, or -1 with errno set, as fsync
// does. An empty function restores fsync.
using SyncFunction = std::function<int(int fd)>;
void setSyncFunction(SyncFunction sync);

} // namespace DurableFile
