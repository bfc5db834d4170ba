#include "core/StartupOptions.h"

#include "core/DataFolder.h"

#include <QCoreApplication>
#include <QDir>

void StartupOptions::addTo(QCommandLineParser& parser)
{
    parser.addOption({QStringLiteral("data-dir"),
                      QStringLiteral("Folder of the database and the program's data (default: ~/.local/share/tonvy; "
                                     "the program's own folder when run from its build folder)."),
                      QStringLiteral("DIR")});
    parser.addOption({QStringLiteral("port"),
                      QStringLiteral("Serial device of the terminal, used instead of the configured Comm Port."),
                      QStringLiteral("DEVICE")});
    parser.addOption({QStringLiteral("trace"),
                      QStringLiteral("Write a timestamped hex trace of everything sent and received to FILE."),
                      QStringLiteral("FILE")});
}

StartupOptions StartupOptions::from(const QCommandLineParser& parser)
{
    StartupOptions o;
    o.dataDir = parser.isSet(QStringLiteral("data-dir"))
                    ? QDir(parser.value(QStringLiteral("data-dir"))).absolutePath()
                    : DataFolder::defaultFor(QCoreApplication::applicationDirPath());
    o.port = parser.value(QStringLiteral("port"));
    o.trace = parser.value(QStringLiteral("trace"));
    return o;
}
