#pragma once

#include "CliCommand.h"

CliCommand passwordCommand();
