#include "link/DownloadSession.h"
#include "tests/support/FakeChannel.h"
#include "tests/support/MessageRecorder.h"
#include "tests/support/TestContext.h"
#include "tests/support/TestTiming.h"

#include <QSet>
#include <QSignalSpy>
#include <QtTest>

namespace {

struct Account
{
    QString category;
    QString scheme;
    QString number;
    QString name;
    QString balance;
    QString agreed;
    QString opening;
    QString txn;
    QString agent = QStringLiteral("AG0005         ");
    QString file = QStringLiteral("Bank/0051611d.txt");
};

Account account(const QString& name, const QString& number = QStringLiteral("000000000012345"))
{
    return {QStringLiteral("1"),
            QStringLiteral("SB001"),
            number,
            name,
            QStringLiteral("00012345"),
            QStringLiteral("00050"),
            QStringLiteral("150304"),
            QStringLiteral("010607")};
}

QByteArray answer(int number, const QByteArray& word = QByteArrayLiteral("AACK"))
{
    QByteArray frame = QByteArrayLiteral("\x01\xFF\x10\xF0"
                                         "D\x00\x07");
    frame += static_cast<char>(number >> 8);
    frame += static_cast<char>(number & 0xFF);
    frame += word;
    int sum = 0;
    for (qsizetype i = 7; i < frame.size(); ++i)
        sum += static_cast<unsigned char>(frame.at(i));
    frame += static_cast<char>((-sum) & 0xFF);
    return frame;
}

int numberOf(const QByteArray& frame)
{
    return static_cast<unsigned char>(frame.at(7)) * 256 + static_cast<unsigned char>(frame.at(8));
}

QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray out;
    for (int v : values)
        out += static_cast<char>(v);
    return out;
}

// The sum of the character codes at 1-based positions first..last.
int positions(const QByteArray& frame, int first, int last)
{
    int sum = 0;
    for (int i = first; i <= last; ++i)
        sum += static_cast<unsigned char>(frame.at(i - 1));
    return sum;
}

// A send screen's worth of session on a fake link, with the usual settings.
struct Fixture
{
    TestContext t;
    MessageRecorder messages;
    FakeChannel* channel = nullptr;
    QList<DownloadAccount> accounts; // the job's accounts, in the order they go out
    std::unique_ptr<DownloadSession> session;
    std::unique_ptr<QSignalSpy> progress;
    std::unique_ptr<QSignalSpy> stopped;
    std::unique_ptr<QSignalSpy> completed;

    Fixture()
    {
        AppContext& ctx = *t.ctx;
        ctx.settings.BankName = QStringLiteral("TONVY BANK");
        ctx.settings.BranchName = QStringLiteral("MAIN ROAD");
        ctx.settings.FontSize = QStringLiteral("1");
        ctx.setChannelFactory([] { return std::make_unique<FakeChannel>(); });
        channel = static_cast<FakeChannel*>(&ctx.channel());
        session = std::make_unique<DownloadSession>(ctx.port(), t.clock);
        messages.listen(session.get(), &DownloadSession::message);
        progress = std::make_unique<QSignalSpy>(session.get(), &DownloadSession::progress);
        stopped = std::make_unique<QSignalSpy>(session.get(), &DownloadSession::stopped);
        completed = std::make_unique<QSignalSpy>(session.get(), &DownloadSession::completed);
        session->Form_Load();
    }

    LinkState& link() { return t.ctx->link; }
    DownloadSession::Phase phase() const { return session->phase(); }

    void insert(const Account& a)
    {
        accounts.append({a.category, a.scheme, a.number, a.name, a.balance, a.agreed, a.opening, a.txn});
    }

    void insertNumbered(int n)
    {
        for (int i = 1; i <= n; ++i)
            insert(account(QStringLiteral("HOLDER %1").arg(i, 3, 10, QLatin1Char('0')),
                           QStringLiteral("%1").arg(i, 15, 10, QLatin1Char('0'))));
    }

    DownloadJob job(int count) const
    {
        DownloadJob j;
        j.agentDateKey = QStringLiteral("0051611");
        j.fileName = QStringLiteral("Bank/0051611d.txt");
        j.branchId = QStringLiteral("BR0001         ");
        j.agentId = QStringLiteral("AG0005         ");
        j.recordCount = count;
        j.transactions = QStringLiteral("5");
        j.downloadPassword = QStringLiteral("1234");
        j.setupPassword = QStringLiteral("5678");
        j.bankName = t.ctx->settings.BankName;
        j.branchName = t.ctx->settings.BranchName;
        j.fontSize = t.ctx->settings.FontSize;
        j.accounts = accounts;
        return j;
    }

    void start(int count)
    {
        session->prepareSend();
        session->FirstProtocol(job(count));
    }

    // Header acknowledged and the 10 ms tick run: the first account is out.
    void startRecords(int count)
    {
        insertNumbered(count);
        start(count);
        channel->feed(answer(0));
        QVERIFY(session->timer1().isActive());
        session->Timer1_Timer();
    }

    void ackLast() { channel->feed(answer(numberOf(channel->written.last()))); }
};

} // namespace

