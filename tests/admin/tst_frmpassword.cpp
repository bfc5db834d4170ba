#include "admin/PasswordChange.h"
#include "admin/frmPassword.h"
#include "store/PasswordStore.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"

#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QtTest>

class tst_frmPassword : public QObject
{
    Q_OBJECT

private slots:
    void captionsAndNames();
    void opensOnSoftwareAdmin();
    void newAndConfirmation_data();
    void newAndConfirmation();
    void typingLimits_data();
    void typingLimits();
    void arithmeticBackspace_data();
    void arithmeticBackspace();
    void backspaceDeletesUnderSoftware();
    void updateWithoutAPairWritesNothing_data();
    void updateWithoutAPairWritesNothing();
    void oldPasswordCheckedWhenEnteringNewBox_data();
    void oldPasswordCheckedWhenEnteringNewBox();
    void changesEachKind_data();
    void changesEachKind();
    void storedPasswordsNotRefreshedWhileOpen();
    void focusSwitchesFramesAndClearsBoxes();
    void clickSetsLengthLimit();
    void enterMovesTheFocus_data();
    void enterMovesTheFocus();
    void enterDoesNothingInBoxesUnderSoftware();

private:
    struct Screen
    {
        TestContext t;
        frmPassword w{*t.ctx};
        template <typename T> T* get(const char* name) { return w.findChild<T*>(QLatin1String(name)); }
        QLineEdit* box(const char* name) { return get<QLineEdit>(name); }
        void activate()
        {
            w.show();
            QVERIFY(QTest::qWaitForWindowActive(&w));
        }
        void focus(QWidget* widget)
        {
            widget->setFocus(Qt::MouseFocusReason);
            QTRY_COMPARE(QApplication::focusWidget(), widget);
        }
        // Clicks an option on its round indicator, as a user would.
        void click(const char* name)
        {
            if (!w.isVisible())
                activate();
            QRadioButton* b = get<QRadioButton>(name);
            QTRY_VERIFY(b->isVisible());
            QTest::mouseClick(b, Qt::LeftButton, {}, QPoint(6, b->height() / 2));
            QVERIFY2(b->isChecked(), name);
        }
        // Chooses a pair as the user would: click the family, then the kind.
        void choose(const char* family, const char* kind)
        {
            click(family);
            click(kind);
        }
        void update() { QTest::mouseClick(get<ColourButton>("cmdSend"), Qt::LeftButton); }
        QString raw(const QString& field)
        {
            SharedRecordset& rs = t.db.openSharedRecordset("select * from Password where SNo=?", {"1"});
            const QString value = rs.text(field);
            t.db.closeSharedRecordset();
            return value;
        }
    };
};

void tst_frmPassword::captionsAndNames()
{
    Screen s;
    QCOMPARE(s.w.windowTitle(), QStringLiteral("Password"));
    QCOMPARE(s.w.font().family(), QStringLiteral("Arial"));
    QCOMPARE(s.get<QLabel>("Label2")->text(), QStringLiteral("Password"));
    for (const char* frame : {"Frame1", "Frame2", "Frame3", "Frame4", "Frame5"})
        QVERIFY2(s.get<QFrame>(frame), frame);
    QCOMPARE(s.get<QRadioButton>("OpSoftware")->text(), QStringLiteral("Software"));
    QCOMPARE(s.get<QRadioButton>("OpHandHeld")->text(), QStringLiteral("Hand Held Terminal"));
    QCOMPARE(s.get<QRadioButton>("OpAdmin")->text(), QStringLiteral("Admin"));
    QCOMPARE(s.get<QRadioButton>("OpUser")->text(), QStringLiteral("User"));
    QCOMPARE(s.get<QRadioButton>("OpSetup")->text(), QStringLiteral("Setup"));
    QCOMPARE(s.get<QRadioButton>("OpDownload")->text(), QStringLiteral("Main Screen"));
    QCOMPARE(s.get<QRadioButton>("OpAdmin")->parent(), s.get<QFrame>("Frame5"));
    QCOMPARE(s.get<QRadioButton>("OpSetup")->parent(), s.get<QFrame>("Frame4"));
    QCOMPARE(s.get<QRadioButton>("OpSoftware")->parent(), s.get<QFrame>("Frame2"));
    QCOMPARE(s.get<QLabel>("Label6")->text(), QStringLiteral("Enter Old Password :"));
    QCOMPARE(s.get<QLabel>("Label4")->text(), QStringLiteral("Enter New Password :"));
    QCOMPARE(s.get<QLabel>("Label1")->text(), QStringLiteral("Confirm New Password :"));
    for (const char* box : {"txtOldPass", "txtNewPass", "txtConfirmPass"}) {
        QCOMPARE(s.box(box)->echoMode(), QLineEdit::Password);
        QCOMPARE(s.box(box)->parent(), s.get<QFrame>("Frame3"));
    }
    QCOMPARE(s.get<ColourButton>("cmdSend")->text(), QStringLiteral("&Update"));
    QCOMPARE(s.get<ColourButton>("cmdExit")->text(), QStringLiteral("&Exit"));
    QTest::mouseClick(s.get<ColourButton>("cmdExit"), Qt::LeftButton);
    QVERIFY(!s.w.isVisible());
}

