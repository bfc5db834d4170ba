#include "DownloadFileMaker.h"
#include "FakeTerminal.h"
#include "SendFlow.h"
#include "TestContext.h"
#include "frmsend.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>

namespace {

// The send screen on a fresh database, its bank folder and a fake terminal.
struct ScreenFixture
{
    TestContext t;
    FakeTerminal* terminal = nullptr;
    bool silent = true;
    std::unique_ptr<frmsend> form;

    ScreenFixture()
    {
        prepareSendContext(t, &terminal, &silent);
        form = std::make_unique<frmsend>(*t.ctx);
        form->show();
        QApplication::setActiveWindow(form.get());
        if (!QTest::qWaitForWindowExposed(form.get()))
            qWarning("send screen not exposed");
    }

    template <typename T> T* find(const char* name) const
    {
        T* w = form->findChild<T*>(QLatin1String(name));
        if (!w)
            qFatal("no control named %s", name);
        return w;
    }
    QLineEdit* agent() const { return find<QLineEdit>("txtAgent"); }
    QLineEdit* date() const { return find<QLineEdit>("txtDate"); }
    QLineEdit* transact() const { return find<QLineEdit>("txtTransact"); }
    QPushButton* send() const { return find<QPushButton>("cmdSend"); }
    QPushButton* clear() const { return find<QPushButton>("cmdClear"); }

    void writeFile(const QString& name, const QByteArray& content)
    {
        QFile f(QDir(t.ctx->settings.BankInfoPath).filePath(name));
        if (!f.open(QIODevice::WriteOnly))
            qFatal("cannot write fixture");
        f.write(content);
    }

    void typeAll(const QString& agentText, const QString& dateText, const QString& transactText)
    {
        QTest::keyClicks(agent(), agentText);
        QTest::keyClicks(date(), dateText);
        QTest::keyClicks(transact(), transactText);
    }

    bool buttonsEnabled() const { return send()->isEnabled() && clear()->isEnabled(); }
    int framesWritten() const { return terminal ? static_cast<int>(terminal->written.size()) : 0; }
};

} // namespace

class tst_frmsend : public QObject
{
    Q_OBJECT
private slots:
    void controls();
    void emptyAgentSendsNothing();
    void dateOfThreeDigitsAccepted();
    void dateLongerThanFourRefused();
    void transactionsKeys_data();
    void transactionsKeys();
    void agentAndDateTakeDigitsOnly();
    void enterMovesFocus();
    void emptyTransactionsBecomeOne();
    void buttonsReEnabledAfterEachFailure_data();
    void buttonsReEnabledAfterEachFailure();
    void buttonsOffDuringDownload();
    void terminalRefusalReEnablesButtons();
    void progressAndCompletion();
    void clearEmptiesBoxes();
    void closingClosesThePort();
};

void tst_frmsend::controls()
{
    ScreenFixture f;
    QCOMPARE(f.send()->text(), QStringLiteral("&Send"));
    QCOMPARE(f.clear()->text(), QStringLiteral("&Clear"));
    QCOMPARE(f.find<QPushButton>("cmdExit")->text(), QStringLiteral("&Exit"));
    QVERIFY(f.find<QLabel>("lblRecord")->text().isEmpty());
    QVERIFY(f.find<QProgressBar>("progressBar"));
    QStringList labels;
    for (const QLabel* l : f.form->findChildren<QLabel*>())
        labels << l->text();
    QVERIFY(labels.contains(QStringLiteral("Date (ddmm) :")));
    QVERIFY(labels.contains(QStringLiteral("No. of Transactions :")));
    QVERIFY(labels.contains(QStringLiteral("Record Sent :")));
    QVERIFY(f.agent()->text().isEmpty() && f.date()->text().isEmpty() && f.transact()->text().isEmpty());
}

