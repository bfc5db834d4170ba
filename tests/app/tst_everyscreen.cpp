#include "app/DesktopScreens.h"
#include "app/frmMain.h"
#include "app/frmPassEntry.h"
#include "core/Startup.h"
#include "tests/support/FakeChannel.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"
#include "widgets/ScreenRegistry.h"

#include <QApplication>
#include <QMessageBox>
#include <QSignalSpy>
#include <QWindow>
#include <QtTest>
#include <functional>
#include <memory>

namespace {

// Every window of the desktop program, made the way the program makes it:
// the main menu and the login prompt directly, the work screens through the
// registry the main menu uses.
struct Window
{
    const char* name;
    QString caption;
    std::function<QWidget*(TestContext&, const ScreenRegistry&)> make;
};

QWidget* fromRegistry(Screen screen, TestContext& t, const ScreenRegistry& registry)
{
    return registry.create(screen, *t.ctx);
}

const QList<Window>& allWindows()
{
    static const QList<Window> windows = {
        {"main menu", QStringLiteral("Tonvy Hand-Held Interface Software"),
         [](TestContext& t, const ScreenRegistry& r) -> QWidget* { return new frmMain(*t.ctx, r); }},
        {"login", QStringLiteral("PasswordEntry"),
         [](TestContext& t, const ScreenRegistry&) -> QWidget* { return new frmPassEntry(*t.ctx); }},
        {"send", QStringLiteral("Send Data"),
         [](TestContext& t, const ScreenRegistry& r) { return fromRegistry(Screen::Send, t, r); }},
        {"receive", QStringLiteral("Receive Data"),
         [](TestContext& t, const ScreenRegistry& r) { return fromRegistry(Screen::Receive, t, r); }},
        {"password", QStringLiteral("Password"),
         [](TestContext& t, const ScreenRegistry& r) { return fromRegistry(Screen::Password, t, r); }},
        {"configure", QStringLiteral("Configuration"),
         [](TestContext& t, const ScreenRegistry& r) { return fromRegistry(Screen::Configure, t, r); }},
        {"drive selection", QStringLiteral("Drive Selection"),
         [](TestContext& t, const ScreenRegistry& r) { return fromRegistry(Screen::Drive, t, r); }},
        {"report", QStringLiteral("Report"),
         [](TestContext& t, const ScreenRegistry& r) { return fromRegistry(Screen::Report, t, r); }},
    };
    return windows;
}

const Window& windowNamed(const QString& name)
{
    for (const Window& w : allWindows()) {
        if (name == QLatin1String(w.name))
            return w;
    }
    qFatal("no window %s", qPrintable(name));
}

ScreenRegistry desktopRegistry()
{
    ScreenRegistry r;
    registerDesktopScreens(r);
    return r;
}

QList<ColourButton*> pressableButtons(QWidget* w)
{
    QList<ColourButton*> buttons;
    for (ColourButton* b : w->findChildren<ColourButton*>()) {
        if (b->isVisible() && b->isEnabled() && b->focusPolicy() != Qt::NoFocus)
            buttons << b;
    }
    return buttons;
}

// Buttons whose Enter a screen handles itself, calling the action directly.
bool handledByTheScreen(const QString& window, const QString& button)
{
    return window == QLatin1String("receive") && button == QLatin1String("cmdSend");
}

void showAndActivate(QWidget* w)
{
    w->show();
    w->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(w));
}

} // namespace

class tst_EveryScreen : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void captions_data();
    void captions();
    void noDisplayNameIsAppended();
    void enterPressesTheFocusedButton_data();
    void enterPressesTheFocusedButton();
    void enterOnADisabledButtonDoesNothing();
    void heldEnterPressesOnce();
    void spaceStillPresses();
};

void tst_EveryScreen::initTestCase()
{
    Startup::nameApplication();
}

void tst_EveryScreen::captions_data()
{
    QTest::addColumn<QString>("window");
    for (const Window& w : allWindows())
        QTest::newRow(w.name) << QString::fromLatin1(w.name);
}

void tst_EveryScreen::captions()
{
    QFETCH(QString, window);
    const Window& shown = windowNamed(window);
    TestContext t;
    const ScreenRegistry registry = desktopRegistry();
    std::unique_ptr<QWidget> w(shown.make(t, registry));
    QVERIFY(w);
    showAndActivate(w.get());
    QCOMPARE(w->windowTitle(), shown.caption);
    QVERIFY(w->windowHandle());
    QCOMPARE(w->windowHandle()->title(), shown.caption);
}

