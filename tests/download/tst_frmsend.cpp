#include "download/SendFlow.h"
#include "download/frmsend.h"
#include "terminal/DownloadTerminal.h"
#include "terminal/Pty.h"
#include "tests/download/DownloadFileMaker.h"
#include "tests/download/FakeTerminal.h"
#include "tests/support/MessageRecorder.h"
#include "tests/support/TestContext.h"
#include "tests/support/TestTiming.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSet>
#include <QSignalSpy>

namespace {

// The send screen on a fresh database, its bank folder and a fake terminal.
struct ScreenFixture
{
    TestContext t;
    MessageRecorder messages;
    FakeTerminal* terminal = nullptr;
    bool silent = true;
    std::unique_ptr<frmsend> form;

    ScreenFixture()
    {
        prepareSendContext(t, &terminal, &silent);
        form = std::make_unique<frmsend>(*t.ctx);
        messages.listen(&form->flow(), &SendFlow::message);
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

    // The message boxes the screen has open, in the order they were opened.
    QList<QMessageBox*> boxes() const
    {
        QList<QMessageBox*> open;
        for (QMessageBox* b : form->findChildren<QMessageBox*>(QStringLiteral("MessageBox"))) {
            if (b->isVisible())
                open << b;
        }
        return open;
    }
    // Answers every open box, as the clerk pressing OK.
    void closeBoxes()
    {
        for (QMessageBox* b : boxes())
            b->accept();
        QApplication::processEvents();
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
    void focusStaysOffExitWhileSending();
    void enterAfterMissingFileDoesNotClose();
    void closeMidTransferAnsweredNo();
    void oneBoxOfAKind();
    void boxLeftOpenWhileAnswersKeepComing();
    void closedAsTheTerminalGoes();
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
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Enter Agent ID")});
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Information);
    QCOMPARE(QApplication::focusWidget(), f.agent());
    QCOMPARE(f.framesWritten(), 0);
    QVERIFY(f.buttonsEnabled());
}

void tst_frmsend::dateOfThreeDigitsAccepted()
{
    ScreenFixture f;
    f.typeAll(QStringLiteral("5"), QStringLiteral("161"), QStringLiteral("1"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("File does not exist!")});
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(f.form->flow().downloadPath().endsWith(QStringLiteral("005161d.txt")));
    QVERIFY(f.buttonsEnabled());
}

void tst_frmsend::dateLongerThanFourRefused()
{
    ScreenFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(2));
    f.typeAll(QStringLiteral("5"), QStringLiteral("16112"), QStringLiteral("1"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Enter Date")});
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
    QTest::newRow("0 to 7") << "7"
                            << "7";
    // One digit is all the header's field holds: the box takes no second.
    QTest::newRow("one digit at most") << "07"
                                       << "0";
    QTest::newRow("8 and 9 among others") << "892"
                                          << "2";
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
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Enter Agent ID")});
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
    QTest::addColumn<QString>("detail"); // the informative text under it
    AccountLine letter = AccountLine::numbered(2);
    letter.balance = QStringLiteral("00012X45");
    QTest::newRow("file missing") << QByteArray() << "File does not exist!"
                                  << "0051611d.txt (agent 005, date 1611). Check the Agent ID and the Date";
    QTest::newRow("bad length") << joinLines({AccountLine().bytes().left(90)}) << "Error in DATA FORMAT"
                                << "0051611d.txt, line 1: the record is 90 characters long";
    QTest::newRow("2001 records") << accountsFile(2001)
                                  << "No.of records has exceeded 2000,Please check the DownLoad File"
                                  << "0051611d.txt holds 2001 records";
    QTest::newRow("letter in a balance")
        << joinLines({AccountLine().bytes(), letter.bytes()}) << "Error in DATA FORMAT"
        << "0051611d.txt, line 2: the balance amount (columns 95-102) \"00012X45\" is not a number.";
    QTest::newRow("a line that ends before the agreed amount")
        << joinLines({AccountLine().bytes().left(104), AccountLine().bytes()}) << "Error in DATA FORMAT"
        << "line 1: the agreed amount (columns 106-110) \"\" is missing";
}

void tst_frmsend::buttonsReEnabledAfterEachFailure()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QFETCH(QString, detail);
    ScreenFixture f;
    if (!content.isEmpty())
        f.writeFile(QStringLiteral("0051611d.txt"), content);
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("1"));
    for (int attempt = 0; attempt < 2; ++attempt) {
        QTest::mouseClick(f.send(), Qt::LeftButton);
        QCOMPARE(f.messages.last(), message);
        QVERIFY(f.buttonsEnabled());
        QCOMPARE(f.boxes().size(), 1);
        QCOMPARE(f.boxes().first()->text(), message);
        QVERIFY2(f.boxes().first()->informativeText().contains(detail),
                 qPrintable(f.boxes().first()->informativeText()));
        f.closeBoxes();
    }
    QCOMPARE(f.messages.count(message), 2);
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
    QCOMPARE(f.messages.last(),
             QStringLiteral("Please goto Download Mode in the HandHeld Terminal and then Send Data!"));
}

void tst_frmsend::progressAndCompletion()
{
    ScreenFixture f;
    f.silent = false;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(4));
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("2"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(f.messages.last().startsWith(QStringLiteral("Download Completed Successfully")),
                             scaledMs(10000));
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
    // Mid-download: asked first, without blocking.
    QMessageBox* question = nullptr;
    QTRY_VERIFY((question = f.form->findChild<QMessageBox*>(QStringLiteral("StopQuestion"))) != nullptr);
    QCOMPARE(question->text(), frmsend::stopQuestionText());
    QVERIFY(f.form->isVisible());
    question->button(QMessageBox::Yes)->click();
    QTRY_VERIFY(!f.form->isVisible());
    QVERIFY(!f.terminal->isOpen());
}

void tst_frmsend::focusStaysOffExitWhileSending()
{
    ScreenFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(3));
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("1"));
    QTest::keyClick(f.transact(), Qt::Key_Return);
    QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(f.send()));
    QTest::keyClick(f.send(), Qt::Key_Return); // Send: the header goes out
    QCOMPARE(f.framesWritten(), 1);
    QVERIFY(!f.send()->isEnabled());
    QWidget* focus = f.form->focusWidget();
    QVERIFY(focus != f.find<QPushButton>("cmdExit"));
    QCOMPARE(focus, static_cast<QWidget*>(f.find<QProgressBar>("progressBar")));
    // A second Enter, as a clerk would press it, does nothing at all.
    QTest::keyClick(focus, Qt::Key_Return);
    QTest::keyClick(f.form.get(), Qt::Key_Return);
    QVERIFY(f.form->isVisible());
    QVERIFY(!f.form->findChild<QMessageBox*>(QStringLiteral("StopQuestion")));
    QCOMPARE(f.framesWritten(), 1);
    QVERIFY(f.form->flow().busy());
}

