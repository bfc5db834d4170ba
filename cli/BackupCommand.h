#pragma once

#include "cli/CliCommand.h"

// tonvy-cli backup [--output FILE|FOLDER]
CliCommand backupCommand();
// tonvy-cli restore FILE
CliCommand restoreCommand();
