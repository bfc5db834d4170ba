#include "base/Version.h"
#include "link/UploadSession.h"
#include "store/AuditTrail.h"
#include "tests/support/FailingSync.h"
#include "tests/support/TestContext.h"
#include "tests/upload/ReplyBytes.h"
#include "tests/upload/UploadTestSetup.h"
#include "upload/PendingOutputs.h"
#include "upload/RestoreStore.h"
#include "upload/UploadFiles.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <cstring>

using RestoreStore::ReceiveOutcome;
using Result = RestoreStore::ReceiveOutcome::Result;

namespace {

const QByteArray acct1 = "000000000000101";
const QByteArray acct2 = "000000000000102";
const QByteArray acct3 = "000000000000103";
const QByteArray yesterday = "yesterday's upload\r\n";

QByteArray entry(const char* hex)
{
    return QByteArray::fromHex(hex);
}

} // namespace

// One receive from the replies to the files, through processReceive: each
// faulty receive ends with nothing replaced, no official file and a message.
class tst_ReceiveOutcome : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void correctReceiveStoredWrittenAndAudited();
    void countOrTotalMismatchRefused_data();
    void countOrTotalMismatchRefused();
    void doubledTransactionNumberRefused();
    void lateReplyInAnotherRecordsPlaceRefused();
    void unknownAccountRefusedAndNamed();
    void emptyAmountCountedByTheTerminalRefused();
    void badSummaryRefusedForGood_data();
    void badSummaryRefusedForGood();
    void apostropheInRecordKeyRefused();
    void fullDisk_data();
    void fullDisk();
    void realFullDiskNamesTheCause();
    void diskThatCannotSyncStoresNothing_data();
    void diskThatCannotSyncStoresNothing();
    void folderThatCannotSyncKeepsTheFilesOwed();
    void failedCommitLeavesRowsAndFiles();
    void acceptedMismatchStoredAndAudited();
    void missingBankFolderStoresWithoutUploadFile();
    void secondReceiveOfTheDayKeepsTheFirstBackup();
    void restoreDataReportsThroughTheMessenger();
    void reconciliationWrittenBesideTheCheckListing();

private:
    void addAccount(const QByteArray& account, const QString& name);
    void setRecords(const QList<QByteArray>& records, int transactions, int rupees);
    void expectNothingReplaced(const ReceiveOutcome& outcome);
    int count(const QString& sql, const QVariantList& values = {}) const;
    QString uploadPath() const { return t->path(QStringLiteral("bank/0051611u.txt")); }
    QString lastMessage(const ReceiveOutcome& o) const
    {
        return o.messages.isEmpty() ? QString() : o.messages.last().text;
    }

    std::unique_ptr<TestContext> t;
    UploadSummary summary;
};

void tst_ReceiveOutcome::init()
{
    t = std::make_unique<TestContext>();
    summary = prepareUploadContext(*t);
    addAccount(acct1, QStringLiteral("ONE"));
    addAccount(acct2, QStringLiteral("TWO"));
    addAccount(acct3, QStringLiteral("THREE"));
    // What an earlier receive left: one row, one history row, an upload file.
    t->db.execute(QStringLiteral("INSERT INTO RestoreData (SNo, AccountNo, Amtcollected, AgentID) "
                                 "VALUES ('1', 'OLD', '0000001.00', ?)"),
                  {agent});
    t->db.execute(QStringLiteral("INSERT INTO CollectionHistory (AgentID, CollectionDate, AccountNo, CollectedPaise) "
                                 "VALUES (?, '2007-11-16', 'OLD', 100)"),
                  {agent});
    QFile f(uploadPath());
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(yesterday);
}

void tst_ReceiveOutcome::cleanup()
{
    UploadFiles::setSaveFileFactory({});
    t.reset();
}

void tst_ReceiveOutcome::addAccount(const QByteArray& account, const QString& name)
{
    t->db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, BalAmount, "
                                 "AgreedAmount, SNo, CustomerCode, BranchID, AgentID, MyDate, BankSoftACNumber) "
                                 "VALUES ('S', 'DD001', ?, ?, '100', '5', '1', 'C00001', 'BR0000000000001', ?, "
                                 "'161107', 'BS1')"),
                  {QString::fromLatin1(account), name, agent});
}

