#include "app/frmMain.h"
#include "app/frmPassEntry.h"
#include "base/Version.h"
#include "store/SettingsStore.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"
#include "widgets/ScreenRegistry.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QSignalSpy>
#include <QtTest>

namespace {

// A stand-in work screen that only says which one it is.
QWidget* fakeScreen(const QString& name)
{
    auto* w = new QWidget;
    w->setObjectName(name);
    w->setWindowTitle(name);
    return w;
}

ScreenRegistry allFakeScreens()
{
    ScreenRegistry r;
    r.add(Screen::Receive, [](AppContext&) { return fakeScreen("frmReceive"); });
    r.add(Screen::Send, [](AppContext&) { return fakeScreen("frmsend"); });
    r.add(Screen::Password, [](AppContext&) { return fakeScreen("frmPassword"); });
    r.add(Screen::Configure, [](AppContext&) { return fakeScreen("frmConfigure"); });
    r.add(Screen::Drive, [](AppContext&) { return fakeScreen("frmDrive"); });
    r.add(Screen::Report, [](AppContext&) { return fakeScreen("frmReport"); });
    return r;
}

QWidget* visibleTopLevel(const QString& name)
{
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (w->objectName() == name && w->isVisible())
            return w;
    }
    return nullptr;
}

int countTopLevel(const QString& name)
{
    int n = 0;
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (w->objectName() == name)
            ++n;
    }
    return n;
}

} // namespace

class tst_frmMain : public QObject
{
    Q_OBJECT

private slots:
    void captionsAndNames();
    void missingSettingsRowWarnsAndMenuStillWorks();
    void settingsRowIsCopied();
    void buttonsWithoutScreensAreDisabled();
    void modelessButtonTwiceShowsSameInstance();
    void loginPromptTargetDependsOnLastButton_data();
    void loginPromptTargetDependsOnLastButton();
    void configureAndDriveShareOnePrompt();
    void reportScreenIsModal();
    void otherScreensLeaveMenuUsable();
    void hoverColours();
    void acceleratorOpensScreen();
    void exitEndsProgram();
};

void tst_frmMain::captionsAndNames()
{
    TestContext t;
    ScreenRegistry screens = allFakeScreens();
    frmMain menu(*t.ctx, screens);
    QCOMPARE(menu.objectName(), QStringLiteral("frmMain"));
    QCOMPARE(menu.windowTitle(), QStringLiteral("Tonvy Hand-Held Interface Software"));
    QCOMPARE(menu.findChild<QLabel*>("Label1")->text(), QStringLiteral("Tonvy Hand-Held Interface Software"));
    QCOMPARE(menu.findChild<QLabel*>("Label2")->text(), QStringLiteral("Version %1 Meskavorin").arg(programVersion()));
    QCOMPARE(menu.findChild<QLabel*>("lblDataFolder")->text(), "Data folder: " + t.dir.path());
    QVERIFY(menu.findChild<QWidget*>("Frame1"));
    const QList<QPair<QString, QString>> buttons = {
        {"cmdReceive", "&RECEIVE DATA"}, {"cmdConfigure", "&CONFIGURE"}, {"cmdDrive", "&DRIVE SELECTION"},
        {"cmdPassword", "P&ASSWORD"},    {"cmdExit", "&EXIT"},           {"cmdSend", "&SEND DATA"},
        {"cmdReport", "RE&PORT"},
    };
    for (const auto& [name, caption] : buttons) {
        auto* b = menu.findChild<ColourButton*>(name);
        QVERIFY2(b, qPrintable(name));
        QCOMPARE(b->text(), caption);
        QVERIFY(b->isEnabled());
    }
}

void tst_frmMain::missingSettingsRowWarnsAndMenuStillWorks()
{
    TestContext t;
    ScreenRegistry screens = allFakeScreens();
    frmMain menu(*t.ctx, screens);
    menu.show();
    menu.Form_Load();
    QCOMPARE(t.messenger.texts(), QStringList{"Please Select CommPort and BankName"});
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(t.ctx->settings.BankName.isEmpty());
    QVERIFY(t.ctx->settings.CommPort.isEmpty());

    QTest::mouseClick(menu.findChild<ColourButton*>("cmdSend"), Qt::LeftButton);
    QVERIFY(visibleTopLevel("frmsend"));
}

