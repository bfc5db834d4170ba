#include "link/LinkChannel.h"
#include "link/UploadFrames.h"
#include "link/UploadSession.h"
#include "terminal/Pty.h"
#include "terminal/UploadTerminal.h"
#include "tests/support/DownloadedAccounts.h"
#include "tests/support/FakeChannel.h"
#include "tests/support/TestContext.h"
#include "tests/support/TestTiming.h"
#include "tests/upload/ReplyBytes.h"
#include "upload/ReceiveFlow.h"
#include "upload/UploadFiles.h"
#include "upload/frmReceive.h"
#include "widgets/ColourButton.h"

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSqlQuery>

namespace {

const QByteArray agent = "AG0000000000005";

QByteArray request(int record)
{
    return UploadFrames::request(record);
}

QByteArray corrupted(QByteArray r)
{
    r[136] = static_cast<char>(r.at(136) + 1);
    return r;
}

} // namespace

class tst_frmReceive : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void controlsAndCaptions();
    void loadOpensPortAndEnablesReceive();
    void portFailureShownInABox();
    void receiveStarts_data();
    void receiveStarts();
    void receiveTwiceBeforeHeaderResendsHeaderRequest();
    void wholeReceiveFillsLabelsAndStores();
    void refusedReceiveSaysNothingWasReplaced();
    void cancelOnCheckQuestionClosesScreen();
    void okOnCheckQuestionGoesOn();
    void exitClosesPort();
    void focusStaysOffExitWhenReceiveGreysOut();
    void closingMidReceiveAsksFirst();
    void oneCableBoxAtATime();
    void portLostMidReceiveEnablesReceiveAgain();
    void boxesLeftOpenTenSecondsWhileTheLineMisbehaves();
    void checkQuestionLeftOpenTenSeconds();
    void screenClosedAndTerminalGoneFiftyTimes();

private:
    template <typename T> T* child(const char* name)
    {
        T* w = m_form->findChild<T*>(QLatin1String(name));
        if (!w)
            qFatal("no control named %s", name);
        return w;
    }
    void open(bool portOpens = true);
    // The simulated terminal on a pseudo-terminal, the screen on its slave.
    void openOnPty(int accounts = 4, int collections = 9);
    int visibleBoxes(const QString& text) const;
    // RestoreData rows, their total and whether the upload file is there.
    int storedRows(double* total = nullptr);
    void checkStoredExactly();

    std::unique_ptr<TestContext> t;
    std::unique_ptr<frmReceive> m_form;
    FakeChannel* m_link = nullptr;
    std::unique_ptr<Pty> m_pty;
    std::unique_ptr<UploadTerminal> m_terminal;
    UploadRecords m_records;
};

void tst_frmReceive::init()
{
    qRegisterMetaType<SessionMessage>();
    t = std::make_unique<TestContext>();
    t->ctx->settings.BankInfoPath = t->path(QStringLiteral("bank"));
    QDir().mkpath(t->ctx->settings.BankInfoPath);
}

void tst_frmReceive::cleanup()
{
    m_form.reset();
    m_terminal.reset();
    m_pty.reset();
    t.reset();
    m_link = nullptr;
}

void tst_frmReceive::open(bool portOpens)
{
    t->ctx->setChannelFactory([this, portOpens] {
        auto link = std::make_unique<FakeChannel>();
        if (!portOpens)
            link->openError = QStringLiteral("Cannot open /dev/ttyS0: no such device");
        m_link = link.get();
        return link;
    });
    m_form = std::make_unique<frmReceive>(*t->ctx);
    m_form->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_form.get()));
}

