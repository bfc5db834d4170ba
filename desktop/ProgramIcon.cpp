#include "desktop/ProgramIcon.h"

QList<int> programIconSizes()
{
#ifdef TONVY_ICON_SIZES
    return {TONVY_ICON_SIZES};
#else
    return {};
#endif
}

QIcon programIcon()
{
    QIcon icon;
    for (const int size : programIconSizes())
        icon.addFile(QStringLiteral(":/icons/tonvy-%1.png").arg(size), QSize(size, size));
    return icon;
}

QString desktopEntryName()
{
    return QStringLiteral(TONVY_APP_ID);
}