void tst_EveryScreen::noDisplayNameIsAppended()
{
    // On X11 Qt adds " — <display name>" to every caption once a display
    // name is set. Unset, the display name follows the application name.
    QCOMPARE(QCoreApplication::applicationName(), QStringLiteral("tonvy"));
    QCoreApplication::setApplicationName(QStringLiteral("probe"));
    QCOMPARE(QGuiApplication::applicationDisplayName(), QStringLiteral("probe"));
    Startup::nameApplication();
    QCOMPARE(QGuiApplication::applicationDisplayName(), QStringLiteral("tonvy"));
}

void tst_EveryScreen::enterPressesTheFocusedButton_data()
{
    QTest::addColumn<QString>("window");
    QTest::addColumn<QString>("button");
    QTest::addColumn<int>("key");
    TestContext t;
    const ScreenRegistry registry = desktopRegistry();
    for (const Window& shown : allWindows()) {
        std::unique_ptr<QWidget> w(shown.make(t, registry));
        w->show();
        const QList<ColourButton*> buttons = pressableButtons(w.get());
        if (buttons.isEmpty())
            qFatal("%s has no button to press", shown.name);
        for (ColourButton* b : buttons) {
            for (const auto& [keyName, key] :
                 {std::pair{"Return", Qt::Key_Return}, std::pair{"Enter", Qt::Key_Enter}}) {
                QTest::addRow("%s %s %s", shown.name, qPrintable(b->objectName()), keyName)
                    << QString::fromLatin1(shown.name) << b->objectName() << int(key);
            }
        }
    }
}

void tst_EveryScreen::enterPressesTheFocusedButton()
{
    QFETCH(QString, window);
    QFETCH(QString, button);
    QFETCH(int, key);
    TestContext t;
    // A line that opens: the receive screen's port failure would come up in
    // a box, and a screen under its box leaves the keys to the box.
    t.ctx->setChannelFactory([] { return std::unique_ptr<LinkChannel>(std::make_unique<FakeChannel>()); });
    const ScreenRegistry registry = desktopRegistry();
    std::unique_ptr<QWidget> w(windowNamed(window).make(t, registry));
    showAndActivate(w.get());
    auto* b = w->findChild<ColourButton*>(button);
    QVERIFY(b);
    // What the button does is each screen's own test; here only that Enter
    // presses it exactly once.
    QObject::disconnect(b, &QAbstractButton::clicked, nullptr, nullptr);
    QSignalSpy clicked(b, &QAbstractButton::clicked);
    b->setFocus(Qt::TabFocusReason);
    QTRY_COMPARE(QApplication::focusWidget(), b);

    const Qt::KeyboardModifiers modifiers = key == Qt::Key_Enter ? Qt::KeypadModifier : Qt::NoModifier;
    QTest::keyClick(QApplication::focusWidget(), Qt::Key(key), modifiers);

    if (handledByTheScreen(window, button)) {
        // The screen runs the button's action on Enter itself, without a
        // click; its own test checks the action runs once. Never twice here.
        QVERIFY(clicked.count() <= 1);
    } else {
        QCOMPARE(clicked.count(), 1);
    }
    for (QWidget* top : QApplication::topLevelWidgets()) {
        if (qobject_cast<QMessageBox*>(top))
            top->close();
    }
}

void tst_EveryScreen::enterOnADisabledButtonDoesNothing()
{
    TestContext t;
    frmPassEntry w(*t.ctx);
    showAndActivate(&w);
    auto* ok = w.findChild<ColourButton*>("cmdOK");
    QSignalSpy clicked(ok, &QAbstractButton::clicked);
    ok->setEnabled(false);
    QTest::keyClick(ok, Qt::Key_Return);
    QCOMPARE(clicked.count(), 0);
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_EveryScreen::heldEnterPressesOnce()
{
    TestContext t;
    frmPassEntry w(*t.ctx);
    showAndActivate(&w);
    auto* cancel = w.findChild<ColourButton*>("cmdCancel");
    QObject::disconnect(cancel, &QAbstractButton::clicked, nullptr, nullptr);
    QSignalSpy clicked(cancel, &QAbstractButton::clicked);
    QTest::keyPress(cancel, Qt::Key_Return);
    QKeyEvent repeat(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, QStringLiteral("\r"), true);
    QApplication::sendEvent(cancel, &repeat);
    QApplication::sendEvent(cancel, &repeat);
    QTest::keyRelease(cancel, Qt::Key_Return);
    QCOMPARE(clicked.count(), 1);
}

void tst_EveryScreen::spaceStillPresses()
{
    TestContext t;
    frmPassEntry w(*t.ctx);
    showAndActivate(&w);
    auto* cancel = w.findChild<ColourButton*>("cmdCancel");
    cancel->setFocus();
    QTRY_COMPARE(QApplication::focusWidget(), cancel);
    QTest::keyClick(cancel, Qt::Key_Space);
    QTRY_VERIFY(!w.isVisible());
}

QTEST_MAIN(tst_EveryScreen)
#include "tst_everyscreen.moc"
