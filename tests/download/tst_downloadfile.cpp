#include "download/DownloadFile.h"
#include "tests/download/DownloadFileMaker.h"

#include <QBuffer>
#include <QTemporaryDir>
#include <QtTest>

namespace {

bool readBytes(DownloadFile& file, QByteArray content)
{
    QBuffer buffer(&content);
    buffer.open(QIODevice::ReadOnly);
    return file.ReadDownLoadFile(buffer);
}

QString spaces(int n)
{
    return QString(n, QLatin1Char(' '));
}

} // namespace

class tst_DownloadFile : public QObject
{
    Q_OBJECT
private slots:
    void pathFor_data();
    void pathFor();
    void fileNameValue_data();
    void fileNameValue();
    void columns();
    void blindDateColumns();
    void lineLength_data();
    void lineLength();
    void shortLineGivesShortFields();
    void lastRecordWithoutAgentIsRefused_data();
    void lastRecordWithoutAgentIsRefused();
    void longLineIgnoresColumnsBeyond174();
    void splitRecord_data();
    void splitRecord();
    void restOfLineAfterRebuildIsTheNextRecord();
    void recordLimit_data();
    void recordLimit();
    void emptyFile();
    void packedFields_data();
    void packedFields();
    void lastRecordGivesBranchAndAgent();
    void fileEndsInsideSplitRecord();
    void cannotOpen();
    void latin1Names();
    void sampleFile();
};

void tst_DownloadFile::pathFor_data()
{
    QTest::addColumn<QString>("bankInfoPath");
    QTest::addColumn<QString>("expected");
    QTest::newRow("Windows folder") << "C:\\Bank"
                                    << "C:\\Bank\\0051611d.txt";
    QTest::newRow("Windows folder, trailing separator") << "C:\\Bank\\"
                                                        << "C:\\Bank\\0051611d.txt";
    QTest::newRow("Unix folder") << "/srv/bank"
                                 << "/srv/bank/0051611d.txt";
    QTest::newRow("Unix folder, trailing separator") << "/srv/bank/"
                                                     << "/srv/bank/0051611d.txt";
}

void tst_DownloadFile::pathFor()
{
    QFETCH(QString, bankInfoPath);
    QFETCH(QString, expected);
    QCOMPARE(DownloadFile::pathFor(bankInfoPath, QStringLiteral("005"), QStringLiteral("1611")), expected);
}

void tst_DownloadFile::fileNameValue_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::newRow("drive letter") << "D:\\Bank\\0051611d.txt"
                                  << "Bank\\0051611d.txt";
    QTest::newRow("drive letter, forward slash") << "D:/Bank/0051611d.txt"
                                                 << "Bank/0051611d.txt";
    QTest::newRow("Unix root") << "/srv/bank/0051611d.txt"
                               << "srv/bank/0051611d.txt";
    QTest::newRow("relative") << "bank/0051611d.txt"
                              << "bank/0051611d.txt";
}

void tst_DownloadFile::fileNameValue()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);
    QCOMPARE(DownloadFile::fileNameValue(path), expected);
}

void tst_DownloadFile::columns()
{
    AccountLine a;
    a.name = QStringLiteral("SUNITA DEVI");
    DownloadFile file;
    QVERIFY(readBytes(file, joinLines({a.bytes()})));
    QCOMPARE(file.recordCount(), 1);
    const DownloadRecord& r = file.records().at(0);
    // Padding stays: every field is exactly its columns.
    QCOMPARE(r.BranchID, QStringLiteral("BR0001") + spaces(9));
    QCOMPARE(r.CategoryCode, QStringLiteral("1"));
    QCOMPARE(r.SchemeCode, QStringLiteral("DDS01"));
    QCOMPARE(r.ACNumber, QStringLiteral("000000000000101"));
    QCOMPARE(r.CustomerCode, QStringLiteral("C00101"));
    QCOMPARE(r.ACName, QStringLiteral("SUNITA DEVI") + spaces(39));
    QCOMPARE(r.BalAmount, QStringLiteral("00012345"));
    QCOMPARE(r.AgreedAmount, QStringLiteral("00100"));
    QCOMPARE(r.MyDate, QStringLiteral("161107"));
    QCOMPARE(r.AgentID, QStringLiteral("AG0005") + spaces(9));
    QCOMPARE(r.OpeningDate, QStringLiteral("010405"));
    QCOMPARE(r.Txndate, QStringLiteral("151107"));
    QCOMPARE(r.BankSoftACNumber, QStringLiteral("BS0000000000101"));
}