void tst_frmReceive::openOnPty(int accounts, int collections)
{
    m_pty = std::make_unique<Pty>();
    QString error;
    QVERIFY2(m_pty->open(&error), qPrintable(error));
    m_terminal = std::make_unique<UploadTerminal>(m_pty.get());
    m_terminal->attach();
    const QDate day(2007, 11, 16);
    const TerminalAccounts terminalAccounts = UploadRecords::sampleAccounts(accounts, day);
    QVERIFY2(UploadRecords::build(terminalAccounts, UploadRecords::generate(terminalAccounts, collections, day, 7), {},
                                  &m_records, &error),
             qPrintable(error));
    m_terminal->setRecords(m_records);
    storeAsDownloaded(t->db, terminalAccounts);
    t->ctx->portOverride = m_pty->devicePath();
    m_form = std::make_unique<frmReceive>(*t->ctx);
    m_form->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_form.get()));
}

int tst_frmReceive::visibleBoxes(const QString& text) const
{
    int n = 0;
    for (QWidget* w : QApplication::topLevelWidgets()) {
        auto* box = qobject_cast<QMessageBox*>(w);
        n += box && box->isVisible() && box->text() == text ? 1 : 0;
    }
    return n;
}

int tst_frmReceive::storedRows(double* total)
{
    QSqlQuery q(t->db.connection());
    if (!q.exec(QStringLiteral("SELECT count(*), sum(CAST(Amtcollected AS REAL)) FROM RestoreData")) || !q.next())
        return -1;
    if (total)
        *total = q.value(1).toDouble();
    return q.value(0).toInt();
}

void tst_frmReceive::checkStoredExactly()
{
    double total = 0;
    QCOMPARE(storedRows(&total), m_records.transactionCount);
    QCOMPARE(qRound64(total), m_records.totalAmount);
    QSqlQuery q(t->db.connection());
    QVERIFY(q.exec(QStringLiteral("SELECT count(DISTINCT TransactionNumber) FROM RestoreData")));
    QVERIFY(q.next());
    QCOMPARE(q.value(0).toInt(), m_records.transactionCount);
    QVERIFY(QFile::exists(t->path(QStringLiteral("bank/0011611u.txt"))));
    QTRY_COMPARE(visibleBoxes(QStringLiteral("Upload Completed Successfully")), 1);
}

void tst_frmReceive::controlsAndCaptions()
{
    open();
    QCOMPARE(m_form->windowTitle(), QStringLiteral("Receive Data"));
    QCOMPARE(m_form->font().family(), QStringLiteral("Arial"));
    const QList<QPair<const char*, QString>> labels = {
        {"Label2", QStringLiteral("Receive Data from HandHeld")},
        {"Label1", QStringLiteral("Agent ID :")},
        {"Label3", QStringLiteral("Date (ddmm) :")},
        {"Label5", QStringLiteral("Records Received :")},
        {"Label7", QStringLiteral("Total No. of Transactions:")},
        {"Label8", QStringLiteral("Total Amount Collected:")},
        {"Label9", QStringLiteral("Upload in Progress,Please wait ...")},
    };
    for (const auto& [name, text] : labels)
        QCOMPARE(child<QLabel>(name)->text(), text);
    for (const char* name : {"Label4", "Label6", "lblRecord", "TotalTransact", "txtTotalAmount"})
        QCOMPARE(child<QLabel>(name)->text(), QString());
    QVERIFY(child<QWidget>("Frame1"));
    QVERIFY(child<QProgressBar>("progressBar"));
    QCOMPARE(child<ColourButton>("cmdSend")->text(), QStringLiteral("&Receive"));
    QCOMPARE(child<ColourButton>("cmdexit")->text(), QStringLiteral("&Exit"));
    QVERIFY(child<QLabel>("Label9")->isHidden());
}

void tst_frmReceive::loadOpensPortAndEnablesReceive()
{
    t->ctx->link.completion.markComplete();
    open();
    QVERIFY(m_link);
    QVERIFY(m_link->isOpen());
    QVERIFY(child<ColourButton>("cmdSend")->isEnabled());
    QVERIFY(!t->ctx->link.completion.isComplete());
    QVERIFY(m_link->written.isEmpty()); // nothing is asked before Receive
    QVERIFY(t->messenger.entries().isEmpty());
    QVERIFY(m_form->findChildren<QMessageBox*>().isEmpty());
}

