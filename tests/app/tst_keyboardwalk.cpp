#include "admin/DriveList.h"
#include "admin/frmDrive.h"
#include "app/DesktopScreens.h"
#include "app/frmMain.h"
#include "app/frmPassEntry.h"
#include "reports/frmReport.h"
#include "store/AuditTrail.h"
#include "tests/download/DownloadFileMaker.h"
#include "tests/support/Controls.h"
#include "tests/support/FakeChannel.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"
#include "widgets/MessageBoxMessenger.h"
#include "widgets/ScreenRegistry.h"

#include <QApplication>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QRadioButton>
#include <QTimer>
#include <QtTest>
#include <memory>

// Every window of the desktop program driven by the keyboard alone: where
// Tab, Shift+Tab, the arrows, Enter, Esc and the Alt accelerators take the
// focus, what each screen shows after each key, and where the clerk goes on
// after a message box.

namespace {

QString focusName()
{
    QWidget* f = QApplication::focusWidget();
    return f ? f->objectName() : QStringLiteral("<nothing>");
}

// A key where the focus is, as the keyboard gives it.
void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    QWidget* target = QApplication::focusWidget();
    if (!target)
        target = QApplication::activeWindow();
    if (!target)
        QFAIL("no window takes the keys");
    QTest::keyClick(target, key, modifiers);
}

void type(const QString& text)
{
    QTest::keyClicks(QApplication::focusWidget(), text);
}

ScreenRegistry desktopRegistry()
{
    ScreenRegistry r;
    registerDesktopScreens(r);
    return r;
}

// Three made-up drives: A and B with folders, and "nomedia", which cannot be
// read.
struct Drives
{
    QTemporaryDir root;
    Drives()
    {
        QDir(root.path()).mkpath("A/Bank");
        QDir(root.path()).mkpath("A/Reports");
        QDir(root.path()).mkpath("B/Other");
        QDir(root.path()).mkpath("nomedia");
    }
    QString path(const QString& name) const { return QDir(root.path()).filePath(name); }
    DriveList list() const
    {
        const QStringList roots = {path("A"), path("B"), path("nomedia")};
        const QString unreadable = path("nomedia");
        return DriveList([roots] { return roots; }, [unreadable](const QString& r) { return r != unreadable; });
    }
};

// One window of the program, made as the program makes it, over a fresh
// data folder with a fake terminal line. With boxes, messages come up in
// real message boxes, as in the program, rather than being recorded.
struct Walk
{
    TestContext t;
    MessageBoxMessenger boxes;
    ScreenRegistry registry = desktopRegistry();
    Drives drives;
    FakeChannel* line = nullptr;
    QString lineError;
    std::unique_ptr<QWidget> owner; // the report screen of a preview or an audit window
    QPointer<QWidget> window;

    explicit Walk(bool withBoxes = false)
    {
        if (withBoxes) {
            t.ctx = std::make_unique<AppContext>(t.db, boxes, t.clock);
            t.ctx->dataDir = t.dir.path();
        }
        t.ctx->settings.BankInfoPath = t.path("bank");
        t.ctx->settings.BankName = QStringLiteral("STATE BANK");
        t.ctx->settings.BranchName = QStringLiteral("MAIN ROAD");
        t.ctx->settings.FontSize = QStringLiteral("0");
        QDir().mkpath(t.ctx->settings.BankInfoPath);
        t.ctx->setChannelFactory([this] {
            auto fake = std::make_unique<FakeChannel>();
            fake->openError = lineError;
            line = fake.get();
            return std::unique_ptr<LinkChannel>(std::move(fake));
        });
    }
    ~Walk()
    {
        for (QWidget* top : QApplication::topLevelWidgets()) {
            if (qobject_cast<QMessageBox*>(top) && top->isVisible())
                top->close();
        }
        if (window && window != owner.get())
            delete window.data();
    }

    QWidget* make(const QString& name)
    {
        if (name == "main menu")
            return new frmMain(*t.ctx, registry);
        if (name == "login")
            return new frmPassEntry(*t.ctx);
        if (name == "send")
            return registry.create(Screen::Send, *t.ctx);
        if (name == "receive")
            return registry.create(Screen::Receive, *t.ctx);
        if (name == "password")
            return registry.create(Screen::Password, *t.ctx);
        if (name == "configure")
            return registry.create(Screen::Configure, *t.ctx);
        if (name == "drive selection") {
            // Unless the test stored its own: a bank folder saved before,
            // which the screen shows as chosen (nothing chosen is refused).
            t.db.execute(QStringLiteral("INSERT INTO Path (SNo, BankInfoPath) SELECT '1', ? WHERE NOT EXISTS "
                                        "(SELECT 1 FROM Path WHERE SNo = '1')"),
                         {drives.path("A/Bank")});
            return new frmDrive(*t.ctx, drives.list());
        }
        if (name == "report")
            return registry.create(Screen::Report, *t.ctx);
        if (name == "preview" || name == "audit trail") {
            auto* report = new frmReport(*t.ctx);
            owner.reset(report);
            report->show();
            if (name == "audit trail") {
                AuditTrail::record(t.db, AuditTrail::Action::Settings, "settings saved");
                QTest::mouseClick(control<QRadioButton>(report, "OptAudit"), Qt::LeftButton);
            }
            report->cmdView_Click();
            return name == "preview" ? static_cast<QWidget*>(report->preview()) : report->auditWindow();
        }
        qFatal("no window %s", qPrintable(name));
    }

