#pragma once

#include "cli/CliCommand.h"

// tonvy-cli audit [--from YYYY-MM-DD] [--to YYYY-MM-DD] --output FILE.csv
CliCommand auditCommand();
