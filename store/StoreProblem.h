#pragma once

#include "store/StoreError.h"

#include <QString>

class QSqlDatabase;
class QSqlError;

// Turns what SQLite reports into the message the clerk reads. Every text
// about a failing database file is made here, so that the screens, the
// command line and the docs say the same.
namespace StoreProblem {

// The kind of a failed statement, from SQLite's result code (and its text
// where a driver gives no code).
StoreError::Kind kindOf(const QSqlError& error);

// The message for a database file in trouble: what is wrong with the file
// at filePath and what to do. detail is SQLite's own words, kept in
// brackets for whoever supports the branch.
QString message(StoreError::Kind kind, const QString& filePath, const QString& detail);

// The StoreError for a failed statement on db. A damaged file, or one not
// of this program, is marked on db's connection: from then on the program
// writes nothing more into it (writesRefused()).
StoreError error(const QSqlDatabase& db, const QSqlError& error);

// The message for a database file that is no longer the one the program
// opened: deleted, moved away or replaced by another file while the program
// ran. Its kind is Damaged: the advice is the same, restore the file.
QString goneMessage(const QString& filePath);

// After a statement on db's connection found the file damaged or foreign:
// the message to refuse any further write with; empty while writes may go on.
QString writesRefused(const QSqlDatabase& db);
// A connection opened afresh (on a file found sound) may write again.
void allowWrites(const QSqlDatabase& db);

// The StoreError for a statement that the program itself got wrong (no
// field of that name, an update without edit): not the file's fault.
StoreError misuse(const QString& what);

// How long a statement waits for another program to let go of the file
// before it gives up with the in-use message.
constexpr int busyTimeoutMs = 3000;

} // namespace StoreProblem
