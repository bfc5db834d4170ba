#pragma once

#include "CliCommand.h"

CliCommand settingsCommand();