void tst_frmReceive::portFailureShownInABox()
{
    open(false);
    QMessageBox* box = m_form->openBox(QStringLiteral("Cannot open /dev/ttyS0: no such device"));
    QVERIFY(box);
    QCOMPARE(box->icon(), QMessageBox::Critical);
    // Shown without blocking: the screen is usable behind it.
    QVERIFY(!box->isModal() || box->windowModality() != Qt::ApplicationModal);
    QVERIFY(child<ColourButton>("cmdSend")->isEnabled());
}

void tst_frmReceive::receiveStarts_data()
{
    QTest::addColumn<int>("how");
    QTest::newRow("click") << 0;
    QTest::newRow("Enter") << int(Qt::Key_Return);
    QTest::newRow("keypad Enter") << int(Qt::Key_Enter);
}

void tst_frmReceive::receiveStarts()
{
    QFETCH(int, how);
    open();
    auto* receive = child<ColourButton>("cmdSend");
    if (how == 0) {
        QTest::mouseClick(receive, Qt::LeftButton);
    } else {
        receive->setFocus();
        QTest::keyClick(receive, static_cast<Qt::Key>(how));
    }
    QTest::qWait(150); // a second, animated click would land by now
    QCOMPARE(m_link->written, QList<QByteArray>{request(0)});
    QCOMPARE(m_link->written.first(), QByteArray::fromHex("01FF10F055000300 0000"));
    QCOMPARE(m_form->flow().summary().TotalRecords, 5000);
    QCOMPARE(m_form->flow().session().recordNo(), 0);
}

void tst_frmReceive::receiveTwiceBeforeHeaderResendsHeaderRequest()
{
    open();
    auto* receive = child<ColourButton>("cmdSend");
    QTest::mouseClick(receive, Qt::LeftButton);
    m_form->flow().session().summary().TotalRecords = 40;
    m_form->flow().session().setRecordNo(7);
    QTest::mouseClick(receive, Qt::LeftButton);
    QCOMPARE(m_link->written, (QList<QByteArray>{request(0), request(0)}));
    QCOMPARE(m_form->flow().summary().TotalRecords, 5000);
    QCOMPARE(m_form->flow().session().recordNo(), 0);
    QVERIFY(receive->isEnabled());
}