void tst_DownloadFile::blindDateColumns()
{
    AccountLine a;
    a.date = QStringLiteral("2007-11-16");
    a.txnDate = QString();
    DownloadFile file;
    QVERIFY(readBytes(file, joinLines({a.bytes()})));
    QCOMPARE(file.records().at(0).MyDate, QStringLiteral("207-16"));
    QCOMPARE(file.records().at(0).Txndate, spaces(6));
}

void tst_DownloadFile::lineLength_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("71") << 71 << false;
    QTest::newRow("90") << 90 << false;
    QTest::newRow("100") << 100 << false;
    QTest::newRow("101") << 101 << true;
    QTest::newRow("120") << 120 << true;
    QTest::newRow("131") << 131 << true;
    QTest::newRow("132") << 132 << false;
    QTest::newRow("133") << 133 << false;
    QTest::newRow("135") << 135 << false;
    QTest::newRow("136") << 136 << true;
    QTest::newRow("137") << 137 << true;
    QTest::newRow("174") << 174 << true;
    QTest::newRow("180") << 180 << true;
}

void tst_DownloadFile::lineLength()
{
    QFETCH(int, length);
    QFETCH(bool, accepted);
    QByteArray line = AccountLine().bytes().leftJustified(length, 'Z', true);
    DownloadFile file;
    // A good record first: a rejected file keeps none of it. A good record
    // last, too: the last record's agent must be there.
    const bool ok = readBytes(file, joinLines({AccountLine().bytes(), line, AccountLine().bytes()}));
    QCOMPARE(ok, accepted);
    if (accepted) {
        QCOMPARE(file.recordCount(), 3);
        QCOMPARE(file.failure(), DownloadFile::Failure::None);
    } else {
        QCOMPARE(file.failure(), DownloadFile::Failure::DataFormat);
        QCOMPARE(file.errorString(), QStringLiteral("Error in DATA FORMAT"));
        QCOMPARE(file.errorIcon(), Messenger::Icon::None);
        QCOMPARE(file.failedRecord(), 2);
        QCOMPARE(file.recordCount(), 0);
    }
}

void tst_DownloadFile::shortLineGivesShortFields()
{
    const QByteArray line = AccountLine().bytes().left(120);
    DownloadFile file;
    QVERIFY(readBytes(file, joinLines({line, AccountLine().bytes()})));
    const DownloadRecord& r = file.records().at(0);
    QCOMPARE(r.AgreedAmount, QStringLiteral("00100"));
    QCOMPARE(r.MyDate, QStringLiteral("1611")); // the year's columns are past the end
    // Empty text, not null: a null would be stored as NULL.
    for (const QString* field : {&r.AgentID, &r.OpeningDate, &r.Txndate, &r.BankSoftACNumber}) {
        QCOMPARE(*field, QString());
        QVERIFY(!field->isNull());
    }
    const DownloadRecord tiny = DownloadRecord::fromLine(QString());
    for (const QString* field : {&tiny.BranchID, &tiny.ACName, &tiny.MyDate, &tiny.AgentID, &tiny.OpeningDate,
                                 &tiny.Txndate, &tiny.BankSoftACNumber})
        QVERIFY(!field->isNull());
    QCOMPARE(file.AgentID(), AccountLine::field(AccountLine().agent, 15));
}