void tst_frmsend::emptyAgentSendsNothing()
{
    ScreenFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(2));
    f.typeAll(QString(), QStringLiteral("1611"), QStringLiteral("1"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    QCOMPARE(f.t.messenger.texts(), QStringList{QStringLiteral("Enter Agent ID")});
    QCOMPARE(f.t.messenger.lastIcon(), Messenger::Icon::Information);
    QCOMPARE(QApplication::focusWidget(), f.agent());
    QCOMPARE(f.framesWritten(), 0);
    QVERIFY(f.buttonsEnabled());
}

void tst_frmsend::dateOfThreeDigitsAccepted()
{
    ScreenFixture f;
    f.typeAll(QStringLiteral("5"), QStringLiteral("161"), QStringLiteral("1"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    QCOMPARE(f.t.messenger.texts(), QStringList{QStringLiteral("File does not exist!")});
    QCOMPARE(f.t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(f.form->flow().downloadPath().endsWith(QStringLiteral("005161d.txt")));
    QVERIFY(f.buttonsEnabled());
}

void tst_frmsend::dateLongerThanFourRefused()
{
    ScreenFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(2));
    f.typeAll(QStringLiteral("5"), QStringLiteral("16112"), QStringLiteral("1"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    QCOMPARE(f.t.messenger.texts(), QStringList{QStringLiteral("Enter Date")});
    QCOMPARE(QApplication::focusWidget(), f.date());
    QCOMPARE(f.framesWritten(), 0);
    QVERIFY(f.buttonsEnabled());
}

void tst_frmsend::transactionsKeys_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("expected");
    QTest::newRow("8") << "8"
                       << "";
    QTest::newRow("9") << "9"
                       << "";
    QTest::newRow("0 to 7") << "07"
                            << "07";
    QTest::newRow("8 and 9 among others") << "1829"
                                          << "12";
    QTest::newRow("letters") << "a-b"
                             << "";
}

void tst_frmsend::transactionsKeys()
{
    QFETCH(QString, typed);
    QFETCH(QString, expected);
    ScreenFixture f;
    QTest::keyClicks(f.transact(), typed);
    QCOMPARE(f.transact()->text(), expected);
    if (!expected.isEmpty()) {
        QTest::keyClick(f.transact(), Qt::Key_Backspace);
        QCOMPARE(f.transact()->text(), expected.chopped(1));
    }
}

void tst_frmsend::agentAndDateTakeDigitsOnly()
{
    ScreenFixture f;
    QTest::keyClicks(f.agent(), QStringLiteral("1a2 9"));
    QTest::keyClicks(f.date(), QStringLiteral("16/11"));
    QCOMPARE(f.agent()->text(), QStringLiteral("129"));
    QCOMPARE(f.date()->text(), QStringLiteral("1611"));
    QTest::keyClick(f.agent(), Qt::Key_Backspace);
    QCOMPARE(f.agent()->text(), QStringLiteral("12"));
}

void tst_frmsend::enterMovesFocus()
{
    ScreenFixture f;
    f.agent()->setFocus();
    QTRY_COMPARE(QApplication::focusWidget(), f.agent());
    QTest::keyClick(f.agent(), Qt::Key_Return);
    QCOMPARE(QApplication::focusWidget(), f.date());
    QTest::keyClick(f.date(), Qt::Key_Enter);
    QCOMPARE(QApplication::focusWidget(), f.transact());
    QTest::keyClick(f.transact(), Qt::Key_Return);
    QCOMPARE(QApplication::focusWidget(), f.send());
    QVERIFY(f.agent()->text().isEmpty());
    // Enter on the focused Send button presses it.
    QTest::keyClick(f.send(), Qt::Key_Return);
    QCOMPARE(f.t.messenger.texts(), QStringList{QStringLiteral("Enter Agent ID")});
}

void tst_frmsend::emptyTransactionsBecomeOne()
{
    ScreenFixture f;
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QString());
    QTest::mouseClick(f.send(), Qt::LeftButton);
    QCOMPARE(f.transact()->text(), QStringLiteral("1"));
}

void tst_frmsend::buttonsReEnabledAfterEachFailure_data()
{
    QTest::addColumn<QByteArray>("content"); // empty: no file at all
    QTest::addColumn<QString>("message");
    QTest::newRow("file missing") << QByteArray() << "File does not exist!";
    QTest::newRow("bad length") << joinLines({AccountLine().bytes().left(90)}) << "Error in DATA FORMAT";
    QTest::newRow("2001 records") << accountsFile(2001)
                                  << "No.of records has exceeded 2000,Please check the DownLoad File";
}

void tst_frmsend::buttonsReEnabledAfterEachFailure()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    ScreenFixture f;
    if (!content.isEmpty())
        f.writeFile(QStringLiteral("0051611d.txt"), content);
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("1"));
    for (int attempt = 0; attempt < 2; ++attempt) {
        QTest::mouseClick(f.send(), Qt::LeftButton);
        QCOMPARE(f.t.messenger.last(), message);
        QVERIFY(f.buttonsEnabled());
    }
    QCOMPARE(f.t.messenger.count(message), 2);
    QCOMPARE(f.framesWritten(), 0);
}

void tst_frmsend::buttonsOffDuringDownload()
{
    ScreenFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(3));
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("1"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    QCOMPARE(f.framesWritten(), 1); // the header
    QVERIFY(!f.send()->isEnabled());
    QVERIFY(!f.clear()->isEnabled());
    QVERIFY(f.find<QPushButton>("cmdExit")->isEnabled());
}

void tst_frmsend::terminalRefusalReEnablesButtons()
{
    ScreenFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(3));
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("1"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    QVERIFY(!f.buttonsEnabled());
    f.terminal->feed("BACKBACKBACKBA");
    QVERIFY(f.buttonsEnabled());
    QCOMPARE(f.t.messenger.last(),
             QStringLiteral("Please goto Download Mode in the HandHeld Terminal and then Send Data!"));
}

void tst_frmsend::progressAndCompletion()
{
    ScreenFixture f;
    f.silent = false;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(4));
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("2"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(f.t.messenger.last().startsWith(QStringLiteral("Download Completed Successfully")), 10000);
    QCOMPARE(f.find<QLabel>("lblRecord")->text(), QStringLiteral("4 / 4"));
    QCOMPARE(f.find<QProgressBar>("progressBar")->maximum(), 4);
    QCOMPARE(f.find<QProgressBar>("progressBar")->value(), 4);
    QVERIFY(f.buttonsEnabled());
}

void tst_frmsend::clearEmptiesBoxes()
{
    ScreenFixture f;
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("3"));
    QTest::mouseClick(f.clear(), Qt::LeftButton);
    QVERIFY(f.agent()->text().isEmpty());
    QVERIFY(f.date()->text().isEmpty());
    QVERIFY(f.transact()->text().isEmpty());
}

void tst_frmsend::closingClosesThePort()
{
    ScreenFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(2));
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("1"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    QVERIFY(f.terminal && f.terminal->isOpen());
    QTest::mouseClick(f.find<QPushButton>("cmdExit"), Qt::LeftButton);
    QVERIFY(!f.form->isVisible());
    QVERIFY(!f.terminal->isOpen());
}

QTEST_MAIN(tst_frmsend)
#include "tst_frmsend.moc"
