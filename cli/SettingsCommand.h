#pragma once

#include "cli/CliCommand.h"

CliCommand settingsCommand();