    // Opens the window and waits until it has the keys.
    bool open(const QString& name)
    {
        window = make(name);
        if (!window)
            return false;
        window->show();
        window->raise();
        window->activateWindow();
        return QTest::qWaitForWindowActive(window);
    }

    template <typename T> T* get(const char* name) const { return control<T>(window, name); }
};

// The message box now up, if any.
QMessageBox* openBox()
{
    for (QWidget* top : QApplication::topLevelWidgets()) {
        if (auto* box = qobject_cast<QMessageBox*>(top); box && box->isVisible())
            return box;
    }
    return nullptr;
}

// Answers the next message box with Enter once it has the keys, as a clerk
// would, and keeps its text. The box may block inside the key that opens
// it, so the answer is armed before that key.
class BoxAnswer : public QObject
{
public:
    BoxAnswer()
    {
        m_poll.setInterval(20);
        connect(&m_poll, &QTimer::timeout, this, [this] {
            QMessageBox* box = openBox();
            if (!box || QApplication::activeWindow() != box)
                return;
            m_poll.stop();
            m_text = box->text();
            QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : box, Qt::Key_Return);
        });
        m_poll.start();
    }
    QString text() const { return m_text; }
    bool answered() const { return !m_text.isEmpty(); }

private:
    QTimer m_poll;
    QString m_text;
};

} // namespace

class tst_KeyboardWalk : public QObject
{
    Q_OBJECT

private slots:
    void tabGoesRoundEveryWindow_data();
    void tabGoesRoundEveryWindow();
    void escapeCloses_data();
    void escapeCloses();
    void escapeLeavesTheMainMenuOpen();
    void escapeClosesAnOpenListFirst();
    void exitAcceleratorCloses_data();
    void exitAcceleratorCloses();
    void enterOnTheFocusedExitCloses_data();
    void enterOnTheFocusedExitCloses();
    void menuTakesTheKeysBackWhenAScreenCloses();
    void reportTakesTheKeysBackFromItsWindows();

    void passwordShiftTabLandsOnTheCheckedOptions();
    void passwordArrowsSwitchTheKindAndTheFramesFollow();
    void passwordOptionsKeepTheirFocusRules();
    void passwordPressWithoutChoiceShowsNothingNew();
    void reportOptionsByTheKeyboard();
    void reportDatesMoveOnWithEnter();
    void driveOptionsByTheKeyboard();

    void focusBackAfterABox_data();
    void focusBackAfterABox();
    void focusBackAfterAWrongOldPassword();
    void focusBackAfterTheSendScreensBoxes();
    void focusBackAfterTheStopQuestion();
    void focusBackAfterTheReceiveScreensBox();
};

void tst_KeyboardWalk::tabGoesRoundEveryWindow_data()
{
    QTest::addColumn<QString>("window");
    QTest::addColumn<QStringList>("order"); // from the focus the window opens with
    QTest::newRow("main menu") << "main menu" << QStringList{"cmdSend",     "cmdReceive", "cmdConfigure", "cmdDrive",
                                                             "cmdPassword", "cmdReport",  "cmdExit"};
    QTest::newRow("login") << "login" << QStringList{"txtNewPass", "cmdOK", "cmdCancel"};
    QTest::newRow("send") << "send"
                          << QStringList{"txtAgent", "txtDate", "txtTransact", "cmdSend", "cmdClear", "cmdExit"};
    QTest::newRow("receive") << "receive" << QStringList{"cmdSend", "cmdexit"};
    // The kinds are one stop, at the checked kind, and so are Admin and User;
    // Setup and Main Screen are hidden with the Hand Held Terminal's frame.
    QTest::newRow("password") << "password" << QStringList{"txtOldPass", "txtNewPass", "txtConfirmPass", "cmdSend",
                                                           "cmdExit",    "OpSoftware", "OpAdmin"};
    QTest::newRow("configure") << "configure" << QStringList{"txtBankName", "txtBranchName", "cmbComPort",
                                                             "cmbFontSize", "cmdUpdate",     "cmdExit"};
    QTest::newRow("drive selection") << "drive selection"
                                     << QStringList{"OpBank", "Drive1", "Dir1", "cmdSend", "cmdexit"};
    // Tab goes through a date's day, month and year before it moves on.
    QTest::newRow("report") << "report" << QStringList{"OptReport1",   "FromDTPicker", "FromDTPicker", "FromDTPicker",
                                                       "ToDTPicker",   "ToDTPicker",   "ToDTPicker",   "txtAgentID",
                                                       "txtAccountNo", "cmdView",      "cmdExport",    "cmdExit"};
    QTest::newRow("preview") << "preview" << QStringList{"pageView",   "cmdPrint",  "cmdSavePdf",
                                                         "cmdZoomOut", "cmdZoomIn", "cmdClose"};
    QTest::newRow("audit trail") << "audit trail" << QStringList{"grdAudit", "cmdSaveCsv", "cmdClose"};
}

