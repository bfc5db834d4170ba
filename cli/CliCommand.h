#pragma once

#include <QCommandLineParser>
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
constexpr int GaveUp = 3;  // --give-up-after ran out
} // namespace CliExit

struct CliRun
{
    AppContext& ctx;
    ConsoleMessenger& messenger;
    const QCommandLineParser& parser;
    QStringList arguments; // positional arguments after the command word
};

// One command word of tonvy-cli ("settings", "send", ...).
struct CliCommand
{
    QString name;
    QString synopsis; // shown by --help
    std::function<void(QCommandLineParser&)> addOptions;
    std::function<int(CliRun&)> run;
    // Whether the database is opened (and owed files written) before run;
    // when not, ctx.db() is left closed.
    bool opensDatabase = true;
};

// Every command, in the order --help lists them.
QList<CliCommand> allCliCommands();

// Prints a usage error to standard error and returns CliExit::Usage.
int cliUsageError(const QString& text);