class TestDownloadSession : public QObject
{
    Q_OBJECT
private slots:
    void headerFrameByteExact();
    void headerChecksumCoversTwice();
    void headerPadsSettings_data();
    void headerPadsSettings();
    void headerTooShortIsReported();
    void headerChecksumOverflowIsReported();
    void headerWithoutFontSizeIsReported();
    void formLoadClearsDownloadComplete();
    void recordFrameByteExact_data();
    void recordFrameByteExact();
    void recordFramesInJobOrder();
    void endFrameFixed();
    void firstRecordFrameIsNumberTwo();
    void fullDownload();
    void nextFrameIsOutBeforeTheProgressIsShown();
    void shortBufferNotEvaluated();
    void aackPosition_data();
    void aackPosition();
    void nackResendsSameFrame();
    void nackToHeaderResendsHeader();
    void mismatchStepsBack_data();
    void mismatchStepsBack();
    void notInDownloadMode_data();
    void notInDownloadMode();
    void fiveTimeoutsCableMessage();
    void headerSentOnceThenCableMessage();
    void headerWatchRunsOnRealTime();
    void firstTimeoutStepsBackOne();
    void secondDownloadNeverResends();
    void portOpenFailure();
    void linkFailure();
    void ackNumberOverflowIsReported();
    void timer3StepsBack();
    void staleAnswerToHeaderDropped();
    void bytesAfterTheEndAreIgnored();
    void newSendEmptiesTheReceiveBuffer();
    void lostEndAcknowledgementEndsWithMessage();
    void portTakenByAnotherSession();
    void stopTransferClosesThePort();
    void lateAnswersAreDrained();
    void pausedTerminalRecoversWithinTenTimeouts_data();
    void pausedTerminalRecoversWithinTenTimeouts();
};

void TestDownloadSession::headerFrameByteExact()
{
    Fixture f;
    f.start(3);
    QCOMPARE(f.channel->written.size(), 1);
    const QByteArray frame = f.channel->written.first();

    QByteArray expected = bytes({0x01, 0xFF, 0x10, 0xF0, 'D', 0x00, 0x82, 0x00, 0x00, 0x00, 0x03});
    expected += "BR0001         ";                                  // 12-26
    expected += "AG0005         ";                                  // 27-41
    expected += "1";                                                // 42 font size
    expected += "TONVY BANK                                      "; // 48
    expected += "MAIN ROAD             ";                           // 22
    expected += "5";                                                // transactions
    expected += "1234";
    expected += "1";
    expected += "5678";
    expected += "0051611";
    expected += bytes({0x16, 0x11, 0x07, 0x10, 0x20, 0x30}); // 16/11/07 10:20:30
    expected += " ";
    QCOMPARE(expected.size(), 136);
    // 3 + (12..129) + clock + (12..136), worked out here independently.
    const int clock = 0x16 + 0x11 + 0x07 + 0x10 + 0x20 + 0x30;
    const int sum = 0 + 3 + positions(expected, 12, 129) + clock + positions(expected, 12, 136);
    expected += static_cast<char>((-sum) & 0xFF);

    QCOMPARE(frame.size(), 137);
    QCOMPARE(frame.toHex(' '), expected.toHex(' '));
    QCOMPARE(f.session->headerFrame(), expected);
    QCOMPARE(f.session->lastFrameSent(), 0);
    QCOMPARE(f.phase(), DownloadSession::Phase::AwaitingHeaderAck);
    QVERIFY(f.messages.entries().isEmpty());
}

void TestDownloadSession::headerChecksumCoversTwice()
{
    Fixture f;
    f.start(300); // 0x01 0x2C in bytes 10 and 11
    const QByteArray frame = f.channel->written.first();
    QCOMPARE(frame.mid(9, 2), bytes({0x01, 0x2C}));
    const int clock = positions(frame, 130, 135);
    const int once = 1 + 0x2C + clock + positions(frame, 12, 136);
    const int twice = once + positions(frame, 12, 129);
    QCOMPARE(static_cast<unsigned char>(frame.at(136)), static_cast<unsigned char>((-twice) & 0xFF));
    QVERIFY(((-once) & 0xFF) != ((-twice) & 0xFF));
}

void TestDownloadSession::headerPadsSettings_data()
{
    QTest::addColumn<QString>("fontSize");
    QTest::addColumn<QString>("sentFont");
    QTest::newRow("big") << "1"
                         << "1";
    QTest::newRow("small") << "0"
                           << "0";
    QTest::newRow("none chosen") << "-1"
                                 << "0";
}

void TestDownloadSession::headerPadsSettings()
{
    QFETCH(QString, fontSize);
    QFETCH(QString, sentFont);
    Fixture f;
    f.t.ctx->settings.FontSize = fontSize;
    f.start(1);
    const QByteArray frame = f.channel->written.first();
    QCOMPARE(frame.size(), 137);
    QCOMPARE(QString::fromLatin1(frame.mid(41, 1)), sentFont);
    QCOMPARE(frame.mid(42, 48), QByteArray("TONVY BANK").leftJustified(48));
    QCOMPARE(frame.mid(90, 22), QByteArray("MAIN ROAD").leftJustified(22));
}

void TestDownloadSession::headerTooShortIsReported()
{
    Fixture f;
    DownloadJob job = f.job(1);
    job.branchId.clear(); // 15 bytes short: the sum runs off the frame
    f.session->prepareSend();
    f.session->FirstProtocol(job);
    QCOMPARE(f.stopped->count(), 1);
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(f.messages.last().contains(QStringLiteral("header frame of")));
    QVERIFY(f.channel->written.isEmpty());
}