void tst_KeyboardWalk::tabGoesRoundEveryWindow()
{
    QFETCH(QString, window);
    QFETCH(QStringList, order);
    Walk w;
    // Without a stored password row the empty old password is the right one:
    // entering the new password box checks it each time round.
    if (window == "password")
        w.t.db.execute("DELETE FROM Password");
    QVERIFY(w.open(window));
    QTRY_COMPARE(focusName(), order.first());

    for (qsizetype i = 1; i <= order.size(); ++i) {
        press(Qt::Key_Tab);
        QTRY_COMPARE(focusName(), order.at(i % order.size()));
    }
    for (qsizetype i = order.size() - 1; i >= 0; --i) {
        press(Qt::Key_Backtab);
        QTRY_COMPARE(focusName(), order.at(i));
    }
    QVERIFY(w.window->isVisible());
    QVERIFY(w.t.messenger.entries().isEmpty());
}

void tst_KeyboardWalk::escapeCloses_data()
{
    QTest::addColumn<QString>("window");
    QTest::addColumn<QString>("from"); // the control the key is pressed in
    for (const auto& [window, from] : {std::pair{"login", "txtNewPass"},
                                       {"send", "txtAgent"},
                                       {"receive", "cmdSend"},
                                       {"password", "txtOldPass"},
                                       {"configure", "cmbComPort"},
                                       {"drive selection", "Dir1"},
                                       {"report", "FromDTPicker"},
                                       {"preview", "pageView"},
                                       {"audit trail", "grdAudit"}})
        QTest::newRow(window) << QString::fromLatin1(window) << QString::fromLatin1(from);
}

void tst_KeyboardWalk::escapeCloses()
{
    QFETCH(QString, window);
    QFETCH(QString, from);
    Walk w;
    QVERIFY(w.open(window));
    QWidget* start = w.get<QWidget>(qPrintable(from));
    start->setFocus(Qt::TabFocusReason);
    QTRY_COMPARE(focusName(), from);
    if (window == "send")
        type("12"); // a filtered box still lets Esc through
    if (window == "password") {
        // The Hand Held Terminal's boxes filter every key but digits.
        w.get<QRadioButton>("OpHandHeld")->click();
        start->setFocus(Qt::TabFocusReason);
        type("12");
        QCOMPARE(w.get<QLineEdit>(qPrintable(from))->text(), QStringLiteral("12"));
    }
    press(Qt::Key_Escape);
    QTRY_VERIFY(!w.window || !w.window->isVisible());
    QVERIFY(w.t.messenger.entries().isEmpty());
}

void tst_KeyboardWalk::escapeLeavesTheMainMenuOpen()
{
    // Esc closes a screen; pressed once too often it must not end the
    // program. The menu closes with its Exit button only.
    Walk w;
    QVERIFY(w.open("main menu"));
    press(Qt::Key_Escape);
    QTest::qWait(50);
    QVERIFY(w.window->isVisible());
    press(Qt::Key_E, Qt::AltModifier);
    QTRY_VERIFY(!w.window->isVisible());
}

void tst_KeyboardWalk::escapeClosesAnOpenListFirst()
{
    Walk w;
    QVERIFY(w.open("configure"));
    press(Qt::Key_Tab);
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("cmbComPort"));
    press(Qt::Key_Down, Qt::AltModifier);
    QTRY_VERIFY(QApplication::activePopupWidget());
    press(Qt::Key_Escape);
    QTRY_VERIFY(!QApplication::activePopupWidget());
    QVERIFY(w.window->isVisible());
    QTRY_COMPARE(focusName(), QStringLiteral("cmbComPort"));
    press(Qt::Key_Escape);
    QTRY_VERIFY(!w.window->isVisible());
}

void tst_KeyboardWalk::exitAcceleratorCloses_data()
{
    QTest::addColumn<QString>("window");
    QTest::addColumn<QString>("button");
    QTest::addColumn<int>("key");
    QTest::newRow("main menu, Alt+E") << "main menu"
                                      << "cmdExit" << int(Qt::Key_E);
    QTest::newRow("login, Alt+C") << "login"
                                  << "cmdCancel" << int(Qt::Key_C);
    for (const auto& [window, button] : {std::pair{"send", "cmdExit"},
                                         {"receive", "cmdexit"},
                                         {"password", "cmdExit"},
                                         {"configure", "cmdExit"},
                                         {"drive selection", "cmdexit"},
                                         {"report", "cmdExit"}})
        QTest::addRow("%s, Alt+E", window)
            << QString::fromLatin1(window) << QString::fromLatin1(button) << int(Qt::Key_E);
    QTest::newRow("preview, Alt+L") << "preview"
                                    << "cmdClose" << int(Qt::Key_L);
    QTest::newRow("audit trail, Alt+L") << "audit trail"
                                        << "cmdClose" << int(Qt::Key_L);
}

