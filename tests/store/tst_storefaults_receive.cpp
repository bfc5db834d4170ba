#include "link/SessionMessage.h"
#include "terminal/Pty.h"
#include "terminal/UploadTerminal.h"
#include "tests/store/ScreenFaults.h"
#include "tests/support/DownloadedAccounts.h"
#include "tests/support/MessageRecorder.h"
#include "tests/support/TestContext.h"
#include "tests/support/TestTiming.h"
#include "upload/ReceiveFlow.h"
#include "upload/frmReceive.h"
#include "widgets/ColourButton.h"

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QSignalSpy>
#include <QSqlQuery>
#include <QtTest>
#include <memory>

using ScreenFaults::Away;

// RECEIVE DATA on a database in trouble, through the real window and the
// simulated terminal on a pseudo-terminal: the receive whose storing fails
// ends in a box that says what to do, stores nothing, writes no upload file,
// leaves the terminal's collections to be received again and the screen
// closable; once the trouble is gone the same collections are received.
class tst_StoreFaultsReceive : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void storeWhileAnotherProcessWrites();
    void storeOnAFullDisk();
    void storeOnAPageDamagedWhileTheScreenIsOpen();
    void receiveAfterTheDatabaseWentAway_data();
    void receiveAfterTheDatabaseWentAway();

private:
    // The terminal with the day's collections on a pty, the receive screen
    // open on it.
    void openScreen();
    // Enter on Receive, as the clerk starts a receive; waits for its end.
    void receiveByKeyboard();
    // The receive screen closes (Exit by keyboard) and opens again.
    void reopenScreen();
    int storedRows();
    QString uploadFile() const { return t->path(QStringLiteral("bank/0011611u.txt")); }
    // The one box left by the receive's end, with its text, and no message
    // through the blocking messenger.
    void checkOneCriticalBox(const QStringList& words);
    // The trouble is gone: the screen opened again receives the same
    // collections, and they are stored.
    void sameCollectionsComeAgain();

    std::unique_ptr<TestContext> t;
    std::unique_ptr<Pty> m_pty;
    std::unique_ptr<UploadTerminal> m_terminal;
    std::unique_ptr<frmReceive> m_form;
    MessageRecorder m_messages;
    UploadRecords m_records;
};

void tst_StoreFaultsReceive::init()
{
    qRegisterMetaType<SessionMessage>();
    t = std::make_unique<TestContext>();
    t->ctx->settings.BankInfoPath = t->path(QStringLiteral("bank"));
    QVERIFY(QDir().mkpath(t->ctx->settings.BankInfoPath));
    // Another agent's receive, whose row must survive.
    t->db.execute(QStringLiteral("INSERT INTO RestoreData (AgentID, AccountNo, Amtcollected, TransactionNumber) "
                                 "VALUES ('AG0000000000009', 'OLD', '0000001.00', '0001')"));
    m_messages.clear();
}

void tst_StoreFaultsReceive::cleanup()
{
    m_form.reset();
    m_terminal.reset();
    m_pty.reset();
    t.reset();
}

void tst_StoreFaultsReceive::openScreen()
{
    m_pty = std::make_unique<Pty>();
    QString error;
    QVERIFY2(m_pty->open(&error), qPrintable(error));
    m_terminal = std::make_unique<UploadTerminal>(m_pty.get());
    m_terminal->attach();
    const QDate day(2007, 11, 16);
    const TerminalAccounts accounts = UploadRecords::sampleAccounts(4, day);
    QVERIFY2(UploadRecords::build(accounts, UploadRecords::generate(accounts, 9, day, 7), {}, &m_records, &error),
             qPrintable(error));
    m_terminal->setRecords(m_records);
    storeAsDownloaded(t->db, accounts);
    t->ctx->portOverride = m_pty->devicePath();
    reopenScreen();
}

void tst_StoreFaultsReceive::reopenScreen()
{
    if (m_form) {
        QTest::keyClick(m_form->findChild<ColourButton*>("cmdexit"), Qt::Key_Space);
        QTRY_VERIFY(!m_form->isVisible());
    }
    m_form = std::make_unique<frmReceive>(*t->ctx);
    m_messages.listen(&m_form->flow(), &ReceiveFlow::message);
    m_form->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_form.get()));
}

void tst_StoreFaultsReceive::receiveByKeyboard()
{
    QSignalSpy completed(&m_form->flow(), &ReceiveFlow::completed);
    auto* receive = m_form->findChild<ColourButton*>("cmdSend");
    receive->setFocus();
    QTest::keyClick(receive, Qt::Key_Return);
    QVERIFY(completed.wait(scaledMs(20000)));
}

int tst_StoreFaultsReceive::storedRows()
{
    QSqlQuery q(t->db.connection());
    if (!q.exec(QStringLiteral("SELECT count(*) FROM RestoreData")) || !q.next())
        return -1;
    return q.value(0).toInt();
}

