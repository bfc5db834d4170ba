#pragma once

#include <QString>

// Where the data folder is when no --data-dir is given.
//
// Run from its build folder, a program keeps its data beside itself, as
// version 2.1 did. Installed, it keeps it in the user's own data folder
// (~/.local/share/tonvy) and never writes into the installation folder.
namespace DataFolder {

// The file the build puts beside the programs in build/bin; installing never
// copies it.
QString buildTreeMarker();

// True when programDir holds the build's marker.
bool isBuildTree(const QString& programDir);

// The user's own data folder: QStandardPaths' AppDataLocation for the
// application name "tonvy", the same for tonvy and tonvy-cli.
QString userFolder();

// The data folder of a program living in programDir.
QString defaultFor(const QString& programDir);

} // namespace DataFolder
