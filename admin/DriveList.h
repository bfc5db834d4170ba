#pragma once

#include <QList>
#include <QString>
#include <functional>

// The drives offered by the folder screen's drive list: the drive letters on
// Windows; elsewhere the mounted volumes (pseudo file systems left out) and
// the home folder. Both the listing and the check that a drive can be read
// are replaceable, so that a test can offer a drive without a medium.
class DriveList
{
public:
    using Lister = std::function<QStringList()>;
    using ReadCheck = std::function<bool(const QString& root)>;

    DriveList(Lister lister, ReadCheck readCheck);
    // The machine's drives and the file system's own readability test.
    static DriveList system();

    // Root folders, each ending in a separator only when it is a drive root
    // ("/", "C:/").
    QStringList roots() const { return m_lister(); }
    bool isReadable(const QString& root) const { return m_readCheck(root); }

    // Index in roots of the drive holding path: the longest root it lies
    // under, or -1.
    static int indexFor(const QStringList& roots, const QString& path);

private:
    Lister m_lister;
    ReadCheck m_readCheck;
};
