#pragma once

#include "store/CheckedCopy.h"

#include <QString>

class Clock;

// Putting a checked copy back in place of HandHeldData.db, and the advice
// the program gives when it finds the database damaged.
namespace DatabaseCopy {

// The newest checked copy in Backups and BackupData, or empty.
QString newestCopy(const QString& dataDir);

// How to restore, for the message about a damaged database file: the newest
// checked copy if there is one, and the tonvy-cli restore command.
QString restoreAdvice(const QString& dataDir);

// Puts the copy at `backup` in place of the data folder's HandHeldData.db:
// only a copy that passes problemWith(), only while no other process has
// the database open (refused as "in use" otherwise), keeping the current
// file beside it as HandHeldData-before-restore-YYYY-MM-DD-HHMMSS.db, and
// with a "restore" event in the restored database's audit trail (written
// before it is put in place, so that the two go together).
Outcome restore(const QString& dataDir, const QString& backup, const Clock& clock);

} // namespace DatabaseCopy