void tst_frmPassword::opensOnSoftwareAdmin()
{
    Screen s;
    s.activate();
    QVERIFY(s.get<QRadioButton>("OpSoftware")->isChecked());
    QVERIFY(s.get<QRadioButton>("OpAdmin")->isChecked());
    QVERIFY(!s.get<QRadioButton>("OpHandHeld")->isChecked());
    QVERIFY(s.get<QFrame>("Frame5")->isVisible());
    QVERIFY(!s.get<QFrame>("Frame4")->isVisible());
    QCOMPARE(s.box("txtOldPass")->maxLength(), 10);
    QCOMPARE(QApplication::focusWidget(), s.box("txtOldPass"));
    QVERIFY(s.t.messenger.entries().isEmpty());
}

void tst_frmPassword::newAndConfirmation_data()
{
    QTest::addColumn<QString>("newPassword");
    QTest::addColumn<QString>("confirmation");
    QTest::addColumn<QString>("stored"); // empty: nothing written
    QTest::newRow("inner blank counts") << "Ab 1"
                                        << "ab1"
                                        << "";
    QTest::newRow("case does not count") << "AB1"
                                         << "ab1"
                                         << "ab1";
    QTest::newRow("outer blanks do not count") << " ab1 "
                                               << "AB1  "
                                               << "ab1";
    QTest::newRow("different") << "abc"
                               << "abd"
                               << "";
}

void tst_frmPassword::newAndConfirmation()
{
    QFETCH(QString, newPassword);
    QFETCH(QString, confirmation);
    QFETCH(QString, stored);
    Screen s;
    s.activate();
    QTest::keyClicks(s.box("txtOldPass"), "admin");
    s.focus(s.box("txtNewPass"));
    QTest::keyClicks(s.box("txtNewPass"), newPassword);
    s.focus(s.box("txtConfirmPass"));
    QTest::keyClicks(s.box("txtConfirmPass"), confirmation);
    const QString before = s.raw("admin");
    s.update();
    QCOMPARE(s.t.messenger.entries().size(), 1);
    const auto& said = s.t.messenger.entries().last();
    if (stored.isEmpty()) {
        QCOMPARE(said.text, QStringLiteral("Conifrming New Password is Incorrect"));
        QCOMPARE(said.icon, Messenger::Icon::Critical);
        QCOMPARE(said.title, QString());
        QCOMPARE(s.box("txtConfirmPass")->text(), QString());
        QCOMPARE(s.box("txtNewPass")->text(), newPassword);
        QTRY_COMPARE(QApplication::focusWidget(), s.box("txtConfirmPass"));
        QCOMPARE(s.raw("admin"), before);
    } else {
        QCOMPARE(said.text, QStringLiteral("Data Saved Successfully"));
        QCOMPARE(said.icon, Messenger::Icon::Information);
        QCOMPARE(said.title, QStringLiteral("DATA SAVE"));
        QVERIFY(StoredPassword::fromField(s.raw("admin")).matches(stored));
        QVERIFY(!s.raw("admin").contains(stored));
    }
}