void tst_frmsend::enterAfterMissingFileDoesNotClose()
{
    ScreenFixture f;
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("1"));
    f.send()->setFocus();
    QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(f.send()));
    QTest::keyClick(f.send(), Qt::Key_Return);
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("File does not exist!")});
    QCOMPARE(f.boxes().size(), 1);
    QMessageBox* box = f.boxes().first();
    QTest::keyClick(box, Qt::Key_Return); // the clerk answers the box with Enter
    QTRY_VERIFY(f.boxes().isEmpty());
    // The focus is back on Send, not on Exit: the next Enter sends again.
    QCOMPARE(f.form->focusWidget(), static_cast<QWidget*>(f.send()));
    QTest::keyClick(f.form->focusWidget(), Qt::Key_Return);
    QVERIFY(f.form->isVisible());
    QCOMPARE(f.messages.count(QStringLiteral("File does not exist!")), 2);
}

void tst_frmsend::closeMidTransferAnsweredNo()
{
    ScreenFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(2));
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("1"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    f.form->close();
    f.form->close(); // asked once, however often
    QCOMPARE(f.form->findChildren<QMessageBox*>(QStringLiteral("StopQuestion")).size(), 1);
    QMessageBox* question = f.form->findChild<QMessageBox*>(QStringLiteral("StopQuestion"));
    QVERIFY(question->isVisible());
    question->button(QMessageBox::No)->click();
    QApplication::processEvents();
    QVERIFY(f.form->isVisible());
    QVERIFY(f.form->flow().busy());
    QVERIFY(f.terminal->isOpen());
}

