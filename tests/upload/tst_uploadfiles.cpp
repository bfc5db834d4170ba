#include "link/UploadSession.h"
#include "tests/support/FailingSync.h"
#include "tests/support/TestContext.h"
#include "tests/upload/ReplyBytes.h"
#include "tests/upload/UploadTestSetup.h"
#include "upload/RestoreStore.h"
#include "upload/UploadFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace {

// A stored collection, field by field as StoreRestoreData leaves it.
struct Stored
{
    QString account, amount, dateTime, txn, customer, name, balance, agreed, lastTxn, bankSoft;
};

} // namespace

class tst_UploadFiles : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void uploadFileByteForByte();
    void uploadFilePath_data();
    void uploadFilePath();
    void bankFolderWithTrailingSeparator();
    void sequencesPerDay();
    void emptyLastTxnDateWrittenAsTenBlanks();
    void emptyAmountListedButNotUploaded();
    void totalsMismatchReported_data();
    void totalsMismatchReported();
    void missingBankFolderStillWritesBackupAndCheck();
    void emptyBankFolderSettingIsMissing();
    void checkListingLayoutAndNumericOrder();
    void backupLine_data();
    void backupLine();
    void backupFileHoldsEveryReply();
    void failedWriteLeavesPreviousFile();
    void diskThatCannotSyncLeavesPreviousFile();
    void uploadFileThatCannotBeWrittenReported();

private:
    void store(const QList<Stored>& rows);
    QString uploadPath() const { return t->path(QStringLiteral("bank/0051611u.txt")); }

    std::unique_ptr<TestContext> t;
    UploadSummary summary;
};

void tst_UploadFiles::init()
{
    t = std::make_unique<TestContext>();
    summary = prepareUploadContext(*t);
}

void tst_UploadFiles::cleanup()
{
    t.reset();
}

void tst_UploadFiles::store(const QList<Stored>& rows)
{
    QList<RestoreStore::Entry> entries;
    for (const Stored& s : rows) {
        RestoreStore::Entry e;
        e.accountNo = s.account;
        e.schemeCode = QStringLiteral("DD001");
        e.categoryCode = QStringLiteral("S");
        e.amount = s.amount;
        e.dateTime = s.dateTime;
        e.transactionNumber = s.txn;
        e.branchId = QStringLiteral("BR0000000000001");
        e.customerCode = s.customer;
        e.accountName = s.name;
        e.balance = s.balance;
        e.agreedAmount = s.agreed;
        e.lastTxnDate = s.lastTxn;
        e.agentId = agent;
        e.bankSoftAcNumber = s.bankSoft;
        entries << e;
    }
    RestoreStore::StoreRestoreData(*t->ctx, agent, QStringLiteral("005"), entries);
}

void tst_UploadFiles::uploadFileByteForByte()
{
    store({
        {"000000000000101", "0000050.00", "16/11/2007 09:00", "0003", "C00001", QString::fromUtf8("JOSÉ"),
         "0000001234.50", "00050.00", "15/11/2007", "BS0000000000101"},
        {"000000000000102", "0000020.00", "15/11/2007 17:00", "0001", "C00002", "RAM LAL", "0000000500.00", "00020.00",
         "//20", "BS0000000000102"},
        {"000000000000103", "", "", "", "C00003", "GOPAL", "0000000010.00", "00010.00", "15/11/2007",
         "BS0000000000103"},
        {"000000000000104", "0000010.00", "15/11/2007 17:30", "0002", "C00004", "SITA DEVI", "0000000090.00",
         "00010.00", "14/11/2007", "BS0000000000104"},
        {"000000000000105", "0000005.00", "16/11/2007 09:30", "0010", "C00005", "ANIL", "0000000005.00", "00005.00",
         "16/11/2007", "BS0000000000105"},
    });
    summary.TotalTransactions = 4;
    summary.TotalAmountDigits = QStringLiteral("00000085");

    QVERIFY(UploadFiles::CreateFlatFile(*t->ctx, summary));
    QCOMPARE(summary.UploadBaseName, QStringLiteral("0051611u"));
    QCOMPARE(t->messenger.texts(), QStringList{QStringLiteral("Upload Completed Successfully")});
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Information);

    // Transaction-number order; per-day sequence; "//20" as ten blanks;
    // the account-only row left out; Latin-1, CR LF.
    QByteArray expected;
    expected += "BR0000000000001"
                "S"
                "DD001"
                "000000000000102"
                "C00002"
                "RAM LAL"
                "0000000500.00"
                "00020.00"
                "          "
                "AG0000000000005"
                "0000020.00"
                "15/11/2007 17:00"
                "0001"
                "0001"
                " "
                "BS0000000000102"
                "\r\n";
    expected += "BR0000000000001"
                "S"
                "DD001"
                "000000000000104"
                "C00004"
                "SITA DEVI"
                "0000000090.00"
                "00010.00"
                "14/11/2007"
                "AG0000000000005"
                "0000010.00"
                "15/11/2007 17:30"
                "0002"
                "0002"
                " "
                "BS0000000000104"
                "\r\n";
    expected += "BR0000000000001"
                "S"
                "DD001"
                "000000000000101"
                "C00001"
                "JOS\xC9"
                "0000001234.50"
                "00050.00"
                "15/11/2007"
                "AG0000000000005"
                "0000050.00"
                "16/11/2007 09:00"
                "0003"
                "0001"
                " "
                "BS0000000000101"
                "\r\n";
    expected += "BR0000000000001"
                "S"
                "DD001"
                "000000000000105"
                "C00005"
                "ANIL"
                "0000000005.00"
                "00005.00"
                "16/11/2007"
                "AG0000000000005"
                "0000005.00"
                "16/11/2007 09:30"
                "0010"
                "0002"
                " "
                "BS0000000000105"
                "\r\n";
    QCOMPARE(readAll(uploadPath()), expected);
}

