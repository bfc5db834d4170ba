// ports.ini from any bytes: which device a Comm Port number means, and that a
// line the program cannot read keeps the port shut instead of falling back.
#include "fuzz/FuzzSupport.h"
#include "link/PortResolver.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

TONVY_FUZZ_START()

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The resolver reads ports.ini from the data folder: one private folder
    // for the whole run, the file written anew for each input.
    static QTemporaryDir folder;
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    {
        QFile ini(QDir(folder.path()).filePath(QStringLiteral("ports.ini")));
        if (!ini.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        ini.write(bytes);
    }
    for (const int n : {1, 2, 10}) {
        const QString number = QString::number(n);
        const PortChoice c = PortResolver::choose(number, folder.path(), QString());
        if (!c.problem.isEmpty()) {
            // Never another device in place of the one the line meant.
            FUZZ_CHECK(c.device.isEmpty());
            FUZZ_CHECK(c.source == PortChoice::Source::None);
            FUZZ_CHECK(c.iniLine > 0);
            continue;
        }
        if (c.source == PortChoice::Source::PortsIni) {
            FUZZ_CHECK(!c.device.isEmpty());
            FUZZ_CHECK(c.device == c.device.trimmed());
            FUZZ_CHECK(!c.device.contains(QLatin1Char('\n')));
            FUZZ_CHECK(c.iniLine > 0);
            FUZZ_CHECK(bytes.contains('='));
            continue;
        }
        FUZZ_CHECK(c.source == PortChoice::Source::CommPort);
        FUZZ_CHECK_SAYS(c.device == QStringLiteral("/dev/ttyS%1").arg(n - 1), c.device);
        FUZZ_CHECK(!c.describe().isEmpty());
    }
    // A device given on the command line wins over everything.
    const PortChoice given = PortResolver::choose(QStringLiteral("1"), folder.path(), QStringLiteral("/dev/pts/3"));
    FUZZ_CHECK(given.device == QStringLiteral("/dev/pts/3"));
    FUZZ_CHECK(given.source == PortChoice::Source::Option);
    return 0;
}
