#pragma once

#include <QString>
#include <QStringList>

namespace DurableFile {

// Makes a rename into place (QSaveFile::commit, which already syncs the
// file's bytes) survive a power cut: the folder's entry for the new name is
// written to the disk too. Where the platform cannot sync a folder (Windows,
// some network file systems) this does nothing and returns true; false only
// when the folder could not be opened or the sync failed.
bool syncFolderOf(const QString& filePath);

// The same for several files renamed into place together; empty paths (a
// file that was not written) are skipped and each folder is synced once.
bool syncFoldersOf(const QStringList& filePaths);

} // namespace DurableFile