void tst_ReceiveOutcome::setRecords(const QList<QByteArray>& records, int transactions, int rupees)
{
    t->ctx->link.Records[0] = ReplyBytes::headerRecord(static_cast<int>(records.size()), agent.toLatin1());
    t->ctx->link.Records[1] = ReplyBytes::summaryRecord("005", "1611", transactions, QByteArray(4, '\0'));
    for (int i = 0; i < records.size(); ++i)
        t->ctx->link.Records[i + 2] = records.at(i);
    summary.TotalRecords = static_cast<int>(records.size());
    summary.TotalTransactions = transactions;
    summary.TotalAmountDigits = QStringLiteral("%1").arg(rupees, 8, 10, QLatin1Char('0'));
}

int tst_ReceiveOutcome::count(const QString& sql, const QVariantList& values) const
{
    QSqlQuery q(t->db.connection());
    q.prepare(sql);
    for (const QVariant& v : values)
        q.addBindValue(v);
    if (!q.exec() || !q.next())
        qFatal("count failed: %s", qPrintable(sql));
    return q.value(0).toInt();
}

void tst_ReceiveOutcome::expectNothingReplaced(const ReceiveOutcome& o)
{
    QVERIFY(o.result == Result::Refused || o.result == Result::Failed);
    QVERIFY(!o.succeeded());
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), 1);
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData WHERE AccountNo = 'OLD'")), 1);
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM CollectionHistory")), 1);
    QCOMPARE(readAll(uploadPath()), yesterday);
    // Nothing else appeared in the bank folder (no temporary copy either).
    QCOMPARE(QDir(t->path(QStringLiteral("bank"))).entryList(QDir::Files | QDir::Hidden),
             QStringList{QStringLiteral("0051611u.txt")});
    QVERIFY(!o.messages.isEmpty());
    QCOMPARE(o.messages.last().icon, SessionMessage::Icon::Critical);
    QVERIFY(o.uploadFile.isEmpty());
}

void tst_ReceiveOutcome::correctReceiveStoredWrittenAndAudited()
{
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1,
                                              {entry("000005 16B7 0900 0001"), entry("000005 16B7 0901 0002")}, '\x02'),
                ReplyBytes::transactionRecord("S", "DD001", acct2, {entry("000007 16B7 0902 0003")}, '\x01')},
               3, 17);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    QCOMPARE(o.result, Result::Stored);
    QVERIFY(o.succeeded());
    QCOMPARE(o.messages.size(), 1);
    QCOMPARE(o.messages.last().text, QStringLiteral("Upload Completed Successfully"));
    QCOMPARE(o.uploadFile, uploadPath());
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData")), 3);
    QCOMPARE(readAll(uploadPath()).count("\r\n"), 3);
    QCOMPARE(summary.UploadBaseName, QStringLiteral("0051611u"));
    QVERIFY(QFile::exists(t->path(QStringLiteral("BackupData/0051611uCheck.txt"))));

    const QList<AuditTrail::Event> events = AuditTrail::read(t->db);
    QCOMPARE(events.size(), 1);
    const AuditTrail::Event& e = events.first();
    QCOMPARE(e.action, QStringLiteral("receive"));
    QCOMPARE(e.time, QStringLiteral("2007-11-16T10:20:30"));
    QCOMPARE(e.version, programVersion());
    QVERIFY(!e.user.isEmpty());
    QVERIFY2(e.details.contains(QStringLiteral("2 records received")), qPrintable(e.details));
    QVERIFY2(e.details.contains(QStringLiteral("3 collections, total 17.00")), qPrintable(e.details));
    const QString sha =
        QString::fromLatin1(QCryptographicHash::hash(readAll(uploadPath()), QCryptographicHash::Sha256).toHex());
    QVERIFY2(e.details.contains(uploadPath() + QStringLiteral(" (3 lines, SHA-256 ") + sha), qPrintable(e.details));
    QVERIFY(!e.details.contains(QStringLiteral("ACCEPTED")));
}