void tst_frmsend::oneBoxOfAKind()
{
    ScreenFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(3));
    f.typeAll(QStringLiteral("5"), QStringLiteral("1611"), QStringLiteral("1"));
    QTest::mouseClick(f.send(), Qt::LeftButton);
    f.terminal->feed(QByteArray(8, '\0') + QByteArray("\x00\x00"
                                                      "AACK",
                                                      6));
    DownloadSession& session = f.form->flow().session();
    QTRY_VERIFY(session.timer1().isActive() || session.phase() == DownloadSession::Phase::SendingRecords);
    if (session.timer1().isActive())
        session.Timer1_Timer();
    // Fifteen time-outs: three cable messages, one box on screen.
    for (int i = 0; i < 15; ++i)
        session.Timer2_Timer();
    QCOMPARE(f.messages.count(DownloadSession::checkCableText()), 3);
    QCOMPARE(f.boxes().size(), 1);
    QCOMPARE(f.boxes().first()->text(), DownloadSession::checkCableText());
    f.closeBoxes();
    for (int i = 0; i < 5; ++i)
        session.Timer2_Timer();
    QCOMPARE(f.boxes().size(), 1); // shown again once the first was answered
}

namespace {

// Answers every frame, but NACKs every third one the first time and says
// nothing to a stretch of frames while the test wants it silent.
class MoodyTerminal : public FakeChannel
{
public:
    void write(const QByteArray& bytes) override
    {
        FakeChannel::write(bytes);
        if (bytes.isEmpty() || silent)
            return;
        const int number = static_cast<unsigned char>(bytes.at(7)) * 256 + static_cast<unsigned char>(bytes.at(8));
        QByteArray word = "AACK";
        if (number >= 2 && number % 3 == 0 && !nacked.contains(number)) {
            nacked.insert(number);
            word = "NACK";
        } else if (number >= 2 && bytes.size() == 137) {
            accepted.insert(number, bytes);
        }
        const QByteArray reply = DownloadTerminal::answerFrame(number, word);
        QTimer::singleShot(2, this, [this, reply] {
            if (isOpen())
                feed(reply);
        });
    }
    bool silent = false;
    QSet<int> nacked;
    QMap<int, QByteArray> accepted;
};

} // namespace

// The cable message left on screen while the download goes on underneath:
// acknowledgements, NACKs and time-outs are all handled, the box blocks
// nothing, and the terminal ends up with every account once.
void tst_frmsend::boxLeftOpenWhileAnswersKeepComing()
{
    TestContext t;
    MessageRecorder messages;
    t.ctx->settings.BankInfoPath = t.path(QStringLiteral("bank"));
    t.ctx->settings.FontSize = QStringLiteral("0");
    QDir().mkpath(t.ctx->settings.BankInfoPath);
    MoodyTerminal* terminal = nullptr;
    t.ctx->setChannelFactory([&terminal] {
        auto c = std::make_unique<MoodyTerminal>();
        terminal = c.get();
        return c;
    });
    QFile file(QDir(t.ctx->settings.BankInfoPath).filePath(QStringLiteral("0051611d.txt")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(accountsFile(40));
    file.close();

    frmsend form(*t.ctx);
    messages.listen(&form.flow(), &SendFlow::message);
    form.show();
    QVERIFY(QTest::qWaitForWindowExposed(&form));
    DownloadSession& session = form.flow().session();
    session.timer2().setInterval(20); // a time-out every 20 ms stands for every second
    QSignalSpy completed(&form.flow(), &SendFlow::completed);
    QTest::keyClicks(form.findChild<QLineEdit*>(QStringLiteral("txtAgent")), QStringLiteral("5"));
    QTest::keyClicks(form.findChild<QLineEdit*>(QStringLiteral("txtDate")), QStringLiteral("1611"));
    QTest::mouseClick(form.findChild<QPushButton*>(QStringLiteral("cmdSend")), Qt::LeftButton);
    QTRY_VERIFY(terminal && terminal->accepted.size() >= 5);
    terminal->silent = true; // five time-outs: the cable message
    QTRY_COMPARE_WITH_TIMEOUT(messages.count(DownloadSession::checkCableText()), 1, scaledMs(5000));
    QMessageBox* box = form.findChild<QMessageBox*>(QStringLiteral("MessageBox"));
    QVERIFY(box && box->isVisible());
    // Ten more time-outs with the box open: resends go on, no second box.
    QTRY_COMPARE_WITH_TIMEOUT(messages.count(DownloadSession::checkCableText()), 3, scaledMs(5000));
    QCOMPARE(form.findChildren<QMessageBox*>(QStringLiteral("MessageBox")).size(), 1);
    terminal->silent = false; // the line is back; the box stays open
    QTRY_COMPARE_WITH_TIMEOUT(completed.count(), 1, scaledMs(10000));
    QVERIFY(box->isVisible());
    QCOMPARE(terminal->accepted.size(), 40);
    for (auto it = terminal->accepted.cbegin(); it != terminal->accepted.cend(); ++it)
        QCOMPARE(it.value(), session.recordFrame(it.key() - 1));
    QCOMPARE(messages.last(), DownloadSession::completedText());
    QCOMPARE(form.findChild<QLabel*>(QStringLiteral("lblRecord"))->text(), QStringLiteral("40 / 40"));
    // Each kind of box once on screen.
    int cableBoxes = 0;
    for (QMessageBox* b : form.findChildren<QMessageBox*>(QStringLiteral("MessageBox")))
        cableBoxes += b->isVisible() && b->text() == DownloadSession::checkCableText();
    QCOMPARE(cableBoxes, 1);
}

// Polls in small steps (QTRY_* waits 50 ms between looks).
template <typename Condition> bool waitFor(Condition done, int timeoutMs = 5000)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > scaledMs(timeoutMs))
            return false;
        QTest::qWait(1);
    }
    return true;
}