void tst_KeyboardWalk::exitAcceleratorCloses()
{
    QFETCH(QString, window);
    QFETCH(QString, button);
    QFETCH(int, key);
    Walk w;
    QVERIFY(w.open(window));
    QVERIFY(w.get<ColourButton>(qPrintable(button))->text().contains(QLatin1Char('&')));
    press(Qt::Key(key), Qt::AltModifier);
    QTRY_VERIFY(!w.window || !w.window->isVisible());
}

void tst_KeyboardWalk::enterOnTheFocusedExitCloses_data()
{
    exitAcceleratorCloses_data();
}

void tst_KeyboardWalk::enterOnTheFocusedExitCloses()
{
    QFETCH(QString, window);
    QFETCH(QString, button);
    Walk w;
    QVERIFY(w.open(window));
    if (window == "password")
        type("admin");
    // Tabbed to, as the clerk would get there.
    for (int i = 0; i < 20 && focusName() != button; ++i)
        press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), button);
    press(Qt::Key_Return);
    QTRY_VERIFY(!w.window || !w.window->isVisible());
}

void tst_KeyboardWalk::menuTakesTheKeysBackWhenAScreenCloses()
{
    Walk w;
    QVERIFY(w.open("main menu"));
    auto* menu = qobject_cast<frmMain*>(w.window);
    auto activeIs = [](const char* name) {
        return QApplication::activeWindow() && QApplication::activeWindow()->objectName() == QLatin1String(name);
    };
    QTRY_COMPARE(focusName(), QStringLiteral("cmdSend"));
    // By the accelerators: the focus stays where it was on the menu.
    for (const auto& [key, screen] : {std::pair{Qt::Key_A, "frmPassword"},
                                      {Qt::Key_S, "frmsend"},
                                      {Qt::Key_R, "frmReceive"},
                                      {Qt::Key_P, "frmReport"}}) {
        press(key, Qt::AltModifier);
        QTRY_VERIFY2(activeIs(screen), screen);
        press(Qt::Key_Escape);
        QTRY_COMPARE(QApplication::activeWindow(), static_cast<QWidget*>(menu));
        QTRY_COMPARE(focusName(), QStringLiteral("cmdSend"));
    }
    // Tabbed to and pressed with Enter: back on that button.
    press(Qt::Key_Tab);
    press(Qt::Key_Tab);
    press(Qt::Key_Tab);
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("cmdPassword"));
    press(Qt::Key_Return);
    QTRY_VERIFY(activeIs("frmPassword"));
    press(Qt::Key_E, Qt::AltModifier);
    QTRY_COMPARE(QApplication::activeWindow(), static_cast<QWidget*>(menu));
    QTRY_COMPARE(focusName(), QStringLiteral("cmdPassword"));

    // The login prompt, cancelled, and then passed on to what it guards.
    press(Qt::Key_C, Qt::AltModifier);
    QTRY_VERIFY(activeIs("frmPassEntry"));
    press(Qt::Key_Escape);
    QTRY_COMPARE(QApplication::activeWindow(), static_cast<QWidget*>(menu));
    press(Qt::Key_D, Qt::AltModifier);
    QTRY_VERIFY(activeIs("frmPassEntry"));
    type("admin");
    press(Qt::Key_Return);
    QTRY_VERIFY(activeIs("frmDrive"));
    press(Qt::Key_Escape);
    QTRY_COMPARE(QApplication::activeWindow(), static_cast<QWidget*>(menu));
    QTRY_COMPARE(focusName(), QStringLiteral("cmdPassword"));
}

void tst_KeyboardWalk::reportTakesTheKeysBackFromItsWindows()
{
    Walk w;
    AuditTrail::record(w.t.db, AuditTrail::Action::Settings, "settings saved");
    QVERIFY(w.open("report"));
    auto* report = qobject_cast<frmReport*>(w.window);
    // View by its accelerator: the preview takes the keys, its pages first.
    press(Qt::Key_V, Qt::AltModifier);
    QTRY_VERIFY(report->preview() && QApplication::activeWindow() == report->preview());
    QTRY_COMPARE(focusName(), QStringLiteral("pageView"));
    press(Qt::Key_PageDown);
    press(Qt::Key_Escape);
    QTRY_VERIFY(!report->preview());
    QTRY_COMPARE(QApplication::activeWindow(), static_cast<QWidget*>(report));
    QTRY_COMPARE(focusName(), QStringLiteral("OptReport1"));

    // The audit trail, by the arrows and Enter on View.
    press(Qt::Key_Left);
    QTRY_COMPARE(focusName(), QStringLiteral("OptAudit"));
    for (int i = 0; i < 7; ++i)
        press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("cmdView"));
    press(Qt::Key_Return);
    QTRY_VERIFY(report->auditWindow() && QApplication::activeWindow() == report->auditWindow());
    QTRY_COMPARE(focusName(), QStringLiteral("grdAudit"));
    press(Qt::Key_Tab);
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("cmdClose"));
    press(Qt::Key_Return);
    QTRY_VERIFY(!report->auditWindow());
    QTRY_COMPARE(QApplication::activeWindow(), static_cast<QWidget*>(report));
    QTRY_COMPARE(focusName(), QStringLiteral("cmdView"));
}