void tst_UploadFiles::uploadFilePath_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("expected");
    QTest::newRow("plain") << "/srv/bank"
                           << "/srv/bank/0051611u.txt";
    QTest::newRow("trailing slash") << "/srv/bank/"
                                    << "/srv/bank/0051611u.txt";
    QTest::newRow("windows style") << "C:\\Bank"
                                   << "C:\\Bank\\0051611u.txt";
    QTest::newRow("windows trailing backslash") << "C:\\Bank\\"
                                                << "C:\\Bank\\0051611u.txt";
}

void tst_UploadFiles::uploadFilePath()
{
    QFETCH(QString, folder);
    QFETCH(QString, expected);
    QCOMPARE(UploadFiles::uploadFilePath(folder, QStringLiteral("0051611u")), expected);
}

void tst_UploadFiles::bankFolderWithTrailingSeparator()
{
    store({{"000000000000101", "0000050.00", "16/11/2007 09:00", "0001", "C00001", "A", "0000000001.00", "00001.00",
            "16/11/2007", "BS1"}});
    summary.TotalTransactions = 1;
    summary.TotalAmountDigits = QStringLiteral("00000050");
    t->ctx->settings.BankInfoPath = t->path(QStringLiteral("bank")) + QLatin1Char('/');
    QVERIFY(UploadFiles::CreateFlatFile(*t->ctx, summary));
    QVERIFY(QFile::exists(uploadPath()));
    QCOMPARE(QDir(t->path(QStringLiteral("bank"))).entryList(QDir::Files), QStringList{"0051611u.txt"});
}

void tst_UploadFiles::sequencesPerDay()
{
    store({
        {"1", "0000001.00", "15/11/2007 10:00", "0001", "C", "A", "1", "1", "15/11/2007", "B"},
        {"2", "0000002.00", "15/11/2007 11:00", "0002", "C", "A", "1", "1", "15/11/2007", "B"},
        {"3", "0000003.00", "15/11/2007 12:00", "0003", "C", "A", "1", "1", "15/11/2007", "B"},
        {"4", "0000004.00", "16/11/2007 08:00", "0004", "C", "A", "1", "1", "15/11/2007", "B"},
        {"5", "0000005.00", "16/11/2007 09:00", "0005", "C", "A", "1", "1", "15/11/2007", "B"},
    });
    summary.TotalTransactions = 5;
    summary.TotalAmountDigits = QStringLiteral("00000015");
    QVERIFY(UploadFiles::CreateFlatFile(*t->ctx, summary));
    const QList<QByteArray> lines = readAll(uploadPath()).split('\n');
    QCOMPARE(lines.size(), 6); // five lines and what follows the last CR LF
    QStringList sequences;
    for (int i = 0; i < 5; ++i) {
        const QByteArray line = lines.at(i);
        QVERIFY(line.endsWith('\r'));
        // The sequence stands before the lone blank and BankSoftACNumber "B".
        sequences << QString::fromLatin1(line.right(7).left(4));
    }
    QCOMPARE(sequences, (QStringList{"0001", "0002", "0003", "0001", "0002"}));
}

