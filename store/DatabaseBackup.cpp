#include "store/DatabaseBackup.h"

#include "base/PathUtil.h"

#include <QDir>
#include <QFileInfo>

namespace DatabaseCopy {

QString requestedFolder(const QString& dataDir)
{
    return PathUtil::join(dataDir, QStringLiteral("Backups"));
}

QString requestedPath(const QString& dataDir, const QDateTime& at)
{
    return uniquePath(requestedFolder(dataDir),
                      QStringLiteral("HandHeldData-") + at.toString(QStringLiteral("yyyy-MM-dd-HHmmss")));
}

QString requestedTarget(const QString& dataDir, const QDateTime& at, const QString& output)
{
    const QString target = requestedPath(dataDir, at);
    if (output.isEmpty())
        return target;
    const QFileInfo given(output);
    return given.isDir() ? QDir(given.absoluteFilePath()).filePath(QFileInfo(target).fileName())
                         : given.absoluteFilePath();
}

QList<CopyFile> requestedCopies(const QString& dataDir)
{
    return copiesIn(requestedFolder(dataDir), QStringLiteral(R"(^HandHeldData-\d{4}-\d{2}-\d{2}-\d{6}(-\d+)?\.db$)"));
}

} // namespace DatabaseCopy
