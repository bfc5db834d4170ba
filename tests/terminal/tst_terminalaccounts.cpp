#include "link/DownloadSession.h"
#include "terminal/DownloadTerminal.h"
#include "terminal/TerminalAccounts.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {

TerminalAccounts sample()
{
    TerminalAccounts s;
    s.branchId = QStringLiteral("BR0001         ");
    s.agentId = QStringLiteral("AG0005         ");
    s.agentDateKey = QStringLiteral("0051611");
    s.downloadPassword = QStringLiteral("1234");
    s.setupPassword = QStringLiteral("5678");
    s.fontSize = QStringLiteral("1");
    s.bankName = QStringLiteral("TONVY BANK").leftJustified(48);
    s.branchName = QStringLiteral("MAIN ROAD").leftJustified(22);
    s.transactions = QStringLiteral("5");
    s.clock = QStringLiteral("16/11/07 10:20:30");
    s.recordCount = 2;
    s.accounts.append({2, QStringLiteral("1"), QStringLiteral("SB001"), QStringLiteral("000000000000001"),
                       QStringLiteral("A|B \\ C\u00e9").leftJustified(28), QStringLiteral("0000012345"),
                       QStringLiteral("000050"), QStringLiteral("150304"), QStringLiteral("000000")});
    s.accounts.append({3, QStringLiteral("2"), QStringLiteral("RD010"), QStringLiteral("000000000000002"),
                       QStringLiteral("LINE\nBREAK").leftJustified(28), QStringLiteral("0099999999"),
                       QStringLiteral("123456"), QStringLiteral("311299"), QStringLiteral("010100")});
    s.otherLines << QStringLiteral("COLLECT=000000000000001|100");
    return s;
}

} // namespace

class TestTerminalAccounts : public QObject
{
    Q_OBJECT
private slots:
    void roundTrip();
    void fileIsLatin1Text();
    void damagedFile_data();
    void damagedFile();
    void missingFile();
    void headerFrameWithLongerTransactions();
    void accountFromFrame();
    void answerFrame();
};

void TestTerminalAccounts::roundTrip()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(TerminalAccounts::fileName());
    const TerminalAccounts s = sample();
    QString error;
    QVERIFY2(s.save(path, &error), qPrintable(error));
    TerminalAccounts back;
    QVERIFY2(back.load(path, &error), qPrintable(error));
    QCOMPARE(back.branchId, s.branchId);
    QCOMPARE(back.agentId, s.agentId);
    QCOMPARE(back.agentDateKey, s.agentDateKey);
    QCOMPARE(back.downloadPassword, s.downloadPassword);
    QCOMPARE(back.setupPassword, s.setupPassword);
    QCOMPARE(back.fontSize, s.fontSize);
    QCOMPARE(back.bankName, s.bankName);
    QCOMPARE(back.branchName, s.branchName);
    QCOMPARE(back.transactions, s.transactions);
    QCOMPARE(back.clock, s.clock);
    QCOMPARE(back.recordCount, 2);
    QCOMPARE(back.accounts, s.accounts);
    QCOMPARE(back.otherLines, s.otherLines);
}

void TestTerminalAccounts::fileIsLatin1Text()
{
    const QByteArray bytes = sample().toBytes();
    const QList<QByteArray> lines = bytes.split('\n');
    QCOMPARE(lines.first(), QByteArray("TONVY-TERMINAL-STATE 1"));
    QVERIFY(lines.contains(QByteArray("BANKNAME=TONVY BANK                                      ")));
    QVERIFY(lines.contains("ACCOUNT=2|1|SB001|000000000000001|A|B \\\\ C\xe9" + QByteArray(20, ' ') +
                           "|0000012345|000050|150304|000000"));
    QVERIFY(lines.contains(QByteArray("ACCOUNT=3|2|RD010|000000000000002|LINE\\nBREAK") + QByteArray(18, ' ') +
                           "|0099999999|123456|311299|010100"));
}

void TestTerminalAccounts::damagedFile_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no first line") << QByteArray("BRANCHID=x\n") << "line 1";
    QTest::newRow("short account") << QByteArray("TONVY-TERMINAL-STATE 1\nACCOUNT=2|1|x\n") << "line 2";
    QTest::newRow("bad frame number") << QByteArray("TONVY-TERMINAL-STATE 1\n\nACCOUNT=x|1|2|3|4|5|6|7|8\n")
                                      << "line 3";
    QTest::newRow("bad count") << QByteArray("TONVY-TERMINAL-STATE 1\nRECORDS=many\n") << "line 2";
}

