#include "link/UploadFrames.h"
#include "tests/support/FakeChannel.h"
#include "tests/support/TestContext.h"
#include "tests/upload/ReplyBytes.h"
#include "upload/ReceiveFlow.h"

#include <QSignalSpy>
#include <QSqlQuery>
#include <QtTest>

namespace {

const QByteArray agent = "AG0000000000005";

QByteArray record(int entry)
{
    return ReplyBytes::transactionRecord(
        "S", "DD001", "000000000000101",
        {QByteArray::fromHex("000050 16B7 0900") + QByteArray(1, '\0') + QByteArray(1, static_cast<char>(entry))},
        '\x01');
}

} // namespace

// One receive from the Receive button to the restore step, without a window.
class tst_ReceiveFlow : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestContext> t;
    std::unique_ptr<ReceiveFlow> flow;
    FakeChannel* channel = nullptr;

    int storedRows()
    {
        QSqlQuery q(t->db.connection());
        if (!q.exec(QStringLiteral("SELECT count(*) FROM RestoreData")) || !q.next())
            return -1;
        return q.value(0).toInt();
    }

    // Header and summary of a receive of `count` records.
    void start(int count)
    {
        flow->cmdSend_Click();
        channel->feed(ReplyBytes::headerRecord(count, agent));
        channel->feed(ReplyBytes::summaryRecord("005", "1611", count, QByteArray::fromHex("00000050")));
        QCOMPARE(UploadFrames::requestedRecord(channel->lastWritten()), 2);
    }