void tst_UploadFiles::emptyLastTxnDateWrittenAsTenBlanks()
{
    store({{"1", "0000001.00", "15/11/2007 10:00", "0001", "C", "NAME", "5", "6", "//20", "B"}});
    summary.TotalTransactions = 1;
    summary.TotalAmountDigits = QStringLiteral("00000001");
    QVERIFY(UploadFiles::CreateFlatFile(*t->ctx, summary));
    QCOMPARE(readAll(uploadPath()), QByteArray("BR0000000000001SDD0011CNAME56          AG00000000000050000001.00"
                                               "15/11/2007 10:0000010001 B\r\n"));
}

void tst_UploadFiles::emptyAmountListedButNotUploaded()
{
    store({
        {"101", "0000030.00", "15/11/2007 10:00", "0001", "C", "A", "1", "1", "15/11/2007", "B"},
        {"102", "", "", "", "C", "B", "1", "1", "15/11/2007", "B"},
    });
    // The terminal counted only the collected transaction.
    summary.TotalTransactions = 1;
    summary.TotalAmountDigits = QStringLiteral("00000030");
    QVERIFY(UploadFiles::CreateFlatFile(*t->ctx, summary));
    QCOMPARE(t->messenger.last(), QStringLiteral("Upload Completed Successfully"));
    const QByteArray upload = readAll(uploadPath());
    QCOMPARE(upload.count("\r\n"), 1);
    QVERIFY(upload.contains("101"));
    QVERIFY(!upload.contains("102"));

    QVERIFY(UploadFiles::CreateFlatFile2(*t->ctx, summary));
    const QByteArray check = readAll(t->path(QStringLiteral("BackupData/0051611uCheck.txt")));
    QCOMPARE(check.count("\r\n"), 2);
    QVERIFY(check.contains(" | 102 | "));
}

void tst_UploadFiles::totalsMismatchReported_data()
{
    QTest::addColumn<int>("transactions");
    QTest::addColumn<QString>("digits");
    QTest::newRow("amount differs") << 2 << "00000031";
    QTest::newRow("count differs") << 3 << "00000030";
}

void tst_UploadFiles::totalsMismatchReported()
{
    QFETCH(int, transactions);
    QFETCH(QString, digits);
    store({
        {"101", "0000010.00", "15/11/2007 10:00", "0001", "C", "A", "1", "1", "15/11/2007", "B"},
        {"102", "0000020.00", "15/11/2007 11:00", "0002", "C", "B", "1", "1", "15/11/2007", "B"},
    });
    summary.TotalTransactions = transactions;
    summary.TotalAmountDigits = digits;
    QVERIFY(!UploadFiles::CreateFlatFile(*t->ctx, summary));
    QCOMPARE(t->messenger.texts(), QStringList{QStringLiteral("Serious Problem While Uploading ")});
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
    // The file stays as written.
    QCOMPARE(readAll(uploadPath()).count("\r\n"), 2);
}

void tst_UploadFiles::missingBankFolderStillWritesBackupAndCheck()
{
    t->db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, BalAmount, "
                                 "AgreedAmount, AgentID, MyDate) VALUES ('S', 'DD001', '000000000000101', 'A', "
                                 "'10', '1', ?, '161107')"),
                  {agent});
    t->ctx->link.Records[0] = ReplyBytes::headerRecord(1, agent.toLatin1());
    t->ctx->link.Records[1] = ReplyBytes::summaryRecord("005", "1611", 1, QByteArray::fromHex("00000005"));
    t->ctx->link.Records[2] = ReplyBytes::transactionRecord("S", "DD001", "000000000000101",
                                                            {QByteArray::fromHex("000005 16B7 0900 0001")}, '\x01');
    summary.TotalRecords = 1;
    summary.TotalTransactions = 1;
    summary.TotalAmountDigits = QStringLiteral("00000005");
    t->ctx->settings.BankInfoPath = t->path(QStringLiteral("no-such-folder"));

    QVERIFY(!RestoreStore::RestoreData(*t->ctx, summary));
    QCOMPARE(t->messenger.texts(),
             QStringList{QStringLiteral("Bank Upload Folder does not Exist,Select BankInfoPath and UpLoad Again")});
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::None);
    QVERIFY(!QFileInfo::exists(t->ctx->settings.BankInfoPath));
    QVERIFY(QFile::exists(t->path(QStringLiteral("BackupData/005_16_11_07.txt"))));
    // The upload file was never made, so the base name kept no "u".
    QCOMPARE(summary.UploadBaseName, QStringLiteral("0051611"));
    QVERIFY(readAll(t->path(QStringLiteral("BackupData/0051611Check.txt"))).contains("000000000000101"));
}

