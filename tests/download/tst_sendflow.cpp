#include "download/SendFlow.h"
#include "tests/download/DownloadFileMaker.h"
#include "tests/download/FakeTerminal.h"
#include "tests/support/MessageRecorder.h"
#include "tests/support/TestContext.h"
#include "tests/support/TestTiming.h"

#include <QDir>
#include <QSignalSpy>
#include <QSqlQuery>

namespace {

struct FlowFixture
{
    TestContext t;
    MessageRecorder messages;
    FakeTerminal* terminal = nullptr;
    std::unique_ptr<SendFlow> flow;
    bool silent = false; // the terminal hears but never answers

    explicit FlowFixture(bool silentTerminal = false) : silent(silentTerminal)
    {
        prepareSendContext(t, &terminal, &silent);
        flow = std::make_unique<SendFlow>(*t.ctx);
        messages.listen(flow.get(), &SendFlow::message);
        flow->Form_Load();
    }

    void writeFile(const QString& name, const QByteArray& content)
    {
        QFile f(QDir(t.ctx->settings.BankInfoPath).filePath(name));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(content);
    }

    QStringList bankData()
    {
        QSqlQuery q(t.db.connection());
        q.exec(QStringLiteral("SELECT AgentID, ACNumber, FileName FROM BankData ORDER BY rowid"));
        QStringList rows;
        while (q.next())
            rows << q.value(0).toString() + q.value(1).toString() + q.value(2).toString();
        return rows;
    }

    int framesWritten() const { return terminal ? static_cast<int>(terminal->written.size()) : 0; }
};

} // namespace

// The Send button's work without the window: checks, file, store, session.
class tst_SendFlow : public QObject
{
    Q_OBJECT
private slots:
    void agentNumber_data();
    void agentNumber();
    void inputChecks_data();
    void inputChecks();
    void threeDigitDateNamesTheFile();
    void missingFileReEnablesButtons();
    void emptyTransactionsBecomeOne();
    void rejectedFileLeavesBankData_data();
    void rejectedFileLeavesBankData();
    void storesAndStartsTheSession();
    void downLoadDataFolderUnderProgramFolder();
    void fullDownload();
    void terminalNotInDownloadModeReEnablesButtons();
    void formLoadReadsTerminalPasswords();
    void accountsGoOutInNameOrder();
    void settingsPaddedInMemory();
    void storeFailureIsReported();
    void portErrorIsReportedOnce();
    void stopTransferReEnablesButtons();
    void busyFlowIgnoresSend();
};

void tst_SendFlow::agentNumber_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("expected");
    QTest::newRow("one digit") << "5"
                               << "005";
    QTest::newRow("leading zeros") << "0005"
                                   << "005";
    QTest::newRow("blanks around") << " 42 "
                                   << "042";
    QTest::newRow("longer number kept") << "1234"
                                        << "1234";
    QTest::newRow("zero") << "0"
                          << "000";
}

void tst_SendFlow::agentNumber()
{
    QFETCH(QString, typed);
    QFETCH(QString, expected);
    QCOMPARE(SendFlow::agentNumber(typed), expected);
}

void tst_SendFlow::inputChecks_data()
{
    QTest::addColumn<QString>("agent");
    QTest::addColumn<QString>("date");
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("message");
    QTest::newRow("empty agent") << ""
                                 << "1611" << int(SendFlow::Result::AgentMissing) << "Enter Agent ID";
    QTest::newRow("blank agent") << "   "
                                 << "1611" << int(SendFlow::Result::AgentMissing) << "Enter Agent ID";
    QTest::newRow("empty date") << "5"
                                << "" << int(SendFlow::Result::DateMissing) << "Enter Date";
    QTest::newRow("date of five") << "5"
                                  << "16112" << int(SendFlow::Result::DateMissing) << "Enter Date";
}

