#include "link/DownloadSession.h"
#include "link/UploadSession.h"
#include "tests/support/FakeChannel.h"
#include "tests/support/TestContext.h"

#include <QSignalSpy>
#include <QtTest>

// The send and the receive screen share one link to the terminal; only the
// one that opened the port last may use it.
class tst_SharedLink : public QObject
{
    Q_OBJECT

private slots:
    void onlyTheLastOpenerReadsWritesAndCloses();
    void sessionsWithoutAnOpenerStillWork();
};

void tst_SharedLink::onlyTheLastOpenerReadsWritesAndCloses()
{
    TestContext t;
    FakeChannel* channel = nullptr;
    t.ctx->setChannelFactory([&channel] {
        auto c = std::make_unique<FakeChannel>();
        channel = c.get();
        return c;
    });

    t.ctx->settings.FontSize = QStringLiteral("0");
    DownloadSession send(t.ctx->port(), t.clock);
    send.Form_Load();
    QSignalSpy completed(&send, &DownloadSession::completed);
    QSignalSpy stopped(&send, &DownloadSession::stopped);
    // A download whose header is out, waiting for its answer.
    DownloadJob job;
    job.agentDateKey = QStringLiteral("0051611");
    job.branchId = QStringLiteral("BR0001         ");
    job.agentId = QStringLiteral("AG0005         ");
    job.transactions = QStringLiteral("1");
    job.downloadPassword = QStringLiteral("1234");
    job.setupPassword = QStringLiteral("5678");
    job.fontSize = QStringLiteral("0");
    send.prepareSend();
    send.FirstProtocol(job);
    QVERIFY(send.busy());

    UploadSession receive(t.ctx->port(), t.ctx->clock());
    QVERIFY(receive.Form_Load());
    QCOMPARE(channel->opens, 2);
    // The send side is told once that the port is gone, and stops.
    QCOMPARE(stopped.count(), 1);
    QVERIFY(!send.busy());
    receive.cmdSend_Click();

    // An answer meant for the receive screen is not taken by the send screen.
    channel->feed(QByteArray(8, '\0') + QByteArray("\x00\x00"
                                                   "AACK",
                                                   6));
    QCOMPARE(completed.count(), 0);
    QVERIFY(channel->pending.isEmpty());
    QCOMPARE(t.ctx->link.RxBuffer.size(), 14); // kept by the receive side, waiting for 137

    // The send screen's time-out writes nothing and stops itself.
    const int writes = channel->writeCalls;
    send.timer2().start();
    send.Timer2_Timer();
    QCOMPARE(channel->writeCalls, writes);
    QVERIFY(!send.timer2().isActive());

    // Closing the send screen leaves the receive screen's port open.
    send.closePort();
    QVERIFY(channel->isOpen());
    receive.closePort();
    QVERIFY(!channel->isOpen());
}

void tst_SharedLink::sessionsWithoutAnOpenerStillWork()
{
    TestContext t;
    QVERIFY(t.ctx->ownsLink(nullptr));
    QObject anyone;
    QVERIFY(t.ctx->ownsLink(&anyone));
}

QTEST_GUILESS_MAIN(tst_SharedLink)
#include "tst_sharedlink.moc"