private slots:
    void init()
    {
        qRegisterMetaType<SessionMessage>();
        t = std::make_unique<TestContext>();
        t->ctx->settings.BankInfoPath = t->path(QStringLiteral("bank"));
        QDir().mkpath(t->ctx->settings.BankInfoPath);
        t->db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, AgentID) "
                                     "VALUES ('S', 'DD001', '000000000000101', 'SITA', ?)"),
                      {QString::fromLatin1(agent)});
        t->ctx->setChannelFactory([this] {
            auto c = std::make_unique<FakeChannel>();
            channel = c.get();
            return c;
        });
        flow = std::make_unique<ReceiveFlow>(*t->ctx);
        // What the flow has to say goes where the screen or the command line
        // would show it.
        QObject::connect(flow.get(), &ReceiveFlow::message, flow.get(),
                         [this](const SessionMessage& m) { t->messenger.show(m.text, messengerIcon(m.icon)); });
        QVERIFY(flow->Form_Load());
    }
    void cleanup()
    {
        flow.reset();
        t.reset();
    }

    void restoreRunsOnceAfterTheSerialHandler()
    {
        QSignalSpy completed(flow.get(), &ReceiveFlow::completed);
        QSignalSpy enabled(flow.get(), &ReceiveFlow::receiveEnabled);
        start(1);
        QCOMPARE(enabled.last().at(0).toBool(), false);
        channel->feed(record(1));
        QCOMPARE(channel->lastWritten(), UploadFrames::end());
        // Not yet: the restore runs once the handler has returned.
        QCOMPARE(completed.count(), 0);
        QVERIFY(flow->isBusy());
        QTRY_COMPARE(completed.count(), 1);
        QCOMPARE(completed.first().at(0).toBool(), true);
        QVERIFY(flow->restored());
        QVERIFY(!flow->isBusy());
        QCOMPARE(storedRows(), 1);
        QCOMPARE(t->messenger.count(QStringLiteral("Upload Completed Successfully")), 1);
        // The idle resend after the end and its answer store nothing again.
        flow->session().Timer3_Timer();
        channel->feed(record(1));
        QTest::qWait(20);
        QCOMPARE(completed.count(), 1);
        QCOMPARE(t->messenger.count(QStringLiteral("Upload Completed Successfully")), 1);
    }

    void aRefusedReceiveCanBeAcceptedAsItCame()
    {
        QSignalSpy completed(flow.get(), &ReceiveFlow::completed);
        QSignalSpy outcomes(flow.get(), &ReceiveFlow::outcomeReady);
        // The summary's total disagrees with the one collection that comes.
        flow->cmdSend_Click();
        channel->feed(ReplyBytes::headerRecord(1, agent));
        channel->feed(ReplyBytes::summaryRecord("005", "1611", 1, QByteArray::fromHex("00000099")));
        channel->feed(record(1));
        QTRY_COMPARE(completed.count(), 1);
        QCOMPARE(completed.first().at(0).toBool(), false);
        QCOMPARE(outcomes.count(), 1);
        QCOMPARE(flow->outcome().result, RestoreStore::ReceiveOutcome::Result::Refused);
        QVERIFY(flow->outcome().mayAccept);
        QVERIFY(!flow->outcome().reconciliation.isEmpty());
        QCOMPARE(storedRows(), 0);
        QVERIFY(!QFile::exists(t->path(QStringLiteral("bank/0051611u.txt"))));

        QVERIFY(flow->acceptReceive());
        QCOMPARE(completed.count(), 2);
        QCOMPARE(flow->outcome().result, RestoreStore::ReceiveOutcome::Result::Accepted);
        QCOMPARE(storedRows(), 1);
        QVERIFY(QFile::exists(t->path(QStringLiteral("bank/0051611u.txt"))));
        // Once only.
        QVERIFY(!flow->acceptReceive());
        QSqlQuery q(t->db.connection());
        QVERIFY(q.exec(QStringLiteral("SELECT count(*) FROM AuditTrail WHERE Action = 'receive'")));
        QVERIFY(q.next());
        QVERIFY(q.value(0).toInt() >= 2);
    }

    void missingBankFolderIsAPlainBox()
    {
        QSignalSpy messages(flow.get(), &ReceiveFlow::message);
        QVERIFY(QDir(t->ctx->settings.BankInfoPath).removeRecursively());
        start(1);
        channel->feed(record(1));
        QTRY_VERIFY(!flow->isBusy());
        const SessionMessage expected{
            QStringLiteral("Bank Upload Folder does not Exist,Select BankInfoPath and UpLoad Again"),
            SessionMessage::Icon::None};
        bool seen = false;
        for (const QList<QVariant>& m : messages)
            seen = seen || m.at(0).value<SessionMessage>() == expected;
        QVERIFY(seen);
    }

    void nothingIsStoredAfterStop()
    {
        QSignalSpy completed(flow.get(), &ReceiveFlow::completed);
        QSignalSpy stopped(flow.get(), &ReceiveFlow::stopped);
        QSignalSpy enabled(flow.get(), &ReceiveFlow::receiveEnabled);
        start(2);
        channel->feed(record(1));
        QVERIFY(flow->isBusy());
        flow->stop();
        QCOMPARE(stopped.count(), 1);
        QCOMPARE(enabled.last().at(0).toBool(), true);
        QVERIFY(!channel->isOpen());
        channel->feed(record(2));
        QTest::qWait(20);
        QCOMPARE(completed.count(), 0);
        QCOMPARE(storedRows(), 0);
        QVERIFY(!QFile::exists(t->path(QStringLiteral("bank/0051611u.txt"))));
    }

    void stopRightAfterTheLastRecordStoresNothing()
    {
        QSignalSpy completed(flow.get(), &ReceiveFlow::completed);
        start(1);
        channel->feed(record(1));
        flow->stop();
        QTest::qWait(20);
        QCOMPARE(completed.count(), 0);
        QCOMPARE(storedRows(), 0);
    }

    void messagesAndTheQuestionPassThrough()
    {
        QSignalSpy messages(flow.get(), &ReceiveFlow::message);
        QSignalSpy question(flow.get(), &ReceiveFlow::crcQuestion);
        flow->cmdSend_Click();
        channel->feed("NACK");
        QCOMPARE(messages.count(), 1);
        QByteArray bad = ReplyBytes::headerRecord(1, agent);
        bad[136] = static_cast<char>(bad.at(136) + 1);
        for (int i = 0; i < 15; ++i) {
            channel->feed(bad);
            if (flow->session().flushTimer().isActive())
                flow->session().FlushTimer_Timer();
        }
        QCOMPARE(question.count(), 1);
        QSignalSpy close(flow.get(), &ReceiveFlow::closeRequested);
        flow->answerCrcQuestion(false);
        QCOMPARE(close.count(), 1);
    }

    void portFailureEnablesReceiveAgain()
    {
        QSignalSpy enabled(flow.get(), &ReceiveFlow::receiveEnabled);
        QSignalSpy messages(flow.get(), &ReceiveFlow::message);
        start(3);
        channel->fail(QStringLiteral("The serial port fake failed: gone"));
        QCOMPARE(enabled.last().at(0).toBool(), true);
        QCOMPARE(messages.count(), 1);
        QVERIFY(!flow->isBusy());
    }
};

QTEST_GUILESS_MAIN(tst_ReceiveFlow)
#include "tst_receiveflow.moc"