void tst_DownloadFile::lastRecordWithoutAgentIsRefused_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("line"); // 0: accepted
    QTest::addColumn<int>("record");
    const QByteArray good = AccountLine().bytes();
    AccountLine blank;
    blank.agent = QString();
    QTest::newRow("last line of 101") << joinLines({good, good.left(101)}) << 2 << 2;
    QTest::newRow("last line of 120") << joinLines({good, good.left(120)}) << 2 << 2;
    QTest::newRow("last line of 123") << joinLines({good, good.left(123)}) << 2 << 2;
    QTest::newRow("last line of 124 has one agent character") << joinLines({good, good.left(124)}) << 0 << 0;
    QTest::newRow("only line of 120") << joinLines({good.left(120)}) << 1 << 1;
    QTest::newRow("full last line with a blank agent") << joinLines({good, blank.bytes()}) << 2 << 2;
    QTest::newRow("blank agent in the middle is not used") << joinLines({blank.bytes(), good}) << 0 << 0;
    // A split record before it: the line number is not the record number.
    QTest::newRow("after a split record")
        << joinLines({good, QByteArray(30, 'H'), QByteArray(65, '1'), good.left(110)}) << 4 << 3;
}

void tst_DownloadFile::lastRecordWithoutAgentIsRefused()
{
    QFETCH(QByteArray, content);
    QFETCH(int, line);
    QFETCH(int, record);
    DownloadFile file;
    const bool ok = readBytes(file, content);
    QCOMPARE(ok, line == 0);
    if (ok)
        return;
    QCOMPARE(file.failure(), DownloadFile::Failure::DataFormat);
    QCOMPARE(file.errorString(), QStringLiteral("Error in DATA FORMAT"));
    QVERIFY2(file.errorDetail().contains(
                 QStringLiteral("line %1: the record has no agent identifier (columns 124-138).").arg(line)),
             qPrintable(file.errorDetail()));
    QCOMPARE(file.errorIcon(), Messenger::Icon::None);
    QCOMPARE(file.failedRecord(), record);
    QCOMPARE(file.recordCount(), 0);
    QCOMPARE(file.AgentID(), QString());
}

void tst_DownloadFile::longLineIgnoresColumnsBeyond174()
{
    const QByteArray line = (AccountLine().bytes() + "EXTRA").leftJustified(180, 'Q');
    DownloadFile file;
    QVERIFY(readBytes(file, joinLines({line})));
    QCOMPARE(file.records().at(0).BankSoftACNumber, QStringLiteral("BS0000000000101"));
}

void tst_DownloadFile::splitRecord_data()
{
    // The first line of each case is shorter than 71 characters, so the
    // record is rebuilt from the comma-delimited items that follow it.
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QString>("rebuilt"); // the whole rebuilt record, when accepted

    // Digits where the pieces land in the amount and date columns, which
    // must hold numbers.
    const QString head30 = QStringLiteral("H").repeated(30);
    const QString head10 = QStringLiteral("H").repeated(10);
    const QString head60 = QStringLiteral("H").repeated(60);
    const QString item65 = QStringLiteral("1").repeated(65);
    const QString item46 = QStringLiteral("2").repeated(46);
    const QString item20 = QStringLiteral("3").repeated(20);
    const QString item60 = QStringLiteral("4").repeated(60);
    const QString item79 = QStringLiteral("5").repeated(79);
    auto bytes = [](const QString& s) { return s.toLatin1(); };

    QTest::newRow("long item padded to end at 136")
        << bytes(head30 + "\r\n" + item65 + "\r\n") << true << head30 + "," + spaces(40) + item65;
    QTest::newRow("46-character item padded to start at 71")
        << bytes(head30 + "\r\n" + item46 + "\r\n") << true << head30 + "," + spaces(39) + item46;
    QTest::newRow("line under 21: long item appended as it is, 76 rejected")
        << bytes(head10 + "\r\n" + item65 + "\r\n") << false << QString();
    QTest::newRow("several items, the last one long")
        << bytes(head30 + "\r\n" + item20 + "," + item60 + "\r\n") << true << head30 + "," + item20 + "," + item60;
    QTest::newRow("item with a 56-character tail ends at 126")
        << bytes(head30 + "\r\nAB " + QString(56, '6') + "\r\n") << true
        << head30 + "," + spaces(36) + "AB " + QString(56, '6');
    QTest::newRow("item with a 46-character tail ends at 116")
        << bytes(head30 + "\r\nX " + QString(46, '7') + "\r\n") << true
        << head30 + "," + spaces(37) + "X " + QString(46, '7');
    QTest::newRow("item with a 66-character tail ends at 136")
        << bytes(head30 + "\r\nX " + QString(66, '8') + "\r\n") << true
        << head30 + "," + spaces(37) + "X " + QString(66, '8');
    QTest::newRow("item with another tail is dropped")
        << bytes(head30 + "\r\nA B\r\n" + item65 + "\r\n") << true << head30 + "," + spaces(40) + item65;
    QTest::newRow("trailing blanks of an item do not count")
        << bytes(head30 + "\r\n" + item46 + "    \r\n") << true << head30 + "," + spaces(39) + item46;
    QTest::newRow("rebuilt to 140 is rejected") << bytes(head60 + "\r\n" + item79 + "\r\n") << false << QString();
    QTest::newRow("empty line starts a rebuild")
        << bytes("\r\n" + item20 + "," + item65 + "\r\n") << true << "," + item20 + "," + spaces(49) + item65;
    QTest::newRow("rebuilt to 82 is rejected") << bytes("\r\n" + item20 + "," + item60 + "\r\n") << false << QString();
}