void TestTerminalAccounts::damagedFile()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    TerminalAccounts s = sample();
    QString error;
    QVERIFY(!s.fromBytes(bytes, &error));
    QVERIFY2(error.startsWith(reason), qPrintable(error));
    QCOMPARE(s.accounts.size(), 2); // left unchanged
}

void TestTerminalAccounts::missingFile()
{
    QTemporaryDir dir;
    TerminalAccounts s;
    QString error;
    QVERIFY(!s.load(dir.filePath(QStringLiteral("none.txt")), &error));
    QVERIFY(error.contains(QStringLiteral("none.txt")));
}

void TestTerminalAccounts::headerFrameWithLongerTransactions()
{
    DownloadJob job;
    job.agentDateKey = QStringLiteral("0051611");
    job.branchId = QStringLiteral("BR0001         ");
    job.agentId = QStringLiteral("AG0005         ");
    job.recordCount = 300;
    job.transactions = QStringLiteral("17");
    job.downloadPassword = QStringLiteral("1234");
    job.setupPassword = QStringLiteral("5678");
    job.bankName = QStringLiteral("TONVY BANK");
    job.branchName = QStringLiteral("MAIN ROAD");
    job.fontSize = QStringLiteral("0");
    LinkCodec codec;
    const QByteArray frame = DownloadFrames::header(job, QDateTime(QDate(2007, 11, 16), QTime(10, 20, 30)), codec);
    QCOMPARE(frame.size(), 138);
    QCOMPARE(static_cast<unsigned char>(frame.at(6)), 0x82u); // not recomputed
    QVERIFY(DownloadTerminal::headerCheckOk(frame));

    TerminalAccounts s;
    QVERIFY(s.takeHeaderFrame(frame));
    QCOMPARE(s.recordCount, 300);
    QCOMPARE(s.transactions, QStringLiteral("17"));
    QCOMPARE(s.downloadPassword, QStringLiteral("1234"));
    QCOMPARE(s.setupPassword, QStringLiteral("5678"));
    QCOMPARE(s.agentDateKey, QStringLiteral("0051611"));
    QCOMPARE(s.clock, QStringLiteral("16/11/07 10:20:30"));
    QCOMPARE(s.fontSize, QStringLiteral("0"));
    QVERIFY(!s.takeHeaderFrame(frame.left(130)));
}

void TestTerminalAccounts::accountFromFrame()
{
    QByteArray frame = QByteArrayLiteral("\x01\xFF\x10\xF0"
                                         "D\x00\x82\x01\x2C");
    frame += "3SB001000000000000777";
    frame += QByteArray("KAMALA").leftJustified(28);
    frame += QByteArrayLiteral("\x00\x00\x12\x34\x56\x00\x01\x00\x31\x12\x99\x00\x00\x00");
    frame += QByteArray(64, ' ');
    frame += '\0';
    const TerminalAccount a = TerminalAccounts::accountFromFrame(frame);
    QCOMPARE(a.frameNumber, 300);
    QCOMPARE(a.categoryCode, QStringLiteral("3"));
    QCOMPARE(a.schemeCode, QStringLiteral("SB001"));
    QCOMPARE(a.accountNumber, QStringLiteral("000000000000777"));
    QCOMPARE(a.name, QStringLiteral("KAMALA").leftJustified(28));
    QCOMPARE(a.balance, QStringLiteral("0000123456"));
    QCOMPARE(a.agreedAmount, QStringLiteral("000100"));
    QCOMPARE(a.openingDate, QStringLiteral("311299"));
    QCOMPARE(a.lastTxnDate, QStringLiteral("000000"));
}

void TestTerminalAccounts::answerFrame()
{
    QCOMPARE(DownloadTerminal::answerFrame(0, "AACK").toHex(' '),
             QByteArray("01 ff 10 f0 44 00 07 00 00 41 41 43 4b f0"));
    // 0x01 + 0x2C + "AACK" (0x110) = 0x13D; the check byte makes it 0x200.
    QCOMPARE(static_cast<unsigned char>(DownloadTerminal::answerFrame(300, "AACK").at(13)), 0xC3u);
}

QTEST_GUILESS_MAIN(TestTerminalAccounts)
#include "tst_terminalaccounts.moc"
