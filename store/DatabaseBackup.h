#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

#include "store/CopyParts.h"

// The copies made on request (tonvy-cli backup):
//   Backups/HandHeldData-YYYY-MM-DD-HHMMSS.db in the data folder, or where
//   --output says.
namespace DatabaseCopy {

QString requestedFolder(const QString& dataDir);
// Backups/HandHeldData-YYYY-MM-DD-HHMMSS.db for `at`; "-2", "-3", ... are
// added when a copy of that second exists already.
QString requestedPath(const QString& dataDir, const QDateTime& at);
// Where a copy asked for at `at` goes: requestedPath() without an output;
// in a folder given as output (a USB stick) under that same file name;
// otherwise the output file itself.
QString requestedTarget(const QString& dataDir, const QDateTime& at, const QString& output);
// The copies in Backups.
QList<CopyFile> requestedCopies(const QString& dataDir);

} // namespace DatabaseCopy
