// The download protocol end to end: the session on a real serial port
// (the slave side of a pseudo-terminal) against the terminal simulator on
// the master side, both driven by this process's event loop.

#include "link/DownloadSession.h"
#include "terminal/DownloadTerminal.h"
#include "terminal/Pty.h"
#include "tests/support/MessageRecorder.h"
#include "tests/support/TestContext.h"
#include "tests/support/TestTiming.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

const QString cable = QStringLiteral("Please Check the Communication Cable");

struct PtyFixture
{
    Pty pty;
    TestContext t;
    MessageRecorder messages;
    QList<DownloadAccount> accounts;
    std::unique_ptr<DownloadTerminal> terminal;
    std::unique_ptr<DownloadSession> session;
    std::unique_ptr<QSignalSpy> completed;
    std::unique_ptr<QSignalSpy> stopped;
    std::unique_ptr<QSignalSpy> progress;
    QTemporaryDir stateDir;

    explicit PtyFixture(bool attachTerminal = true)
    {
        QString error;
        if (!pty.open(&error))
            qFatal("cannot open a pseudo-terminal: %s", qPrintable(error));
        terminal = std::make_unique<DownloadTerminal>(&pty);
        terminal->setStateDir(stateDir.path());
        if (attachTerminal)
            terminal->attach();
        AppContext& ctx = *t.ctx;
        ctx.portOverride = pty.devicePath();
        ctx.settings.BankName = QStringLiteral("TONVY BANK");
        ctx.settings.BranchName = QStringLiteral("MAIN ROAD");
        ctx.settings.FontSize = QStringLiteral("0");
        session = std::make_unique<DownloadSession>(ctx.port(), t.clock);
        messages.listen(session.get(), &DownloadSession::message);
        completed = std::make_unique<QSignalSpy>(session.get(), &DownloadSession::completed);
        stopped = std::make_unique<QSignalSpy>(session.get(), &DownloadSession::stopped);
        progress = std::make_unique<QSignalSpy>(session.get(), &DownloadSession::progress);
        session->Form_Load();
    }

    ~PtyFixture() { session->closePort(); }

    void insertAccounts(int n)
    {
        accounts.clear();
        for (int i = 1; i <= n; ++i) {
            accounts.append({QStringLiteral("2"), QStringLiteral("RD010"),
                             QStringLiteral("%1").arg(i, 15, 10, QLatin1Char('0')),
                             QStringLiteral("HOLDER %1").arg(i, 3, 10, QLatin1Char('0')),
                             QStringLiteral("%1").arg(i * 1000 + 7, 8, 10, QLatin1Char('0')), QStringLiteral("00100"),
                             QStringLiteral("0102%1").arg(i % 100, 2, 10, QLatin1Char('0')), QStringLiteral("      ")});
        }
    }

    void send(int n)
    {
        insertAccounts(n);
        DownloadJob job;
        job.agentDateKey = QStringLiteral("0051611");
        job.fileName = QStringLiteral("Bank/0051611d.txt");
        job.branchId = QStringLiteral("BR0001         ");
        job.agentId = QStringLiteral("AG0005         ");
        job.recordCount = n;
        job.transactions = QStringLiteral("3");
        job.downloadPassword = QStringLiteral("1111");
        job.setupPassword = QStringLiteral("2222");
        job.bankName = t.ctx->settings.BankName;
        job.branchName = t.ctx->settings.BranchName;
        job.fontSize = t.ctx->settings.FontSize;
        job.accounts = accounts;
        session->prepareSend();
        session->FirstProtocol(job);
    }

    static QList<int> expectedNumbers(int n)
    {
        QList<int> numbers{0};
        for (int i = 2; i <= n + 1; ++i)
            numbers << i;
        return numbers;
    }
};

} // namespace

class TestDownloadPty : public QObject
{
    Q_OBJECT
private slots:
    void fullDownload();
    void nackResend();
    void wrongNumber();
    void silentFrameTimeoutResend();
    void notInDownloadMode_data();
    void notInDownloadMode();
    void totalSilenceCableMessage();
    void silentTerminalHeaderSentOnce();
    void staleBytesBeforeOpenAreDropped();
    void droppedLineRecovers();
    void pausedTerminalRecovers();
    void closedMidTransferAndSentAgain();
};

