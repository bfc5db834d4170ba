#include "link/PortResolver.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QTextStream>

PortChoice PortChoice::given(const QString& device)
{
    PortChoice c;
    c.device = device;
    return c;
}

QString PortChoice::origin() const
{
    switch (source) {
    case Source::Option:
        return QStringLiteral("given with --port");
    case Source::PortsIni:
        return QStringLiteral("from line %1 of %2").arg(iniLine).arg(QDir::toNativeSeparators(iniFile));
    case Source::CommPort:
        return QStringLiteral("Comm Port %1 of the settings").arg(commPort);
    case Source::None:
    case Source::Unknown:
        break;
    }
    return {};
}

QString PortChoice::remedy() const
{
    switch (source) {
    case Source::Option:
        return QStringLiteral("--port names the terminal's device");
    case Source::PortsIni:
        return QStringLiteral("line %1 of %2 names the terminal's device")
            .arg(iniLine)
            .arg(QDir::toNativeSeparators(iniFile));
    case Source::CommPort:
        return QStringLiteral("the Comm Port chosen in CONFIGURE is the terminal's (or map Comm Port %1 to the "
                              "terminal's device in ports.ini)")
            .arg(commPort);
    case Source::None:
    case Source::Unknown:
        break;
    }
    return QStringLiteral("the Comm Port chosen in CONFIGURE (or ports.ini, or --port) names the terminal's device");
}

QString PortChoice::describe() const
{
    if (device.isEmpty()) {
        if (problem.isEmpty())
            return QStringLiteral("none");
        return iniLine > 0 ? QStringLiteral("none (ports.ini line %1 cannot be read)").arg(iniLine)
                           : QStringLiteral("none (ports.ini cannot be read)");
    }
    switch (source) {
    case Source::Option:
        return QStringLiteral("%1 (given with --port)").arg(device);
    case Source::PortsIni:
        return QStringLiteral("%1 (ports.ini line %2)").arg(device).arg(iniLine);
    default:
        return device;
    }
}

namespace PortResolver {

namespace {

constexpr int highestPort = 10;

struct IniMapping
{
    QString file;
    QString device; // for the Comm Port asked about
    int line = 0;
    QString problem;
    int problemLine = 0;
};

QString lineProblem(const QString& file, int number, const QString& text, const QString& why)
{
    return QStringLiteral("Line %1 of %2 cannot be read: \"%3\" %4. Correct the line (for example "
                          "1=/dev/ttyUSB0) or remove it; until then the terminal's port is not opened.")
        .arg(number)
        .arg(QDir::toNativeSeparators(file), text, why);
}

// Every line is read, not only up to the Comm Port's own: a line that cannot
// be read may be the one meant for it.
IniMapping readIni(int port, const QString& dataDir)
{
    IniMapping m;
    if (dataDir.isEmpty())
        return m;
    QFile ini(QDir(dataDir).filePath(QStringLiteral("ports.ini")));
    if (!ini.exists())
        return m;
    m.file = ini.fileName();
    if (!ini.open(QIODevice::ReadOnly | QIODevice::Text)) {
        m.problem = QStringLiteral("%1 cannot be read (%2). Make it readable for the user who runs the program, or "
                                   "remove it; until then the terminal's port is not opened.")
                        .arg(QDir::toNativeSeparators(m.file), ini.errorString());
        return m;
    }
    QTextStream in(&ini);
    QHash<int, int> firstLine; // Comm Port number -> line that maps it
    for (int number = 1; !in.atEnd(); ++number) {
        const QString line = in.readLine().trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')) || line.startsWith(QLatin1Char(';')) ||
            line.startsWith(QLatin1Char('[')))
            continue;
        QString why;
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        bool ok = false;
        const int n = eq > 0 ? line.left(eq).trimmed().toInt(&ok) : 0;
        const QString device = eq > 0 ? line.mid(eq + 1).trimmed() : QString();
        if (eq < 0)
            why = QStringLiteral("has no \"=\" between a Comm Port number and a device");
        else if (!ok || n < 1 || n > highestPort)
            why = QStringLiteral("does not start with a Comm Port number from 1 to 10");
        else if (device.isEmpty())
            why = QStringLiteral("names no device after \"=\"");
        else if (firstLine.contains(n))
            why = QStringLiteral("maps Comm Port %1 again (line %2 maps it already)").arg(n).arg(firstLine.value(n));
        if (!why.isEmpty()) {
            if (m.problem.isEmpty()) {
                m.problem = lineProblem(m.file, number, line, why);
                m.problemLine = number;
            }
            continue;
        }
        firstLine.insert(n, number);
        if (n == port && m.device.isEmpty()) {
            m.device = device;
            m.line = number;
        }
    }
    return m;
}

} // namespace

PortChoice choose(const QString& commPort, const QString& dataDir, const QString& portOverride)
{
    PortChoice c;
    c.commPort = commPort.trimmed();
    if (!portOverride.isEmpty()) {
        c.device = portOverride;
        c.source = PortChoice::Source::Option;
        return c;
    }
    c.source = PortChoice::Source::None;
    bool ok = false;
    const int n = c.commPort.toInt(&ok);
    if (!ok || n < 1)
        return c;
    const IniMapping ini = readIni(n, dataDir);
    if (!ini.problem.isEmpty()) {
        c.iniFile = ini.file;
        c.iniLine = ini.problemLine;
        c.problem = ini.problem;
        return c;
    }
    if (!ini.device.isEmpty()) {
        c.device = ini.device;
        c.source = PortChoice::Source::PortsIni;
        c.iniFile = ini.file;
        c.iniLine = ini.line;
        return c;
    }
    c.source = PortChoice::Source::CommPort;
#ifdef Q_OS_WIN
    c.device = QStringLiteral("COM%1").arg(n);
#else
    c.device = QStringLiteral("/dev/ttyS%1").arg(n - 1);
#endif
    return c;
}

QString resolve(const QString& commPort, const QString& dataDir, const QString& portOverride)
{
    return choose(commPort, dataDir, portOverride).device;
}

} // namespace PortResolver