void tst_KeyboardWalk::passwordShiftTabLandsOnTheCheckedOptions()
{
    Walk w;
    QVERIFY(w.open("password"));
    auto* software = w.get<QFrame>("Frame5");
    auto* terminal = w.get<QFrame>("Frame4");
    QTRY_COMPARE(focusName(), QStringLiteral("txtOldPass"));

    // Shift+Tab from the old password: the checked Admin, then the checked
    // Software, never the other option of either; the Software frame stays.
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpAdmin"));
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpSoftware"));
    QVERIFY(software->isVisible());
    QVERIFY(!terminal->isVisible());
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("cmdExit"));
    QVERIFY(w.get<QRadioButton>("OpSoftware")->isChecked());
    QVERIFY(software->isVisible());
    QVERIFY(!terminal->isVisible());

    // With User chosen, Shift+Tab lands on User.
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpSoftware"));
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpAdmin"));
    press(Qt::Key_Right);
    QTRY_COMPARE(focusName(), QStringLiteral("OpUser"));
    QVERIFY(w.get<QRadioButton>("OpUser")->isChecked());
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("txtOldPass"));
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpUser"));
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpSoftware"));
    QVERIFY(software->isVisible());
    QVERIFY(!terminal->isVisible());
}

void tst_KeyboardWalk::passwordArrowsSwitchTheKindAndTheFramesFollow()
{
    Walk w;
    QVERIFY(w.open("password"));
    auto* software = w.get<QFrame>("Frame5");
    auto* terminal = w.get<QFrame>("Frame4");
    auto* old = w.get<QLineEdit>("txtOldPass");
    auto frameOfTheCheckedKind = [&] {
        const bool handHeld = w.get<QRadioButton>("OpHandHeld")->isChecked();
        return handHeld ? terminal->isVisible() && !software->isVisible()
                        : software->isVisible() && !terminal->isVisible();
    };
    press(Qt::Key_Backtab);
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpSoftware"));

    // Every arrow switches the kind, round the two ends; the frames follow.
    struct Step
    {
        Qt::Key key;
        const char* focus;
    };
    for (const Step& step :
         {Step{Qt::Key_Right, "OpHandHeld"}, Step{Qt::Key_Left, "OpSoftware"}, Step{Qt::Key_Down, "OpHandHeld"},
          Step{Qt::Key_Up, "OpSoftware"}, Step{Qt::Key_Left, "OpHandHeld"}, Step{Qt::Key_Right, "OpSoftware"},
          Step{Qt::Key_Up, "OpHandHeld"}}) {
        press(step.key);
        QTRY_COMPARE(focusName(), QString::fromLatin1(step.focus));
        QVERIFY2(w.get<QRadioButton>(step.focus)->isChecked(), step.focus);
        QVERIFY2(frameOfTheCheckedKind(), step.focus);
    }
    QCOMPARE(old->maxLength(), 4);

    // Into the terminal's pair: none of it is chosen yet, so Tab lands on its
    // first; the focus entering it clears the boxes.
    old->setText("12");
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpSetup"));
    QVERIFY(old->text().isEmpty());
    QVERIFY(!w.get<QRadioButton>("OpSetup")->isChecked());
    press(Qt::Key_Right);
    QTRY_COMPARE(focusName(), QStringLiteral("OpDownload"));
    QVERIFY(w.get<QRadioButton>("OpDownload")->isChecked());
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("txtOldPass"));
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpDownload"));
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpHandHeld"));
    QVERIFY(frameOfTheCheckedKind());

    // Back to Software: Admin is still its choice, and Tab reaches it.
    press(Qt::Key_Left);
    QTRY_COMPARE(focusName(), QStringLiteral("OpSoftware"));
    QVERIFY(frameOfTheCheckedKind());
    QCOMPARE(old->maxLength(), 10);
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpAdmin"));
    QVERIFY(w.t.messenger.entries().isEmpty());
}