void tst_StoreFaultsReceive::checkOneCriticalBox(const QStringList& words)
{
    const QString shown = m_messages.last();
    QCOMPARE(m_messages.lastIcon(), Messenger::Icon::Critical);
    int critical = 0;
    for (const MessageRecorder::Entry& e : m_messages.entries())
        critical += e.icon == Messenger::Icon::Critical ? 1 : 0;
    QCOMPARE(critical, 1); // said once
    for (const QString& w : words)
        QVERIFY2(shown.contains(w), qPrintable(QStringLiteral("'%1' not in: %2").arg(w, shown)));
    QTRY_COMPARE(ScreenFaults::visibleBoxes(shown), 1);
    QVERIFY(!m_form->openBox(shown)->isModal() || m_form->openBox(shown)->windowModality() != Qt::ApplicationModal);
    // Nothing went through the blocking message boxes of the other screens.
    QVERIFY2(t->messenger.entries().isEmpty(), qPrintable(t->messenger.texts().join('\n')));
    QVERIFY(!m_form->flow().restored());
    QVERIFY(!QFile::exists(uploadFile()));
    QVERIFY(m_form->findChild<QLabel*>("lblStatus")->text().contains("Nothing was replaced"));
    // The replies came off the terminal whole: their dump is kept.
    QVERIFY(QFile::exists(t->path(QStringLiteral("BackupData/001_16_11_07.txt"))));
    // The terminal still holds the collections: its next upload gives them again.
    QCOMPARE(m_terminal->records().transactionCount, m_records.transactionCount);
    // The box closes and the screen with it.
    m_form->openBox(shown)->accept();
    QTRY_COMPARE(ScreenFaults::visibleBoxes(shown), 0);
}

void tst_StoreFaultsReceive::sameCollectionsComeAgain()
{
    reopenScreen();
    m_messages.clear();
    receiveByKeyboard();
    QVERIFY2(m_form->flow().restored(), qPrintable(m_messages.texts().join('\n')));
    QCOMPARE(storedRows(), 1 + m_records.transactionCount);
    QVERIFY(QFile::exists(uploadFile()));
}

void tst_StoreFaultsReceive::storeWhileAnotherProcessWrites()
{
    openScreen();
    {
        StoreFaults::LockHolder holder;
        QVERIFY(holder.start(t->db.filePath(), "immediate"));
        receiveByKeyboard();
        checkOneCriticalBox({t->db.filePath(), "in use by another program", "try again"});
    }
    QCOMPARE(storedRows(), 1);
    // The other program has let go.
    sameCollectionsComeAgain();
}

void tst_StoreFaultsReceive::storeOnAFullDisk()
{
    if (!ScreenFaults::shimLoaded())
        QSKIP("needs the disk-full shim preloaded (ctest sets LD_PRELOAD)");
    openScreen();
    const QByteArray before = StoreFaults::hashOf(t->db.filePath());
    {
        ScreenFaults::FullDisk full(0);
        receiveByKeyboard();
    }
    checkOneCriticalBox({t->db.filePath(), "no space left on the disk", "Free some space"});
    QCOMPARE(StoreFaults::hashOf(t->db.filePath()), before);
    QCOMPARE(storedRows(), 1);
    // Space freed.
    sameCollectionsComeAgain();
}

void tst_StoreFaultsReceive::storeOnAPageDamagedWhileTheScreenIsOpen()
{
    openScreen();
    const QString file = t->db.filePath();
    QVERIFY(ScreenFaults::damageTableWhileOpen(file, "RestoreData"));
    const QByteArray before = StoreFaults::hashOf(file);
    receiveByKeyboard();
    checkOneCriticalBox({file, "is damaged", "Restore the backup copy of HandHeldData.db"});
    QCOMPARE(StoreFaults::hashOf(file), before);
    QTest::keyClick(m_form->findChild<ColourButton*>("cmdexit"), Qt::Key_Space);
    QTRY_VERIFY(!m_form->isVisible());
}

void tst_StoreFaultsReceive::receiveAfterTheDatabaseWentAway_data()
{
    QTest::addColumn<int>("away");
    ScreenFaults::addAwayRows();
}

void tst_StoreFaultsReceive::receiveAfterTheDatabaseWentAway()
{
    QFETCH(int, away);
    openScreen();
    const QString file = t->db.filePath();
    const QByteArray original = StoreFaults::bytesOf(file);
    QVERIFY(ScreenFaults::makeGoAway(Away(away), file));
    const QByteArray there = StoreFaults::bytesOf(file);
    receiveByKeyboard();
    const QString shown = m_messages.last();
    QVERIFY2(ScreenFaults::saysTheFileWentAway(Away(away), shown, file), qPrintable(shown));
    checkOneCriticalBox({file});
    // Whatever is at the path now was not written to.
    QCOMPARE(StoreFaults::bytesOf(file), there);
    if (Away(away) == Away::Renamed)
        QCOMPARE(StoreFaults::bytesOf(ScreenFaults::movedPath(file)), original);
    QTest::keyClick(m_form->findChild<ColourButton*>("cmdexit"), Qt::Key_Space);
    QTRY_VERIFY(!m_form->isVisible());
}

QTEST_MAIN(tst_StoreFaultsReceive)
#include "tst_storefaults_receive.moc"
