#pragma once

#include "cli/CliCommand.h"

CliCommand sendCommand();