void tst_ReceiveOutcome::countOrTotalMismatchRefused_data()
{
    QTest::addColumn<int>("transactions");
    QTest::addColumn<int>("rupees");
    QTest::newRow("count one more") << 3 << 10;
    QTest::newRow("count one less") << 1 << 10;
    QTest::newRow("total one rupee more") << 2 << 11;
}

void tst_ReceiveOutcome::countOrTotalMismatchRefused()
{
    QFETCH(int, transactions);
    QFETCH(int, rupees);
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01'),
                ReplyBytes::transactionRecord("S", "DD001", acct2, {entry("000005 16B7 0901 0002")}, '\x01')},
               transactions, rupees);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    expectNothingReplaced(o);
    QCOMPARE(o.result, Result::Refused);
    QVERIFY(o.mayAccept);
    QVERIFY(
        lastMessage(o).startsWith(QStringLiteral("Serious Problem While Uploading \nThe terminal's summary gives")));
    QVERIFY2(lastMessage(o).contains(QStringLiteral("but the upload file would hold 2 totalling 10.00")),
             qPrintable(lastMessage(o)));
    QVERIFY(lastMessage(o).contains(QStringLiteral("kept in the backup file ") + o.backupFile));
    QVERIFY(QFile::exists(o.backupFile));
}

void tst_ReceiveOutcome::doubledTransactionNumberRefused()
{
    // The same agreed amount every day: the totals agree, the numbers do not.
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01'),
                ReplyBytes::transactionRecord("S", "DD001", acct2, {entry("000005 16B7 0900 0001")}, '\x01')},
               2, 10);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    expectNothingReplaced(o);
    QVERIFY(o.mayAccept);
    QVERIFY2(lastMessage(o).contains(QStringLiteral(
                 "transaction number 0001 appears twice (accounts 000000000000101 and 000000000000102)")),
             qPrintable(lastMessage(o)));
}

void tst_ReceiveOutcome::lateReplyInAnotherRecordsPlaceRefused()
{
    // Record 3 holds a second copy of record 2 (a late answer that landed
    // in the next record's place): acct2's collection is missing, acct1's
    // doubled, and with equal amounts the totals still agree.
    const QByteArray first =
        ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01');
    setRecords({first, first}, 2, 10);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    expectNothingReplaced(o);
    QVERIFY(lastMessage(o).contains(QStringLiteral("appears twice")));
}

void tst_ReceiveOutcome::unknownAccountRefusedAndNamed()
{
    setRecords(
        {ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01'),
         ReplyBytes::transactionRecord("S", "DD001", "000000000000999", {entry("000050 16B7 0901 0002")}, '\x01')},
        2, 55);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    expectNothingReplaced(o);
    QVERIFY(o.mayAccept);
    QVERIFY2(lastMessage(o).contains(QStringLiteral("a collection of 50.00 for account 000000000000999, which is not "
                                                    "among the agent's downloaded accounts")),
             qPrintable(lastMessage(o)));
    QVERIFY(o.reconciliation.contains(QStringLiteral(
        "Left out of the upload file: account 000000000000999, amount 50.00 (the account is not among the agent's "
        "downloaded accounts)")));
}

void tst_ReceiveOutcome::emptyAmountCountedByTheTerminalRefused()
{
    // acct1's record says 20: acct2 is listed without an amount, then read
    // for its own entry. The terminal counted the listing as a transaction.
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {}, '\x20'),
                ReplyBytes::transactionRecord("S", "DD001", acct2, {entry("000005 16B7 0900 0001")}, '\x01')},
               2, 5);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    expectNothingReplaced(o);
    QVERIFY(o.reconciliation.contains(
        QStringLiteral("Left out of the upload file: account 000000000000102, amount none (no amount (empty))")));
}

