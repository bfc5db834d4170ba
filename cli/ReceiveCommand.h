#pragma once

#include "CliCommand.h"

CliCommand receiveCommand();