void tst_UploadFiles::emptyBankFolderSettingIsMissing()
{
    t->ctx->settings.BankInfoPath.clear();
    QVERIFY(!UploadFiles::CreateFlatFile(*t->ctx, summary));
    QCOMPARE(t->messenger.last(),
             QStringLiteral("Bank Upload Folder does not Exist,Select BankInfoPath and UpLoad Again"));
}

void tst_UploadFiles::checkListingLayoutAndNumericOrder()
{
    store({
        {"101", "0000001.00", "15/11/2007 10:00", "0003", "C1", "10 GOPAL", "0000000001.00", "00001.00", "//20", "B1"},
        {"102", "", "", "", "C2", "9 RAM", "0000000002.00", "00002.00", "15/11/2007", "B2"},
        {"103", "0000003.00", "15/11/2007 11:00", "0001", "C3", "SITA", "0000000003.00", "00003.00", "15/11/2007",
         "B3"},
        {"104", "0000004.00", "15/11/2007 12:00", "0002", "C4", "  2 ANIL", "0000000004.00", "00004.00", "15/11/2007",
         "B4"},
    });
    summary.UploadBaseName = QStringLiteral("0051611u");
    QVERIFY(UploadFiles::CreateFlatFile2(*t->ctx, summary));
    QVERIFY(t->messenger.entries().isEmpty());
    // By the names' leading numbers: SITA (none, so 0), 2, 9, 10.
    QByteArray expected;
    expected += "BR0000000000001 | S | DD001 | 103 | C3 | SITA | 0000000003.00 | 00003.00 | 15/11/2007 | "
                "AG0000000000005 | 0000003.00 | 15/11/2007 11:00 | 0001 | 0001 | B3\r\n";
    expected += "BR0000000000001 | S | DD001 | 104 | C4 |   2 ANIL | 0000000004.00 | 00004.00 | 15/11/2007 | "
                "AG0000000000005 | 0000004.00 | 15/11/2007 12:00 | 0002 | 0002 | B4\r\n";
    expected += "BR0000000000001 | S | DD001 | 102 | C2 | 9 RAM | 0000000002.00 | 00002.00 | 15/11/2007 | "
                "AG0000000000005 |  |  |  | 0001 | B2\r\n";
    expected += "BR0000000000001 | S | DD001 | 101 | C1 | 10 GOPAL | 0000000001.00 | 00001.00 |            | "
                "AG0000000000005 | 0000001.00 | 15/11/2007 10:00 | 0003 | 0001 | B1\r\n";
    QCOMPARE(readAll(t->path(QStringLiteral("BackupData/0051611uCheck.txt"))), expected);
}

void tst_UploadFiles::backupLine_data()
{
    QTest::addColumn<int>("line");
    QTest::addColumn<int>("index");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("expected");
    QTest::newRow("header") << 1 << 0
                            << QByteArray("\x01\xFF"
                                          "AB",
                                          4)
                            << "[1] 00 ) 01 FF 41 42  ..AB";
    QTest::newRow("three-digit index") << 124 << 123 << QByteArray("z\x7F ", 3) << "[124] 123 ) 7A 7F 20  z. ";
    QTest::newRow("not received") << 3 << 2 << QByteArray() << "[3] 02 )   ";
}

void tst_UploadFiles::backupLine()
{
    QFETCH(int, line);
    QFETCH(int, index);
    QFETCH(QByteArray, reply);
    QFETCH(QString, expected);
    QCOMPARE(UploadFiles::backupLine(line, index, reply), expected);
}

void tst_UploadFiles::backupFileHoldsEveryReply()
{
    const QByteArray header = ReplyBytes::headerRecord(2, agent.toLatin1());
    t->ctx->link.Records[0] = header;
    t->ctx->link.Records[1] = ReplyBytes::summaryRecord("005", "1611", 0, QByteArray(4, '\0'));
    t->ctx->link.Records[2] = ReplyBytes::transactionRecord("S", "DD001", "1", {}, '\x00');
    t->ctx->link.Records[3] = ReplyBytes::transactionRecord("S", "DD001", "2", {}, '\x00');
    t->ctx->link.Records[4] = "left from an earlier receive";
    summary.TotalRecords = 2;
    const QString existing = t->path(QStringLiteral("BackupData/005_16_11_07.txt"));
    QDir().mkpath(t->path(QStringLiteral("BackupData")));
    {
        QFile f(existing);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QByteArray(5000, 'x'));
    }
    QVERIFY(UploadFiles::CreateFlatFile1(*t->ctx, summary));
    // An earlier receive's dump of the same day is kept; this one takes the
    // next name.
    QCOMPARE(readAll(existing), QByteArray(5000, 'x'));
    const QByteArray content = readAll(t->path(QStringLiteral("BackupData/005_16_11_07_2.txt")));
    QCOMPARE(content.count("\r\n"), 4);
    QVERIFY(content.startsWith(UploadFiles::backupLine(1, 0, header).toLatin1() + "\r\n"));
    QVERIFY(content.contains("\r\n[4] 03 ) "));
    QVERIFY(!content.contains("earlier"));
    QVERIFY(!content.contains("xxx"));
}

