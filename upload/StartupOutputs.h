#pragma once

class AppContext;
class Messenger;

namespace Startup {

// Writes the files a receive still owes (the program stopped between storing
// a receive and writing its files: a power cut, a kill), from the stored
// rows. Called by both programs once the database is open and the settings
// are read. True when nothing is owed any more; otherwise the messenger is
// told which agent's and which day's files are not written and what to do,
// and false is returned (the command line then ends with status 1; the
// desktop program carries on).
bool completePendingOutputs(AppContext& ctx, Messenger& messenger);

} // namespace Startup
