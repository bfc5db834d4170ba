#pragma once

#include "CliCommand.h"

CliCommand sendCommand();