void tst_KeyboardWalk::passwordOptionsKeepTheirFocusRules()
{
    Walk w;
    QVERIFY(w.open("password"));
    auto* old = w.get<QLineEdit>("txtOldPass");
    // Enter on a kind goes to its first option, Enter on an option to the
    // old password; the focus entering an option clears the boxes.
    press(Qt::Key_Backtab);
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpSoftware"));
    old->setText("ad");
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("OpAdmin"));
    QVERIFY(old->text().isEmpty());
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("txtOldPass"));
    type("admin");
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("txtNewPass"));
    type("abc");
    press(Qt::Key_Tab);
    type("abc");

    press(Qt::Key_Backtab);
    press(Qt::Key_Backtab);
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpAdmin"));
    QVERIFY(old->text().isEmpty());
    QVERIFY(w.get<QLineEdit>("txtNewPass")->text().isEmpty());
    press(Qt::Key_Right); // to User: entering it clears them again
    QTRY_COMPARE(focusName(), QStringLiteral("OpUser"));
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("txtOldPass"));

    // Enter on Hand Held Terminal goes to Setup.
    press(Qt::Key_Backtab);
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpSoftware"));
    press(Qt::Key_Right);
    QTRY_COMPARE(focusName(), QStringLiteral("OpHandHeld"));
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("OpSetup"));
    press(Qt::Key_Space);
    QTRY_VERIFY(w.get<QRadioButton>("OpSetup")->isChecked());
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("txtOldPass"));
    // Under Hand Held Terminal, Enter moves on in the boxes too.
    type("1234");
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("txtNewPass"));
    QVERIFY(w.t.messenger.entries().isEmpty());
}

void tst_KeyboardWalk::passwordPressWithoutChoiceShowsNothingNew()
{
    // A mouse press focuses an option before it is checked, and when the
    // pointer slides off before the release nothing is checked at all: the
    // frame shown stays the checked kind's.
    Walk w;
    QVERIFY(w.open("password"));
    auto* handHeld = w.get<QRadioButton>("OpHandHeld");
    QTest::mousePress(handHeld, Qt::LeftButton, {}, QPoint(6, handHeld->height() / 2));
    QTRY_COMPARE(focusName(), QStringLiteral("OpHandHeld"));
    QVERIFY(w.get<QFrame>("Frame5")->isVisible());
    QVERIFY(!w.get<QFrame>("Frame4")->isVisible());
    QTest::mouseRelease(handHeld, Qt::LeftButton, {}, QPoint(handHeld->width() + 40, handHeld->height() * 4));
    QVERIFY(!handHeld->isChecked());
    QVERIFY(w.get<QFrame>("Frame5")->isVisible());
    QVERIFY(!w.get<QFrame>("Frame4")->isVisible());
    // Tab leaves it, and Shift+Tab comes back to the checked kind.
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpAdmin"));
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpSoftware"));
    // A whole click chooses the kind, and its frame shows.
    QTest::mouseClick(handHeld, Qt::LeftButton, {}, QPoint(6, handHeld->height() / 2));
    QVERIFY(handHeld->isChecked());
    QVERIFY(w.get<QFrame>("Frame4")->isVisible());
    QVERIFY(!w.get<QFrame>("Frame5")->isVisible());
}

void tst_KeyboardWalk::reportOptionsByTheKeyboard()
{
    Walk w;
    QVERIFY(w.open("report"));
    auto inputsShown = [&] {
        return w.get<QLineEdit>("txtAgentID")->isVisible() && w.get<QLineEdit>("txtAccountNo")->isVisible();
    };
    QTRY_COMPARE(focusName(), QStringLiteral("OptReport1"));
    QVERIFY(inputsShown());
    struct Step
    {
        Qt::Key key;
        const char* focus;
        bool inputs;
    };
    for (const Step& step : {Step{Qt::Key_Right, "OptReport2", false}, Step{Qt::Key_Right, "OptAudit", false},
                             Step{Qt::Key_Right, "OptReport1", true}, Step{Qt::Key_Left, "OptAudit", false},
                             Step{Qt::Key_Down, "OptReport1", true}, Step{Qt::Key_Down, "OptReport2", false},
                             Step{Qt::Key_Up, "OptReport1", true}}) {
        press(step.key);
        QTRY_COMPARE(focusName(), QString::fromLatin1(step.focus));
        QVERIFY2(w.get<QRadioButton>(step.focus)->isChecked(), step.focus);
        QCOMPARE(inputsShown(), step.inputs);
    }
    // Agent summary: Shift+Tab from the first date comes back to it, and
    // the agent and account inputs are not in the way of Tab.
    press(Qt::Key_Right);
    QTRY_COMPARE(focusName(), QStringLiteral("OptReport2"));
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("FromDTPicker"));
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OptReport2"));
    QVERIFY(!inputsShown());
    w.get<QWidget>("ToDTPicker")->setFocus(Qt::TabFocusReason);
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("cmdView"));
    // Back from the buttons the whole way: the checked option again.
    for (int i = 0; i < 7; ++i)
        press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OptReport2"));
    QVERIFY(!inputsShown());
}

