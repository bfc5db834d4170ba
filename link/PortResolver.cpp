#include "link/PortResolver.h"

#include <QDir>
#include <QFile>
#include <QTextStream>

namespace PortResolver {

namespace {

QString fromIniFile(const QString& number, const QString& dataDir)
{
    QFile ini(QDir(dataDir).filePath(QStringLiteral("ports.ini")));
    if (dataDir.isEmpty() || !ini.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return fromIni(ini, number);
}

} // namespace

QString fromIni(QIODevice& ini, const QString& number)
{
    QTextStream in(&ini);
    while (!in.atEnd()) {
        const QString line = in.readLine().trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')) || line.startsWith(QLatin1Char(';')) ||
            line.startsWith(QLatin1Char('[')))
            continue;
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (eq <= 0)
            continue;
        if (line.left(eq).trimmed() == number)
            return line.mid(eq + 1).trimmed();
    }
    return {};
}

QString resolve(const QString& commPort, const QString& dataDir, const QString& portOverride)
{
    if (!portOverride.isEmpty())
        return portOverride;
    const QString number = commPort.trimmed();
    const QString mapped = fromIniFile(number, dataDir);
    if (!mapped.isEmpty())
        return mapped;
    bool ok = false;
    const int n = number.toInt(&ok);
    if (!ok || n < 1)
        return {};
#ifdef Q_OS_WIN
    return QStringLiteral("COM%1").arg(n);
#else
    return QStringLiteral("/dev/ttyS%1").arg(n - 1);
#endif
}

} // namespace PortResolver