void tst_frmPassword::typingLimits_data()
{
    QTest::addColumn<QString>("box");
    QTest::addColumn<bool>("handHeld");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("kept");
    for (const char* box : {"txtOldPass", "txtNewPass", "txtConfirmPass"}) {
        QTest::addRow("%s, terminal: no letters, 4 digits", box) << box << true << "a1b2 c3-d4e5x6"
                                                                 << "1234";
        QTest::addRow("%s, terminal: digits only", box) << box << true << "98765"
                                                        << "9876";
        QTest::addRow("%s, software: anything, 10", box) << box << false << "a1b2 c3-d4e5x6"
                                                         << "a1b2 c3-d4";
    }
}

void tst_frmPassword::typingLimits()
{
    QFETCH(QString, box);
    QFETCH(bool, handHeld);
    QFETCH(QString, typed);
    QFETCH(QString, kept);
    Screen s;
    if (handHeld)
        s.choose("OpHandHeld", "OpSetup");
    QTest::keyClicks(s.box(qPrintable(box)), typed);
    QCOMPARE(s.box(qPrintable(box))->text(), kept);
}

void tst_frmPassword::arithmeticBackspace_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("after");
    QTest::newRow("0012 leaves 1") << "0012"
                                   << "1";
    QTest::newRow("empty leaves 0") << ""
                                    << "0";
    QTest::newRow("one digit leaves 0") << "7"
                                        << "0";
    QTest::newRow("1234 leaves 123") << "1234"
                                     << "123";
    QTest::newRow("0 leaves 0") << "0"
                                << "0";
}

void tst_frmPassword::arithmeticBackspace()
{
    QFETCH(QString, text);
    QFETCH(QString, after);
    Screen s;
    s.choose("OpHandHeld", "OpDownload");
    for (const char* name : {"txtOldPass", "txtNewPass", "txtConfirmPass"}) {
        QLineEdit* box = s.box(name);
        box->setText(text);
        QTest::keyClick(box, Qt::Key_Backspace);
        QCOMPARE(box->text(), after);
        QCOMPARE(box->cursorPosition(), 0);
    }
}

void tst_frmPassword::backspaceDeletesUnderSoftware()
{
    Screen s;
    QLineEdit* box = s.box("txtNewPass");
    QTest::keyClicks(box, "0012");
    QTest::keyClick(box, Qt::Key_Backspace);
    QCOMPARE(box->text(), QStringLiteral("001"));
}

void tst_frmPassword::updateWithoutAPairWritesNothing_data()
{
    QTest::addColumn<QString>("family");
    QTest::newRow("Software without Admin or User") << "OpSoftware";
    QTest::newRow("Hand Held Terminal without Setup or Main Screen") << "OpHandHeld";
}

void tst_frmPassword::updateWithoutAPairWritesNothing()
{
    QFETCH(QString, family);
    Screen s;
    PasswordStore::load(s.t.db); // converts the initial row first
    const QStringList fields = {"admin", "user", "setup", "download"};
    QStringList before;
    for (const QString& f : fields)
        before << s.raw(f);
    s.click(qPrintable(family));
    auto* admin = s.get<QRadioButton>("OpAdmin");
    admin->setAutoExclusive(false);
    admin->setChecked(false);
    admin->setAutoExclusive(true);
    QVERIFY(!PasswordChange::kindOf({s.get<QRadioButton>("OpSoftware")->isChecked(),
                                     s.get<QRadioButton>("OpHandHeld")->isChecked(), false, false, false, false}));
    s.box("txtNewPass")->setText("1111");
    s.box("txtConfirmPass")->setText("1111");
    s.update();
    QCOMPARE(s.t.messenger.texts(), QStringList{"Data Saved Successfully"});
    QCOMPARE(s.t.messenger.entries().last().title, QStringLiteral("DATA SAVE"));
    QCOMPARE(s.t.messenger.lastIcon(), Messenger::Icon::Information);
    QStringList after;
    for (const QString& f : fields)
        after << s.raw(f);
    QCOMPARE(after, before);
}