void tst_SendFlow::inputChecks()
{
    QFETCH(QString, agent);
    QFETCH(QString, date);
    QFETCH(int, result);
    QFETCH(QString, message);
    FlowFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(2));
    QSignalSpy buttons(f.flow.get(), &SendFlow::buttonsEnabled);
    QString transactions;
    QCOMPARE(int(f.flow->cmdSend(agent, date, transactions)), result);
    QCOMPARE(f.messages.texts(), QStringList{message});
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Information);
    QCOMPARE(buttons.count(), 0);
    QCOMPARE(f.framesWritten(), 0);
    QVERIFY(f.bankData().isEmpty());
}

void tst_SendFlow::threeDigitDateNamesTheFile()
{
    FlowFixture f;
    QString transactions = QStringLiteral("1");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("161"), transactions), SendFlow::Result::Stopped);
    QCOMPARE(f.messages.last(), QStringLiteral("File does not exist!"));
    QCOMPARE(f.flow->downloadPath(), QDir(f.t.ctx->settings.BankInfoPath).filePath(QStringLiteral("005161d.txt")));

    f.messages.clear();
    f.writeFile(QStringLiteral("005161d.txt"), accountsFile(2));
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("161"), transactions), SendFlow::Result::Started);
    QCOMPARE(f.flow->job().agentDateKey, QStringLiteral("005161"));
}

void tst_SendFlow::missingFileReEnablesButtons()
{
    FlowFixture f;
    QSignalSpy buttons(f.flow.get(), &SendFlow::buttonsEnabled);
    QSignalSpy stopped(f.flow.get(), &SendFlow::stopped);
    QString transactions = QStringLiteral("3");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Stopped);
    QCOMPARE(f.messages.last(), QStringLiteral("File does not exist!"));
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    QCOMPARE(buttons.count(), 2);
    QCOMPARE(buttons.at(0).at(0).toBool(), false);
    QCOMPARE(buttons.at(1).at(0).toBool(), true);
    QCOMPARE(stopped.count(), 1);
    QCOMPARE(f.framesWritten(), 0);
}

void tst_SendFlow::emptyTransactionsBecomeOne()
{
    FlowFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(2));
    QString transactions;
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Started);
    QCOMPARE(transactions, QStringLiteral("1"));
    QCOMPARE(f.flow->job().transactions, QStringLiteral("1"));
}

void tst_SendFlow::rejectedFileLeavesBankData_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    QTest::addColumn<int>("icon");
    QTest::addColumn<QString>("detail"); // what the detail line must say
    const QByteArray good = AccountLine().bytes();
    const auto with = [](void (*change)(AccountLine&)) {
        AccountLine a = AccountLine::numbered(2);
        change(a);
        return a.bytes();
    };
    const QString dataFormat = QStringLiteral("Error in DATA FORMAT");
    const int plain = int(Messenger::Icon::None);
    QTest::newRow("bad length") << joinLines({good, good.left(133)}) << dataFormat << plain
                                << "0051611d.txt, line 2: the record is 133 characters long";
    QTest::newRow("2001 records") << accountsFile(2001)
                                  << "No.of records has exceeded 2000,Please check the DownLoad File"
                                  << int(Messenger::Icon::Critical) << "0051611d.txt holds 2001 records";
    QTest::newRow("letter in balance")
        << joinLines({good, with([](AccountLine& a) { a.balance = QStringLiteral("00012X45"); }), good}) << dataFormat
        << plain << "0051611d.txt, line 2: the balance amount (columns 95-102) \"00012X45\" is not a number.";
    QTest::newRow("letter in agreed amount")
        << joinLines({with([](AccountLine& a) { a.agreed = QStringLiteral("1O0"); }), good}) << dataFormat << plain
        << "line 1: the agreed amount (columns 106-110) \"1O0  \" is not a number.";
    QTest::newRow("negative balance") << joinLines({good, with([](AccountLine& a) {
                                                        a.balance = QStringLiteral("-0001234");
                                                    })})
                                      << dataFormat << plain
                                      << "line 2: the balance amount (columns 95-102) \"-0001234\" is negative";
    QTest::newRow("letter in opening date")
        << joinLines({good, good, with([](AccountLine& a) { a.opening = QStringLiteral("01/O4/2005"); })}) << dataFormat
        << plain << "line 3: the account opening date (columns 139-148) \"01/O4/2005\" is not a date";
    QTest::newRow("letter in last transaction date")
        << joinLines({with([](AccountLine& a) { a.txnDate = QStringLiteral("15/11/20O7"); }), good}) << dataFormat
        << plain << "line 1: the last transaction date (columns 149-158) \"15/11/20O7\" is not a date";
    QTest::newRow("blank balance") << joinLines({good, with([](AccountLine& a) { a.balance = QString(); })})
                                   << dataFormat << plain
                                   << "line 2: the balance amount (columns 95-102) \"        \" is blank.";
    // A line of 101 is a record the file format accepts, but it ends before
    // the agreed amount, which every account frame carries.
    QTest::newRow("line ends before the agreed amount")
        << joinLines({good.left(101), good}) << dataFormat << plain
        << "line 1: the agreed amount (columns 106-110) \"\" is missing: the line ends before it.";
    QTest::newRow("opening date cut by the line end")
        << joinLines({good.left(143), good}) << dataFormat << plain
        << "line 1: the account opening date (columns 139-148) \"0104\" is incomplete";
    QTest::newRow("last agent identifier cut short")
        << joinLines({good, good.left(136)}) << dataFormat << plain
        << "line 2: the agent identifier (columns 124-138) \"AG0005       \" is cut short";
    QTest::newRow("empty file") << QByteArray() << "The DownLoad File %1 holds no accounts."
                                << int(Messenger::Icon::Critical) << "the terminal keeps the accounts it has";
}