// The screen closed and the terminal gone within milliseconds of each other,
// on a real serial port, after a refused Send: nothing may crash.
void tst_frmsend::closedAsTheTerminalGoes()
{
    for (int round = 0; round < 50; ++round) {
        TestContext t;
        auto pty = std::make_unique<Pty>();
        QString error;
        QVERIFY2(pty->open(&error), qPrintable(error));
        DownloadTerminal terminal(pty.get());
        DownloadTerminal::Faults faults;
        faults.notDownloadMode = "CLOS";
        terminal.setFaults(faults);
        terminal.attach();
        t.ctx->portOverride = pty->devicePath();
        t.ctx->settings.BankInfoPath = t.path(QStringLiteral("bank"));
        t.ctx->settings.FontSize = QStringLiteral("0");
        QDir().mkpath(t.ctx->settings.BankInfoPath);
        QFile file(QDir(t.ctx->settings.BankInfoPath).filePath(QStringLiteral("0051611d.txt")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(accountsFile(2));
        file.close();

        QPointer<frmsend> form = new frmsend(*t.ctx);
        form->setAttribute(Qt::WA_DeleteOnClose);
        form->show();
        QVERIFY(QTest::qWaitForWindowExposed(form));
        auto* agent = form->findChild<QLineEdit*>(QStringLiteral("txtAgent"));
        auto* date = form->findChild<QLineEdit*>(QStringLiteral("txtDate"));
        auto* send = form->findChild<QPushButton*>(QStringLiteral("cmdSend"));
        QTest::keyClicks(agent, QStringLiteral("5"));
        QTest::keyClicks(date, QStringLiteral("1611"));
        // A send the terminal refuses: the port stays open.
        QTest::mouseClick(send, Qt::LeftButton);
        QVERIFY(waitFor([&] { return send->isEnabled(); }));
        // Then a send refused for a missing file, answered.
        date->setText(QStringLiteral("1612"));
        QTest::mouseClick(send, Qt::LeftButton);
        for (QMessageBox* b : form->findChildren<QMessageBox*>())
            b->accept();
        if (round % 2 == 0) {
            form->findChild<QPushButton*>(QStringLiteral("cmdExit"))->click();
            pty.reset(); // the terminal goes right after
        } else {
            pty.reset(); // the terminal goes right before
            form->findChild<QPushButton*>(QStringLiteral("cmdExit"))->click();
        }
        QTest::qWait(5);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(waitFor([&] { return form.isNull(); }));
    }
}

QTEST_MAIN(tst_frmsend)
#include "tst_frmsend.moc"