void TestDownloadSession::headerChecksumOverflowIsReported()
{
    Fixture f;
    // Names of Latin-1 bytes of 255, summed twice, pass 32767.
    f.t.ctx->settings.BankName = QString(48, QChar(0xFF));
    f.t.ctx->settings.BranchName = QString(22, QChar(0xFF));
    f.start(1);
    QCOMPARE(f.stopped->count(), 1);
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(f.messages.last().contains(QStringLiteral("Overflow")));
    QVERIFY(f.channel->written.isEmpty());
}

void TestDownloadSession::headerWithoutFontSizeIsReported()
{
    Fixture f;
    f.t.ctx->settings.FontSize.clear(); // settings saved by the folder screen only
    f.start(1);
    QCOMPARE(f.stopped->count(), 1);
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    QVERIFY2(f.messages.last().contains(QStringLiteral("font size is not set; choose it in CONFIGURE")),
             qPrintable(f.messages.last()));
    QVERIFY(f.channel->written.isEmpty());
}

void TestDownloadSession::formLoadClearsDownloadComplete()
{
    Fixture f;
    f.link().completion.markComplete();
    f.link().RecordNo = QStringLiteral("17");
    f.session->timer2().start();
    f.session->Form_Load();
    QVERIFY(!f.link().completion.isComplete());
    QCOMPARE(f.link().RecordNo, QStringLiteral("0"));
    QVERIFY(!f.session->timer2().isActive());
    QCOMPARE(f.session->timer1().interval(), 10);
}

void TestDownloadSession::recordFrameByteExact_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("balance");
    QTest::addColumn<QString>("agreed");
    QTest::addColumn<QString>("opening");
    QTest::addColumn<QString>("txn");
    QTest::addColumn<QByteArray>("sentName");
    QTest::addColumn<QByteArray>("packed");

    QTest::newRow("long name cut") << "RAMA KRISHNAN PILLAI SUBRAMANIAM"
                                   << "00012345"
                                   << "00050"
                                   << "150304"
                                   << "010607" << QByteArray("RAMA KRISHNAN PILLAI SUBRAMA")
                                   << bytes({0x00, 0x00, 0x01, 0x23, 0x45, 0x00, 0x00, 0x50, 0x15, 0x03, 0x04, 0x01,
                                             0x06, 0x07});
    QTest::newRow("short name padded, six-space dates")
        << "ANU"
        << "99999999"
        << "12345"
        << "      "
        << "      " << QByteArray("ANU                         ")
        << bytes({0x00, 0x99, 0x99, 0x99, 0x99, 0x01, 0x23, 0x45, 0, 0, 0, 0, 0, 0});
    QTest::newRow("name of exactly 28, zero amounts") << "ABCDEFGHIJKLMNOPQRSTUVWXYZ12"
                                                      << "00000000"
                                                      << "00000"
                                                      << "311299"
                                                      << "      " << QByteArray("ABCDEFGHIJKLMNOPQRSTUVWXYZ12")
                                                      << bytes({0, 0, 0, 0, 0, 0, 0, 0, 0x31, 0x12, 0x99, 0, 0, 0});
    QTest::newRow("amount with paise rounded")
        << "B"
        << "1234.50"
        << "10.4"
        << "010100"
        << "020200" << QByteArray("B                           ")
        << bytes({0x00, 0x00, 0x00, 0x12, 0x35, 0x00, 0x00, 0x10, 0x01, 0x01, 0x00, 0x02, 0x02, 0x00});
}

void TestDownloadSession::recordFrameByteExact()
{
    QFETCH(QString, name);
    QFETCH(QString, balance);
    QFETCH(QString, agreed);
    QFETCH(QString, opening);
    QFETCH(QString, txn);
    QFETCH(QByteArray, sentName);
    QFETCH(QByteArray, packed);

    Fixture f;
    Account a = account(name);
    a.balance = balance;
    a.agreed = agreed;
    a.opening = opening;
    a.txn = txn;
    f.insert(a);
    f.start(1);
    f.channel->feed(answer(0));
    f.session->Timer1_Timer();

    QByteArray payload = "1";
    payload += "SB001";
    payload += "000000000012345";
    payload += sentName;
    payload += packed;
    payload += QByteArray(64, ' ');
    QCOMPARE(payload.size(), 127);
    int sum = 0;
    for (char ch : payload)
        sum += static_cast<unsigned char>(ch);
    QByteArray expected = bytes({0x01, 0xFF, 0x10, 0xF0, 'D', 0x00, 0x82, 0x00, 0x02});
    expected += payload;
    expected += static_cast<char>((-sum) & 0xFF);

    QCOMPARE(f.session->recordFrame(1).size(), 137);
    QCOMPARE(f.session->recordFrame(1).toHex(' '), expected.toHex(' '));
    QCOMPARE(f.channel->written.last(), expected);
    QVERIFY(f.messages.entries().isEmpty());
}