void tst_SendFlow::rejectedFileLeavesBankData()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QFETCH(int, icon);
    QFETCH(QString, detail);
    FlowFixture f(true);
    f.writeFile(QStringLiteral("0051511d.txt"), accountsFile(3));
    QString transactions = QStringLiteral("1");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1511"), transactions), SendFlow::Result::Started);
    f.flow->Form_Unload();
    const QStringList before = f.bankData();
    QCOMPARE(before.size(), 3);

    f.writeFile(QStringLiteral("0051611d.txt"), content);
    f.messages.clear();
    QSignalSpy buttons(f.flow.get(), &SendFlow::buttonsEnabled);
    const int written = f.framesWritten();
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Stopped);
    if (message.contains(QLatin1String("%1")))
        message = message.arg(QDir::toNativeSeparators(f.flow->downloadPath()));
    QCOMPARE(f.messages.texts(), QStringList{message});
    QCOMPARE(int(f.messages.lastIcon()), icon);
    QVERIFY2(f.messages.lastDetail().contains(detail), qPrintable(f.messages.lastDetail()));
    if (message == QLatin1String("Error in DATA FORMAT"))
        QVERIFY(f.messages.lastDetail().endsWith(QLatin1String("then press Send again.")));
    QCOMPARE(f.bankData(), before);
    QCOMPARE(buttons.last().at(0).toBool(), true);
    QCOMPARE(f.framesWritten(), written);
}

void tst_SendFlow::storesAndStartsTheSession()
{
    FlowFixture f(true);
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(4));
    QString transactions = QStringLiteral(" 3");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Started);
    const DownloadJob& job = f.flow->job();
    QCOMPARE(job.agentDateKey, QStringLiteral("0051611"));
    QCOMPARE(job.recordCount, 4);
    QCOMPARE(job.transactions, QStringLiteral("3"));
    QCOMPARE(job.agentId, AccountLine::field(QStringLiteral("AG0005"), 15));
    QCOMPARE(job.branchId, AccountLine::field(QStringLiteral("BR0001"), 15));
    QCOMPARE(job.fileName, DownloadFile::fileNameValue(f.flow->downloadPath()));
    QCOMPARE(f.bankData().size(), 4);
    // The header frame went out.
    QVERIFY(f.terminal);
    QCOMPARE(f.terminal->written.size(), 1);
    QCOMPARE(f.terminal->written.at(0).left(5), QByteArray("\x01\xff\x10\xf0"
                                                           "D"));
}

