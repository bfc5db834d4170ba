#pragma once

#include "cli/CliCommand.h"

CliCommand receiveCommand();