void tst_frmPassword::oldPasswordCheckedWhenEnteringNewBox_data()
{
    QTest::addColumn<QString>("family");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("admin right") << "OpSoftware"
                                 << "OpAdmin"
                                 << "admin" << true;
    QTest::newRow("admin typed in capitals is lower-cased") << "OpSoftware"
                                                            << "OpAdmin"
                                                            << "ADMIN" << true;
    QTest::newRow("admin wrong") << "OpSoftware"
                                 << "OpAdmin"
                                 << "user" << false;
    QTest::newRow("admin with a blank") << "OpSoftware"
                                        << "OpAdmin"
                                        << "admin " << false;
    QTest::newRow("user right") << "OpSoftware"
                                << "OpUser"
                                << "user" << true;
    QTest::newRow("user wrong") << "OpSoftware"
                                << "OpUser"
                                << "admin" << false;
    QTest::newRow("setup right") << "OpHandHeld"
                                 << "OpSetup"
                                 << "1234" << true;
    QTest::newRow("setup wrong") << "OpHandHeld"
                                 << "OpSetup"
                                 << "5678" << false;
    QTest::newRow("main screen right") << "OpHandHeld"
                                       << "OpDownload"
                                       << "5678" << true;
    QTest::newRow("main screen wrong") << "OpHandHeld"
                                       << "OpDownload"
                                       << "1234" << false;
}

void tst_frmPassword::oldPasswordCheckedWhenEnteringNewBox()
{
    QFETCH(QString, family);
    QFETCH(QString, kind);
    QFETCH(QString, typed);
    QFETCH(bool, accepted);
    Screen s;
    s.activate();
    s.choose(qPrintable(family), qPrintable(kind));
    QLineEdit* old = s.box("txtOldPass");
    s.focus(old);
    QTest::keyClicks(old, typed);
    s.box("txtNewPass")->setFocus(Qt::MouseFocusReason);
    if (accepted) {
        QTRY_COMPARE(QApplication::focusWidget(), s.box("txtNewPass"));
        QVERIFY(s.t.messenger.entries().isEmpty());
        QCOMPARE(old->text(), typed);
    } else {
        QCOMPARE(s.t.messenger.texts(), QStringList{"Password entered is incorrect"});
        QCOMPARE(s.t.messenger.lastIcon(), Messenger::Icon::Critical);
        QCOMPARE(s.t.messenger.entries().last().title, QString());
        QCOMPARE(old->text(), QString());
        QTRY_COMPARE(QApplication::focusWidget(), old);
    }
}

void tst_frmPassword::changesEachKind_data()
{
    QTest::addColumn<QString>("family");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("oldPassword");
    QTest::addColumn<QString>("newPassword");
    QTest::newRow("admin") << "OpSoftware"
                           << "OpAdmin"
                           << "admin"
                           << "admin"
                           << "Branch7";
    QTest::newRow("user") << "OpSoftware"
                          << "OpUser"
                          << "user"
                          << "user"
                          << "clerk";
    QTest::newRow("setup") << "OpHandHeld"
                           << "OpSetup"
                           << "setup"
                           << "1234"
                           << "0042";
    QTest::newRow("main screen") << "OpHandHeld"
                                 << "OpDownload"
                                 << "download"
                                 << "5678"
                                 << "9001";
}