void tst_DownloadFile::splitRecord()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, accepted);
    QFETCH(QString, rebuilt);
    DownloadFile file;
    // A whole record follows, so that the last record has its agent.
    QCOMPARE(readBytes(file, content + joinLines({AccountLine().bytes()})), accepted);
    if (!accepted) {
        QCOMPARE(file.errorString(), QStringLiteral("Error in DATA FORMAT"));
        return;
    }
    QCOMPARE(file.recordCount(), 2);
    const DownloadRecord expected = DownloadRecord::fromLine(rebuilt);
    const DownloadRecord& r = file.records().at(0);
    QCOMPARE(r.BranchID, expected.BranchID);
    QCOMPARE(r.ACName, expected.ACName);
    QCOMPARE(r.BalAmount, expected.BalAmount);
    QCOMPARE(r.MyDate, expected.MyDate);
    QCOMPARE(r.AgentID, expected.AgentID);
    QCOMPARE(r.BankSoftACNumber, expected.BankSoftACNumber);
}

void tst_DownloadFile::restOfLineAfterRebuildIsTheNextRecord()
{
    // The item that completes a record ends at a comma; what follows on that
    // line is read as the next record.
    const QByteArray head = QByteArray(30, 'H');
    const QByteArray item = QByteArray(46, '2');
    const QByteArray next = AccountLine().bytes();
    DownloadFile file;
    QVERIFY(readBytes(file, head + "\r\n" + item + "," + next + "\r\n"));
    QCOMPARE(file.recordCount(), 2);
    QCOMPARE(file.records().at(1).ACNumber, AccountLine().acNumber);
}

