#include "base/Clock.h"
#include "base/Version.h"
#include "cli/CliCommands.h"
#include "cli/ConsoleMessenger.h"
#include "core/AppContext.h"
#include "core/Startup.h"
#include "core/StartupOptions.h"
#include "link/LinkCodec.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "upload/StartupOutputs.h"

#include <QCoreApplication>
#include <QDir>
#include <QGuiApplication>
#include <csignal>
#include <cstdio>
#include <memory>

#if defined(Q_OS_UNIX)
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

QString helpText(const QList<CliCommand>& commands)
{
    QString text = QStringLiteral(
        "Usage: tonvy-cli [--data-dir DIR] [--port DEVICE] [--trace FILE] COMMAND [options]\n\n"
        "Tonvy Hand-Held Interface Software without windows, on the same database.\n\n"
        "Global options:\n"
        "  --data-dir DIR   folder of HandHeldData.db and the program's data (default: ~/.local/share/tonvy;\n"
        "                   the program's own folder when run from its build folder)\n"
        "  --port DEVICE    serial device of the terminal, instead of the configured Comm Port\n"
        "  --trace FILE     write a timestamped hex trace of the serial link to FILE\n"
        "  -h, --help       this text\n"
        "  -v, --version    the program's version\n\n"
        "Commands:\n");
    for (const CliCommand& c : commands)
        text += QStringLiteral("  ") + QString(c.synopsis).replace(QLatin1Char('\n'), QStringLiteral("\n  ")) +
                QLatin1Char('\n');
    text += QStringLiteral("\nExit status: 0 success, 1 the operation ended in a refusal or failure, 2 usage error, "
                           "3 --give-up-after ran out, 130 stopped by Ctrl+C, 143 stopped by SIGTERM.\n");
    return text;
}

// The command word: the first argument that is neither an option nor the
// value of a global option.
int commandIndex(const QStringList& args)
{
    static const QStringList withValue = {QStringLiteral("--data-dir"), QStringLiteral("--port"),
                                          QStringLiteral("--trace")};
    for (int i = 1; i < args.size(); ++i) {
        const QString& a = args.at(i);
        if (a.startsWith(QLatin1Char('-'))) {
            if (withValue.contains(a))
                ++i;
            continue;
        }
        return i;
    }
    return -1;
}