void TestDownloadSession::recordFramesInJobOrder()
{
    Fixture f;
    f.insert(account(QStringLiteral("CHITRA"), QStringLiteral("000000000000001")));
    f.insert(account(QStringLiteral("ANU"), QStringLiteral("000000000000004")));
    f.insert(account(QStringLiteral("BALU"), QStringLiteral("000000000000002")));
    f.start(3);
    f.channel->feed(answer(0));
    f.session->Timer1_Timer();

    // The download side hands the accounts over in the order they go out.
    const QStringList expected = {QStringLiteral("000000000000001"), QStringLiteral("000000000000004"),
                                  QStringLiteral("000000000000002")};
    for (int i = 1; i <= 3; ++i) {
        const QByteArray frame = f.session->recordFrame(i);
        QCOMPARE(frame.size(), 137);
        QCOMPARE(numberOf(frame), i + 1);
        QCOMPARE(QString::fromLatin1(frame.mid(15, 15)), expected.at(i - 1));
    }
    QVERIFY(f.session->recordFrame(4).isEmpty());
    QVERIFY(f.session->recordFrame(0).isEmpty());
}

void TestDownloadSession::endFrameFixed()
{
    const QByteArray expected = bytes({0x01, 0xFF, 0x10, 0xF0, 'D', 0x00, 0x07, 0x00, 0x00, 'O', 'V', 'E', 'R', 0xC4});
    QCOMPARE(DownloadSession::endFrame(), expected);

    Fixture f;
    f.startRecords(1);
    f.ackLast(); // frame 2
    QCOMPARE(f.channel->written.last(), expected);
    QCOMPARE(f.phase(), DownloadSession::Phase::AwaitingEndAck);
}

void TestDownloadSession::firstRecordFrameIsNumberTwo()
{
    Fixture f;
    f.startRecords(3);
    QCOMPARE(f.phase(), DownloadSession::Phase::SendingRecords);
    QCOMPARE(f.channel->written.size(), 2);
    const QByteArray first = f.channel->written.last();
    QCOMPARE(first, f.session->recordFrame(1));
    QCOMPARE(first.mid(7, 2), bytes({0x00, 0x02}));
    QCOMPARE(f.session->lastFrameSent(), 2);
    QCOMPARE(f.link().RecordNo, QStringLiteral("2"));
    // The progress text for it (send counter minus 2) is 0.
    f.channel->feed(answer(2, "NACK"));
    QCOMPARE(f.progress->count(), 1);
    QCOMPARE(f.progress->last().at(0).toInt(), 0);
    QCOMPARE(f.progress->last().at(1).toInt(), 3);
}

void TestDownloadSession::fullDownload()
{
    Fixture f;
    f.startRecords(3);
    QList<int> sent;
    for (int i = 0; i < 10 && f.completed->isEmpty(); ++i) {
        const QByteArray frame = f.channel->written.last();
        sent << (frame == DownloadSession::endFrame() ? -1 : numberOf(frame));
        f.ackLast();
    }
    QCOMPARE(sent, (QList<int>{2, 3, 4, -1}));
    QCOMPARE(f.completed->count(), 1);
    QCOMPARE(f.stopped->count(), 0);
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Download Completed Successfully!")});
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Information);
    QCOMPARE(f.progress->count(), 3);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(f.progress->at(i).at(0).toInt(), i + 1);
        QCOMPARE(f.progress->at(i).at(1).toInt(), 3);
    }
    QVERIFY(f.link().completion.isComplete());
    QCOMPARE(f.phase(), DownloadSession::Phase::Done);
    QVERIFY(!f.session->timer1().isActive());
    QVERIFY(!f.session->timer2().isActive());
    QVERIFY(!f.session->timer3().isActive());
}

void TestDownloadSession::nextFrameIsOutBeforeTheProgressIsShown()
{
    // The screen's progress bar repaints at once when told: the terminal
    // must not wait for that.
    Fixture f;
    f.startRecords(3);
    QList<int> sentAtProgress;
    connect(f.session.get(), &DownloadSession::progress, this, [&] {
        const QByteArray frame = f.channel->written.last();
        sentAtProgress << (frame == DownloadSession::endFrame() ? -1 : numberOf(frame));
    });
    for (int i = 0; i < 3; ++i)
        f.ackLast();
    QCOMPARE(sentAtProgress, (QList<int>{3, 4, -1}));
}

void TestDownloadSession::shortBufferNotEvaluated()
{
    Fixture f;
    f.startRecords(2);
    const int writes = static_cast<int>(f.channel->written.size());
    f.channel->feed(answer(2).left(13));
    QCOMPARE(f.channel->written.size(), writes);
    QCOMPARE(f.link().RxBuffer.size(), 13);
    QCOMPARE(f.link().RecordNo, QStringLiteral("2"));
    QVERIFY(f.progress->isEmpty());

    // The time-out timer resends the frame still unacknowledged.
    QVERIFY(f.session->timer2().isActive());
    f.session->Timer2_Timer();
    QCOMPARE(f.channel->written.size(), writes + 1);
    QCOMPARE(f.channel->written.last(), f.session->recordFrame(1));
    QVERIFY(f.link().RxBuffer.isEmpty());

    // The fourteenth byte makes the buffer worth evaluating.
    f.channel->feed(answer(2).left(13));
    f.channel->feed(answer(2).right(1));
    QCOMPARE(f.link().RecordNo, QStringLiteral("3"));
    QCOMPARE(f.channel->written.last(), f.session->recordFrame(2));
}

