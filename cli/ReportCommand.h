#pragma once

#include "cli/CliCommand.h"

// tonvy-cli report daily|agent: writes one of the two collection summaries as
// PDF or CSV.
CliCommand reportCommand();
