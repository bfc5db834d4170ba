#pragma once

#include <QString>

class SharedDatabase;
struct AppSettings;

// The two folders of the settings row that the folder screen sets.
namespace FolderSelection {

enum class Target { None, BankInfo, Report };

// The stored folder of the target when it still exists as a folder;
// otherwise empty (a missing, empty or vanished folder is ignored). Throws
// StoreError.
QString existingStoredFolder(SharedDatabase& db, Target target);

// Why `path` may not be stored as the target's folder: it is empty, does
// not exist or is a file. Names the folder and what to do; empty when the
// folder exists. A folder that is missing now would fail later, at the
// receive that writes the bank's upload file into it.
QString folderProblem(Target target, const QString& path);

// Stores path as the target's folder (adding the row with SNo 1 when the
// table is empty) and sets the matching member of AppSettings. With
// Target::None the row is still added or saved, and nothing is set. Throws
// StoreError.
void save(SharedDatabase& db, AppSettings& settings, Target target, const QString& path);

} // namespace FolderSelection
