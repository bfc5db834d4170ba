#pragma once

#include <QString>

// The program version, from the build's project version: shown by --version
// of all three programs and written with each audit event.
QString programVersion();