void tst_UploadFiles::failedWriteLeavesPreviousFile()
{
    const QString path = t->path(QStringLiteral("upload.txt"));
    {
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("yesterday's upload\r\n");
    }
    FailingSaveFile file(path, 40);
    QString error;
    QVERIFY(!UploadFiles::saveLines(file, {QString(30, QLatin1Char('a')), QString(30, QLatin1Char('b'))}, &error));
    QVERIFY2(error.contains(QStringLiteral("No space")), qPrintable(error));
    QCOMPARE(readAll(path), QByteArray("yesterday's upload\r\n"));
    QCOMPARE(QDir(t->dir.path()).entryList({QStringLiteral("upload*")}, QDir::Files | QDir::Hidden),
             QStringList{QStringLiteral("upload.txt")});

    // With enough room the same lines replace the file whole.
    FailingSaveFile roomy(path, 1000);
    QVERIFY(UploadFiles::saveLines(roomy, {QStringLiteral("a"), QStringLiteral("b")}, &error));
    QCOMPARE(readAll(path), QByteArray("a\r\nb\r\n"));
}

void tst_UploadFiles::diskThatCannotSyncLeavesPreviousFile()
{
    const QString path = t->path(QStringLiteral("upload.txt"));
    {
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("yesterday's upload\r\n");
    }
    QString error;
    {
        // The bytes are written but the disk cannot keep them: not written.
        FailingSync syncs(FailingSync::Fail::Files);
        QSaveFile file(path);
        QVERIFY(!UploadFiles::saveLines(file, {QStringLiteral("a"), QStringLiteral("b")}, &error));
        QVERIFY2(error.startsWith(QStringLiteral("it could not be synced to the disk (")), qPrintable(error));
        QCOMPARE(readAll(path), QByteArray("yesterday's upload\r\n"));
        QCOMPARE(QDir(t->dir.path()).entryList({QStringLiteral("upload*")}, QDir::Files | QDir::Hidden),
                 QStringList{QStringLiteral("upload.txt")});
    }
    {
        // Renamed into place, but the folder's entry not synced: a failure
        // all the same, naming the folder.
        FailingSync syncs(FailingSync::Fail::Folders);
        QSaveFile file(path);
        QVERIFY(!UploadFiles::saveLines(file, {QStringLiteral("a"), QStringLiteral("b")}, &error));
        QVERIFY2(error.startsWith(QStringLiteral("the folder %1 could not be synced").arg(t->dir.path())),
                 qPrintable(error));
    }
    // A healthy disk: the file and its folder are each synced once.
    FailingSync syncs;
    QSaveFile file(path);
    QVERIFY(UploadFiles::saveLines(file, {QStringLiteral("c")}, &error));
    QCOMPARE(readAll(path), QByteArray("c\r\n"));
    QCOMPARE(syncs.folderSyncs(QFileInfo(t->dir.path()).canonicalFilePath()), 1);
    QVERIFY(syncs.fileSyncs() >= 1);
}

void tst_UploadFiles::uploadFileThatCannotBeWrittenReported()
{
    store({{"101", "0000010.00", "15/11/2007 10:00", "0001", "C", "A", "1", "1", "15/11/2007", "B"}});
    summary.TotalTransactions = 1;
    summary.TotalAmountDigits = QStringLiteral("00000010");
    QVERIFY(QDir().mkpath(uploadPath())); // a folder where the file should go
    QVERIFY(!UploadFiles::CreateFlatFile(*t->ctx, summary));
    QCOMPARE(t->messenger.texts().size(), 1);
    QVERIFY2(t->messenger.last().startsWith(QStringLiteral("Cannot write the upload file ") + uploadPath()),
             qPrintable(t->messenger.last()));
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY(QFileInfo(uploadPath()).isDir());
}

QTEST_GUILESS_MAIN(tst_UploadFiles)
#include "tst_uploadfiles.moc"
