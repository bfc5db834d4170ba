#include "app/DesktopScreens.h"
#include "app/frmMain.h"
#include "base/Clock.h"
#include "core/AppContext.h"
#include "core/Startup.h"
#include "core/StartupOptions.h"
#include "desktop/ProgramIcon.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"
#include "widgets/MessageBoxMessenger.h"
#include "widgets/ScreenRegistry.h"

#include <QApplication>
#include <QCommandLineParser>
#include <cstdio>
#include <cstring>

namespace {

void unexpectedFailure(const QString& what)
{
    const QString text = QStringLiteral("The program stopped on an unexpected failure (%1). Keep this message for "
                                        "support and start the program again.")
                             .arg(what);
    std::fprintf(stderr, "%s\n", qPrintable(text));
    MessageBoxMessenger().critical(text);
}

void describeOptions(QCommandLineParser& parser)
{
    parser.setApplicationDescription(QStringLiteral("Tonvy Hand-Held Interface Software"));
    parser.addHelpOption();
    parser.addVersionOption();
    StartupOptions::addTo(parser);
}

// --help and --version only print: they are answered by a console
// application, so that they work where no display can be opened (an ssh
// session, a script).
bool answersWithoutWindows(int argc, char* argv[])
{
    QStringList words;
    for (int i = 0; i < argc; ++i)
        words << QString::fromLocal8Bit(argv[i]);
    QCommandLineParser parser;
    describeOptions(parser);
    // Qt's own options (-platform, -display, ...) are unknown here; the
    // desktop application takes them.
    if (!parser.parse(words))
        return false;
    return parser.isSet(QStringLiteral("help")) || parser.isSet(QStringLiteral("help-all")) ||
           parser.isSet(QStringLiteral("version"));
}

} // namespace

int main(int argc, char* argv[])
{
    if (answersWithoutWindows(argc, argv)) {
        QCoreApplication console(argc, argv);
        Startup::nameApplication();
        QCommandLineParser parser;
        describeOptions(parser);
        parser.process(console); // prints and exits
        return 0;
    }

    QApplication app(argc, argv);
    Startup::nameApplication();
    // Every window, the main menu first, carries the program's icon, and the
    // desktop matches the windows to the menu entry.
    QApplication::setWindowIcon(programIcon());
    QGuiApplication::setDesktopFileName(desktopEntryName());

    QCommandLineParser parser;
    describeOptions(parser);
    parser.process(app);
    const StartupOptions options = StartupOptions::from(parser);

    // Nothing that fails ends the program without a word: the screens catch
    // their own store errors; whatever still escapes is said here.
    try {
        MessageBoxMessenger messenger;
        SharedDatabase db;
        {
            // A failed start is also written to standard error, for whoever
            // started the program from a terminal or a script.
            class StartupMessenger : public MessageBoxMessenger
            {
            public:
                void show(const QString& text, Icon icon, const QString& title = {},
                          const QString& detail = {}) override
                {
                    std::fprintf(stderr, "%s\n", qPrintable(text));
                    if (!detail.isEmpty())
                        std::fprintf(stderr, "%s\n", qPrintable(detail));
                    MessageBoxMessenger::show(text, icon, title, detail);
                }
            } startupMessenger;
            if (!Startup::openDatabase(db, options.dataDir, startupMessenger))
                return 1;
        }
        QString error;

        Clock clock;
        AppContext ctx(db, messenger, clock);
        ctx.dataDir = options.dataDir;
        ctx.portOverride = options.port;
        if (!options.trace.isEmpty() && !ctx.startTrace(options.trace, &error)) {
            messenger.critical(error);
            return 1;
        }

        ScreenRegistry screens;
        registerDesktopScreens(screens);

        frmMain menu(ctx, screens);
        QObject::connect(&menu, &frmMain::programEnded, &app, &QCoreApplication::quit, Qt::QueuedConnection);
        QApplication::setQuitOnLastWindowClosed(false);
        menu.show();
        startDesktop(menu, ctx);
        return app.exec();
    } catch (const StoreError& e) {
        std::fprintf(stderr, "%s\n", qPrintable(e.message()));
        MessageBoxMessenger().critical(e.message());
    } catch (const std::exception& e) {
        unexpectedFailure(QString::fromLocal8Bit(e.what()));
    } catch (...) {
        unexpectedFailure(QStringLiteral("unknown cause"));
    }
    return 1;
}
