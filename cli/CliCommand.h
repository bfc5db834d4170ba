#pragma once

#include <QCommandLineParser>
#include <QDate>
#include <QList>
#include <QString>
#include <QStringList>
#include <functional>

class AppContext;
class ConsoleMessenger;

// Exit status of tonvy-cli.
namespace CliExit {
constexpr int Success = 0;
constexpr int Failure = 1; // the operation ended in a refusal or failure message
constexpr int Usage = 2;
constexpr int GaveUp = 3; // --give-up-after ran out
} // namespace CliExit

struct CliRun
{
    AppContext& ctx;
    ConsoleMessenger& messenger;
    const QCommandLineParser& parser;
    QStringList arguments; // positional arguments after the command word
};

// One command word of tonvy-cli ("settings", "send", ...). A command knows
// only this shape; the list of every command is cli/CliCommands.h, which
// includes the commands (never the other way round).
struct CliCommand
{
    QString name;
    QString synopsis;                  // shown by --help
    QList<QCommandLineOption> options; // its own, after the global ones
    std::function<int(CliRun&)> run;
    // Whether the database is opened (and owed files written) before run;
    // when not, ctx.db() is left closed.
    bool opensDatabase = true;
};

// Prints a usage error to standard error and returns CliExit::Usage.
int cliUsageError(const QString& text);

// Reads the YYYY-MM-DD option `name` into *day; a day left out leaves *day
// as it is. Empty when fine; otherwise the usage error: `shapeError` for a
// value in another shape, or which day is not in the calendar and why.
QString readDayOption(const QCommandLineParser& parser, const QString& name, QDate* day, const QString& shapeError);

// What to do after an output file (--output) could not be written, given
// the reason ("Cannot write ...: ..."): the line under the message.
QString cliOutputAdvice(const QString& error);