void tst_frmMain::settingsRowIsCopied()
{
    TestContext t;
    SettingsChange c;
    c.bankName = "Coastal Bank";
    c.branchName = "Harbour Road";
    c.commPort = "2";
    c.fontSize = "1";
    c.bankInfoPath = "/srv/bank";
    c.reportPath = "/srv/reports";
    SettingsStore::save(t.db, c);
    ScreenRegistry screens = allFakeScreens();
    frmMain menu(*t.ctx, screens);
    menu.Form_Load();
    QVERIFY(t.messenger.entries().isEmpty());
    const AppSettings& s = t.ctx->settings;
    QCOMPARE(s.BankName, QStringLiteral("Coastal Bank"));
    QCOMPARE(s.BranchName, QStringLiteral("Harbour Road"));
    QCOMPARE(s.CommPort, QStringLiteral("2"));
    QCOMPARE(s.FontSize, QStringLiteral("1"));
    QCOMPARE(s.BankInfoPath, QStringLiteral("/srv/bank"));
    QCOMPARE(s.ReportPath, QStringLiteral("/srv/reports"));
}

void tst_frmMain::buttonsWithoutScreensAreDisabled()
{
    TestContext t;
    ScreenRegistry screens;
    screens.add(Screen::Send, [](AppContext&) { return fakeScreen("frmsend"); });
    frmMain menu(*t.ctx, screens);
    QVERIFY(menu.findChild<ColourButton*>("cmdSend")->isEnabled());
    for (const char* name : {"cmdReceive", "cmdConfigure", "cmdDrive", "cmdPassword", "cmdReport"})
        QVERIFY2(!menu.findChild<ColourButton*>(name)->isEnabled(), name);
    QVERIFY(menu.findChild<ColourButton*>("cmdExit")->isEnabled());
}

void tst_frmMain::modelessButtonTwiceShowsSameInstance()
{
    TestContext t;
    ScreenRegistry screens = allFakeScreens();
    frmMain menu(*t.ctx, screens);
    menu.show();
    for (const char* button : {"cmdSend", "cmdReceive", "cmdPassword"}) {
        auto* b = menu.findChild<ColourButton*>(button);
        QTest::mouseClick(b, Qt::LeftButton);
        QTest::mouseClick(b, Qt::LeftButton);
    }
    QCOMPARE(countTopLevel("frmsend"), 1);
    QCOMPARE(countTopLevel("frmReceive"), 1);
    QCOMPARE(countTopLevel("frmPassword"), 1);
    QWidget* send = menu.openScreen(Screen::Send);
    send->hide(); // hidden by the user, pressed again: the same one comes back
    QTest::mouseClick(menu.findChild<ColourButton*>("cmdSend"), Qt::LeftButton);
    QCOMPARE(menu.openScreen(Screen::Send), send);
    QVERIFY(send->isVisible());
}

void tst_frmMain::loginPromptTargetDependsOnLastButton_data()
{
    QTest::addColumn<QStringList>("presses");
    QTest::addColumn<QString>("opened");
    QTest::newRow("configure") << QStringList{"cmdConfigure"} << "frmConfigure";
    QTest::newRow("drive") << QStringList{"cmdDrive"} << "frmDrive";
    QTest::newRow("configure then drive") << QStringList{"cmdConfigure", "cmdDrive"} << "frmDrive";
    QTest::newRow("drive then configure") << QStringList{"cmdDrive", "cmdConfigure"} << "frmConfigure";
}

void tst_frmMain::loginPromptTargetDependsOnLastButton()
{
    QFETCH(QStringList, presses);
    QFETCH(QString, opened);
    TestContext t;
    ScreenRegistry screens = allFakeScreens();
    frmMain menu(*t.ctx, screens);
    menu.show();
    for (const QString& b : presses)
        QTest::mouseClick(menu.findChild<ColourButton*>(b), Qt::LeftButton);
    frmPassEntry* prompt = menu.passEntry();
    QVERIFY(prompt && prompt->isVisible());
    auto* box = prompt->findChild<QLineEdit*>("txtNewPass");
    QTest::keyClicks(box, "admin");
    QTest::keyClick(box, Qt::Key_Return);
    QTRY_VERIFY(visibleTopLevel(opened));
    const QString other = opened == "frmDrive" ? "frmConfigure" : "frmDrive";
    QVERIFY(!visibleTopLevel(other));
    QVERIFY(t.ctx->LoginPassed);
}

