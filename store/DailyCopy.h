#pragma once

#include "store/CheckedCopy.h"
#include "store/CopyParts.h"

#include <QDate>
#include <QList>
#include <QString>
#include <QStringList>

// The copy the first stored receive of each day leaves in the data folder:
//   BackupData/HandHeldData-YYYY-MM-DD.db   the seven newest are kept
namespace DatabaseCopy {

QString dailyFolder(const QString& dataDir);
// BackupData/HandHeldData-YYYY-MM-DD.db.
QString dailyPath(const QString& dataDir, const QDate& day);
// The daily copies in BackupData.
QList<CopyFile> dailyCopies(const QString& dataDir);

constexpr int dailyCopiesKept = 7;

// Made unless that day's copy is there already, then the daily copies are
// pruned to the seven newest. A part left by a daily copy that was cut off
// (the program stopped meanwhile) is removed first. *made tells whether a
// copy was made now. Uses connections of its own: may run on any thread.
Outcome makeDailyCopy(const QString& dbPath, const QString& dataDir, const QDate& today, bool* made = nullptr);

// Removes the daily copies older than the seven newest (by the day in their
// name). Only files named as daily copies are touched. Returns what was
// removed.
QStringList pruneDailyCopies(const QString& dataDir);

// Removes what a daily copy that was cut off left in BackupData: its
// HandHeldData-YYYY-MM-DD.db.part (and a journal beside it). Returns what
// was removed.
QStringList removeLeftParts(const QString& dataDir);

} // namespace DatabaseCopy
