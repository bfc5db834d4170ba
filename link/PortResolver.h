#pragma once

#include <QString>

class QIODevice;

// Which device a configured Comm Port number means. A "ports.ini" in the data
// folder may map numbers to devices ("1=/dev/ttyUSB0"); otherwise COM n is
// /dev/ttyS(n-1) on Linux and COMn on Windows. A device given on the command
// line (--port) wins over both.
namespace PortResolver {

QString resolve(const QString& commPort, const QString& dataDir, const QString& portOverride);

// The device an open ports.ini maps the number to: the value of the first
// "number=device" line, key and value trimmed. Blank lines, comments (# or
// ;) and section lines ([...]) are skipped. Empty when no line maps it.
QString fromIni(QIODevice& ini, const QString& number);

} // namespace PortResolver
