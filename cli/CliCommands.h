#pragma once

#include "cli/CliCommand.h"

#include <QList>

// Every command, in the order --help lists them.
QList<CliCommand> allCliCommands();
