#include "app/frmPassEntry.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"

#include <QApplication>
#include <QLineEdit>
#include <QSignalSpy>
#include <QtTest>

class tst_frmPassEntry : public QObject
{
    Q_OBJECT

private slots:
    void captionsAndNames();
    void typedPasswordAgainstStoredOne_data();
    void typedPasswordAgainstStoredOne();
    void emptyEntryAgainstMissingRow();
    void wrongPasswordClearsAndRefocuses();
    void enterChecksLikeOk();
    void cancelOpensNothing();
    void expectedPasswordReadAtEachOpening();
};

namespace {
void setAdmin(TestContext& t, const QString& value)
{
    t.db.execute("UPDATE Password SET admin = ? WHERE SNo = '1'", {value});
}
} // namespace

void tst_frmPassEntry::captionsAndNames()
{
    TestContext t;
    frmPassEntry prompt(*t.ctx);
    QCOMPARE(prompt.objectName(), QStringLiteral("frmPassEntry"));
    QCOMPARE(prompt.windowTitle(), QStringLiteral("PasswordEntry"));
    QCOMPARE(prompt.findChild<QLineEdit*>("txtOldPass")->text(), QStringLiteral("Admin"));
    QCOMPARE(prompt.findChild<QLineEdit*>("txtNewPass")->echoMode(), QLineEdit::Password);
    QCOMPARE(prompt.findChild<ColourButton*>("cmdOK")->text(), QStringLiteral("&OK"));
    QCOMPARE(prompt.findChild<ColourButton*>("cmdCancel")->text(), QStringLiteral("&Cancel"));
    QCOMPARE(prompt.font().family(), QStringLiteral("Garamond"));
    QVERIFY(prompt.findChild<QWidget*>("Frame3"));
}

void tst_frmPassEntry::typedPasswordAgainstStoredOne_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("stored Abc1, typed abc1") << "Abc1"
                                             << "abc1" << true;
    QTest::newRow("stored Abc1, typed Abc1") << "Abc1"
                                             << "Abc1" << false;
    QTest::newRow("stored ABC1, typed abc1") << "ABC1"
                                             << "abc1" << true;
    QTest::newRow("stored abc1, typed ABC1") << "abc1"
                                             << "ABC1" << false;
    QTest::newRow("empty against empty") << ""
                                         << "" << true;
    QTest::newRow("typed with trailing blank") << "abc1"
                                               << "abc1 " << false;
    QTest::newRow("wrong") << "abc1"
                           << "abc2" << false;
}

void tst_frmPassEntry::typedPasswordAgainstStoredOne()
{
    QFETCH(QString, stored);
    QFETCH(QString, typed);
    QFETCH(bool, accepted);
    TestContext t;
    setAdmin(t, stored);
    auto* prompt = new frmPassEntry(*t.ctx);
    prompt->setAttribute(Qt::WA_DeleteOnClose);
    QPointer<frmPassEntry> alive(prompt);
    prompt->show();
    QSignalSpy opened(prompt, &frmPassEntry::loginSucceeded);
    QTest::keyClicks(prompt->findChild<QLineEdit*>("txtNewPass"), typed);
    QTest::mouseClick(prompt->findChild<ColourButton*>("cmdOK"), Qt::LeftButton);
    QCOMPARE(opened.count(), accepted ? 1 : 0);
    QCOMPARE(t.ctx->LoginPassed, accepted);
    if (accepted) {
        QVERIFY(t.messenger.entries().isEmpty());
        QTRY_VERIFY(!alive); // unloaded on success
    } else {
        QCOMPARE(t.messenger.texts(), QStringList{"Password entered is Incorrect"});
        QVERIFY(alive && alive->isVisible());
        delete alive.data();
    }
}

void tst_frmPassEntry::emptyEntryAgainstMissingRow()
{
    TestContext t;
    t.db.execute("DELETE FROM Password");
    frmPassEntry prompt(*t.ctx);
    prompt.show();
    QSignalSpy opened(&prompt, &frmPassEntry::loginSucceeded);
    QTest::mouseClick(prompt.findChild<ColourButton*>("cmdOK"), Qt::LeftButton);
    QCOMPARE(opened.count(), 1);
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_frmPassEntry::wrongPasswordClearsAndRefocuses()
{
    TestContext t;
    frmPassEntry prompt(*t.ctx);
    prompt.show();
    prompt.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&prompt));
    auto* box = prompt.findChild<QLineEdit*>("txtNewPass");
    QTest::keyClicks(box, "nonsense");
    QTest::mouseClick(prompt.findChild<ColourButton*>("cmdOK"), Qt::LeftButton);
    QCOMPARE(t.messenger.last(), QStringLiteral("Password entered is Incorrect"));
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(box->text().isEmpty());
    QTRY_VERIFY(box->hasFocus());
    QVERIFY(!t.ctx->LoginPassed);
}

void tst_frmPassEntry::enterChecksLikeOk()
{
    TestContext t;
    frmPassEntry prompt(*t.ctx);
    prompt.show();
    QSignalSpy opened(&prompt, &frmPassEntry::loginSucceeded);
    auto* box = prompt.findChild<QLineEdit*>("txtNewPass");
    QTest::keyClicks(box, "wrong");
    QTest::keyClick(box, Qt::Key_Enter);
    QCOMPARE(t.messenger.count("Password entered is Incorrect"), 1);
    QTest::keyClicks(box, "admin");
    QTest::keyClick(box, Qt::Key_Return);
    QCOMPARE(opened.count(), 1);
}

void tst_frmPassEntry::cancelOpensNothing()
{
    TestContext t;
    t.ctx->LoginPassed = true;
    auto* prompt = new frmPassEntry(*t.ctx);
    prompt->setAttribute(Qt::WA_DeleteOnClose);
    QPointer<frmPassEntry> alive(prompt);
    prompt->show();
    QSignalSpy opened(prompt, &frmPassEntry::loginSucceeded);
    QTest::keyClicks(prompt->findChild<QLineEdit*>("txtNewPass"), "admin");
    QTest::mouseClick(prompt->findChild<ColourButton*>("cmdCancel"), Qt::LeftButton);
    QCOMPARE(opened.count(), 0);
    QTRY_VERIFY(!alive);
    QVERIFY(t.messenger.entries().isEmpty());
    // Loading cleared it; Cancel leaves it as it was.
    QVERIFY(!t.ctx->LoginPassed);
}

void tst_frmPassEntry::expectedPasswordReadAtEachOpening()
{
    TestContext t;
    {
        frmPassEntry prompt(*t.ctx);
        setAdmin(t, "changed");
        QSignalSpy opened(&prompt, &frmPassEntry::loginSucceeded);
        QTest::keyClicks(prompt.findChild<QLineEdit*>("txtNewPass"), "changed");
        prompt.checkPassword();
        QCOMPARE(opened.count(), 0); // this prompt read the old one
    }
    frmPassEntry again(*t.ctx);
    QSignalSpy opened(&again, &frmPassEntry::loginSucceeded);
    QTest::keyClicks(again.findChild<QLineEdit*>("txtNewPass"), "changed");
    again.checkPassword();
    QCOMPARE(opened.count(), 1);
}

QTEST_MAIN(tst_frmPassEntry)
#include "tst_frmpassentry.moc"
