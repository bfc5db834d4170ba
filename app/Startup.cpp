#include "Startup.h"

#include "Messenger.h"
#include "SharedDatabase.h"

#include <QDir>

namespace Startup {

bool openDatabase(SharedDatabase& db, const QString& dataDir, Messenger& messenger)
{
    if (!QDir().mkpath(dataDir)) {
        messenger.critical(QStringLiteral("Cannot create the data folder %1.").arg(dataDir));
        return false;
    }
    QString error;
    if (!db.open(QDir(dataDir).filePath(SharedDatabase::fileName()), &error)) {
        messenger.critical(error);
        return false;
    }
    return true;
}

} // namespace Startup