void tst_ReceiveOutcome::badSummaryRefusedForGood_data()
{
    QTest::addColumn<QString>("base");
    QTest::addColumn<QString>("said");
    QTest::newRow("path in the agent") << "../../x"
                                       << "the agent as \"../\"";
    QTest::newRow("bytes of an earlier session") << QString::fromLatin1("\x07\xd0"
                                                                        "BR000")
                                                 << "the agent as \"\\x07";
    QTest::newRow("letters") << "AB51611"
                             << "the agent as \"AB5\"";
    QTest::newRow("day 32") << "0053211"
                            << "the date as \"3211\"";
    QTest::newRow("month 13") << "0051613"
                              << "the date as \"1613\"";
    QTest::newRow("30 February") << "0053002"
                                 << "the date as \"3002\"";
    QTest::newRow("day 0") << "0050011"
                           << "the date as \"0011\"";
}

void tst_ReceiveOutcome::badSummaryRefusedForGood()
{
    QFETCH(QString, base);
    QFETCH(QString, said);
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01')}, 1, 5);
    QVERIFY(QDir().mkpath(t->path(QStringLiteral("BackupData"))));
    const QStringList dataBefore = QDir(t->dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    for (bool accept : {false, true}) {
        summary.UploadBaseName = base;
        const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary, accept);
        expectNothingReplaced(o);
        QVERIFY(!o.mayAccept);
        QVERIFY2(lastMessage(o).startsWith(QStringLiteral("Serious Problem While Uploading \nThe terminal's summary "
                                                          "gives ") +
                                           said),
                 qPrintable(lastMessage(o)));
        // The backup and the reconciliation stay inside BackupData.
        QVERIFY(o.backupFile.startsWith(t->path(QStringLiteral("BackupData/"))));
        QVERIFY(QFileInfo(o.backupFile).absolutePath() == t->path(QStringLiteral("BackupData")));
        QVERIFY(QFileInfo(o.reconciliationFile).absolutePath() == t->path(QStringLiteral("BackupData")));
    }
    QCOMPARE(QDir(t->dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), dataBefore);
    QVERIFY(!QFile::exists(QDir(t->path(QStringLiteral("bank"))).filePath(QStringLiteral("../../xu.txt"))));
}

void tst_ReceiveOutcome::apostropheInRecordKeyRefused()
{
    setRecords(
        {ReplyBytes::transactionRecord("S", "DD001", "0000000000'0101", {entry("000005 16B7 0900 0001")}, '\x01')}, 1,
        5);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    expectNothingReplaced(o);
    QCOMPARE(o.result, Result::Failed);
    QVERIFY(lastMessage(o).contains(QStringLiteral("apostrophe")));
}

void tst_ReceiveOutcome::fullDisk_data()
{
    QTest::addColumn<QString>("failing"); // part of the path of the files that run out of room
    QTest::addColumn<QString>("said");
    QTest::newRow("every file") << "/"
                                << "Cannot write the backup file ";
    QTest::newRow("upload file") << "/bank/"
                                 << "Cannot write the upload file ";
    QTest::newRow("check listing") << "Check.txt"
                                   << "Cannot write the check listing ";
}

void tst_ReceiveOutcome::fullDisk()
{
    QFETCH(QString, failing);
    QFETCH(QString, said);
    UploadFiles::setSaveFileFactory([failing](const QString& path) -> std::unique_ptr<QSaveFile> {
        return std::make_unique<FailingSaveFile>(path, path.contains(failing) ? 100 : 1 << 30);
    });
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01'),
                ReplyBytes::transactionRecord("S", "DD001", acct2, {entry("000007 16B7 0901 0002")}, '\x01')},
               2, 12);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    expectNothingReplaced(o);
    QCOMPARE(o.result, Result::Failed);
    bool named = false;
    for (const SessionMessage& m : o.messages) {
        QVERIFY2(!m.text.contains(QStringLiteral("Unknown error")), qPrintable(m.text));
        if (m.text.startsWith(said) && m.text.contains(QStringLiteral("No space left on device")))
            named = true;
    }
    QVERIFY2(named, qPrintable(o.messages.last().text));
    if (failing == QLatin1String("/")) {
        // The backup was not written, so no message says it was.
        QVERIFY(o.backupFile.isEmpty());
        for (const SessionMessage& m : o.messages)
            QVERIFY2(!m.text.contains(QStringLiteral("kept in the backup")), qPrintable(m.text));
        QCOMPARE(QDir(t->path(QStringLiteral("BackupData"))).entryList(QDir::Files | QDir::Hidden), QStringList());
    } else {
        QVERIFY(QFile::exists(o.backupFile));
        QVERIFY(lastMessage(o).contains(QStringLiteral("kept in the backup file ") + o.backupFile));
        QVERIFY(!QFile::exists(t->path(QStringLiteral("BackupData/0051611uCheck.txt"))));
    }
}

