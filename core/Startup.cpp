#include "core/Startup.h"

#include "base/Messenger.h"
#include "base/Version.h"
#include "store/DatabaseRestore.h"
#include "store/PasswordStore.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"

#include <QCoreApplication>
#include <QDir>

namespace Startup {

void nameApplication()
{
    QCoreApplication::setApplicationName(QStringLiteral("tonvy"));
    QCoreApplication::setApplicationVersion(programVersion());
}

bool openDatabase(SharedDatabase& db, const QString& dataDir, Messenger& messenger)
{
    if (!QDir().mkpath(dataDir)) {
        messenger.critical(QStringLiteral("Cannot create the data folder %1.").arg(dataDir));
        return false;
    }
    QString error;
    if (!db.open(QDir(dataDir).filePath(SharedDatabase::fileName()), &error)) {
        // A damaged file: how to put the newest checked copy in its place.
        messenger.critical(error, {}, db.restoreAdvised() ? DatabaseCopy::restoreAdvice(dataDir) : QString());
        return false;
    }
    // Reading the password row turns plain software passwords (a new
    // database, or one from an older version) into hashes at once.
    try {
        PasswordStore::load(db);
    } catch (const StoreError& e) {
        messenger.critical(e.message());
        return false;
    }
    return true;
}

} // namespace Startup