void TestDownloadPty::fullDownload()
{
    PtyFixture f;
    f.send(4);
    QTRY_COMPARE_WITH_TIMEOUT(f.completed->count(), 1, scaledMs(10000));
    QCOMPARE(f.terminal->receivedNumbers(), PtyFixture::expectedNumbers(4));
    QCOMPARE(f.terminal->endFramesReceived(), 1);
    QCOMPARE(f.terminal->rejectedFrames(), 0);
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Download Completed Successfully!")});
    QCOMPARE(f.stopped->count(), 0);
    QCOMPARE(f.progress->count(), 4);
    QCOMPARE(f.progress->last().at(0).toInt(), 4);

    // What the terminal kept, read back from its state file.
    TerminalAccounts saved;
    QString error;
    QVERIFY2(saved.load(f.terminal->statePath(), &error), qPrintable(error));
    QCOMPARE(saved.agentId, QStringLiteral("AG0005         "));
    QCOMPARE(saved.branchId, QStringLiteral("BR0001         "));
    QCOMPARE(saved.agentDateKey, QStringLiteral("0051611"));
    QCOMPARE(saved.downloadPassword, QStringLiteral("1111"));
    QCOMPARE(saved.setupPassword, QStringLiteral("2222"));
    QCOMPARE(saved.transactions, QStringLiteral("3"));
    QCOMPARE(saved.fontSize, QStringLiteral("0"));
    QCOMPARE(saved.bankName, QStringLiteral("TONVY BANK").leftJustified(48));
    QCOMPARE(saved.branchName, QStringLiteral("MAIN ROAD").leftJustified(22));
    QCOMPARE(saved.clock, QStringLiteral("16/11/07 10:20:30"));
    QCOMPARE(saved.recordCount, 4);
    QCOMPARE(saved.accounts.size(), 4);
    for (int i = 1; i <= 4; ++i) {
        const TerminalAccount& a = saved.accounts.at(i - 1);
        QCOMPARE(a.frameNumber, i + 1);
        QCOMPARE(a.categoryCode, QStringLiteral("2"));
        QCOMPARE(a.schemeCode, QStringLiteral("RD010"));
        QCOMPARE(a.accountNumber, QStringLiteral("%1").arg(i, 15, 10, QLatin1Char('0')));
        QCOMPARE(a.name, QStringLiteral("HOLDER %1").arg(i, 3, 10, QLatin1Char('0')).leftJustified(28));
        QCOMPARE(a.balance, QStringLiteral("%1").arg(i * 1000 + 7, 10, 10, QLatin1Char('0')));
        QCOMPARE(a.agreedAmount, QStringLiteral("000100"));
        QCOMPARE(a.openingDate, QStringLiteral("0102%1").arg(i, 2, 10, QLatin1Char('0')));
        QCOMPARE(a.lastTxnDate, QStringLiteral("000000"));
    }
}

void TestDownloadPty::nackResend()
{
    PtyFixture f;
    DownloadTerminal::Faults faults;
    faults.nackFrame = 3;
    f.terminal->setFaults(faults);
    f.send(4);
    QTRY_COMPARE_WITH_TIMEOUT(f.completed->count(), 1, scaledMs(10000));
    QCOMPARE(f.terminal->receivedNumbers(), (QList<int>{0, 2, 3, 3, 4, 5}));
    QCOMPARE(f.terminal->state().accounts.size(), 4);
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Download Completed Successfully!")});
}

void TestDownloadPty::wrongNumber()
{
    PtyFixture f;
    DownloadTerminal::Faults faults;
    faults.wrongNumberFrame = 4;
    f.terminal->setFaults(faults);
    f.send(4);
    QTRY_COMPARE_WITH_TIMEOUT(f.completed->count(), 1, scaledMs(10000));
    // Frame 4 acknowledged as 5: the PC steps back two and sends 2 onwards again.
    QCOMPARE(f.terminal->receivedNumbers(), (QList<int>{0, 2, 3, 4, 2, 3, 4, 5}));
    QCOMPARE(f.terminal->state().accounts.size(), 4);
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Download Completed Successfully!")});
}

