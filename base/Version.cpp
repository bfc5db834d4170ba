#include "base/Version.h"

QString programVersion()
{
    return QStringLiteral(TONVY_VERSION);
}
