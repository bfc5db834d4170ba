#include "admin/AdminScreens.h"
#include "admin/frmConfigure.h"
#include "admin/frmDrive.h"
#include "admin/frmPassword.h"
#include "app/frmMain.h"
#include "app/frmPassEntry.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"
#include "widgets/ScreenRegistry.h"

#include <QLineEdit>
#include <QRadioButton>
#include <QtTest>

// The main menu with the real administration screens: a changed admin
// password opens configuration and folder selection through the login
// prompt, and the old one no longer does.
class tst_AdminLogin : public QObject
{
    Q_OBJECT

private slots:
    void buttonsEnabledWithTheRealScreens();
    void changedAdminPasswordOpensBothScreens();

private:
    static frmPassEntry* openPrompt(frmMain& menu, const char* button);
    static void type(frmPassEntry* prompt, const QString& password);
};

frmPassEntry* tst_AdminLogin::openPrompt(frmMain& menu, const char* button)
{
    // A prompt that has just closed goes away at the next turn of the loop.
    if (menu.passEntry() && !menu.passEntry()->isVisible() &&
        !QTest::qWaitFor([&menu] { return !menu.passEntry(); }, 5000))
        return nullptr;
    QTest::mouseClick(menu.findChild<ColourButton*>(QLatin1String(button)), Qt::LeftButton);
    return menu.passEntry();
}

void tst_AdminLogin::type(frmPassEntry* prompt, const QString& password)
{
    auto* box = prompt->findChild<QLineEdit*>("txtNewPass");
    box->clear();
    QTest::keyClicks(box, password);
    QTest::keyClick(box, Qt::Key_Return);
}

void tst_AdminLogin::buttonsEnabledWithTheRealScreens()
{
    TestContext t;
    ScreenRegistry screens;
    registerAdminScreens(screens);
    frmMain menu(*t.ctx, screens);
    for (const char* b : {"cmdConfigure", "cmdDrive", "cmdPassword"})
        QVERIFY2(menu.findChild<ColourButton*>(QLatin1String(b))->isEnabled(), b);
    QTest::mouseClick(menu.findChild<ColourButton*>("cmdPassword"), Qt::LeftButton);
    QVERIFY(qobject_cast<frmPassword*>(menu.openScreen(Screen::Password)));
    QVERIFY(!menu.passEntry()); // no login in front of the password screen
}

void tst_AdminLogin::changedAdminPasswordOpensBothScreens()
{
    TestContext t;
    ScreenRegistry screens;
    registerAdminScreens(screens);
    frmMain menu(*t.ctx, screens);
    menu.show();

    // Change the admin password on the password screen.
    QTest::mouseClick(menu.findChild<ColourButton*>("cmdPassword"), Qt::LeftButton);
    auto* password = qobject_cast<frmPassword*>(menu.openScreen(Screen::Password));
    QVERIFY(password);
    QVERIFY(QTest::qWaitForWindowActive(password));
    auto* old = password->findChild<QLineEdit*>("txtOldPass");
    auto* fresh = password->findChild<QLineEdit*>("txtNewPass");
    old->setFocus(Qt::MouseFocusReason);
    QTest::keyClicks(old, "admin");
    fresh->setFocus(Qt::MouseFocusReason);
    QTRY_COMPARE(QApplication::focusWidget(), fresh);
    QTest::keyClicks(fresh, "Branch7");
    QTest::keyClicks(password->findChild<QLineEdit*>("txtConfirmPass"), "branch7");
    QTest::mouseClick(password->findChild<ColourButton*>("cmdSend"), Qt::LeftButton);
    QCOMPARE(t.messenger.texts(), QStringList{"Data Saved Successfully"});
    QTest::mouseClick(password->findChild<ColourButton*>("cmdExit"), Qt::LeftButton);
    t.messenger.clear();

    // The old password is refused now.
    frmPassEntry* prompt = openPrompt(menu, "cmdConfigure");
    QVERIFY(prompt);
    type(prompt, "admin");
    QCOMPARE(t.messenger.texts(), QStringList{"Password entered is Incorrect"});
    QVERIFY(!menu.openScreen(Screen::Configure));
    // Typed in capitals it is refused too.
    type(prompt, "Branch7");
    QCOMPARE(t.messenger.count("Password entered is Incorrect"), 2);

    // The new one opens configuration.
    type(prompt, "branch7");
    QVERIFY(t.ctx->LoginPassed);
    auto* configure = qobject_cast<frmConfigure*>(menu.openScreen(Screen::Configure));
    QVERIFY(configure);
    QTRY_VERIFY(configure->isVisible());
    QVERIFY(!menu.openScreen(Screen::Drive));

    // Drive selection through the same prompt.
    prompt = openPrompt(menu, "cmdDrive");
    QVERIFY(prompt);
    type(prompt, "branch7");
    auto* drive = qobject_cast<frmDrive*>(menu.openScreen(Screen::Drive));
    QVERIFY(drive);
    QTRY_VERIFY(drive->isVisible());
    QCOMPARE(t.messenger.count("Password entered is Incorrect"), 2);
}

QTEST_MAIN(tst_AdminLogin)
#include "tst_adminlogin.moc"