void TestDownloadSession::aackPosition_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("counterAfter");
    QTest::addColumn<int>("frameResent");
    QTest::newRow("position 1") << (QByteArray("AACK") + QByteArray(10, '\0')) << "3" << 3;
    QTest::newRow("position 2") << (QByteArray("\x05") + "AACK" + QByteArray(9, '\0')) << "3" << 3;
    QTest::newRow("position 3 carries the number") << (bytes({0x00, 0x05}) + "AACK" + QByteArray(8, '\0')) << "6" << 6;
}

void TestDownloadSession::aackPosition()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, counterAfter);
    QFETCH(int, frameResent);
    Fixture f;
    f.startRecords(6);
    f.ackLast(); // 2
    f.ackLast(); // 3
    f.ackLast(); // 4
    QCOMPARE(f.session->lastFrameSent(), 5);
    QCOMPARE(reply.size(), 14);
    f.channel->feed(reply);
    QCOMPARE(f.link().RecordNo, counterAfter);
    QCOMPARE(numberOf(f.channel->written.last()), frameResent);
    QCOMPARE(f.session->lastFrameSent(), frameResent);
    QVERIFY(f.messages.entries().isEmpty());
}

void TestDownloadSession::nackResendsSameFrame()
{
    Fixture f;
    f.startRecords(3);
    f.ackLast(); // 2
    const int writes = static_cast<int>(f.channel->written.size());
    f.channel->feed(answer(3, "NACK"));
    QCOMPARE(f.channel->written.size(), writes + 1);
    QCOMPARE(f.channel->written.last(), f.session->recordFrame(2));
    QCOMPARE(f.link().RecordNo, QStringLiteral("3"));
    QCOMPARE(f.progress->last().at(0).toInt(), 1);
    QVERIFY(f.session->timer2().isActive());
    f.ackLast();
    QCOMPARE(numberOf(f.channel->written.last()), 4);
}

void TestDownloadSession::nackToHeaderResendsHeader()
{
    Fixture f;
    f.insertNumbered(1);
    f.start(1);
    f.channel->feed(answer(0, "NACK"));
    QCOMPARE(f.channel->written.size(), 2);
    QCOMPARE(f.channel->written.last(), f.session->headerFrame());
    QCOMPARE(f.phase(), DownloadSession::Phase::AwaitingHeaderAck);
    QVERIFY(f.progress->isEmpty());
    f.channel->feed(answer(0));
    QCOMPARE(f.phase(), DownloadSession::Phase::HeaderAcknowledged);
    QVERIFY(f.session->timer1().isActive());
}

void TestDownloadSession::mismatchStepsBack_data()
{
    QTest::addColumn<int>("acked");
    QTest::addColumn<QString>("counterAfter");
    QTest::newRow("from 5 back to 3") << 3 << "3";
    QTest::newRow("from 3 not below 2") << 1 << "2";
    QTest::newRow("from 2 stays 2") << 0 << "2";
}

void TestDownloadSession::mismatchStepsBack()
{
    QFETCH(int, acked);
    QFETCH(QString, counterAfter);
    Fixture f;
    f.startRecords(6);
    for (int i = 0; i < acked; ++i)
        f.ackLast();
    const int inFlight = f.session->lastFrameSent();
    QCOMPARE(inFlight, acked + 2);
    f.channel->feed(answer(inFlight + 7)); // a number the PC did not send last
    QCOMPARE(f.link().RecordNo, counterAfter);
    QCOMPARE(numberOf(f.channel->written.last()), counterAfter.toInt());
    QVERIFY(f.session->timer2().isActive());
    QVERIFY(f.messages.entries().isEmpty());
}

void TestDownloadSession::notInDownloadMode_data()
{
    QTest::addColumn<QByteArray>("word");
    QTest::addColumn<bool>("atHeader");
    QTest::newRow("CLOS at header") << QByteArray("CLOS") << true;
    QTest::newRow("BACK at header") << QByteArray("BACK") << true;
    QTest::newRow("CLOS at a record") << QByteArray("CLOS") << false;
    QTest::newRow("BACK at a record") << QByteArray("BACK") << false;
}

void TestDownloadSession::notInDownloadMode()
{
    QFETCH(QByteArray, word);
    QFETCH(bool, atHeader);
    Fixture f;
    if (atHeader) {
        f.insertNumbered(2);
        f.start(2);
    } else {
        f.startRecords(2);
    }
    const int writes = static_cast<int>(f.channel->written.size());
    f.channel->feed(answer(atHeader ? 0 : 2, word));
    QCOMPARE(f.messages.texts(),
             QStringList{QStringLiteral("Please goto Download Mode in the HandHeld Terminal and then Send Data!")});
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Information);
    QCOMPARE(f.stopped->count(), 1);
    QVERIFY(f.link().RxBuffer.isEmpty());
    QVERIFY(!f.session->timer1().isActive());
    QVERIFY(!f.session->timer2().isActive());
    QVERIFY(!f.session->timer3().isActive());
    QCOMPARE(f.channel->written.size(), writes);
}

