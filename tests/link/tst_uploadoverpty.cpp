#include "link/UploadFrames.h"
#include "link/UploadSession.h"
#include "terminal/Pty.h"
#include "terminal/UploadRecords.h"
#include "terminal/UploadTerminal.h"
#include "tests/support/TestContext.h"
#include "tests/support/TestTiming.h"

#include <QSignalSpy>
#include <QtTest>

// Whole receives over a real pseudo-terminal: the session on a serial port
// opened on the slave, the simulated terminal on the master, in one process.
// Every receive must end with exactly the terminal's records or stop with a
// message; never with records in another record's place.
class tst_UploadOverPty : public QObject
{
    Q_OBJECT

    struct Run
    {
        TestContext t;
        std::unique_ptr<Pty> pty = std::make_unique<Pty>();
        std::unique_ptr<UploadTerminal> terminal;
        std::unique_ptr<UploadSession> session;
        UploadRecords records;
        int finishedCount = 0;
        UploadSummary finishedSummary;
        QList<QByteArray> finishedRecords;
        QList<SessionMessage> messages;
        int stopped = 0;

        int count(const QString& text) const
        {
            int n = 0;
            for (const SessionMessage& m : messages)
                n += m.text == text ? 1 : 0;
            return n;
        }
    };

    std::unique_ptr<Run> r;

    static const QDate& day()
    {
        static const QDate d(2007, 11, 16);
        return d;
    }

    // accounts and collections: a small day by default; paced: the
    // terminal's bytes take as long as on a 19200-baud cable.
    void start(int accounts = 4, int collections = 9, bool paced = false)
    {
        QString error;
        QVERIFY2(r->pty->open(&error), qPrintable(error));
        if (paced)
            r->pty->setBaud(19200);
        r->terminal = std::make_unique<UploadTerminal>(r->pty.get());
        r->terminal->attach();
        const TerminalAccounts terminalAccounts = UploadRecords::sampleAccounts(accounts, day());
        const QList<Collection> list = UploadRecords::generate(terminalAccounts, collections, day(), 3);
        QVERIFY2(UploadRecords::build(terminalAccounts, list, {}, &r->records, &error), qPrintable(error));
        r->terminal->setRecords(r->records);

        r->t.ctx->portOverride = r->pty->devicePath();
        r->session = std::make_unique<UploadSession>(r->t.ctx->port(), r->t.ctx->clock());
        Run* run = r.get();
        connect(r->session.get(), &UploadSession::finished, this, [run] {
            ++run->finishedCount;
            run->finishedSummary = run->session->summary();
            run->finishedRecords = run->t.ctx->link.Records;
        });
        connect(r->session.get(), &UploadSession::message, this,
                [run](const SessionMessage& m) { run->messages.append(m); });
        connect(r->session.get(), &UploadSession::stopped, this, [run] { ++run->stopped; });
        QVERIFY(r->session->Form_Load());
    }

    void checkExactly()
    {
        QCOMPARE(r->finishedCount, 1);
        const int count = r->records.recordCount();
        QCOMPARE(r->finishedSummary.TotalRecords, count);
        QCOMPARE(r->finishedSummary.AgentId, QStringLiteral("001"));
        QCOMPARE(r->finishedSummary.CollectionDate, QStringLiteral("1611"));
        QCOMPARE(r->finishedSummary.BankAgentId, QStringLiteral("AG001          "));
        QCOMPARE(r->finishedSummary.totalAmountText(), QStringLiteral("%1.00").arg(r->records.totalAmount));
        for (int n = 0; n <= count + 1; ++n)
            QCOMPARE(UploadFrames::content(r->finishedRecords.at(n)), UploadFrames::content(r->records.reply(n)));
        for (int n = count + 2; n < r->finishedRecords.size(); ++n)
            QVERIFY(r->finishedRecords.at(n).isEmpty());
        QVERIFY(r->t.ctx->link.completion.isComplete());
    }

    void receiveAndCheck(int timeoutMs = 10000)
    {
        r->session->cmdSend_Click();
        QTRY_VERIFY_WITH_TIMEOUT(r->finishedCount > 0, scaledMs(timeoutMs));
        QTRY_COMPARE(r->terminal->overCount(), 1);
        checkExactly();
    }

private slots:
    void initTestCase() { qRegisterMetaType<SessionMessage>(); }
    void init() { r = std::make_unique<Run>(); }
    void cleanup()
    {
        if (r && r->session)
            r->session->closePort();
        r.reset();
    }

    void fullReceive()
    {
        start();
        receiveAndCheck();
        QVERIFY(r->messages.isEmpty());
        QCOMPARE(r->terminal->requests().first(), 0);
        QCOMPARE(r->terminal->requests().size(), r->records.recordCount() + 2);
    }