void TestDownloadPty::silentFrameTimeoutResend()
{
    PtyFixture f;
    DownloadTerminal::Faults faults;
    faults.silentFrame = 3;
    f.terminal->setFaults(faults);
    f.session->timer2().setInterval(300); // the response time-out, shortened for the test
    f.send(4);
    QTRY_COMPARE_WITH_TIMEOUT(f.completed->count(), 1, scaledMs(10000));
    const QList<int> numbers = f.terminal->receivedNumbers();
    // The first time-out goes back to the frame before the unanswered one.
    QCOMPARE(numbers.mid(0, 5), (QList<int>{0, 2, 3, 2, 3}));
    QCOMPARE(numbers.last(), 5);
    QCOMPARE(f.terminal->state().accounts.size(), 4);
    QCOMPARE(f.messages.count(QStringLiteral("Download Completed Successfully!")), 1);
    QCOMPARE(f.t.ctx->link.TimeoutCount, 1);
}

void TestDownloadPty::notInDownloadMode_data()
{
    QTest::addColumn<QByteArray>("word");
    QTest::newRow("CLOS") << QByteArray("CLOS");
    QTest::newRow("BACK") << QByteArray("BACK");
}

void TestDownloadPty::notInDownloadMode()
{
    QFETCH(QByteArray, word);
    PtyFixture f;
    DownloadTerminal::Faults faults;
    faults.notDownloadMode = word;
    f.terminal->setFaults(faults);
    f.send(2);
    QTRY_COMPARE_WITH_TIMEOUT(f.stopped->count(), 1, scaledMs(10000));
    QCOMPARE(f.messages.texts(),
             QStringList{QStringLiteral("Please goto Download Mode in the HandHeld Terminal and then Send Data!")});
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Information);
    QTest::qWait(100);
    QCOMPARE(f.terminal->receivedNumbers(), QList<int>{0});
    QCOMPARE(f.completed->count(), 0);
}

void TestDownloadPty::totalSilenceCableMessage()
{
    // A terminal that answers the header and then nothing at all.
    PtyFixture f(false);
    QList<QByteArray> chunks;
    bool headerAnswered = false;
    QObject::connect(&f.pty, &Pty::readyRead, [&] {
        const QByteArray bytes = f.pty.readAll();
        chunks << bytes;
        if (!headerAnswered) {
            headerAnswered = true;
            f.pty.write(DownloadTerminal::answerFrame(0, "AACK"));
        }
    });
    f.session->timer2().setInterval(30);
    f.send(3);
    QTRY_COMPARE_WITH_TIMEOUT(f.messages.count(cable), 1, scaledMs(10000));
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    // Resending goes on after the message: the count comes round again.
    QTRY_COMPARE_WITH_TIMEOUT(f.messages.count(cable), 2, scaledMs(10000));
    QCOMPARE(f.stopped->count(), 0);
    QVERIFY(f.session->timer2().isActive());
    const QByteArray all = chunks.join();
    // Header, the first account frame, then a resend at every time-out.
    QVERIFY2(all.count(QByteArrayLiteral("\x01\xFF\x10\xF0")) >= 11, qPrintable(QString::number(all.size())));
    QVERIFY(all.contains(f.session->recordFrame(1)));
}

void TestDownloadPty::silentTerminalHeaderSentOnce()
{
    PtyFixture f(false);
    QByteArray all;
    QObject::connect(&f.pty, &Pty::readyRead, [&] { all += f.pty.readAll(); });
    f.session->headerWatch().setInterval(300);
    f.send(2);
    QTRY_COMPARE_WITH_TIMEOUT(f.stopped->count(), 1, scaledMs(5000));
    QCOMPARE(f.messages.texts(), QStringList{cable});
    QTest::qWait(200);
    QCOMPARE(all, f.session->headerFrame()); // the header, once, and nothing else
}

void TestDownloadPty::staleBytesBeforeOpenAreDropped()
{
    PtyFixture f;
    // Answers of an earlier exchange wait in the line before the port opens.
    f.pty.write(DownloadTerminal::answerFrame(7, "AACK") + DownloadTerminal::answerFrame(0, "NACK"));
    QTest::qWait(50);
    f.send(3);
    QTRY_COMPARE_WITH_TIMEOUT(f.completed->count(), 1, scaledMs(10000));
    QCOMPARE(f.terminal->receivedNumbers(), PtyFixture::expectedNumbers(3));
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Download Completed Successfully!")});
}