void tst_frmPassword::changesEachKind()
{
    QFETCH(QString, family);
    QFETCH(QString, kind);
    QFETCH(QString, field);
    QFETCH(QString, oldPassword);
    QFETCH(QString, newPassword);
    Screen s;
    s.activate();
    s.choose(qPrintable(family), qPrintable(kind));
    s.focus(s.box("txtOldPass"));
    QTest::keyClicks(s.box("txtOldPass"), oldPassword);
    s.focus(s.box("txtNewPass"));
    QTest::keyClicks(s.box("txtNewPass"), newPassword);
    s.focus(s.box("txtConfirmPass"));
    QTest::keyClicks(s.box("txtConfirmPass"), newPassword);
    s.update();
    QCOMPARE(s.t.messenger.texts(), QStringList{"Data Saved Successfully"});
    const QString lower = newPassword.toLower();
    const QString stored = s.raw(field);
    if (family == "OpSoftware") {
        QVERIFY(StoredPassword::isHashedField(stored));
        QVERIFY(StoredPassword::fromField(stored).matches(lower));
    } else {
        QCOMPARE(stored, lower);
    }
    // Only the chosen field changed.
    const PasswordStore::Row row = PasswordStore::load(s.t.db);
    if (field != "admin")
        QVERIFY(row.admin.matches("admin"));
    if (field != "setup")
        QCOMPARE(row.setup, QStringLiteral("1234"));
}

void tst_frmPassword::storedPasswordsNotRefreshedWhileOpen()
{
    Screen s;
    s.activate();
    auto change = [&s](const QString& oldPassword, const QString& newPassword) {
        s.focus(s.get<QRadioButton>("OpAdmin"));
        s.focus(s.box("txtOldPass"));
        QTest::keyClicks(s.box("txtOldPass"), oldPassword);
        s.focus(s.box("txtNewPass"));
        if (QApplication::focusWidget() != s.box("txtNewPass"))
            return false;
        QTest::keyClicks(s.box("txtNewPass"), newPassword);
        s.box("txtConfirmPass")->setText(newPassword);
        s.update();
        return true;
    };
    QVERIFY(change("admin", "first"));
    QCOMPARE(s.t.messenger.texts(), QStringList{"Data Saved Successfully"});
    s.t.messenger.clear();
    // Still checked against the value read when the screen opened.
    s.box("txtOldPass")->setText("first");
    s.box("txtNewPass")->setFocus(Qt::MouseFocusReason);
    QCOMPARE(s.t.messenger.texts(), QStringList{"Password entered is incorrect"});
    s.t.messenger.clear();
    QVERIFY(change("admin", "second"));
    QCOMPARE(s.t.messenger.texts(), QStringList{"Data Saved Successfully"});
    QVERIFY(StoredPassword::fromField(s.raw("admin")).matches("second"));

    // A screen opened afresh reads the new value.
    frmPassword again(*s.t.ctx);
    again.show();
    QVERIFY(QTest::qWaitForWindowActive(&again));
    again.findChild<QLineEdit*>("txtOldPass")->setText("second");
    s.t.messenger.clear();
    again.findChild<QLineEdit*>("txtNewPass")->setFocus(Qt::MouseFocusReason);
    QTRY_COMPARE(QApplication::focusWidget(), again.findChild<QLineEdit*>("txtNewPass"));
    QVERIFY(s.t.messenger.entries().isEmpty());
}

void tst_frmPassword::focusSwitchesFramesAndClearsBoxes()
{
    Screen s;
    s.activate();
    auto* software = s.get<QFrame>("Frame5");
    auto* terminal = s.get<QFrame>("Frame4");
    auto* softwareOption = s.get<QRadioButton>("OpSoftware");
    auto* handHeld = s.get<QRadioButton>("OpHandHeld");
    // The focus alone on the kind not chosen shows none of its fields: the
    // frame shown is the checked kind's.
    s.focus(handHeld);
    QVERIFY(softwareOption->isChecked());
    QVERIFY(software->isVisible());
    QVERIFY(!terminal->isVisible());
    // The arrows choose the kind and the frames follow.
    s.focus(softwareOption);
    QTest::keyClick(softwareOption, Qt::Key_Right);
    QTRY_COMPARE(QApplication::focusWidget(), handHeld);
    QVERIFY(handHeld->isChecked());
    QVERIFY(terminal->isVisible());
    QVERIFY(!software->isVisible());
    QTest::keyClick(handHeld, Qt::Key_Left);
    QTRY_COMPARE(QApplication::focusWidget(), softwareOption);
    QVERIFY(software->isVisible());
    QVERIFY(!terminal->isVisible());

    for (const char* option : {"OpUser", "OpAdmin", "OpSetup", "OpDownload"}) {
        if (QLatin1String(option) == QLatin1String("OpSetup"))
            s.click("OpHandHeld");
        for (const char* box : {"txtOldPass", "txtNewPass", "txtConfirmPass"})
            s.box(box)->setText("12");
        s.focus(s.get<QRadioButton>(option));
        for (const char* box : {"txtOldPass", "txtNewPass", "txtConfirmPass"})
            QVERIFY2(s.box(box)->text().isEmpty(), option);
    }
}

