#include "Pty.h"
#include "TestContext.h"
#include "UploadRecords.h"
#include "UploadSession.h"
#include "UploadTerminal.h"

#include <QSignalSpy>
#include <QtTest>

// A whole receive over a real pseudo-terminal: the session on a serial port
// opened on the slave, the simulated terminal on the master, in one process.
class tst_UploadOverPty : public QObject
{
    Q_OBJECT

    struct Run
    {
        TestContext t;
        Pty pty;
        std::unique_ptr<UploadTerminal> terminal;
        std::unique_ptr<UploadSession> session;
        UploadRecords records;
        int restoreCalls = 0;
        UploadSummary restoredSummary;
        QList<QByteArray> restoredRecords;
        bool finished = false;
    };

    std::unique_ptr<Run> r;

    static const QDate& day()
    {
        static const QDate d(2007, 11, 16);
        return d;
    }

    void start()
    {
        QString error;
        QVERIFY2(r->pty.open(&error), qPrintable(error));
        r->terminal = std::make_unique<UploadTerminal>(&r->pty);
        r->terminal->attach();
        const TerminalAccounts accounts = UploadRecords::sampleAccounts(4, day());
        const QList<Collection> collections = UploadRecords::generate(accounts, 9, day(), 3);
        QVERIFY2(UploadRecords::build(accounts, collections, {}, &r->records, &error), qPrintable(error));
        r->terminal->setRecords(r->records);

        r->t.ctx->portOverride = r->pty.devicePath();
        r->session = std::make_unique<UploadSession>(*r->t.ctx);
        Run* run = r.get();
        r->session->setRestoreHandler([run](UploadSession& s) {
            ++run->restoreCalls;
            run->restoredSummary = s.summary();
            run->restoredRecords = run->t.ctx->link.Records;
        });
        connect(r->session.get(), &UploadSession::finished, this, [run] {
            run->finished = true;
            // The idle resend would repeat the last request every 5 s.
            run->session->timer3().stop();
        });
        QVERIFY(r->session->Form_Load());
    }

    void receiveAndCheck()
    {
        r->session->cmdSend_Click();
        QTRY_VERIFY_WITH_TIMEOUT(r->finished, 10000);
        QTRY_COMPARE(r->terminal->overCount(), 1);
        QCOMPARE(r->restoreCalls, 1);
        const int count = r->records.recordCount();
        QCOMPARE(r->restoredSummary.TotalRecords, count);
        QCOMPARE(r->restoredSummary.TotalTransactions, 9);
        QCOMPARE(r->restoredSummary.AgentId, QStringLiteral("001"));
        QCOMPARE(r->restoredSummary.CollectionDate, QStringLiteral("1611"));
        QCOMPARE(r->restoredSummary.BankAgentId, QStringLiteral("AG001          "));
        QCOMPARE(r->restoredSummary.totalAmountText(), QStringLiteral("%1.00").arg(r->records.totalAmount));
        for (int n = 0; n <= count + 1; ++n)
            QCOMPARE(r->restoredRecords.at(n), r->records.reply(n));
        QVERIFY(r->t.ctx->link.UploadDone);
    }

private slots:
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
        QVERIFY(r->t.messenger.entries().isEmpty());
        QCOMPARE(r->terminal->requests().first(), 0);
        QCOMPARE(r->terminal->requests().size(), r->records.recordCount() + 2);
    }

    void corruptedCheckByteIsRequestedAgain()
    {
        start();
        r->terminal->faults().corruptRecord = 3;
        receiveAndCheck();
        QCOMPARE(r->terminal->requests().count(3), 2);
        QCOMPARE(r->t.ctx->link.CrcErrorCount, 1);
        QVERIFY(r->t.messenger.entries().isEmpty());
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
        QTRY_COMPARE(r->t.messenger.count(QStringLiteral("No Acknowledgement from HandHeld Terminal")), 1);
        // The running response timer resends; fire it now instead of in a second.
        r->session->Timer1_Timer();
        QTRY_VERIFY_WITH_TIMEOUT(r->finished, 10000);
        QCOMPARE(r->restoreCalls, 1);
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
        QTRY_VERIFY_WITH_TIMEOUT(r->finished, 10000);
        QCOMPARE(r->restoreCalls, 1);
        QCOMPARE(r->terminal->requests().count(3), 2);
        QCOMPARE(r->terminal->requests().count(4), 2);
        QCOMPARE(r->t.ctx->link.TimeoutCount, 0);
        for (int n = 0; n <= r->records.recordCount() + 1; ++n)
            QCOMPARE(r->restoredRecords.at(n), r->records.reply(n));
    }

    void unansweredFirstRequestRepeatedByTimer3()
    {
        start();
        r->terminal->faults().silentRecord = 0;
        r->session->cmdSend_Click();
        QTRY_COMPARE(r->terminal->requests().size(), 1);
        r->session->Timer3_Timer();
        QTRY_VERIFY_WITH_TIMEOUT(r->finished, 10000);
        QCOMPARE(r->terminal->requests().count(0), 2);
    }
};

QTEST_GUILESS_MAIN(tst_UploadOverPty)
#include "tst_uploadoverpty.moc"