void tst_frmReceive::wholeReceiveFillsLabelsAndStores()
{
    t->db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, BalAmount, "
                                 "AgreedAmount, AgentID, MyDate, BranchID, CustomerCode, BankSoftACNumber) "
                                 "VALUES ('S', 'DD001', '000000000000101', 'SITA', '1234.5', '50', ?, '151107', "
                                 "'BR1', 'C1', 'BS1')"),
                  {QString::fromLatin1(agent)});
    open();
    auto* receive = child<ColourButton>("cmdSend");
    auto* busy = child<QLabel>("Label9");
    QTest::mouseClick(receive, Qt::LeftButton);

    m_link->feed(ReplyBytes::headerRecord(2, agent));
    QVERIFY(!receive->isEnabled());
    QCOMPARE(m_link->written.last(), request(1));
    QCOMPARE(child<QLabel>("Label4")->text(), QString()); // not before the summary

    // The summary arrives in two pieces.
    const QByteArray summary = ReplyBytes::summaryRecord("005", "1611", 3, QByteArray::fromHex("00000085"));
    m_link->feed(summary.left(60));
    QCOMPARE(child<QLabel>("TotalTransact")->text(), QString());
    m_link->feed(summary.mid(60));
    QCOMPARE(child<QLabel>("Label4")->text(), QStringLiteral("005"));
    QCOMPARE(child<QLabel>("Label6")->text(), QStringLiteral("1611"));
    QCOMPARE(child<QLabel>("TotalTransact")->text(), QStringLiteral("3"));
    QCOMPARE(child<QLabel>("txtTotalAmount")->text(), QStringLiteral("85.00"));
    QCOMPARE(m_link->written.last(), request(2));
    QVERIFY(busy->isHidden());

    m_link->feed(ReplyBytes::transactionRecord(
        "S", "DD001", "000000000000101",
        {QByteArray::fromHex("000050 16B7 0900 0001"), QByteArray::fromHex("000020 16B7 0930 0002")}, '\x02'));
    QVERIFY(!busy->isHidden());
    QCOMPARE(child<QLabel>("lblRecord")->text(), QStringLiteral("1 / 2"));
    QCOMPARE(child<QProgressBar>("progressBar")->value(), 1);
    QCOMPARE(m_link->written.last(), request(3));

    m_link->feed(ReplyBytes::transactionRecord("S", "DD001", "000000000000101",
                                               {QByteArray::fromHex("000015 16B7 1000 0003")}, '\x01'));
    QCOMPARE(child<QLabel>("lblRecord")->text(), QStringLiteral("2 / 2"));
    QCOMPARE(child<QProgressBar>("progressBar")->value(), 2);
    QVERIFY(busy->isHidden());
    QCOMPARE(m_link->written.last(), UploadFrames::end());
    QTRY_COMPARE(visibleBoxes(QStringLiteral("Upload Completed Successfully")), 1);
    QVERIFY(t->messenger.entries().isEmpty());
    QVERIFY(m_form->flow().restored());

    QCOMPARE(storedRows(), 3);
    QVERIFY(QFile::exists(t->path(QStringLiteral("bank/0051611u.txt"))));
    QVERIFY(QFile::exists(t->path(QStringLiteral("BackupData/005_16_11_07.txt"))));
    QVERIFY(QFile::exists(t->path(QStringLiteral("BackupData/0051611uCheck.txt"))));
    QVERIFY(!receive->isEnabled());
}

void tst_frmReceive::refusedReceiveSaysNothingWasReplaced()
{
    t->db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, BalAmount, "
                                 "AgreedAmount, AgentID, MyDate, BranchID, CustomerCode, BankSoftACNumber) "
                                 "VALUES ('S', 'DD001', '000000000000101', 'SITA', '1234.5', '50', ?, '151107', "
                                 "'BR1', 'C1', 'BS1')"),
                  {QString::fromLatin1(agent)});
    open();
    auto* receive = child<ColourButton>("cmdSend");
    QTest::keyClick(receive, Qt::Key_Return);
    m_link->feed(ReplyBytes::headerRecord(2, agent));
    // The terminal's summary announces 90.00; its records hold 85.00.
    m_link->feed(ReplyBytes::summaryRecord("005", "1611", 3, QByteArray::fromHex("00000090")));
    m_link->feed(ReplyBytes::transactionRecord(
        "S", "DD001", "000000000000101",
        {QByteArray::fromHex("000050 16B7 0900 0001"), QByteArray::fromHex("000020 16B7 0930 0002")}, '\x02'));
    m_link->feed(ReplyBytes::transactionRecord("S", "DD001", "000000000000101",
                                               {QByteArray::fromHex("000015 16B7 1000 0003")}, '\x01'));
    const auto refusalShown = [] {
        for (QWidget* w : QApplication::topLevelWidgets()) {
            auto* box = qobject_cast<QMessageBox*>(w);
            if (box && box->isVisible() && box->text().startsWith(UploadFiles::uploadProblemText()))
                return true;
        }
        return false;
    };
    QTRY_VERIFY(refusalShown());
    QVERIFY(!m_form->flow().restored());

    auto* status = child<QLabel>("lblStatus");
    QVERIFY2(status->text().contains(QStringLiteral("This receive was refused. Nothing was replaced: the stored "
                                                    "collections and the bank's files are as they were.")),
             qPrintable(status->text()));
    QVERIFY(status->text().contains(QStringLiteral("close this screen and open RECEIVE DATA again")));
    QVERIFY(status->isVisible());
    QCOMPARE(child<QLabel>("TotalTransact")->text(), QStringLiteral("3 (not stored)"));
    QCOMPARE(child<QLabel>("txtTotalAmount")->text(), QStringLiteral("90.00 (not stored)"));
    QCOMPARE(child<QProgressBar>("progressBar")->text(), QStringLiteral("Refused: nothing stored"));
    QCOMPARE(storedRows(), 0);
    QVERIFY(!QFile::exists(t->path(QStringLiteral("bank/0051611u.txt"))));
    // Receive stays off, as the screen has always behaved.
    QVERIFY(!receive->isEnabled());
}

