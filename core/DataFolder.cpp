#include "core/DataFolder.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace DataFolder {

// "Installed" is told by a marker that the build tree carries, not by looking
// at the installation: a writable program folder proves nothing (root, or an
// installation under the user's own ~/.local), and a compile-time prefix
// proves nothing either (a build configured for /usr/local may be installed
// anywhere with --prefix, or never installed at all). So the build writes
// this file beside its programs and the install rules never copy it: without
// it, the program counts as installed and keeps its data in the user's folder,
// and a wrong guess can only put data in the user's folder, never into an
// installation folder.
QString buildTreeMarker()
{
    return QStringLiteral("tonvy-build-tree");
}

bool isBuildTree(const QString& programDir)
{
    return QFileInfo(QDir(programDir).filePath(buildTreeMarker())).isFile();
}

QString userFolder()
{
    // tonvy-cli names itself "tonvy-cli" to Qt, so AppDataLocation would differ
    // between the two programs; both use what it gives for "tonvy" (no
    // organisation name is set): ~/.local/share/tonvy, or $XDG_DATA_HOME/tonvy.
    QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (base.isEmpty())
        base = QDir::home().filePath(QStringLiteral(".local/share"));
    return QDir(base).filePath(QStringLiteral("tonvy"));
}

QString defaultFor(const QString& programDir)
{
    return isBuildTree(programDir) ? QDir(programDir).absolutePath() : userFolder();
}

} // namespace DataFolder