void TestDownloadSession::fiveTimeoutsCableMessage()
{
    Fixture f;
    f.startRecords(2);
    const QString cable = QStringLiteral("Please Check the Communication Cable");
    for (int i = 1; i <= 10; ++i) {
        const int writes = static_cast<int>(f.channel->written.size());
        f.session->Timer2_Timer();
        // Resending goes on at every time-out, the message or not.
        QCOMPARE(f.channel->written.size(), writes + 1);
        QCOMPARE(f.channel->written.last(), f.session->recordFrame(1));
        QVERIFY(f.session->timer2().isActive());
        QCOMPARE(f.messages.count(cable), i / 5);
        QCOMPARE(f.link().TimeoutCount, i % 5);
    }
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    QCOMPARE(f.stopped->count(), 0);
    // The download is not abandoned: an acknowledgement carries on.
    f.ackLast();
    QCOMPARE(numberOf(f.channel->written.last()), 3);
}

void TestDownloadSession::headerSentOnceThenCableMessage()
{
    Fixture f;
    f.insertNumbered(2);
    f.start(2);
    QCOMPARE(f.channel->written.size(), 1);
    // No response timer before the header's acknowledgement; the watch only
    // tells the clerk.
    QVERIFY(!f.session->timer2().isActive());
    QVERIFY(f.session->headerWatch().isActive());
    QCOMPARE(f.session->headerWatch().interval(), 5000);
    QVERIFY(f.session->headerWatch().isSingleShot());
    f.session->Timer2_Timer(); // a stray tick sends nothing
    QCOMPARE(f.channel->written.size(), 1);
    QVERIFY(f.messages.entries().isEmpty());

    f.session->headerTimedOut();
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Please Check the Communication Cable")});
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    QCOMPARE(f.stopped->count(), 1);
    QCOMPARE(f.phase(), DownloadSession::Phase::Stopped);
    QCOMPARE(f.channel->written.size(), 1); // nothing extra on the wire
    QVERIFY(!f.session->timer1().isActive() && !f.session->timer2().isActive());

    // A late answer is not taken up: the clerk presses Send again.
    f.channel->feed(answer(0));
    QVERIFY(!f.session->timer1().isActive());
    QCOMPARE(f.channel->written.size(), 1);
    f.start(2);
    QCOMPARE(f.channel->written.size(), 2);
    QCOMPARE(f.channel->written.last(), f.session->headerFrame());
    f.channel->feed(answer(0));
    f.session->Timer1_Timer();
    QCOMPARE(numberOf(f.channel->written.last()), 2);
}

void TestDownloadSession::headerWatchRunsOnRealTime()
{
    Fixture f;
    f.insertNumbered(1);
    f.session->headerWatch().setInterval(30); // the same watch, shortened
    f.start(1);
    QTRY_COMPARE_WITH_TIMEOUT(f.stopped->count(), 1, scaledMs(2000));
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Please Check the Communication Cable")});
    QCOMPARE(f.channel->written.size(), 1);
}

void TestDownloadSession::firstTimeoutStepsBackOne()
{
    Fixture f;
    f.startRecords(4);
    f.ackLast(); // 2
    f.ackLast(); // 3
    QCOMPARE(f.link().RecordNo, QStringLiteral("4"));
    f.session->Timer2_Timer(); // first of a run: back to the frame before
    QCOMPARE(f.link().RecordNo, QStringLiteral("3"));
    QCOMPARE(numberOf(f.channel->written.last()), 3);
    f.session->Timer2_Timer(); // second: the same frame again
    QCOMPARE(f.link().RecordNo, QStringLiteral("3"));
    QCOMPARE(numberOf(f.channel->written.last()), 3);
}

void TestDownloadSession::secondDownloadNeverResends()
{
    Fixture f;
    f.startRecords(1);
    f.ackLast(); // 2
    f.ackLast(); // OVER
    QCOMPARE(f.completed->count(), 1);
    QVERIFY(f.link().completion.isComplete());

    // Send again on the same open screen: Form_Load does not run again.
    f.channel->written.clear();
    f.session->prepareSend();
    f.session->FirstProtocol(f.job(1));
    f.channel->feed(answer(0));
    f.session->Timer1_Timer();
    QCOMPARE(f.channel->written.size(), 2);
    QVERIFY(f.link().completion.isComplete());
    const int calls = f.channel->writeCalls;
    f.messages.clear();
    for (int i = 0; i < 4; ++i)
        f.session->Timer2_Timer();
    QCOMPARE(f.channel->writeCalls, calls);
    QCOMPARE(f.link().TimeoutCount, 0);
    QVERIFY(f.messages.entries().isEmpty());
    // Waiting on in silence would never end: the fifth tells the clerk,
    // still without sending anything.
    f.session->Timer2_Timer();
    QCOMPARE(f.channel->writeCalls, calls);
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Please Check the Communication Cable")});
    QCOMPARE(f.stopped->count(), 1);
    QVERIFY(!f.session->timer2().isActive());
}

void TestDownloadSession::portOpenFailure()
{
    Fixture f;
    const QString why = QStringLiteral("The serial port /dev/ttyS0 does not exist (No such file or directory).");
    f.channel->openError = why;
    f.insertNumbered(1);
    f.start(1);
    QCOMPARE(f.messages.texts(), QStringList{why});
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    QCOMPARE(f.stopped->count(), 1);
    QVERIFY(f.channel->written.isEmpty());
}

