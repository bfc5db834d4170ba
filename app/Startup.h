#pragma once

#include <QString>

class Messenger;
class SharedDatabase;

namespace Startup {

// Opens HandHeldData.db in the data folder (creating both when missing).
// On failure the reason, naming the file, is shown through the messenger
// and false is returned: the program then ends with a non-zero status.
bool openDatabase(SharedDatabase& db, const QString& dataDir, Messenger& messenger);

} // namespace Startup
