#pragma once

#include <QString>

// A checked copy of the database file HandHeldData.db, the only copy of what
// came off the terminals: made while the program (or the other of its two
// front ends) may be using the file, and checked before it carries its name.
// A copy is written under NAME.part and renamed to NAME only once it has
// passed SQLite's integrity_check, so a file of such a name is a checked
// copy. The copies on request (DatabaseBackup.h), the day's copy
// (DailyCopy.h) and the restore (DatabaseRestore.h) are built on it.
namespace DatabaseCopy {

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
// through SQLite's online backup a few pages at a time (SteppedCopy.h: a
// consistent copy, during which other connections go on reading and
// writing), syncs it, checks it (problemWith) and only then gives it its
// name, and syncs its folder. Nothing is left under target when that fails.
// Uses a connection of its own: may run on any thread.
Outcome makeCopy(const QString& dbPath, const QString& target);

// What keeps the file at path from being put in place as this program's
// database: missing, not an SQLite database, damaged (integrity_check), made
// by another program or by a newer version of this one. Empty when it is a
// sound database of this program. The file is opened read-only.
QString problemWith(const QString& path);

// problemWith(), with the version of the tables of a sound file.
struct Examination
{
    QString problem; // empty when sound and ours
    int version = 0;
};
Examination examine(const QString& path);

} // namespace DatabaseCopy