void tst_ReceiveOutcome::realFullDiskNamesTheCause()
{
    // The bank folder's disk is full: the disk-full shim, preloaded into
    // this test by ctest, makes the system's own writes there fail with
    // ENOSPC, as a full file system does, before any byte is written.
    QVERIFY2(qEnvironmentVariable("LD_PRELOAD").contains(QStringLiteral("tonvy_test_diskfull")),
             "needs the disk-full shim preloaded: run it through ctest, which sets LD_PRELOAD");
    QTemporaryDir bank(t->path(QStringLiteral("fullXXXXXX")));
    QVERIFY(bank.isValid());
    t->ctx->settings.BankInfoPath = bank.path();
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01')}, 1, 5);
    qputenv("TONVY_TEST_DISK_FULL_MATCH", QFileInfo(bank.path()).canonicalFilePath().toLocal8Bit());
    qputenv("TONVY_TEST_DISK_FULL_AFTER", "0");
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    qunsetenv("TONVY_TEST_DISK_FULL_AFTER");
    qunsetenv("TONVY_TEST_DISK_FULL_MATCH");
    QCOMPARE(o.result, Result::Failed);
    QVERIFY2(lastMessage(o).contains(QStringLiteral("No space left on device")), qPrintable(lastMessage(o)));
    QCOMPARE(QDir(bank.path()).entryList(QDir::Files | QDir::Hidden), QStringList());
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData WHERE AccountNo = 'OLD'")), 1);
}

void tst_ReceiveOutcome::diskThatCannotSyncStoresNothing_data()
{
    QTest::addColumn<QString>("failing"); // the folder whose files cannot be synced
    QTest::addColumn<QString>("said");
    QTest::newRow("upload file") << "bank"
                                 << "Cannot write the upload file ";
    QTest::newRow("check listing and backup") << "BackupData"
                                              << "Cannot write the check listing ";
}

void tst_ReceiveOutcome::diskThatCannotSyncStoresNothing()
{
    // The files are synced before the rows are committed: a disk that
    // cannot keep them leaves rows and files as they were.
    QFETCH(QString, failing);
    QFETCH(QString, said);
    QVERIFY(QDir().mkpath(t->path(QStringLiteral("BackupData"))));
    FailingSync syncs(FailingSync::Fail::Files, QFileInfo(t->path(failing)).canonicalFilePath() + '/');
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01')}, 1, 5);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    expectNothingReplaced(o);
    QCOMPARE(o.result, Result::Failed);
    QVERIFY2(lastMessage(o).startsWith(said), qPrintable(lastMessage(o)));
    QVERIFY2(
        lastMessage(o).contains(
            QStringLiteral("it could not be synced to the disk (%1)").arg(QString::fromLocal8Bit(std::strerror(EIO)))),
        qPrintable(lastMessage(o)));
    QVERIFY(syncs.fileSyncs() > 0);
    QCOMPARE(readAll(uploadPath()), yesterday);
    QVERIFY(!QFile::exists(t->path(QStringLiteral("BackupData/0051611uCheck.txt"))));
    QVERIFY(PendingOutputs::pending(t->db).isEmpty());
    if (failing == QLatin1String("BackupData")) {
        // The backup dump could not be kept either, and says so.
        QVERIFY(o.backupFile.isEmpty());
        QVERIFY2(o.messages.first().text.startsWith(QStringLiteral("Cannot write the backup file ")),
                 qPrintable(o.messages.first().text));
    }
}