void tst_SendFlow::downLoadDataFolderUnderProgramFolder()
{
    FlowFixture f;
    QVERIFY(!QFileInfo(f.t.path(QStringLiteral("DownLoadData"))).exists());
    QString transactions;
    f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions);
    QVERIFY(!QFileInfo(f.t.path(QStringLiteral("DownLoadData"))).exists()); // not before the file is found
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(1));
    f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions);
    QVERIFY(QFileInfo(f.t.path(QStringLiteral("DownLoadData"))).isDir());
    QVERIFY(!QFileInfo(QDir(f.t.ctx->settings.BankInfoPath).filePath(QStringLiteral("DownLoadData"))).exists());
}

void tst_SendFlow::fullDownload()
{
    FlowFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(3));
    QSignalSpy progress(f.flow.get(), &SendFlow::progress);
    QSignalSpy completed(f.flow.get(), &SendFlow::completed);
    QSignalSpy buttons(f.flow.get(), &SendFlow::buttonsEnabled);
    QString transactions = QStringLiteral("2");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Started);
    QTRY_COMPARE_WITH_TIMEOUT(completed.count(), 1, scaledMs(10000));
    QVERIFY(f.messages.last().startsWith(QStringLiteral("Download Completed Successfully")));
    QCOMPARE(progress.last().at(0).toInt(), 3);
    QCOMPARE(progress.last().at(1).toInt(), 3);
    QCOMPARE(buttons.last().at(0).toBool(), true);
    // Header, three accounts, "OVER".
    QCOMPARE(f.terminal->written.size(), 5);
    QCOMPARE(f.terminal->written.last(), DownloadSession::endFrame());
}

void tst_SendFlow::terminalNotInDownloadModeReEnablesButtons()
{
    FlowFixture f(true);
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(3));
    QSignalSpy buttons(f.flow.get(), &SendFlow::buttonsEnabled);
    QSignalSpy stopped(f.flow.get(), &SendFlow::stopped);
    QString transactions = QStringLiteral("2");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Started);
    QCOMPARE(buttons.last().at(0).toBool(), false);
    f.terminal->feed("CLOSCLOSCLOSCL");
    QCOMPARE(stopped.count(), 1);
    QCOMPARE(buttons.last().at(0).toBool(), true);
    QCOMPARE(f.messages.last(),
             QStringLiteral("Please goto Download Mode in the HandHeld Terminal and then Send Data!"));
}

void tst_SendFlow::formLoadReadsTerminalPasswords()
{
    FlowFixture f;
    f.t.db.execute(QStringLiteral("UPDATE Password SET download=?, setup=? WHERE SNo=?"),
                   {QStringLiteral("1234"), QStringLiteral("56"), QStringLiteral("1")});
    f.flow->Form_Load();
    QCOMPARE(f.flow->downloadPassword(), QStringLiteral("1234"));
    QCOMPARE(f.flow->setupPassword(), QStringLiteral("0056"));
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(1));
    f.silent = true;
    QString transactions = QStringLiteral("1");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Started);
    const QByteArray frame = f.terminal->written.first();
    QCOMPARE(frame.mid(113, 4), QByteArray("1234"));
    QCOMPARE(frame.mid(117, 1), QByteArray("1"));
    QCOMPARE(frame.mid(118, 4), QByteArray("0056"));
}

void tst_SendFlow::accountsGoOutInNameOrder()
{
    FlowFixture f(true);
    QList<QByteArray> lines;
    const QStringList names = {QStringLiteral("CHITRA"), QStringLiteral("BALU"), QStringLiteral("ANU"),
                               QStringLiteral("BALU")};
    const QStringList opening = {QStringLiteral("01/01/2001"), QStringLiteral("20/01/2001"),
                                 QStringLiteral("01/01/2001"), QStringLiteral("10/05/2005")};
    for (int i = 0; i < names.size(); ++i) {
        AccountLine line;
        line.acNumber = QStringLiteral("%1").arg(i + 1, 15, 10, QLatin1Char('0'));
        line.name = names.at(i);
        line.opening = opening.at(i);
        lines << line.bytes();
    }
    f.writeFile(QStringLiteral("0051611d.txt"), joinLines(lines));
    QString transactions = QStringLiteral("1");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Started);
    QStringList order;
    for (const DownloadAccount& a : f.flow->job().accounts)
        order << a.acNumber;
    // By name, then by opening date compared as text ("100505" < "200101").
    QCOMPARE(order, (QStringList{QStringLiteral("000000000000003"), QStringLiteral("000000000000004"),
                                 QStringLiteral("000000000000002"), QStringLiteral("000000000000001")}));
}