    void idleResendAfterOverIsNotAnswered()
    {
        start();
        receiveAndCheck();
        QVERIFY(!r->terminal->inUploadMode());
        QSignalSpy replies(r->terminal.get(), &UploadTerminal::replySent);
        r->session->Timer3_Timer();
        QTRY_COMPARE(replies.count(), 1);
        QCOMPARE(replies.first().at(1).toString(), QStringLiteral("not in upload mode"));
        QTest::qWait(100);
        QCOMPARE(r->finishedCount, 1);
        QCOMPARE(r->terminal->overCount(), 1);
    }

    void idleResendAnsweredByATerminalThatStays()
    {
        start();
        r->terminal->setStayInUpload(true);
        receiveAndCheck();
        r->session->Timer3_Timer();
        // Told again that the exchange is over; nothing is taken twice.
        QTRY_COMPARE(r->terminal->overCount(), 2);
        QCOMPARE(r->finishedCount, 1);
    }

    void corruptedCheckByteIsRequestedAgain()
    {
        start();
        r->terminal->faults().corruptRecord = 3;
        receiveAndCheck();
        QCOMPARE(r->terminal->requests().count(3), 2);
        QVERIFY(r->messages.isEmpty());
    }

    void replyInPieces()
    {
        start();
        r->terminal->faults().splitRecord = -2;
        r->terminal->faults().pieces = 4;
        r->terminal->faults().pieceDelayMs = 5;
        receiveAndCheck();
        QCOMPARE(r->terminal->requests().size(), r->records.recordCount() + 2);
    }

    void nackThenTimeoutResend()
    {
        start();
        r->terminal->faults().nackRecord = 3;
        r->session->cmdSend_Click();
        QTRY_COMPARE(r->count(QStringLiteral("No Acknowledgement from HandHeld Terminal")), 1);
        // The running response timer resends; fire it now instead of in a second.
        r->session->Timer1_Timer();
        QTRY_VERIFY_WITH_TIMEOUT(r->finishedCount > 0, scaledMs(10000));
        checkExactly();
        // Stepped back once: record 2 again, then 3.
        QCOMPARE(r->terminal->requests().count(2), 2);
        QCOMPARE(r->terminal->requests().count(3), 2);
        QTRY_COMPARE(r->terminal->overCount(), 1);
    }

    void silenceThenTimeoutResend()
    {
        start();
        r->terminal->faults().silentRecord = 4;
        bool silent = false;
        connect(r->terminal.get(), &UploadTerminal::replySent, this,
                [&silent](int record, const QString& how) { silent = silent || (record == 4 && how == "silent"); });
        r->session->cmdSend_Click();
        QTRY_VERIFY(silent);
        QVERIFY(r->session->timer1().isActive());
        r->session->Timer1_Timer();
        QTRY_VERIFY_WITH_TIMEOUT(r->finishedCount > 0, scaledMs(10000));
        checkExactly();
        QCOMPARE(r->terminal->requests().count(3), 2);
        QCOMPARE(r->terminal->requests().count(4), 2);
        QCOMPARE(r->t.ctx->link.TimeoutCount, 0);
    }

    void unansweredFirstRequestRepeatedByTimer3()
    {
        start();
        r->terminal->faults().silentRecord = 0;
        r->session->cmdSend_Click();
        QTRY_COMPARE(r->terminal->requests().size(), 1);
        r->session->Timer3_Timer();
        QTRY_VERIFY_WITH_TIMEOUT(r->finishedCount > 0, scaledMs(10000));
        QCOMPARE(r->terminal->requests().count(0), 2);
        checkExactly();
    }

    void bytesLeftOnTheLineAreNotTheHeader_data()
    {
        QTest::addColumn<bool>("beforeLoad");
        QTest::newRow("before the port opens") << true;
        QTest::newRow("after the port opens") << false;
    }
    void bytesLeftOnTheLineAreNotTheHeader()
    {
        QFETCH(bool, beforeLoad);
        QString error;
        QVERIFY2(r->pty->open(&error), qPrintable(error));
        // An interrupted receive's reply and its tail are still in the line.
        UploadRecords old;
        const TerminalAccounts accounts = UploadRecords::sampleAccounts(2, day());
        QVERIFY(UploadRecords::build(accounts, UploadRecords::generate(accounts, 2, day(), 5), {}, &old, &error));
        const QByteArray stale = QByteArray::fromHex("07D0") + old.reply(2) + old.reply(3).left(40);
        if (beforeLoad)
            r->pty->write(stale);
        start();
        if (!beforeLoad)
            r->pty->write(stale);
        QTest::qWait(100);
        receiveAndCheck();
        QCOMPARE(r->terminal->requests().first(), 0);
    }

