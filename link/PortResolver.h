#pragma once

#include <QString>

// The terminal's device and where it came from, so that a message about the
// port can say what to correct: --port, a line of ports.ini, or the Comm Port
// of the settings.
struct PortChoice
{
    enum class Source {
        Unknown,  // a device set directly (tests, benchmarks)
        Option,   // --port on the command line
        PortsIni, // a line of ports.ini mapped the Comm Port
        CommPort, // the Comm Port number's own device (/dev/ttyS(n-1), COMn)
        None,     // no device: no Comm Port, or a ports.ini line that cannot be read
    };

    QString device;
    Source source = Source::Unknown;
    QString commPort; // the Comm Port of the settings, trimmed
    QString iniFile;  // ports.ini, when it mapped the port or cannot be read
    int iniLine = 0;  // the line that mapped the port, or the first that cannot be read
    // Why no device may be opened although one is configured (a ports.ini
    // line that cannot be read); empty when there is nothing wrong.
    QString problem;

    static PortChoice given(const QString& device);

    // Where the device came from, to stand in brackets after it: "given with
    // --port", "from line 2 of /srv/tonvy/ports.ini", "Comm Port 1 of the
    // settings"; empty for Source::Unknown.
    QString origin() const;
    // What to check when the device is the wrong one, to follow "Check that ".
    QString remedy() const;
    // The device as the settings show it: "/dev/ttyS0", "/dev/ttyUSB0
    // (ports.ini line 2)", "/dev/pts/3 (given with --port)", "none", "none
    // (ports.ini line 4 cannot be read)".
    QString describe() const;
};

// Which device a configured Comm Port number means. A "ports.ini" in the data
// folder may map numbers to devices ("1=/dev/ttyUSB0"); otherwise COM n is
// /dev/ttyS(n-1) on Linux and COMn on Windows. A device given on the command
// line (--port) wins over both, and ports.ini is then not read.
//
// A ports.ini with a line that cannot be read (no "=", no Comm Port number
// from 1 to 10 before it, no device after it, a number mapped twice) gives no
// device at all, with the problem naming the file and the line: falling back
// to another device would talk to the wrong port without a word.
namespace PortResolver {

PortChoice choose(const QString& commPort, const QString& dataDir, const QString& portOverride);
// choose()'s device.
QString resolve(const QString& commPort, const QString& dataDir, const QString& portOverride);

} // namespace PortResolver