void tst_KeyboardWalk::reportDatesMoveOnWithEnter()
{
    Walk w;
    QVERIFY(w.open("report"));
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("FromDTPicker"));
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("ToDTPicker"));
    press(Qt::Key_Enter, Qt::KeypadModifier);
    QTRY_COMPARE(focusName(), QStringLiteral("txtAgentID"));
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("txtAccountNo"));
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("cmdView"));
    QVERIFY(!qobject_cast<frmReport*>(w.window)->preview());
}

void tst_KeyboardWalk::driveOptionsByTheKeyboard()
{
    Walk w;
    w.t.db.execute("INSERT INTO Path (SNo, BankInfoPath, ReportPath) VALUES ('1', ?, ?)",
                   {w.drives.path("A/Bank"), w.drives.path("B/Other")});
    QVERIFY(w.open("drive selection"));
    auto* path = w.get<QLabel>("lbFilePath");
    const QString bank = QDir::toNativeSeparators(w.drives.path("A/Bank"));
    const QString report = QDir::toNativeSeparators(w.drives.path("B/Other"));
    QTRY_COMPARE(focusName(), QStringLiteral("OpBank"));
    QCOMPARE(path->text(), bank);

    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("Drive1"));
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpBank"));
    QCOMPARE(path->text(), bank);
    // The arrows choose the other folder and show it; it is the one Tab
    // comes back to.
    press(Qt::Key_Left);
    QTRY_COMPARE(focusName(), QStringLiteral("OpReport"));
    QVERIFY(w.get<QRadioButton>("OpReport")->isChecked());
    QCOMPARE(path->text(), report);
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("Drive1"));
    press(Qt::Key_Backtab);
    QTRY_COMPARE(focusName(), QStringLiteral("OpReport"));
    QCOMPARE(path->text(), report);
    press(Qt::Key_Down);
    QTRY_COMPARE(focusName(), QStringLiteral("OpBank"));
    QCOMPARE(path->text(), bank);
    QVERIFY(w.t.messenger.entries().isEmpty());
}

void tst_KeyboardWalk::focusBackAfterABox_data()
{
    QTest::addColumn<QString>("window");
    QTest::addColumn<QStringList>("keys"); // typed text, or "Tab", "Backtab", "Enter", "Up", "Down", "Alt+X"
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("focus"); // after the box
    // An accelerator presses its button without moving the focus.
    QTest::newRow("configure: saved") << "configure" << QStringList{"Tab", "Alt+U"} << "Data Saved Successfully"
                                      << "txtBranchName";
    QTest::newRow("drive selection: saved")
        << "drive selection" << QStringList{"Tab", "Tab", "Tab", "Enter"} << "Data Saved Successfully"
        << "cmdSend";
    QTest::newRow("drive selection: drive without medium")
        << "drive selection" << QStringList{"Tab", "Down", "Down"} << "Device Not Available"
        << "Drive1";
    QTest::newRow("login: wrong password")
        << "login" << QStringList{"nimda", "Enter"} << "Password entered is Incorrect"
        << "txtNewPass";
    QTest::newRow("password: confirmation differs")
        << "password" << QStringList{"admin", "Tab", "abc", "Tab", "abd", "Alt+U"}
        << "Conifrming New Password is Incorrect"
        << "txtConfirmPass";
    QTest::newRow("password: saved") << "password" << QStringList{"admin", "Tab", "abc", "Tab", "abc", "Tab", "Enter"}
                                     << "Data Saved Successfully"
                                     << "cmdSend";
    QTest::newRow("report: dates the wrong way round")
        << "report" << QStringList{"Tab", "Up", "Enter", "Enter", "Enter", "Enter", "Enter"}
        << "The From Date (17-Nov-2007) is later than the To Date (16-Nov-2007). "
           "Choose a From Date on or before the To Date."
        << "cmdView";
}

void tst_KeyboardWalk::focusBackAfterABox()
{
    QFETCH(QString, window);
    QFETCH(QStringList, keys);
    QFETCH(QString, message);
    QFETCH(QString, focus);
    Walk w(true);
    QVERIFY(w.open(window));
    std::unique_ptr<BoxAnswer> answer;
    for (qsizetype i = 0; i < keys.size(); ++i) {
        const QString& key = keys.at(i);
        if (i == keys.size() - 1)
            answer = std::make_unique<BoxAnswer>(); // the last key brings the box up
        if (key == "Tab")
            press(Qt::Key_Tab);
        else if (key == "Backtab")
            press(Qt::Key_Backtab);
        else if (key == "Enter")
            press(Qt::Key_Return);
        else if (key == "Down")
            press(Qt::Key_Down);
        else if (key == "Up")
            press(Qt::Key_Up);
        else if (key.startsWith("Alt+"))
            press(Qt::Key(Qt::Key_A + (key.at(4).unicode() - 'A')), Qt::AltModifier);
        else
            type(key);
    }
    QTRY_VERIFY(answer->answered());
    QCOMPARE(answer->text(), message);
    QTRY_VERIFY(!openBox());
    QTRY_COMPARE(QApplication::activeWindow(), w.window.data());
    QTRY_COMPARE(focusName(), focus);
    QVERIFY(w.window->isVisible());
}