void tst_frmReceive::cancelOnCheckQuestionClosesScreen()
{
    open();
    QTest::mouseClick(child<ColourButton>("cmdSend"), Qt::LeftButton);
    const QByteArray bad = corrupted(ReplyBytes::headerRecord(2, agent));
    for (int i = 0; i < 15; ++i) {
        m_link->feed(bad);
        if (m_form->flow().session().flushTimer().isActive())
            m_form->flow().session().FlushTimer_Timer();
    }
    QMessageBox* box = m_form->openBox(UploadSession::crcQuestionText());
    QVERIFY(box);
    QCOMPARE(box->icon(), QMessageBox::Critical);
    QCOMPARE(m_link->written.size(), 15);
    box->button(QMessageBox::Cancel)->click();
    // The request after Cancel still goes out, then the screen closes
    // without asking whether to stop.
    QCOMPARE(m_link->written.size(), 16);
    QCOMPARE(m_link->written.last(), request(0));
    QTRY_VERIFY(!m_form->isVisible());
    QVERIFY(!m_link->isOpen());
    QCOMPARE(visibleBoxes(frmReceive::stopQuestionText()), 0);
}

void tst_frmReceive::okOnCheckQuestionGoesOn()
{
    open();
    QTest::mouseClick(child<ColourButton>("cmdSend"), Qt::LeftButton);
    const QByteArray bad = corrupted(ReplyBytes::headerRecord(2, agent));
    for (int i = 0; i < 15; ++i) {
        m_link->feed(bad);
        if (m_form->flow().session().flushTimer().isActive())
            m_form->flow().session().FlushTimer_Timer();
    }
    m_form->openBox(UploadSession::crcQuestionText())->button(QMessageBox::Ok)->click();
    QCOMPARE(m_link->written.size(), 16);
    m_link->feed(ReplyBytes::headerRecord(2, agent));
    QCOMPARE(m_link->written.last(), request(1));
    QVERIFY(m_form->isVisible());
}

void tst_frmReceive::exitClosesPort()
{
    open();
    QVERIFY(m_link->isOpen());
    QTest::mouseClick(child<ColourButton>("cmdexit"), Qt::LeftButton);
    QVERIFY(!m_form->isVisible());
    QVERIFY(!m_link->isOpen());
}

void tst_frmReceive::focusStaysOffExitWhenReceiveGreysOut()
{
    open();
    m_form->activateWindow();
    auto* receive = child<ColourButton>("cmdSend");
    auto* cmdexit = child<ColourButton>("cmdexit");
    receive->setFocus();
    QTest::keyClick(receive, Qt::Key_Return);
    m_link->feed(ReplyBytes::headerRecord(2, agent));
    QVERIFY(!receive->isEnabled());
    QVERIFY(!cmdexit->hasFocus());
    QCOMPARE(QApplication::focusWidget(), child<QWidget>("Frame1"));
    // A second Enter does not close the screen.
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    QTest::qWait(150);
    QVERIFY(m_form->isVisible());
    QVERIFY(m_link->isOpen());
}