void tst_frmPassword::clickSetsLengthLimit()
{
    Screen s;
    s.box("txtNewPass")->setText("abcdefghij");
    s.click("OpHandHeld");
    for (const char* box : {"txtOldPass", "txtNewPass", "txtConfirmPass"})
        QCOMPARE(s.box(box)->maxLength(), 4);
    QCOMPARE(s.box("txtNewPass")->text().size(), 4);
    s.click("OpSoftware");
    for (const char* box : {"txtOldPass", "txtNewPass", "txtConfirmPass"})
        QCOMPARE(s.box(box)->maxLength(), 10);
}

void tst_frmPassword::enterMovesTheFocus_data()
{
    QTest::addColumn<QString>("family");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::newRow("Software to Admin") << "OpSoftware"
                                       << "OpSoftware"
                                       << "OpAdmin";
    QTest::newRow("Hand Held to Setup") << "OpHandHeld"
                                        << "OpHandHeld"
                                        << "OpSetup";
    QTest::newRow("Admin to old") << "OpSoftware"
                                  << "OpAdmin"
                                  << "txtOldPass";
    QTest::newRow("User to old") << "OpSoftware"
                                 << "OpUser"
                                 << "txtOldPass";
    QTest::newRow("Setup to old") << "OpHandHeld"
                                  << "OpSetup"
                                  << "txtOldPass";
    QTest::newRow("Main Screen to old") << "OpHandHeld"
                                        << "OpDownload"
                                        << "txtOldPass";
    QTest::newRow("old to new") << "OpHandHeld"
                                << "txtOldPass"
                                << "txtNewPass";
    QTest::newRow("new to confirm") << "OpHandHeld"
                                    << "txtNewPass"
                                    << "txtConfirmPass";
    QTest::newRow("confirm to Update") << "OpHandHeld"
                                       << "txtConfirmPass"
                                       << "cmdSend";
}

void tst_frmPassword::enterMovesTheFocus()
{
    QFETCH(QString, family);
    QFETCH(QString, from);
    QFETCH(QString, to);
    Screen s;
    s.activate();
    // Setup with its right old password, so that entering the new box passes.
    if (family == "OpHandHeld")
        s.choose("OpHandHeld", "OpSetup");
    s.box("txtOldPass")->setText(family == "OpHandHeld" ? "1234" : "admin");
    auto* source = s.get<QWidget>(qPrintable(from));
    s.focus(source);
    QTest::keyClick(source, Qt::Key_Return);
    QTRY_COMPARE(QApplication::focusWidget(), s.get<QWidget>(qPrintable(to)));
    QVERIFY(s.t.messenger.entries().isEmpty());
}

void tst_frmPassword::enterDoesNothingInBoxesUnderSoftware()
{
    Screen s;
    s.activate();
    s.box("txtOldPass")->setText("admin");
    for (const char* name : {"txtOldPass", "txtNewPass", "txtConfirmPass"}) {
        s.focus(s.box(name));
        QTest::keyClick(s.box(name), Qt::Key_Return);
        QCOMPARE(QApplication::focusWidget(), s.box(name));
    }
    QVERIFY(s.t.messenger.entries().isEmpty());
}

QTEST_MAIN(tst_frmPassword)
#include "tst_frmpassword.moc"