void tst_KeyboardWalk::focusBackAfterAWrongOldPassword()
{
    // The box comes up from the focus entering the new password: the focus
    // goes back to the emptied old password, where the clerk types again.
    Walk w(true);
    QVERIFY(w.open("password"));
    type("nimda");
    BoxAnswer answer;
    press(Qt::Key_Tab);
    QTRY_VERIFY(answer.answered());
    QCOMPARE(answer.text(), QStringLiteral("Password entered is incorrect"));
    QTRY_COMPARE(QApplication::activeWindow(), w.window.data());
    QTRY_COMPARE(focusName(), QStringLiteral("txtOldPass"));
    QVERIFY(w.get<QLineEdit>("txtOldPass")->text().isEmpty());
    // Only once: the focus coming back runs no check again.
    QTest::qWait(100);
    QVERIFY(!openBox());
    type("admin");
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("txtNewPass"));
    QVERIFY(!openBox());
}

void tst_KeyboardWalk::focusBackAfterTheSendScreensBoxes()
{
    Walk w;
    QVERIFY(w.open("send"));
    // Send with no agent: the screen puts the focus in the agent box itself.
    press(Qt::Key_Tab);
    press(Qt::Key_Tab);
    press(Qt::Key_Tab);
    QTRY_COMPARE(focusName(), QStringLiteral("cmdSend"));
    press(Qt::Key_Return);
    QTRY_VERIFY(openBox());
    QCOMPARE(openBox()->text(), QStringLiteral("Enter Agent ID"));
    QTRY_COMPARE(QApplication::activeWindow(), static_cast<QWidget*>(openBox()));
    press(Qt::Key_Return);
    QTRY_VERIFY(!openBox());
    QTRY_COMPARE(QApplication::activeWindow(), w.window.data());
    QTRY_COMPARE(focusName(), QStringLiteral("txtAgent"));

    // No such file: back on Send, where the next Enter tries again.
    type("5");
    press(Qt::Key_Return);
    type("1611");
    press(Qt::Key_Return);
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("cmdSend"));
    press(Qt::Key_Return);
    QTRY_VERIFY(openBox());
    QCOMPARE(openBox()->text(), QStringLiteral("File does not exist!"));
    QTRY_COMPARE(QApplication::activeWindow(), static_cast<QWidget*>(openBox()));
    press(Qt::Key_Escape);
    QTRY_VERIFY(!openBox());
    QTRY_COMPARE(QApplication::activeWindow(), w.window.data());
    QTRY_COMPARE(focusName(), QStringLiteral("cmdSend"));
    QVERIFY(w.window->isVisible());
}

void tst_KeyboardWalk::focusBackAfterTheStopQuestion()
{
    Walk w;
    QFile file(QDir(w.t.ctx->settings.BankInfoPath).filePath("0051611d.txt"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(accountsFile(3));
    file.close();
    QVERIFY(w.open("send"));
    type("5");
    press(Qt::Key_Return);
    type("1611");
    press(Qt::Key_Return);
    press(Qt::Key_Return);
    QTRY_COMPARE(focusName(), QStringLiteral("cmdSend"));
    press(Qt::Key_Return); // the header goes out; the terminal stays silent
    QTRY_VERIFY(w.line && !w.line->written.isEmpty());
    QTRY_COMPARE(focusName(), QStringLiteral("progressBar"));
    // Esc asks whether to stop; No goes on, with the focus where it was.
    press(Qt::Key_Escape);
    QMessageBox* question = nullptr;
    QTRY_VERIFY((question = w.window->findChild<QMessageBox*>("StopQuestion")) && question->isVisible());
    QTRY_COMPARE(QApplication::activeWindow(), static_cast<QWidget*>(question));
    press(Qt::Key_Return); // No is the default answer
    QTRY_VERIFY(!w.window->findChild<QMessageBox*>("StopQuestion"));
    QVERIFY(w.window->isVisible());
    QTRY_COMPARE(QApplication::activeWindow(), w.window.data());
    QTRY_COMPARE(focusName(), QStringLiteral("progressBar"));
}

void tst_KeyboardWalk::focusBackAfterTheReceiveScreensBox()
{
    Walk w;
    w.lineError = QStringLiteral("Cannot open /dev/ttyS0: no such device");
    w.window = w.make("receive");
    w.window->show();
    w.window->activateWindow();
    // Loading opens the port; its failure comes up in a box over the screen.
    QTRY_VERIFY(openBox());
    QTRY_COMPARE(QApplication::activeWindow(), static_cast<QWidget*>(openBox()));
    press(Qt::Key_Return);
    QTRY_VERIFY(!openBox());
    QTRY_COMPARE(QApplication::activeWindow(), w.window.data());
    QTRY_COMPARE(focusName(), QStringLiteral("cmdSend"));
}

QTEST_MAIN(tst_KeyboardWalk)
#include "tst_keyboardwalk.moc"
