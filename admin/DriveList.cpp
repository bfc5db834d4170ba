#include "admin/DriveList.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QStorageInfo>

namespace {

Qt::CaseSensitivity pathCase()
{
#ifdef Q_OS_WIN
    return Qt::CaseInsensitive;
#else
    return Qt::CaseSensitive;
#endif
}

bool isUnder(const QString& path, const QString& root)
{
    const QString r = QDir::cleanPath(root);
    const QString p = QDir::cleanPath(path);
    if (p.compare(r, pathCase()) == 0)
        return true;
    const QString prefix = r.endsWith(QLatin1Char('/')) ? r : r + QLatin1Char('/');
    return p.startsWith(prefix, pathCase());
}

#ifndef Q_OS_WIN
// Kernel and memory file systems hold no user folders.
bool isPseudo(const QStorageInfo& volume)
{
    static const QSet<QByteArray> types = {
        "proc",    "sysfs",       "devpts",   "devtmpfs", "tmpfs",     "cgroup",     "cgroup2",   "securityfs",
        "debugfs", "tracefs",     "pstore",   "mqueue",   "hugetlbfs", "bpf",        "configfs",  "fusectl",
        "autofs",  "binfmt_misc", "efivarfs", "nsfs",     "ramfs",     "rpc_pipefs", "selinuxfs", "squashfs",
    };
    if (types.contains(volume.fileSystemType()))
        return true;
    const QString root = volume.rootPath();
    for (const char* system : {"/proc", "/sys", "/dev"}) {
        if (isUnder(root, QLatin1String(system)))
            return true;
    }
    // Container runtimes bind single files (/etc/hosts) as volumes.
    return !QFileInfo(root).isDir();
}
#endif

QStringList systemRoots()
{
    QStringList roots;
#ifdef Q_OS_WIN
    for (const QFileInfo& drive : QDir::drives())
        roots << drive.absolutePath();
#else
    for (const QStorageInfo& volume : QStorageInfo::mountedVolumes()) {
        if (volume.isValid() && !isPseudo(volume) && !roots.contains(volume.rootPath()))
            roots << volume.rootPath();
    }
    roots.sort();
    const QString home = QDir::homePath();
    if (!roots.contains(home))
        roots << home;
#endif
    return roots;
}

bool systemReadable(const QString& root)
{
    const QStorageInfo volume(root);
    const QFileInfo info(root);
    return volume.isValid() && volume.isReady() && info.isDir() && info.isReadable();
}

} // namespace

DriveList::DriveList(Lister lister, ReadCheck readCheck)
    : m_lister(std::move(lister)), m_readCheck(std::move(readCheck))
{
}

DriveList DriveList::system()
{
    return DriveList(systemRoots, systemReadable);
}

int DriveList::indexFor(const QStringList& roots, const QString& path)
{
    int best = -1;
    qsizetype bestLength = -1;
    for (int i = 0; i < roots.size(); ++i) {
        const QString root = QDir::cleanPath(roots.at(i));
        if (isUnder(path, root) && root.size() > bestLength) {
            best = i;
            bestLength = root.size();
        }
    }
    return best;
}