#if defined(Q_OS_UNIX) && !defined(Q_OS_DARWIN)
// The folder as Qt accepts it: a folder of this user that nobody else may
// enter (mode 0700).
bool usableRuntimeFolder(const QByteArray& path)
{
    struct stat st;
    return !path.isEmpty() && ::stat(path.constData(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::geteuid() &&
           (st.st_mode & 07777) == 0700;
}

// A GUI application looks into the user's runtime folder as it starts (to
// tell whether it runs in a sandbox), and Qt warns on standard error when
// XDG_RUNTIME_DIR is unset (cron, a service, ssh without a login session) or
// is another user's (sudo). The report command needs no session and no
// display: when the folder is missing or not usable, it gets the login
// session's own folder or a private one of its own, for this process only.
void settleRuntimeFolder()
{
    if (usableRuntimeFolder(qgetenv("XDG_RUNTIME_DIR")))
        return;
    const QByteArray uid = QByteArray::number(::geteuid());
    const QByteArray session = "/run/user/" + uid;
    const QByteArray own = QDir::tempPath().toLocal8Bit() + "/tonvy-runtime-" + uid;
    if (!usableRuntimeFolder(session) && !usableRuntimeFolder(own))
        ::mkdir(own.constData(), 0700);
    for (const QByteArray& folder : {session, own}) {
        if (usableRuntimeFolder(folder)) {
            qputenv("XDG_RUNTIME_DIR", folder);
            return;
        }
    }
    // Neither: Qt says what is wrong with the folder it is left with.
}
#else
void settleRuntimeFolder() {}
#endif

// Laying a report out for PDF needs fonts and so a GUI application; the
// offscreen platform keeps it free of any display. Every other command stays
// a console application.
std::unique_ptr<QCoreApplication> makeApplication(int& argc, char* argv[])
{
    QStringList words;
    for (int i = 0; i < argc; ++i)
        words << QString::fromLocal8Bit(argv[i]);
    const int at = commandIndex(words);
    if (at > 0 && words.at(at) == QLatin1String("report")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        settleRuntimeFolder();
        return std::make_unique<QGuiApplication>(argc, argv);
    }
    return std::make_unique<QCoreApplication>(argc, argv);
}

QString unexpectedFailure(const QString& what)
{
    return QStringLiteral("The command stopped on an unexpected failure (%1). Nothing more was done; keep this "
                          "message for support and try again.")
        .arg(what);
}

} // namespace

int main(int argc, char* argv[])
{
#ifdef Q_OS_UNIX
    // A reader that goes away (tonvy-cli ... | head) must not kill the
    // command half-way through by SIGPIPE: writes just fail.
    std::signal(SIGPIPE, SIG_IGN);
#endif
    const std::unique_ptr<QCoreApplication> app = makeApplication(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tonvy-cli"));
    QCoreApplication::setApplicationVersion(programVersion());

    const QList<CliCommand> commands = allCliCommands();
    const QStringList args = QCoreApplication::arguments();
    const int at = commandIndex(args);

    // The version is a global option: it counts only before the command word.
    const QStringList globals = at < 0 ? args : args.mid(0, at);
    if (globals.contains(QStringLiteral("--version")) || globals.contains(QStringLiteral("-v"))) {
        const QByteArray text = (QStringLiteral("tonvy-cli ") + programVersion() + QLatin1Char('\n')).toLocal8Bit();
        std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
        return CliExit::Success;
    }

    if (args.contains(QStringLiteral("--help")) || args.contains(QStringLiteral("-h")) || at < 0) {
        const QByteArray text = helpText(commands).toLocal8Bit();
        const bool asked = args.contains(QStringLiteral("--help")) || args.contains(QStringLiteral("-h"));
        std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), asked ? stdout : stderr);
        return asked ? CliExit::Success : CliExit::Usage;
    }

    const QString word = args.at(at);
    const CliCommand* command = nullptr;
    for (const CliCommand& c : commands) {
        if (c.name == word)
            command = &c;
    }
    if (!command)
        return cliUsageError(QStringLiteral("Unknown command '%1'.").arg(word));

    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    StartupOptions::addTo(parser);
    parser.addOptions(command->options);
    if (!parser.parse(args))
        return cliUsageError(parser.errorText());
    const StartupOptions options = StartupOptions::from(parser);
    QStringList positional = parser.positionalArguments();
    positional.removeFirst(); // the command word

    ConsoleMessenger messenger;
    // Whatever fails from here on, the clerk reads why and the exit status
    // says so: no store error, no unexpected exception ends the program
    // without a word or by a signal.
    try {
        SharedDatabase db;
        if (command->opensDatabase && !Startup::openDatabase(db, options.dataDir, messenger))
            return CliExit::Failure;
        QString error;
        Clock clock;
        AppContext ctx(db, messenger, clock);
        ctx.dataDir = options.dataDir;
        ctx.portOverride = options.port;
        if (!options.trace.isEmpty() && !ctx.startTrace(options.trace, &error)) {
            messenger.critical(error);
            return CliExit::Failure;
        }
        CliRun run{ctx, messenger, parser, positional};
        if (!command->opensDatabase)
            return command->run(run);
        ctx.settings.load(db);
        if (!Startup::completePendingOutputs(ctx, messenger)) {
            // 'settings' still runs, so that a clerk without the desktop
            // program can point the bank folder somewhere that exists; the
            // owed files are tried again with the new setting.
            if (command->name != QLatin1String("settings"))
                return CliExit::Failure;
            const int status = command->run(run);
            if (status != CliExit::Success || !Startup::completePendingOutputs(ctx, messenger))
                return CliExit::Failure;
            return status;
        }
        return command->run(run);
    } catch (const StoreError& e) {
        messenger.critical(e.message());
    } catch (const LinkError& e) {
        messenger.critical(e.message());
    } catch (const std::exception& e) {
        messenger.critical(unexpectedFailure(QString::fromLocal8Bit(e.what())));
    } catch (...) {
        messenger.critical(unexpectedFailure(QStringLiteral("unknown cause")));
    }
    return CliExit::Failure;
}