void tst_frmReceive::closingMidReceiveAsksFirst()
{
    open();
    QTest::mouseClick(child<ColourButton>("cmdSend"), Qt::LeftButton);
    m_link->feed(ReplyBytes::headerRecord(2, agent));
    QTest::mouseClick(child<ColourButton>("cmdexit"), Qt::LeftButton);
    QVERIFY(m_form->isVisible());
    QMessageBox* box = m_form->openBox(frmReceive::stopQuestionText());
    QVERIFY(box);
    // Asked once, however often Exit is pressed.
    m_form->close();
    QCOMPARE(visibleBoxes(frmReceive::stopQuestionText()), 1);
    box->button(QMessageBox::No)->click();
    QVERIFY(m_form->isVisible());
    QVERIFY(m_link->isOpen());
    // The receive went on meanwhile.
    m_link->feed(ReplyBytes::summaryRecord("005", "1611", 3, QByteArray::fromHex("00000085")));
    QCOMPARE(m_link->written.last(), request(2));

    QTest::mouseClick(child<ColourButton>("cmdexit"), Qt::LeftButton);
    m_form->openBox(frmReceive::stopQuestionText())->button(QMessageBox::Yes)->click();
    QTRY_VERIFY(!m_form->isVisible());
    QVERIFY(!m_link->isOpen());
    QCOMPARE(m_form->flow().session().phase(), UploadSession::Phase::Stopped);
    QCOMPARE(storedRows(), 0);
}

void tst_frmReceive::oneCableBoxAtATime()
{
    open();
    QTest::mouseClick(child<ColourButton>("cmdSend"), Qt::LeftButton);
    m_link->feed(ReplyBytes::headerRecord(2, agent));
    for (int i = 0; i < 20; ++i)
        m_form->flow().session().Timer1_Timer();
    QCOMPARE(visibleBoxes(UploadSession::checkCableText()), 1);
    // Answered, it comes again after the next five time-outs.
    m_form->openBox(UploadSession::checkCableText())->button(QMessageBox::Ok)->click();
    QCOMPARE(visibleBoxes(UploadSession::checkCableText()), 0);
    for (int i = 0; i < 5; ++i)
        m_form->flow().session().Timer1_Timer();
    QCOMPARE(visibleBoxes(UploadSession::checkCableText()), 1);
}

void tst_frmReceive::portLostMidReceiveEnablesReceiveAgain()
{
    open();
    auto* receive = child<ColourButton>("cmdSend");
    QTest::mouseClick(receive, Qt::LeftButton);
    m_link->feed(ReplyBytes::headerRecord(2, agent));
    QVERIFY(!receive->isEnabled());
    m_link->close();
    m_link->fail(QStringLiteral("The serial port fake failed: gone"));
    QVERIFY(receive->isEnabled());
    QVERIFY(child<QLabel>("Label9")->isHidden());
    QCOMPARE(m_form->findChildren<QMessageBox*>().size(), 1);
    QVERIFY(m_form->findChildren<QMessageBox*>().first()->text().startsWith(
        QStringLiteral("The serial port fake failed: gone")));
    // Closing now asks nothing: no receive runs.
    QTest::mouseClick(child<ColourButton>("cmdexit"), Qt::LeftButton);
    QTRY_VERIFY(!m_form->isVisible());
}

// A clerk slow to close the boxes: the receive goes on underneath and ends
// with exactly the terminal's data.
void tst_frmReceive::boxesLeftOpenTenSecondsWhileTheLineMisbehaves()
{
    openOnPty(8, 30);
    m_pty->setBaud(19200);
    UploadTerminal::Faults& faults = m_terminal->faults();
    faults.nackRecord = 2;
    faults.corruptRecord = 4;
    faults.corruptTimes = 3;
    faults.silentRecord = 5;
    faults.delayRecord = 6;
    bool dropped = false;
    connect(m_terminal.get(), &UploadTerminal::requestReceived, this, [&](int record) {
        if (record == 7 && !dropped) {
            // The line goes dead long enough for the cable message.
            dropped = true;
            m_terminal->faults().mute = true;
            QTimer::singleShot(5500, this, [this] { m_terminal->faults().mute = false; });
        }
    });
    QTest::mouseClick(child<ColourButton>("cmdSend"), Qt::LeftButton);
    QTRY_COMPARE(visibleBoxes(UploadSession::noAcknowledgementText()), 1);
    QTRY_COMPARE_WITH_TIMEOUT(visibleBoxes(UploadSession::checkCableText()), 1, scaledMs(15000));
    QTest::qWait(10000);
    QCOMPARE(visibleBoxes(UploadSession::noAcknowledgementText()), 1);
    QCOMPARE(visibleBoxes(UploadSession::checkCableText()), 1);
    QTRY_VERIFY_WITH_TIMEOUT(m_form->flow().restored(), scaledMs(5000));
    checkStoredExactly();
    QCOMPARE(m_terminal->overCount(), 1);
}