void TestDownloadSession::linkFailure()
{
    Fixture f;
    f.startRecords(2);
    f.channel->fail(QStringLiteral("The serial port fake failed: Resource error"));
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("The serial port fake failed: Resource error")});
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    QCOMPARE(f.stopped->count(), 1);
    QVERIFY(!f.session->timer2().isActive());
}

void TestDownloadSession::ackNumberOverflowIsReported()
{
    Fixture f;
    f.startRecords(2);
    f.channel->feed(answer(0x8002));
    QCOMPARE(f.stopped->count(), 1);
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(f.messages.last().contains(QStringLiteral("Overflow")));
    QVERIFY(!f.session->timer2().isActive());
}

void TestDownloadSession::timer3StepsBack()
{
    Fixture f;
    f.startRecords(4);
    f.ackLast(); // 2
    f.ackLast(); // 3
    f.link().TimeoutCount = 1;
    f.link().RxBuffer = "partial";
    const int writes = static_cast<int>(f.channel->written.size());
    f.session->Timer3_Timer();
    QCOMPARE(f.link().RecordNo, QStringLiteral("3"));
    QVERIFY(f.link().RxBuffer.isEmpty());
    QCOMPARE(f.channel->written.size(), writes); // it resends nothing itself
    // Every receive event switches it off.
    f.session->timer3().start();
    f.channel->feed("x");
    QVERIFY(!f.session->timer3().isActive());
}

void TestDownloadSession::staleAnswerToHeaderDropped()
{
    Fixture f;
    f.insertNumbered(2);
    f.start(2);
    // An acknowledgement of a frame of some earlier download.
    f.channel->feed(answer(57));
    QCOMPARE(f.channel->written.size(), 1);
    QCOMPARE(f.phase(), DownloadSession::Phase::AwaitingHeaderAck);
    QVERIFY(f.session->headerWatch().isActive());
    f.channel->feed(answer(0));
    QCOMPARE(f.phase(), DownloadSession::Phase::HeaderAcknowledged);
}

void TestDownloadSession::bytesAfterTheEndAreIgnored()
{
    Fixture f;
    f.startRecords(1);
    f.ackLast(); // 2
    f.ackLast(); // OVER
    QCOMPARE(f.completed->count(), 1);
    const int writes = f.channel->writeCalls;
    f.channel->feed(answer(2));
    f.channel->feed(answer(9, "NACK"));
    QCOMPARE(f.channel->writeCalls, writes);
    QVERIFY(f.link().RxBuffer.isEmpty());
    QCOMPARE(f.messages.count(QStringLiteral("Download Completed Successfully!")), 1);
}

void TestDownloadSession::newSendEmptiesTheReceiveBuffer()
{
    Fixture f;
    f.startRecords(3);
    f.channel->feed(answer(2).left(9)); // half an answer, then Send closed
    f.session->closePort();
    QVERIFY(!f.channel->isOpen());
    f.start(3);
    QVERIFY(f.link().RxBuffer.isEmpty());
    QCOMPARE(f.session->sendCounter(), 0);
    f.channel->feed(answer(0));
    QCOMPARE(f.phase(), DownloadSession::Phase::HeaderAcknowledged);
}

void TestDownloadSession::lostEndAcknowledgementEndsWithMessage()
{
    Fixture f;
    f.startRecords(1);
    f.ackLast(); // 2: "OVER" goes out
    QCOMPARE(f.phase(), DownloadSession::Phase::AwaitingEndAck);
    const int writes = static_cast<int>(f.channel->written.size());
    for (int i = 1; i <= 4; ++i)
        f.session->Timer2_Timer();
    QCOMPARE(f.channel->written.size(), writes); // "OVER" is sent once
    QVERIFY(f.messages.entries().isEmpty());
    f.session->Timer2_Timer();
    QCOMPARE(f.messages.texts(), QStringList{QStringLiteral("Please Check the Communication Cable")});
    QCOMPARE(f.stopped->count(), 1);
    QCOMPARE(f.phase(), DownloadSession::Phase::Stopped);
    QVERIFY(!f.session->timer2().isActive());
}

void TestDownloadSession::portTakenByAnotherSession()
{
    Fixture f;
    f.startRecords(3);
    QObject receiveScreen;
    QString error;
    QVERIFY(f.t.ctx->openCommPort(&error, &receiveScreen));
    QCOMPARE(f.stopped->count(), 1);
    QCOMPARE(f.messages.texts(), QStringList{DownloadSession::portTakenText()});
    QVERIFY(!f.session->timer2().isActive());
    const int writes = f.channel->writeCalls;
    f.channel->feed(answer(2));
    f.session->Timer2_Timer();
    QCOMPARE(f.channel->writeCalls, writes);
    // Closing the send screen leaves the other's port open.
    f.session->closePort();
    QVERIFY(f.channel->isOpen());
}

void TestDownloadSession::stopTransferClosesThePort()
{
    Fixture f;
    f.startRecords(3);
    f.session->stopTransfer();
    QVERIFY(!f.channel->isOpen());
    QCOMPARE(f.phase(), DownloadSession::Phase::Stopped);
    QVERIFY(!f.session->busy());
    QVERIFY(!f.session->timer1().isActive() && !f.session->timer2().isActive() && !f.session->timer3().isActive());
    QVERIFY(f.messages.entries().isEmpty());
    QCOMPARE(f.stopped->count(), 0);
}