    // The reply to one record held back 1.3 s: the session's step-back
    // request crosses it.
    void lateReplyCrossingTheRequestAgain_data()
    {
        QTest::addColumn<int>("record");
        QTest::newRow("summary") << 1;
        QTest::newRow("record 3") << 3;
        QTest::newRow("record 6") << 6;
    }
    void lateReplyCrossingTheRequestAgain()
    {
        QFETCH(int, record);
        start(12, 60, true);
        r->terminal->faults().delayRecord = record;
        r->terminal->faults().delayMs = 1300;
        receiveAndCheck(15000);
        // The summary has no response time-out (only the 5-second idle
        // resend): its late reply is simply awaited.
        QVERIFY(r->terminal->requests().count(record) >= (record == 1 ? 1 : 2));
    }

    // A bit flipped in a request's record number: the terminal answers
    // another record.
    void requestAnsweredWithAnotherRecord_data()
    {
        QTest::addColumn<int>("asked");
        QTest::addColumn<int>("answered");
        QTest::newRow("4 read as 5") << 4 << 5;
        QTest::newRow("5 read as 4") << 5 << 4;
        QTest::newRow("3 read as 7") << 3 << 7;
        QTest::newRow("2 read as 1") << 2 << 1;
        QTest::newRow("1 read as 3") << 1 << 3;
        // Beyond the last record the terminal answers a record that names no
        // account and holds no collection: kept in the place asked for, a
        // collection would be lost (-1: the last record).
        QTest::newRow("4 read as 300, beyond the last") << 4 << 300;
        QTest::newRow("3 read as 1027, beyond the last") << 3 << 1027;
        QTest::newRow("the last read as 300") << -1 << 300;
    }
    void requestAnsweredWithAnotherRecord()
    {
        QFETCH(int, asked);
        QFETCH(int, answered);
        start(12, 60);
        if (asked < 0)
            asked = r->records.recordCount() + 1;
        r->terminal->faults().misreadRecord = asked;
        r->terminal->faults().misreadAs = answered;
        receiveAndCheck(15000);
    }

    // A line at the cable's speed, where a damaged reply's tail is still
    // coming in when the check fails, with several faults in one receive.
    void severalFaultsOnAPacedLine_data()
    {
        QTest::addColumn<int>("delayed");
        QTest::addColumn<int>("misread");
        QTest::addColumn<int>("misreadAs");
        QTest::addColumn<int>("corrupt");
        QTest::newRow("late 4, 6 read as 7") << 4 << 6 << 7 << -1;
        QTest::newRow("late 9, 3 read as 2, 8 damaged") << 9 << 3 << 2 << 8;
        QTest::newRow("late 2, 5 read as 9, 3 damaged") << 2 << 5 << 9 << 3;
    }
    void severalFaultsOnAPacedLine()
    {
        QFETCH(int, delayed);
        QFETCH(int, misread);
        QFETCH(int, misreadAs);
        QFETCH(int, corrupt);
        start(12, 60, true);
        UploadTerminal::Faults& f = r->terminal->faults();
        f.delayRecord = delayed;
        f.misreadRecord = misread;
        f.misreadAs = misreadAs;
        f.corruptRecord = corrupt;
        f.corruptTimes = 2;
        receiveAndCheck(20000);
        QVERIFY(r->messages.isEmpty());
    }

    // The cable pulled for six seconds (nothing gets through) and put back.
    void lineDroppedAndBack()
    {
        start(6, 20);
        connect(r->terminal.get(), &UploadTerminal::requestReceived, this, [this](int record) {
            if (record == 4 && !r->terminal->faults().mute && r->terminal->requests().count(4) == 1) {
                r->terminal->faults().mute = true;
                QTimer::singleShot(6000, this, [this] { r->terminal->faults().mute = false; });
            }
        });
        r->session->cmdSend_Click();
        QTRY_COMPARE_WITH_TIMEOUT(r->count(UploadSession::checkCableText()), 1, scaledMs(8000));
        QVERIFY(r->session->isBusy());
        QTRY_VERIFY_WITH_TIMEOUT(r->finishedCount > 0, scaledMs(12000));
        checkExactly();
    }

    void terminalGoneStopsWithAMessage()
    {
        start(6, 20, true);
        connect(r->terminal.get(), &UploadTerminal::requestReceived, this, [this](int record) {
            if (record == 4)
                QTimer::singleShot(0, this, [this] {
                    r->terminal.reset();
                    r->pty.reset();
                });
        });
        r->session->cmdSend_Click();
        QTRY_COMPARE_WITH_TIMEOUT(r->stopped, 1, scaledMs(5000));
        QCOMPARE(r->session->phase(), UploadSession::Phase::Stopped);
        QCOMPARE(r->finishedCount, 0);
        QVERIFY(!r->messages.isEmpty());
        QVERIFY(r->messages.last().text.contains(QStringLiteral("press Receive")));
        QCOMPARE(r->messages.last().icon, SessionMessage::Icon::Critical);
        QTest::qWait(200);
        QCOMPARE(r->stopped, 1);
    }
};

QTEST_GUILESS_MAIN(tst_UploadOverPty)
#include "tst_uploadoverpty.moc"