// The cable pulled for 13 time-outs (1.3 s at a tenth of the real time-out)
// and plugged in again: the download completes within ten time-outs of the
// line coming back, and the terminal holds every account.
void TestDownloadPty::droppedLineRecovers()
{
    PtyFixture f;
    f.session->timer2().setInterval(100);
    QObject::connect(f.terminal.get(), &DownloadTerminal::accountReceived, [&](int number) {
        if (number == 4 && !f.pty.lineDown() && f.pty.bytesDropped() == 0)
            f.pty.dropFor(1300);
    });
    QElapsedTimer clock;
    f.send(20);
    clock.start();
    QTRY_VERIFY_WITH_TIMEOUT(f.pty.bytesDropped() > 0, scaledMs(5000));
    QTRY_VERIFY_WITH_TIMEOUT(!f.pty.lineDown(), scaledMs(5000));
    const qint64 up = clock.elapsed();
    QTRY_COMPARE_WITH_TIMEOUT(f.completed->count() + f.stopped->count(), 1, scaledMs(10000));
    QCOMPARE(f.completed->count(), 1);
    QVERIFY2(clock.elapsed() - up <= 10 * 100 + scaledMs(500), qPrintable(QString::number(clock.elapsed() - up)));
    QCOMPARE(f.terminal->state().accounts.size(), 20);
    QCOMPARE(f.terminal->endFramesReceived(), 1);
}

// The terminal stops reading for 13 time-outs and then takes everything that
// waited in the line, answering every copy the time-outs sent meanwhile.
void TestDownloadPty::pausedTerminalRecovers()
{
    PtyFixture f(false);
    bool paused = false;
    bool pausedOnce = false;
    QObject::connect(&f.pty, &Pty::readyRead, [&] {
        if (!paused)
            f.terminal->receive(f.pty.readAll()); // while paused the bytes stay in the line
    });
    QObject::connect(f.terminal.get(), &DownloadTerminal::accountReceived, [&](int number) {
        if (number == 4 && !pausedOnce) {
            paused = true;
            pausedOnce = true;
            QTimer::singleShot(1300, &f.pty, [&] {
                paused = false;
                f.terminal->receive(f.pty.readAll());
            });
        }
    });
    f.session->timer2().setInterval(100);
    QElapsedTimer clock;
    clock.start();
    f.send(20);
    QTRY_VERIFY_WITH_TIMEOUT(paused, scaledMs(5000));
    QTRY_VERIFY_WITH_TIMEOUT(!paused, scaledMs(5000));
    const qint64 resumed = clock.elapsed();
    QTRY_COMPARE_WITH_TIMEOUT(f.completed->count() + f.stopped->count(), 1, scaledMs(10000));
    QCOMPARE(f.completed->count(), 1);
    QVERIFY2(clock.elapsed() - resumed <= 10 * 100 + scaledMs(500),
             qPrintable(QString::number(clock.elapsed() - resumed)));
    QCOMPARE(f.terminal->state().accounts.size(), 20);
    for (const TerminalAccount& a : f.terminal->state().accounts)
        QVERIFY(a.name.startsWith(QStringLiteral("HOLDER")));
}

// Send closed after a few accounts while answers are still on their way, and
// pressed again: the new download is not thrown off by them.
void TestDownloadPty::closedMidTransferAndSentAgain()
{
    PtyFixture f;
    f.terminal->setLineBaud(19200);
    f.pty.setBaud(19200);
    f.send(30);
    QTRY_VERIFY_WITH_TIMEOUT(f.progress->count() >= 3, scaledMs(5000));
    f.session->stopTransfer();
    // The terminal answers what it still had, into a closed port.
    f.pty.write(DownloadTerminal::answerFrame(5, "AACK") + DownloadTerminal::answerFrame(6, "AACK"));
    QTest::qWait(100);
    f.progress->clear();
    f.send(30);
    QTRY_COMPARE_WITH_TIMEOUT(f.completed->count() + f.stopped->count(), 1, scaledMs(15000));
    QCOMPARE(f.completed->count(), 1);
    QCOMPARE(f.terminal->state().accounts.size(), 30);
    QCOMPARE(f.progress->last().at(0).toInt(), 30);
}

QTEST_GUILESS_MAIN(TestDownloadPty)
#include "tst_downloadpty.moc"
