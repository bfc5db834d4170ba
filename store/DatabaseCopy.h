#pragma once

#include <QDate>
#include <QDateTime>
#include <QString>
#include <QStringList>

class Clock;

// Checked copies of the database file HandHeldData.db, the only copy of what
// came off the terminals: made while the program (or the other of its two
// front ends) may be using the file, checked before they carry their name,
// and put back in place when the file is lost or damaged.
//
// In the data folder:
//   Backups/HandHeldData-YYYY-MM-DD-HHMMSS.db  copies made on request
//                                             (tonvy-cli backup)
//   BackupData/HandHeldData-YYYY-MM-DD.db      the copy the first receive of
//                                             each day leaves; the seven
//                                             newest are kept
// A copy is written under a temporary name and renamed to one of these only
// once it has passed SQLite's integrity_check, so a file of such a name is a
// checked copy.
namespace DatabaseCopy {

QString requestedFolder(const QString& dataDir);
QString dailyFolder(const QString& dataDir);

// Backups/HandHeldData-YYYY-MM-DD-HHMMSS.db for `at`; "-2", "-3", ... are
// added when a copy of that second exists already.
QString requestedPath(const QString& dataDir, const QDateTime& at);
// BackupData/HandHeldData-YYYY-MM-DD.db.
QString dailyPath(const QString& dataDir, const QDate& day);

constexpr int dailyCopiesKept = 7;

// What became of a copy or a restore, in the words the clerk or the IT
// person reads: the message, and its second line (what it is about and what
// to do).
struct Outcome
{
    bool ok = false;
    QString text;
    QString detail;
    QString path; // the copy made; for a restore, where the replaced file was kept (empty when there was none)
};

// Copies the database file at dbPath to target, which must not exist yet,
// through SQLite (VACUUM INTO: a consistent copy even while other
// connections read or write), syncs it, checks it (problemWith) and only
// then gives it its name. Nothing is left under target when that fails.
Outcome makeCopy(const QString& dbPath, const QString& target);

// What keeps the file at path from being put in place as this program's
// database: missing, not an SQLite database, damaged (integrity_check), made
// by another program or by a newer version of this one. Empty when it is a
// sound database of this program. The file is opened read-only.
QString problemWith(const QString& path);

// The copy the first stored receive of `today` leaves in BackupData: made
// unless that day's copy is there already, then the daily copies are pruned
// to the seven newest. *made tells whether a copy was made now.
Outcome makeDailyCopy(const QString& dbPath, const QString& dataDir, const QDate& today, bool* made = nullptr);

// Removes the daily copies older than the seven newest (by the day in their
// name). Only files named as daily copies are touched. Returns what was
// removed.
QStringList pruneDailyCopies(const QString& dataDir);

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