void tst_ReceiveOutcome::folderThatCannotSyncKeepsTheFilesOwed()
{
    // The rows are committed and the upload file renamed into place, but
    // the bank folder's entry for it cannot be synced: a power cut could
    // still lose it, so it is not reported written and stays owed.
    const QString bank = QFileInfo(t->ctx->settings.BankInfoPath).canonicalFilePath();
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01')}, 1, 5);
    ReceiveOutcome o;
    {
        FailingSync syncs(FailingSync::Fail::Folders, bank);
        o = RestoreStore::processReceive(*t->ctx, summary);
        QCOMPARE(syncs.folderSyncs(bank), 1);
    }
    QCOMPARE(o.result, Result::Failed);
    QVERIFY2(lastMessage(o).contains(QStringLiteral("the upload file %1 could not be written: the folder %2 could "
                                                    "not be synced to the disk")
                                         .arg(uploadPath(), t->ctx->settings.BankInfoPath)),
             qPrintable(lastMessage(o)));
    QCOMPARE(
        count(QStringLiteral("SELECT count(*) FROM RestoreData WHERE AccountNo = ?"), {QString::fromLatin1(acct1)}), 1);
    QCOMPARE(PendingOutputs::pending(t->db, agent).size(), 1);

    // The disk healthy again: the next start writes what is owed.
    const PendingOutputs::Completion done = PendingOutputs::complete(*t->ctx, agent);
    QVERIFY2(done.complete(), qPrintable(done.problems.join('\n')));
    QVERIFY(PendingOutputs::pending(t->db).isEmpty());
    QVERIFY(readAll(uploadPath()).contains(acct1));
}

void tst_ReceiveOutcome::failedCommitLeavesRowsAndFiles()
{
    // The last step before the commit fails: every row and file stays.
    t->db.execute(QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON AuditTrail "
                                 "BEGIN SELECT RAISE(ABORT, 'database or disk is full'); END"));
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01')}, 1, 5);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    expectNothingReplaced(o);
    QVERIFY(lastMessage(o).contains(QStringLiteral("database or disk is full")));
    QVERIFY(!QFile::exists(t->path(QStringLiteral("BackupData/0051611uCheck.txt"))));
    QCOMPARE(summary.UploadBaseName, QStringLiteral("0051611"));
}

void tst_ReceiveOutcome::acceptedMismatchStoredAndAudited()
{
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01')}, 2, 10);
    const ReceiveOutcome refused = RestoreStore::processReceive(*t->ctx, summary);
    QCOMPARE(refused.result, Result::Refused);
    QVERIFY(refused.mayAccept);

    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary, true);
    QCOMPARE(o.result, Result::Accepted);
    QVERIFY(!o.succeeded());
    // As version 2.1 did: rows replaced, file written, its message shown.
    QCOMPARE(
        count(QStringLiteral("SELECT count(*) FROM RestoreData WHERE AccountNo = ?"), {QString::fromLatin1(acct1)}), 1);
    QCOMPARE(count(QStringLiteral("SELECT count(*) FROM RestoreData WHERE AccountNo = 'OLD'")), 0);
    QVERIFY(readAll(uploadPath()).contains(acct1));
    QCOMPARE(lastMessage(o), QStringLiteral("Serious Problem While Uploading "));
    const QList<AuditTrail::Event> events = AuditTrail::read(t->db);
    QCOMPARE(events.size(), 2);
    QVERIFY(events.at(0).details.contains(QStringLiteral("refused")));
    QVERIFY2(events.at(1).details.contains(QStringLiteral("ACCEPTED BY THE CLERK although: The terminal's summary")),
             qPrintable(events.at(1).details));
}

void tst_ReceiveOutcome::missingBankFolderStoresWithoutUploadFile()
{
    t->ctx->settings.BankInfoPath = t->path(QStringLiteral("no-such-folder"));
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01')}, 1, 5);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    QCOMPARE(o.result, Result::StoredWithoutBankFolder);
    QCOMPARE(lastMessage(o), UploadFiles::missingBankFolderText());
    QCOMPARE(
        count(QStringLiteral("SELECT count(*) FROM RestoreData WHERE AccountNo = ?"), {QString::fromLatin1(acct1)}), 1);
    QVERIFY(QFile::exists(t->path(QStringLiteral("BackupData/0051611Check.txt"))));
    QVERIFY(!QFileInfo::exists(t->ctx->settings.BankInfoPath));
}

