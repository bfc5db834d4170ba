#include "base/PathUtil.h"

#include <QDir>

namespace PathUtil {

QString join(const QString& folder, const QString& name)
{
    if (folder.isEmpty())
        return name;
    if (folder.endsWith(QLatin1Char('/')) || folder.endsWith(QLatin1Char('\\')))
        return folder + name;
    // Keep the folder's own separator style: a Windows-style path keeps backslashes.
    const QChar sep =
        folder.contains(QLatin1Char('\\')) && !folder.contains(QLatin1Char('/')) ? QLatin1Char('\\') : QLatin1Char('/');
    return folder + sep + name;
}

} // namespace PathUtil