void tst_DownloadFile::packedFields_data()
{
    // One account whose field is changed; the failure names its line and
    // columns, and nothing is kept.
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("problem"); // empty: accepted

    QTest::newRow("balance of digits") << "balance"
                                       << "00012345" << QString();
    QTest::newRow("balance with blanks around") << "balance"
                                                << "  12345 " << QString();
    QTest::newRow("balance with paise") << "balance"
                                        << "01234.50" << QString();
    QTest::newRow("blank balance is judged at sending") << "balance"
                                                        << "" << QString();
    QTest::newRow("letter in balance") << "balance"
                                       << "00012X45"
                                       << "balance amount (columns 95-102) \"00012X45\" is not a number";
    QTest::newRow("blank inside balance") << "balance"
                                          << "0001 345"
                                          << "\"0001 345\" is not a number";
    QTest::newRow("exponent in balance") << "balance"
                                         << "00001e03"
                                         << "is not a number";
    QTest::newRow("negative balance") << "balance"
                                      << "-0012345"
                                      << "is negative";
    QTest::newRow("plus sign") << "balance"
                               << "+0012345"
                               << "is not a number";
    QTest::newRow("agreed of digits") << "agreed"
                                      << "00100" << QString();
    QTest::newRow("letter in agreed") << "agreed"
                                      << "0010O"
                                      << "agreed amount (columns 106-110) \"0010O\" is not a number";
    QTest::newRow("opening date") << "opening"
                                  << "01/04/2005" << QString();
    QTest::newRow("opening date of zeros") << "opening"
                                           << "00/00/0000" << QString();
    QTest::newRow("blank opening date") << "opening"
                                        << "" << QString();
    QTest::newRow("other separators") << "opening"
                                      << "01-04-2005" << QString();
    QTest::newRow("letter in opening date") << "opening"
                                            << "O1/04/2005"
                                            << "account opening date (columns 139-148) \"O1/04/2005\" is not a date";
    QTest::newRow("letter in last transaction date")
        << "txn"
        << "15/11/200X"
        << "last transaction date (columns 149-158) \"15/11/200X\" is not a date";
    // Not sent to the terminal: taken as it stands.
    QTest::newRow("letter in the file date") << "date"
                                             << "1X/11/2007" << QString();
}

void tst_DownloadFile::packedFields()
{
    QFETCH(QString, field);
    QFETCH(QString, value);
    QFETCH(QString, problem);
    AccountLine changed = AccountLine::numbered(2);
    QString AccountLine::*member = field == QLatin1String("balance")   ? &AccountLine::balance
                                   : field == QLatin1String("agreed")  ? &AccountLine::agreed
                                   : field == QLatin1String("opening") ? &AccountLine::opening
                                   : field == QLatin1String("txn")     ? &AccountLine::txnDate
                                                                       : &AccountLine::date;
    changed.*member = value;
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("0051611d.txt"));
    QFile out(path);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(joinLines({AccountLine::numbered(1).bytes(), changed.bytes(), AccountLine::numbered(3).bytes()}));
    out.close();

    DownloadFile file;
    const bool ok = file.ReadDownLoadFile(path);
    QCOMPARE(ok, problem.isEmpty());
    if (ok) {
        QCOMPARE(file.recordCount(), 3);
        QCOMPARE(file.recordLines(), (QList<int>{1, 2, 3}));
        return;
    }
    QCOMPARE(file.failure(), DownloadFile::Failure::BadField);
    QCOMPARE(file.errorString(), QStringLiteral("Error in DATA FORMAT"));
    QCOMPARE(file.errorIcon(), Messenger::Icon::None);
    QVERIFY2(file.errorDetail().startsWith(QStringLiteral("The DownLoad File %1, line 2: the ").arg(path)),
             qPrintable(file.errorDetail()));
    QVERIFY2(file.errorDetail().contains(problem), qPrintable(file.errorDetail()));
    QCOMPARE(file.failedRecord(), 2);
    QCOMPARE(file.recordCount(), 0);
}

void tst_DownloadFile::recordLimit_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("failure");
    QTest::newRow("2000 accepted") << 2000 << int(DownloadFile::Failure::None);
    QTest::newRow("2001 refused") << 2001 << int(DownloadFile::Failure::TooManyRecords);
    QTest::newRow("2500 refused") << 2500 << int(DownloadFile::Failure::TooManyRecords);
    QTest::newRow("2501 overflows") << 2501 << int(DownloadFile::Failure::Overflow);
}