void tst_ReceiveOutcome::secondReceiveOfTheDayKeepsTheFirstBackup()
{
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01')}, 1, 5);
    const ReceiveOutcome first = RestoreStore::processReceive(*t->ctx, summary);
    QCOMPARE(first.result, Result::Stored);
    const QByteArray firstDump = readAll(first.backupFile);
    QVERIFY(!firstDump.isEmpty());

    summary.UploadBaseName = QStringLiteral("0051611");
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct2, {entry("000009 16B7 1000 0002")}, '\x01')}, 1, 9);
    const ReceiveOutcome second = RestoreStore::processReceive(*t->ctx, summary);
    QCOMPARE(second.result, Result::Stored);
    QCOMPARE(first.backupFile, t->path(QStringLiteral("BackupData/005_16_11_07.txt")));
    QCOMPARE(second.backupFile, t->path(QStringLiteral("BackupData/005_16_11_07_2.txt")));
    QCOMPARE(readAll(first.backupFile), firstDump);
    QVERIFY(readAll(second.backupFile) != firstDump);
    QVERIFY(first.reconciliationFile != second.reconciliationFile);
}

void tst_ReceiveOutcome::restoreDataReportsThroughTheMessenger()
{
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01')}, 3, 5);
    QVERIFY(!RestoreStore::RestoreData(*t->ctx, summary));
    QCOMPARE(t->messenger.texts().size(), 1);
    QVERIFY(t->messenger.last().startsWith(QStringLiteral("Serious Problem While Uploading ")));
    QCOMPARE(t->messenger.lastIcon(), Messenger::Icon::Critical);

    t->messenger.clear();
    summary.UploadBaseName = QStringLiteral("0051611");
    summary.TotalTransactions = 1;
    QVERIFY(RestoreStore::RestoreData(*t->ctx, summary));
    QCOMPARE(t->messenger.texts(), QStringList{QStringLiteral("Upload Completed Successfully")});
}

void tst_ReceiveOutcome::reconciliationWrittenBesideTheCheckListing()
{
    setRecords({ReplyBytes::transactionRecord("S", "DD001", acct1, {entry("000005 16B7 0900 0001")}, '\x01'),
                ReplyBytes::transactionRecord("S", "DD001", acct2, {}, '\x00')},
               1, 5);
    const ReceiveOutcome o = RestoreStore::processReceive(*t->ctx, summary);
    QCOMPARE(o.result, Result::Stored);
    QCOMPARE(o.reconciliationFile, t->path(QStringLiteral("BackupData/005_16_11_07Reconciliation.txt")));
    const QByteArray text = readAll(o.reconciliationFile);
    QCOMPARE(text, o.reconciliation.join(QStringLiteral("\r\n")).toLatin1() + "\r\n");
    const QStringList expected = {
        QStringLiteral("Reconciliation of the receive of agent 005 (AG0000000000005) for 1611, received 16/11/2007 "
                       "10:20:30"),
        QStringLiteral("Accounts downloaded to the terminal: 3"),
        QStringLiteral("Transaction records received: 2"),
        QStringLiteral("Collections that came back: 1, total 5.00 (and 0 accounts listed without an amount)"),
        QStringLiteral("Collections for the upload file: 1, total 5.00"),
        QStringLiteral("Terminal's summary: 1 transactions, total 5.00 - agrees"),
        QStringLiteral("Outcome: stored and written; the upload file agrees with the terminal's summary"),
        QStringLiteral("Upload file: ") + uploadPath(),
        QStringLiteral("Backup of the replies: ") + t->path(QStringLiteral("BackupData/005_16_11_07.txt")),
    };
    QCOMPARE(o.reconciliation, expected);
}

QTEST_GUILESS_MAIN(tst_ReceiveOutcome)
#include "tst_receiveoutcome.moc"
