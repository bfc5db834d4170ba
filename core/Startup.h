#pragma once

#include <QString>

class Messenger;
class SharedDatabase;

namespace Startup {

// The program's name and version for Qt. No display name is set: on X11 Qt
// appends it to every window's caption, and the captions must read exactly as
// each window sets them ("PasswordEntry", "Send Data", ...).
void nameApplication();

// Opens HandHeldData.db in the data folder (creating both when missing).
// On failure the reason, naming the file, is shown through the messenger
// and false is returned: the program then ends with a non-zero status. For a
// damaged file the message's detail says how to restore the newest checked
// copy (DatabaseCopy::restoreAdvice).
bool openDatabase(SharedDatabase& db, const QString& dataDir, Messenger& messenger);

} // namespace Startup