void TestDownloadSession::lateAnswersAreDrained()
{
    Fixture f;
    f.startRecords(10);
    f.ackLast(); // 2
    f.ackLast(); // 3
    // Answers that keep missing the frame last sent.
    for (int i = 1; i < DownloadSession::LagLimit; ++i) {
        const int writes = static_cast<int>(f.channel->written.size());
        f.channel->feed(answer(40 + i));
        QCOMPARE(f.channel->written.size(), writes + 1); // each one stepped back and resent
    }
    const int writes = static_cast<int>(f.channel->written.size());
    f.channel->feed(answer(99));
    QCOMPARE(f.channel->written.size(), writes); // now the line is left to go quiet
    QVERIFY(f.session->timer2().isActive());
    f.channel->feed(answer(2));
    f.channel->feed(answer(3));
    QCOMPARE(f.channel->written.size(), writes);
    f.session->Timer2_Timer(); // the next time-out resends from a clean line
    QCOMPARE(f.channel->written.size(), writes + 1);
    f.ackLast();
    QCOMPARE(f.channel->written.size(), writes + 2);
}

namespace {

// A terminal that answers every frame it received, oldest first, one answer
// at a time; while paused the frames wait in the line, while the line is
// down they are lost.
class QueueTerminal : public FakeChannel
{
public:
    void write(const QByteArray& bytes) override
    {
        FakeChannel::write(bytes);
        if (!bytes.isEmpty() && !lineDown)
            queue.append(bytes);
    }
    bool answerOne()
    {
        if (queue.isEmpty() || paused)
            return false;
        const QByteArray frame = queue.takeFirst();
        const int number = numberOf(frame);
        if (frame == DownloadSession::endFrame())
            sawEnd = true;
        else if (number >= 2)
            accepted.insert(number);
        feed(answer(number));
        return true;
    }
    QList<QByteArray> queue;
    QSet<int> accepted;
    bool paused = false;
    bool lineDown = false;
    bool sawEnd = false;
};

} // namespace

void TestDownloadSession::pausedTerminalRecoversWithinTenTimeouts_data()
{
    QTest::addColumn<bool>("held");
    QTest::newRow("paused: frames wait in the line") << true;
    QTest::newRow("cable pulled: frames lost") << false;
}

void TestDownloadSession::pausedTerminalRecoversWithinTenTimeouts()
{
    QFETCH(bool, held);
    TestContext t;
    t.ctx->settings.FontSize = QStringLiteral("0");
    QueueTerminal* terminal = nullptr;
    t.ctx->setChannelFactory([&terminal] {
        auto c = std::make_unique<QueueTerminal>();
        terminal = c.get();
        return c;
    });
    DownloadSession session(t.ctx->port(), t.clock);
    QSignalSpy completed(&session, &DownloadSession::completed);
    QSignalSpy stopped(&session, &DownloadSession::stopped);
    session.Form_Load();
    DownloadJob job;
    job.agentDateKey = QStringLiteral("0051611");
    job.branchId = QStringLiteral("BR0001         ");
    job.agentId = QStringLiteral("AG0005         ");
    job.transactions = QStringLiteral("1");
    job.downloadPassword = QStringLiteral("1234");
    job.setupPassword = QStringLiteral("5678");
    job.fontSize = QStringLiteral("0");
    for (int i = 1; i <= 30; ++i)
        job.accounts.append(DownloadAccount{QStringLiteral("1"), QStringLiteral("SB001"),
                                            QStringLiteral("%1").arg(i, 15, 10, QLatin1Char('0')),
                                            QStringLiteral("N%1").arg(i), QStringLiteral("100"), QStringLiteral("10"),
                                            QStringLiteral("010101"), QStringLiteral("010101")});
    job.recordCount = static_cast<int>(job.accounts.size());
    session.prepareSend();
    session.FirstProtocol(job);
    QVERIFY(terminal);

    // Each step: one answer if the terminal has one, else a second passes.
    auto step = [&](int* seconds) {
        if (session.timer1().isActive()) {
            session.Timer1_Timer();
            return;
        }
        if (terminal->answerOne())
            return;
        ++*seconds;
        if (session.timer2().isActive())
            session.Timer2_Timer();
    };
    int seconds = 0;
    while (terminal->accepted.size() < 5)
        step(&seconds);
    // Thirteen seconds without the terminal.
    if (held)
        terminal->paused = true;
    else
        terminal->lineDown = true;
    for (int i = 0; i < 13; ++i)
        session.Timer2_Timer();
    terminal->paused = false;
    terminal->lineDown = false;
    seconds = 0;
    for (int guard = 0; guard < 5000 && completed.isEmpty() && stopped.isEmpty(); ++guard)
        step(&seconds);
    QCOMPARE(completed.count(), 1);
    QVERIFY2(seconds <= 10, qPrintable(QString::number(seconds)));
    QCOMPARE(terminal->accepted.size(), 30);
    QVERIFY(terminal->sawEnd);
}

QTEST_GUILESS_MAIN(TestDownloadSession)
#include "tst_downloadsession.moc"