void tst_SendFlow::settingsPaddedInMemory()
{
    FlowFixture f(true);
    f.t.ctx->settings.FontSize = QStringLiteral("-1");
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(1));
    QString transactions = QStringLiteral("1");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Started);
    QCOMPARE(f.t.ctx->settings.BankName, QStringLiteral("STATE BANK").leftJustified(48));
    QCOMPARE(f.t.ctx->settings.BranchName, QStringLiteral("MAIN ROAD").leftJustified(22));
    QCOMPARE(f.t.ctx->settings.FontSize, QStringLiteral("0"));
    QCOMPARE(f.terminal->written.first().mid(41, 1), QByteArray("0"));
}

void tst_SendFlow::storeFailureIsReported()
{
    FlowFixture f;
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(2));
    f.t.db.execute(QStringLiteral("DROP TABLE BankData"));
    QSignalSpy buttons(f.flow.get(), &SendFlow::buttonsEnabled);
    QString transactions = QStringLiteral("1");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Stopped);
    QCOMPARE(f.messages.entries().size(), 1);
    QCOMPARE(f.messages.lastIcon(), Messenger::Icon::Critical);
    QCOMPARE(buttons.last().at(0).toBool(), true);
    QCOMPARE(f.framesWritten(), 0);
}

void tst_SendFlow::portErrorIsReportedOnce()
{
    TestContext t;
    MessageRecorder messages;
    t.ctx->settings.BankInfoPath = t.path(QStringLiteral("bank"));
    t.ctx->settings.FontSize = QStringLiteral("0");
    QDir().mkpath(t.ctx->settings.BankInfoPath);
    t.ctx->portOverride = t.path(QStringLiteral("no-such-device"));
    SendFlow flow(*t.ctx);
    messages.listen(&flow, &SendFlow::message);
    flow.Form_Load();
    QFile file(QDir(t.ctx->settings.BankInfoPath).filePath(QStringLiteral("0051611d.txt")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(accountsFile(2));
    file.close();
    QSignalSpy buttons(&flow, &SendFlow::buttonsEnabled);
    QString transactions = QStringLiteral("1");
    QCOMPARE(flow.cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Stopped);
    QCOMPARE(messages.entries().size(), 1);
    QVERIFY2(messages.last().contains(t.ctx->portOverride), qPrintable(messages.last()));
    QVERIFY(messages.last().contains(QStringLiteral("does not exist")));
    QCOMPARE(messages.lastIcon(), Messenger::Icon::Critical);
    QCOMPARE(buttons.last().at(0).toBool(), true);
    QTest::qWait(50);
    QCOMPARE(messages.entries().size(), 1);
}

void tst_SendFlow::stopTransferReEnablesButtons()
{
    FlowFixture f(true);
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(3));
    QString transactions = QStringLiteral("1");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Started);
    QVERIFY(f.flow->busy());
    QSignalSpy buttons(f.flow.get(), &SendFlow::buttonsEnabled);
    f.flow->stopTransfer();
    QVERIFY(!f.flow->busy());
    QVERIFY(!f.terminal->isOpen());
    QCOMPARE(buttons.last().at(0).toBool(), true);
    QVERIFY(f.messages.entries().isEmpty());
}

void tst_SendFlow::busyFlowIgnoresSend()
{
    FlowFixture f(true);
    f.writeFile(QStringLiteral("0051611d.txt"), accountsFile(3));
    QString transactions = QStringLiteral("1");
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Started);
    QCOMPARE(f.flow->cmdSend(QStringLiteral("5"), QStringLiteral("1611"), transactions), SendFlow::Result::Busy);
    QCOMPARE(f.terminal->written.size(), 1);
}

QTEST_GUILESS_MAIN(tst_SendFlow)
#include "tst_sendflow.moc"
