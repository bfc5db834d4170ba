#include "cli/CliCommand.h"

#include "base/DayText.h"

#include <cstdio>

int cliUsageError(const QString& text)
{
    const QByteArray bytes = (text + QStringLiteral("\nTry 'tonvy-cli --help'.\n")).toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
    return CliExit::Usage;
}

QString readDayOption(const QCommandLineParser& parser, const QString& name, QDate* day, const QString& shapeError)
{
    if (!parser.isSet(name))
        return {};
    const QString text = parser.value(name);
    const DayText::Reading reading = DayText::readIso(text);
    if (!reading.shaped)
        return shapeError;
    if (!reading.date.isValid())
        return DayText::noSuchDayText(QStringLiteral("--") + name, text, reading);
    *day = reading.date;
    return {};
}
