#include "app/AppContext.h"
#include "app/DesktopScreens.h"
#include "app/MessageBoxMessenger.h"
#include "app/ScreenRegistry.h"
#include "app/Startup.h"
#include "app/StartupOptions.h"
#include "app/frmMain.h"
#include "base/Clock.h"
#include "desktop/ProgramIcon.h"
#include "store/SharedDatabase.h"
#include "store/StoreError.h"

#include <QApplication>
#include <QCommandLineParser>
#include <cstdio>
#include <cstring>

namespace {

// --help and --version only print, so they must work where there is no
// display: over ssh, and at build time, where the manual page is made from
// their output.
bool onlyPrints(int argc, char* argv[])
{
    for (int i = 1; i < argc; ++i) {
        for (const char* option : {"-h", "--help", "-?", "--help-all", "-v", "--version"}) {
            if (std::strcmp(argv[i], option) == 0)
                return true;
        }
    }
    return false;
}

void unexpectedFailure(const QString& what)
{
    const QString text = QStringLiteral("The program stopped on an unexpected failure (%1). Keep this message for "
                                        "support and start the program again.")
                             .arg(what);
    std::fprintf(stderr, "%s\n", qPrintable(text));
    MessageBoxMessenger().critical(text);
}

} // namespace

int main(int argc, char* argv[])
{
    if (onlyPrints(argc, argv))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    Startup::nameApplication();
    // Every window, the main menu first, carries the program's icon, and the
    // desktop matches the windows to the menu entry.
    QApplication::setWindowIcon(programIcon());
    QGuiApplication::setDesktopFileName(desktopEntryName());

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Tonvy Hand-Held Interface Software"));
    parser.addHelpOption();
    parser.addVersionOption();
    StartupOptions::addTo(parser);
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
