#pragma once

#include <QString>

// Which device a configured Comm Port number means. A "ports.ini" in the data
// folder may map numbers to devices ("1=/dev/ttyUSB0"); otherwise COM n is
// /dev/ttyS(n-1) on Linux and COMn on Windows. A device given on the command
// line (--port) wins over both.
namespace PortResolver {

QString resolve(const QString& commPort, const QString& dataDir, const QString& portOverride);

} // namespace PortResolver