void tst_frmMain::configureAndDriveShareOnePrompt()
{
    TestContext t;
    ScreenRegistry screens = allFakeScreens();
    frmMain menu(*t.ctx, screens);
    menu.show();
    QTest::mouseClick(menu.findChild<ColourButton*>("cmdConfigure"), Qt::LeftButton);
    frmPassEntry* first = menu.passEntry();
    QVERIFY(!t.ctx->LoginTarget);
    QTest::mouseClick(menu.findChild<ColourButton*>("cmdDrive"), Qt::LeftButton);
    QCOMPARE(menu.passEntry(), first);
    QVERIFY(t.ctx->LoginTarget);
    QCOMPARE(countTopLevel("frmPassEntry"), 1);
}

void tst_frmMain::reportScreenIsModal()
{
    TestContext t;
    ScreenRegistry screens = allFakeScreens();
    frmMain menu(*t.ctx, screens);
    menu.show();
    QTest::mouseClick(menu.findChild<ColourButton*>("cmdReport"), Qt::LeftButton);
    QWidget* report = visibleTopLevel("frmReport");
    QVERIFY(report);
    QCOMPARE(report->windowModality(), Qt::ApplicationModal);
    QCOMPARE(QApplication::activeModalWidget(), report);
    // A click on the menu's window goes nowhere while the report is up.
    QVERIFY(QTest::qWaitForWindowExposed(&menu));
    auto* send = menu.findChild<ColourButton*>("cmdSend");
    const QPoint at = send->mapTo(&menu, send->rect().center());
    QTest::mouseClick(menu.windowHandle(), Qt::LeftButton, {}, at);
    QVERIFY(!visibleTopLevel("frmsend"));
    report->close();
    QTRY_VERIFY(!QApplication::activeModalWidget());
    QTest::mouseClick(menu.windowHandle(), Qt::LeftButton, {}, at);
    QTRY_VERIFY(visibleTopLevel("frmsend"));
}

void tst_frmMain::otherScreensLeaveMenuUsable()
{
    TestContext t;
    ScreenRegistry screens = allFakeScreens();
    frmMain menu(*t.ctx, screens);
    menu.show();
    QTest::mouseClick(menu.findChild<ColourButton*>("cmdSend"), Qt::LeftButton);
    QVERIFY(!QApplication::activeModalWidget());
    QTest::mouseClick(menu.findChild<ColourButton*>("cmdReceive"), Qt::LeftButton);
    QVERIFY(visibleTopLevel("frmsend"));
    QVERIFY(visibleTopLevel("frmReceive"));
}

void tst_frmMain::hoverColours()
{
    TestContext t;
    ScreenRegistry screens = allFakeScreens();
    frmMain menu(*t.ctx, screens);
    menu.show();
    auto* b = menu.findChild<ColourButton*>("cmdSend");
    QVERIFY(b->styleSheet().contains("#404040"));
    QVERIFY(b->styleSheet().contains("#E0E0E0"));
    QEnterEvent enter(QPointF(5, 5), QPointF(5, 5), QPointF(5, 5));
    QApplication::sendEvent(b, &enter);
    QVERIFY(b->isHighlighted());
    QVERIFY(b->styleSheet().contains("#FFFFFF"));
    QVERIFY(b->styleSheet().contains("#808080"));
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(b, &leave);
    QVERIFY(!b->isHighlighted());
    QVERIFY(b->styleSheet().contains("#E0E0E0"));
}

void tst_frmMain::acceleratorOpensScreen()
{
    TestContext t;
    ScreenRegistry screens = allFakeScreens();
    frmMain menu(*t.ctx, screens);
    menu.show();
    menu.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&menu));
    QTest::keyClick(&menu, Qt::Key_S, Qt::AltModifier);
    QTRY_VERIFY(visibleTopLevel("frmsend"));
}

void tst_frmMain::exitEndsProgram()
{
    TestContext t;
    ScreenRegistry screens = allFakeScreens();
    frmMain menu(*t.ctx, screens);
    menu.show();
    QTest::mouseClick(menu.findChild<ColourButton*>("cmdSend"), Qt::LeftButton);
    QSignalSpy ended(&menu, &frmMain::programEnded);
    QTest::mouseClick(menu.findChild<ColourButton*>("cmdExit"), Qt::LeftButton);
    QCOMPARE(ended.count(), 1);
    QVERIFY(!menu.isVisible());
    QVERIFY(!visibleTopLevel("frmsend"));
}

QTEST_MAIN(tst_frmMain)
#include "tst_frmmain.moc"