void tst_DownloadFile::recordLimit()
{
    QFETCH(int, count);
    QFETCH(int, failure);
    DownloadFile file;
    const bool ok = readBytes(file, accountsFile(count));
    QCOMPARE(int(file.failure()), failure);
    QCOMPARE(ok, failure == int(DownloadFile::Failure::None));
    if (ok) {
        QCOMPARE(file.recordCount(), count);
        return;
    }
    QCOMPARE(file.recordCount(), 0);
    QCOMPARE(file.errorIcon(), Messenger::Icon::Critical);
    if (failure == int(DownloadFile::Failure::TooManyRecords))
        QCOMPARE(file.errorString(), QStringLiteral("No.of records has exceeded 2000,Please check the DownLoad File"));
    else
        QVERIFY(file.errorString().contains(QStringLiteral("more than 2500 records")));
}

void tst_DownloadFile::emptyFile()
{
    DownloadFile file;
    QVERIFY(readBytes(file, QByteArray()));
    QCOMPARE(file.recordCount(), 0);
    QCOMPARE(file.AgentID(), QString());
    QCOMPARE(file.BranchID(), QString());
}

void tst_DownloadFile::lastRecordGivesBranchAndAgent()
{
    AccountLine first = AccountLine::numbered(1);
    first.branch = QStringLiteral("BR0001");
    first.agent = QStringLiteral("AG0005");
    AccountLine last = AccountLine::numbered(2);
    last.branch = QStringLiteral("BR0002");
    last.agent = QStringLiteral("AG0009");
    DownloadFile file;
    QVERIFY(readBytes(file, joinLines({first.bytes(), last.bytes()})));
    QCOMPARE(file.BranchID(), AccountLine::field(QStringLiteral("BR0002"), 15));
    QCOMPARE(file.AgentID(), AccountLine::field(QStringLiteral("AG0009"), 15));
    QCOMPARE(file.records().at(0).AgentID, AccountLine::field(QStringLiteral("AG0005"), 15));
}

void tst_DownloadFile::fileEndsInsideSplitRecord()
{
    DownloadFile file;
    QVERIFY(!readBytes(file, joinLines({AccountLine().bytes(), QByteArray(30, 'H')})));
    QCOMPARE(file.failure(), DownloadFile::Failure::PastEnd);
    QCOMPARE(file.errorIcon(), Messenger::Icon::Critical);
    QCOMPARE(file.failedRecord(), 2);
    QCOMPARE(file.recordCount(), 0);
}

void tst_DownloadFile::cannotOpen()
{
    QTemporaryDir dir;
    DownloadFile file;
    QVERIFY(!file.ReadDownLoadFile(dir.filePath(QStringLiteral("0051611d.txt"))));
    QCOMPARE(file.failure(), DownloadFile::Failure::CannotOpen);
    QVERIFY(file.errorString().contains(dir.filePath(QStringLiteral("0051611d.txt"))));
    QVERIFY(!file.ReadDownLoadFile(dir.path()));
    QCOMPARE(file.failure(), DownloadFile::Failure::CannotOpen);
    QCOMPARE(file.errorIcon(), Messenger::Icon::Critical);
}

void tst_DownloadFile::latin1Names()
{
    AccountLine a;
    a.name = QString::fromLatin1("JOS\xc9 MU\xd1OZ");
    DownloadFile file;
    QVERIFY(readBytes(file, joinLines({a.text().toLatin1()})));
    QCOMPARE(file.records().at(0).ACName, AccountLine::field(a.name, 50));
    QCOMPARE(file.records().at(0).BalAmount, a.balance);
}

void tst_DownloadFile::sampleFile()
{
    DownloadFile file;
    QVERIFY2(file.ReadDownLoadFile(QStringLiteral(DOWNLOAD_FIXTURES "/0051611d.txt")), qPrintable(file.errorString()));
    QCOMPARE(file.recordCount(), 3);
    QCOMPARE(file.records().at(1).ACName, AccountLine::field(QStringLiteral("ANIL SHARMA"), 50));
    QCOMPARE(file.records().at(2).Txndate, spaces(6));
    QCOMPARE(file.AgentID(), AccountLine::field(QStringLiteral("AG0005"), 15));
}

QTEST_GUILESS_MAIN(tst_DownloadFile)
#include "tst_downloadfile.moc"