// The check-failure question left open: nothing is asked or written meanwhile.
void tst_frmReceive::checkQuestionLeftOpenTenSeconds()
{
    openOnPty();
    m_terminal->faults().corruptRecord = 3;
    m_terminal->faults().corruptTimes = 15;
    QTest::mouseClick(child<ColourButton>("cmdSend"), Qt::LeftButton);
    QTRY_COMPARE(visibleBoxes(UploadSession::crcQuestionText()), 1);
    const int requests = static_cast<int>(m_terminal->requests().size());
    QTest::qWait(10000);
    QCOMPARE(m_terminal->requests().size(), requests);
    QCOMPARE(storedRows(), 0);
    QVERIFY(!QFile::exists(t->path(QStringLiteral("bank/0011611u.txt"))));
    m_form->openBox(UploadSession::crcQuestionText())->button(QMessageBox::Ok)->click();
    QTRY_VERIFY_WITH_TIMEOUT(m_form->flow().restored(), scaledMs(5000));
    checkStoredExactly();
}

void tst_frmReceive::screenClosedAndTerminalGoneFiftyTimes()
{
    const QDate day(2007, 11, 16);
    const TerminalAccounts accounts = UploadRecords::sampleAccounts(6, day);
    for (const TerminalAccount& a : accounts.accounts)
        t->db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, AgentID) "
                                     "VALUES (?, ?, ?, ?, ?)"),
                      {a.categoryCode, a.schemeCode, a.accountNumber, a.name.trimmed(), accounts.agentId});
    for (int i = 0; i < 50; ++i) {
        t->db.execute(QStringLiteral("DELETE FROM RestoreData"));
        auto pty = std::make_unique<Pty>();
        QString error;
        QVERIFY2(pty->open(&error), qPrintable(error));
        pty->setBaud(i % 2 ? 0 : 19200);
        auto terminal = std::make_unique<UploadTerminal>(pty.get());
        terminal->attach();
        UploadRecords records;
        QVERIFY(UploadRecords::build(accounts, UploadRecords::generate(accounts, 20, day, 3), {}, &records, &error));
        terminal->setRecords(records);
        t->ctx->portOverride = pty->devicePath();

        QPointer<frmReceive> form = new frmReceive(*t->ctx);
        form->setAttribute(Qt::WA_DeleteOnClose);
        form->show();
        QTest::mouseClick(form->findChild<ColourButton*>(QStringLiteral("cmdSend")), Qt::LeftButton);
        const int after = 1 + i % 6;
        QTRY_VERIFY(terminal->requests().size() >= after);
        auto closeScreen = [&form] {
            if (!form)
                return;
            form->close();
            if (form)
                if (QMessageBox* box = form->openBox(frmReceive::stopQuestionText()))
                    box->button(QMessageBox::Yes)->click();
        };
        if (i % 3 == 0) {
            closeScreen();
            terminal.reset();
            pty.reset();
        } else if (i % 3 == 1) {
            terminal.reset();
            pty.reset();
            closeScreen();
        } else {
            terminal.reset();
            pty.reset();
            QTest::qWait(2);
            closeScreen();
        }
        QTRY_VERIFY(!form);
        const int rows = storedRows();
        QVERIFY2(rows == 0 || rows == records.transactionCount,
                 qPrintable(QStringLiteral("round %1: %2 rows").arg(i).arg(rows)));
    }
}

QTEST_MAIN(tst_frmReceive)
#include "tst_frmreceive.moc"
