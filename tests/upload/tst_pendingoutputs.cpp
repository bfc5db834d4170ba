#include "app/DesktopScreens.h"
#include "app/frmMain.h"
#include "base/Clock.h"
#include "core/AppContext.h"
#include "link/UploadSession.h"
#include "store/AuditTrail.h"
#include "store/SettingsStore.h"
#include "store/SharedDatabase.h"
#include "tests/support/FailingSync.h"
#include "tests/support/RecordingMessenger.h"
#include "tests/upload/ReplyBytes.h"
#include "upload/PendingOutputs.h"
#include "upload/RestoreStore.h"
#include "upload/StartupOutputs.h"
#include "upload/UploadFiles.h"
#include "widgets/MessageBoxMessenger.h"
#include "widgets/ScreenRegistry.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMessageBox>
#include <QProcess>
#include <QSaveFile>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>
#include <memory>

using Result = RestoreStore::ReceiveOutcome::Result;

namespace {

const QString agent = QStringLiteral("AG0000000000005");
const QByteArray acct1 = "000000000000101";
const QByteArray acct2 = "000000000000102";
const QByteArray yesterday = "yesterday's upload\r\n";

QByteArray readAll(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return f.readAll();
}

// One start of the program on a data folder: its own database handle,
// messages and clock, as a second run of either program would have.
struct Start
{
    SharedDatabase db;
    RecordingMessenger messenger;
    FixedClock clock{QDateTime(QDate(2007, 11, 16), QTime(10, 20, 30))};
    std::unique_ptr<AppContext> ctx;

    explicit Start(const QString& dataDir, Messenger* useMessenger = nullptr)
    {
        QString error;
        if (!db.open(QDir(dataDir).filePath(SharedDatabase::fileName()), &error))
            qFatal("cannot open test database: %s", qPrintable(error));
        ctx = std::make_unique<AppContext>(db, useMessenger ? *useMessenger : messenger, clock);
        ctx->dataDir = dataDir;
        ctx->settings.load(db);
        db.closeSharedRecordset();
    }

    int count(const QString& sql) const
    {
        QSqlQuery q(db.connection());
        if (!q.exec(sql) || !q.next())
            qFatal("count failed: %s", qPrintable(sql));
        return q.value(0).toInt();
    }
};

// A branch's data folder with a bank folder, agent 005's accounts and an
// earlier upload file of the same name.
struct Branch
{
    QTemporaryDir dir;

    Branch()
    {
        QDir().mkpath(bank());
        Start s(dir.path());
        SettingsChange change;
        change.bankName = QStringLiteral("BANK");
        change.commPort = QStringLiteral("1");
        change.bankInfoPath = bank();
        SettingsStore::save(s.db, change);
        for (const auto& [account, name] : {std::pair{acct1, "ONE"}, std::pair{acct2, "TWO"}})
            s.db.execute(QStringLiteral("INSERT INTO BankData (CategoryCode, SchemeCode, ACNumber, ACName, "
                                        "BalAmount, AgreedAmount, SNo, CustomerCode, BranchID, AgentID, MyDate, "
                                        "BankSoftACNumber) VALUES ('S', 'DD001', ?, ?, '0000000100.00', '00005.00', "
                                        "'1', 'C00001', 'BR0000000000001', ?, '161107', 'BS1')"),
                         {QString::fromLatin1(account), QString::fromLatin1(name), agent});
        QFile f(uploadFile());
        if (!f.open(QIODevice::WriteOnly))
            qFatal("cannot write the earlier upload file");
        f.write(yesterday);
    }

    QString path(const QString& name) const { return QDir(dir.path()).filePath(name); }
    QString bank() const { return path(QStringLiteral("bank")); }
    QString uploadFile() const { return path(QStringLiteral("bank/0051611u.txt")); }
    QString checkListing() const { return path(QStringLiteral("BackupData/0051611uCheck.txt")); }
    QString reconciliation() const { return path(QStringLiteral("BackupData/005_16_11_07Reconciliation.txt")); }

    // Agent 005's receive of 16 November: three collections, 17 rupees.
    RestoreStore::ReceiveOutcome receive(AppContext& ctx) const
    {
        const QList<QByteArray> records = {
            ReplyBytes::transactionRecord(
                "S", "DD001", acct1,
                {QByteArray::fromHex("00000516B709000001"), QByteArray::fromHex("00000516B709010002")}, '\x02'),
            ReplyBytes::transactionRecord("S", "DD001", acct2, {QByteArray::fromHex("00000716B709020003")}, '\x01')};
        ctx.link.Records[0] = ReplyBytes::headerRecord(static_cast<int>(records.size()), agent.toLatin1());
        ctx.link.Records[1] = ReplyBytes::summaryRecord("005", "1611", 3, QByteArray(4, '\0'));
        for (int i = 0; i < records.size(); ++i)
            ctx.link.Records[i + 2] = records.at(i);
        UploadSummary summary;
        summary.BankAgentId = agent;
        summary.UploadBaseName = QStringLiteral("0051611");
        summary.AgentId = QStringLiteral("005");
        summary.CollectionDate = QStringLiteral("1611");
        summary.TotalRecords = static_cast<int>(records.size());
        summary.TotalTransactions = 3;
        summary.TotalAmountDigits = QStringLiteral("00000017");
        return RestoreStore::processReceive(ctx, summary);
    }

    // The same receive, stopped between its commit and its file renames.
    void receiveStoppedAfterCommit() const
    {
        Start s(dir.path());
        RestoreStore::setAfterCommitHook([] { return false; });
        const RestoreStore::ReceiveOutcome o = receive(*s.ctx);
        RestoreStore::setAfterCommitHook({});
        QCOMPARE(o.result, Result::Failed);
        QCOMPARE(s.count(QStringLiteral("SELECT count(*) FROM RestoreData")), 3);
    }
};

// The files an uninterrupted receive of the same data writes, with the
// folder of its branch in the reconciliation replaced by `dataDir`.
struct Reference
{
    QByteArray upload, check, reconciliation;

    explicit Reference(const QString& dataDir)
    {
        Branch b;
        Start s(b.dir.path());
        const RestoreStore::ReceiveOutcome o = b.receive(*s.ctx);
        if (o.result != Result::Stored)
            qFatal("the reference receive was not stored");
        upload = readAll(b.uploadFile());
        check = readAll(b.checkListing());
        reconciliation = readAll(b.reconciliation()).replace(b.dir.path().toLatin1(), dataDir.toLatin1());
    }
};

// The audit trail's receive events, oldest first.
QList<AuditTrail::Event> receiveEvents(SharedDatabase& db)
{
    QList<AuditTrail::Event> out;
    for (const AuditTrail::Event& e : AuditTrail::read(db)) {
        if (e.action == QLatin1String("receive"))
            out << e;
    }
    return out;
}

QString missingFolderMessage(const QString& bankFolder)
{
    return QStringLiteral("The upload file 0051611u.txt of agent 005 for 16/11 is not written: the program stopped "
                          "after storing that receive and before writing its files, and the bank folder %1 does not "
                          "exist. Create the bank folder, or choose it in DRIVE SELECTION, then start the program "
                          "again or run any tonvy-cli command.")
        .arg(bankFolder);
}

struct CliRun
{
    int exitCode = -1;
    QProcess::ExitStatus status = QProcess::CrashExit;
    QString out, err;
};

CliRun runCli(const QStringList& args)
{
    QProcess p;
    p.start(qEnvironmentVariable("TONVY_BIN_DIR") + QStringLiteral("/tonvy-cli"), args);
    p.closeWriteChannel();
    CliRun r;
    if (!p.waitForFinished(60000))
        return r;
    r.exitCode = p.exitCode();
    r.status = p.exitStatus();
    r.out = QString::fromLocal8Bit(p.readAllStandardOutput());
    r.err = QString::fromLocal8Bit(p.readAllStandardError());
    return r;
}

} // namespace

// A receive stopped between storing its rows and writing its files (a power
// cut, a kill) has its files written at the next start, byte for byte.
class tst_PendingOutputs : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();

    void stoppedReceiveCompletedAtNextStart();
    void missingBankFolderKeepsTheMark();
    void diskThatCannotSyncKeepsTheMark();
    void commandLineRefusesUntilTheFolderExists();
    void settingsCommandCanChooseAnotherBankFolder();
    void uninterruptedReceiveLeavesNoMark();
    void missingBankFolderAtReceiveLeavesNoMark();
    void failedRenameKeepsTheMarkAndNextStartWrites();
    void nextReceiveOfTheAgentWritesTheOwedFilesFirst();
    void nextReceiveRefusedWhileTheOwedFilesCannotBeWritten();
    void desktopStartShowsTheMessageAndStaysUsable();
};

void tst_PendingOutputs::cleanup()
{
    RestoreStore::setAfterCommitHook({});
    UploadFiles::setSaveFileFactory({});
}

void tst_PendingOutputs::stoppedReceiveCompletedAtNextStart()
{
    Branch b;
    const Reference ref(b.dir.path());
    b.receiveStoppedAfterCommit();
    // Stopped: the rows are in, the files are not.
    QCOMPARE(readAll(b.uploadFile()), yesterday);
    QVERIFY(!QFile::exists(b.checkListing()));
    QVERIFY(!QFile::exists(b.reconciliation()));
    QCOMPARE(QDir(b.bank()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("0051611u.txt")});

    Start next(b.dir.path());
    QCOMPARE(next.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 3);
    QVERIFY(Startup::completePendingOutputs(*next.ctx, next.messenger));
    QVERIFY(next.messenger.entries().isEmpty());

    QCOMPARE(readAll(b.uploadFile()), ref.upload);
    QCOMPARE(readAll(b.checkListing()), ref.check);
    QCOMPARE(readAll(b.reconciliation()), ref.reconciliation);
    QCOMPARE(ref.upload.count("\r\n"), 3);
    QCOMPARE(next.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);

    const QList<AuditTrail::Event> events = receiveEvents(next.db);
    QCOMPARE(events.size(), 2); // the receive's own, then the completion
    const AuditTrail::Event& e = events.last();
    QVERIFY2(e.details.startsWith(QStringLiteral("agent 005 (AG0000000000005), date 1611: files completed after an "
                                                 "interrupted receive")),
             qPrintable(e.details));
    const QString sha = QString::fromLatin1(QCryptographicHash::hash(ref.upload, QCryptographicHash::Sha256).toHex());
    QVERIFY2(e.details.contains(b.uploadFile() + QStringLiteral(" (3 lines, SHA-256 ") + sha), qPrintable(e.details));
    QVERIFY2(e.details.contains(QStringLiteral("check listing ") + b.checkListing()), qPrintable(e.details));

    // A start after that finds nothing owed and writes nothing more.
    Start again(b.dir.path());
    QVERIFY(Startup::completePendingOutputs(*again.ctx, again.messenger));
    QCOMPARE(receiveEvents(again.db).size(), 2);
}

void tst_PendingOutputs::missingBankFolderKeepsTheMark()
{
    Branch b;
    const Reference ref(b.dir.path());
    b.receiveStoppedAfterCommit();
    QVERIFY(QDir(b.bank()).removeRecursively());
    {
        Start next(b.dir.path());
        QVERIFY(!Startup::completePendingOutputs(*next.ctx, next.messenger));
        QCOMPARE(next.messenger.texts(), QStringList{missingFolderMessage(b.bank())});
        QCOMPARE(next.messenger.lastIcon(), Messenger::Icon::Critical);
        // What could be written was: only the upload file stays owed.
        QCOMPARE(readAll(b.checkListing()), ref.check);
        QCOMPARE(next.count(QStringLiteral("SELECT count(*) FROM PendingOutputs WHERE Kind = 'upload'")), 1);
        QCOMPARE(next.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 1);
    }
    // The folder is back: the next start writes the file.
    QVERIFY(QDir().mkpath(b.bank()));
    Start later(b.dir.path());
    QVERIFY(Startup::completePendingOutputs(*later.ctx, later.messenger));
    QVERIFY(later.messenger.entries().isEmpty());
    QCOMPARE(readAll(b.uploadFile()), ref.upload);
    QCOMPARE(later.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);
}

void tst_PendingOutputs::diskThatCannotSyncKeepsTheMark()
{
    Branch b;
    const Reference ref(b.dir.path());
    b.receiveStoppedAfterCommit();
    {
        // The bank folder's disk takes the bytes but cannot keep them: the
        // upload file is not written and stays owed, with the cause.
        FailingSync syncs(FailingSync::Fail::Files, QFileInfo(b.bank()).canonicalFilePath() + '/');
        Start next(b.dir.path());
        QVERIFY(!Startup::completePendingOutputs(*next.ctx, next.messenger));
        QCOMPARE(next.messenger.lastIcon(), Messenger::Icon::Critical);
        QVERIFY2(next.messenger.last().startsWith(QStringLiteral("The upload file 0051611u.txt of agent 005 for 16/11 "
                                                                 "is not written")),
                 qPrintable(next.messenger.last()));
        QVERIFY2(next.messenger.last().contains(QStringLiteral("it could not be synced to the disk")),
                 qPrintable(next.messenger.last()));
        QCOMPARE(readAll(b.uploadFile()), yesterday);
        QCOMPARE(readAll(b.checkListing()), ref.check);
        QCOMPARE(next.count(QStringLiteral("SELECT count(*) FROM PendingOutputs WHERE Kind = 'upload'")), 1);
        QCOMPARE(next.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 1);
    }
    // A healthy disk: the next start writes it.
    Start later(b.dir.path());
    QVERIFY(Startup::completePendingOutputs(*later.ctx, later.messenger));
    QCOMPARE(readAll(b.uploadFile()), ref.upload);
    QCOMPARE(later.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);
}

void tst_PendingOutputs::commandLineRefusesUntilTheFolderExists()
{
    Branch b;
    const Reference ref(b.dir.path());
    b.receiveStoppedAfterCommit();
    QVERIFY(QDir(b.bank()).removeRecursively());

    const QString trail = b.path(QStringLiteral("trail.csv"));
    const CliRun refused = runCli(
        {QStringLiteral("--data-dir"), b.dir.path(), QStringLiteral("audit"), QStringLiteral("--output"), trail});
    QCOMPARE(refused.status, QProcess::NormalExit);
    QCOMPARE(refused.exitCode, 1);
    QVERIFY2(refused.err.contains(missingFolderMessage(b.bank())), qPrintable(refused.err));
    QVERIFY2(refused.out.isEmpty(), qPrintable(refused.out));
    QVERIFY(!QFile::exists(trail));
    {
        Start s(b.dir.path());
        QCOMPARE(s.count(QStringLiteral("SELECT count(*) FROM PendingOutputs WHERE Kind = 'upload'")), 1);
    }

    QVERIFY(QDir().mkpath(b.bank()));
    const CliRun done =
        runCli({QStringLiteral("--data-dir"), b.dir.path(), QStringLiteral("settings"), QStringLiteral("show")});
    QCOMPARE(done.exitCode, 0);
    QVERIFY2(done.err.isEmpty(), qPrintable(done.err));
    QCOMPARE(readAll(b.uploadFile()), ref.upload);
    Start s(b.dir.path());
    QCOMPARE(s.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);
}

// A clerk with only the command line points the bank folder somewhere that
// exists: 'settings' still runs while a file is owed, and the owed file is
// written into the folder just chosen.
void tst_PendingOutputs::settingsCommandCanChooseAnotherBankFolder()
{
    Branch b;
    const Reference ref(b.dir.path());
    b.receiveStoppedAfterCommit();
    QVERIFY(QDir(b.bank()).removeRecursively());

    const CliRun shown =
        runCli({QStringLiteral("--data-dir"), b.dir.path(), QStringLiteral("settings"), QStringLiteral("show")});
    QCOMPARE(shown.status, QProcess::NormalExit);
    QCOMPARE(shown.exitCode, 1);
    QVERIFY2(shown.err.contains(missingFolderMessage(b.bank())), qPrintable(shown.err));
    QVERIFY2(shown.out.contains(QStringLiteral("Bank Info Path: ") + b.bank()), qPrintable(shown.out));

    const QString other = b.path(QStringLiteral("OtherBank"));
    QVERIFY(QDir().mkpath(other));
    const CliRun moved = runCli({QStringLiteral("--data-dir"), b.dir.path(), QStringLiteral("settings"),
                                 QStringLiteral("set"), QStringLiteral("--bank-info-path"), other});
    QCOMPARE(moved.status, QProcess::NormalExit);
    QCOMPARE(moved.exitCode, 0);
    QCOMPARE(readAll(QDir(other).filePath(QFileInfo(b.uploadFile()).fileName())), ref.upload);
    Start s(b.dir.path());
    QCOMPARE(s.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);
}

void tst_PendingOutputs::uninterruptedReceiveLeavesNoMark()
{
    Branch b;
    Start s(b.dir.path());
    QCOMPARE(b.receive(*s.ctx).result, Result::Stored);
    QCOMPARE(s.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);
    QVERIFY(QFile::exists(b.reconciliation()));
}

void tst_PendingOutputs::missingBankFolderAtReceiveLeavesNoMark()
{
    // Version 2.1's own case: no upload file is owed, the clerk receives
    // again once the folder is chosen.
    Branch b;
    QVERIFY(QDir(b.bank()).removeRecursively());
    Start s(b.dir.path());
    QCOMPARE(b.receive(*s.ctx).result, Result::StoredWithoutBankFolder);
    QCOMPARE(s.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);
    QVERIFY(Startup::completePendingOutputs(*s.ctx, s.messenger));
}

void tst_PendingOutputs::failedRenameKeepsTheMarkAndNextStartWrites()
{
    Branch b;
    const Reference ref(b.dir.path());
    {
        Start s(b.dir.path());
        // The bank folder goes (a network drive lost) between the writing
        // and the rename: the rename fails.
        RestoreStore::setAfterCommitHook([&] { return QDir(b.bank()).removeRecursively(); });
        const RestoreStore::ReceiveOutcome o = b.receive(*s.ctx);
        RestoreStore::setAfterCommitHook({});
        QCOMPARE(o.result, Result::Failed);
        QVERIFY2(o.messages.last().text.contains(QStringLiteral("start the program again or run any tonvy-cli "
                                                                "command")),
                 qPrintable(o.messages.last().text));
        QVERIFY(!QFile::exists(b.uploadFile()));
        QCOMPARE(s.count(QStringLiteral("SELECT count(*) FROM PendingOutputs WHERE Kind = 'upload'")), 1);
    }
    QVERIFY(QDir().mkpath(b.bank()));
    Start next(b.dir.path());
    QVERIFY(Startup::completePendingOutputs(*next.ctx, next.messenger));
    QCOMPARE(readAll(b.uploadFile()), ref.upload);
    QCOMPARE(readAll(b.checkListing()), ref.check);
    QCOMPARE(next.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);
}

void tst_PendingOutputs::nextReceiveOfTheAgentWritesTheOwedFilesFirst()
{
    Branch b;
    const Reference ref(b.dir.path());
    b.receiveStoppedAfterCommit();
    Start s(b.dir.path());
    // The next receive of the agent replaces the rows the owed files are
    // made from: they are written before that.
    QCOMPARE(b.receive(*s.ctx).result, Result::Stored);
    QCOMPARE(readAll(b.uploadFile()), ref.upload);
    QCOMPARE(s.count(QStringLiteral("SELECT count(*) FROM PendingOutputs")), 0);
    const QList<AuditTrail::Event> events = receiveEvents(s.db);
    QCOMPARE(events.size(), 3);
    QVERIFY(events.at(1).details.contains(QStringLiteral("files completed after an interrupted receive")));
}

void tst_PendingOutputs::nextReceiveRefusedWhileTheOwedFilesCannotBeWritten()
{
    Branch b;
    b.receiveStoppedAfterCommit();
    QVERIFY(QDir(b.bank()).removeRecursively());
    Start s(b.dir.path());
    const RestoreStore::ReceiveOutcome o = b.receive(*s.ctx);
    QCOMPARE(o.result, Result::Failed);
    QVERIFY2(
        o.messages.last().text.startsWith(missingFolderMessage(b.bank()) + QStringLiteral(" Nothing was replaced.")),
        qPrintable(o.messages.last().text));
    QCOMPARE(s.count(QStringLiteral("SELECT count(*) FROM PendingOutputs WHERE Kind = 'upload'")), 1);
    QCOMPARE(s.count(QStringLiteral("SELECT count(*) FROM RestoreData")), 3);
}

void tst_PendingOutputs::desktopStartShowsTheMessageAndStaysUsable()
{
    Branch b;
    b.receiveStoppedAfterCommit();
    QVERIFY(QDir(b.bank()).removeRecursively());

    MessageBoxMessenger boxes;
    Start start(b.dir.path(), &boxes);
    ScreenRegistry screens;
    registerDesktopScreens(screens);
    frmMain menu(*start.ctx, screens);
    menu.show();
    QVERIFY(QTest::qWaitForWindowExposed(&menu));

    // Answers every box the start shows, noting its text and icon.
    QStringList shown;
    QList<QMessageBox::Icon> icons;
    QTimer answer;
    answer.setInterval(20);
    QObject::connect(&answer, &QTimer::timeout, [&] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            shown << box->text();
            icons << box->icon();
            box->button(QMessageBox::Ok)->click();
        }
    });
    answer.start();
    startDesktop(menu, *start.ctx);
    answer.stop();

    QCOMPARE(shown, QStringList{missingFolderMessage(b.bank())});
    QCOMPARE(icons, QList<QMessageBox::Icon>{QMessageBox::Critical});
    // The menu is still there and works.
    QVERIFY(menu.isVisible());
    auto* receive = menu.findChild<QWidget*>(QStringLiteral("cmdReceive"));
    QVERIFY(receive);
    QVERIFY(receive->isEnabled());
    QCOMPARE(start.count(QStringLiteral("SELECT count(*) FROM PendingOutputs WHERE Kind = 'upload'")), 1);
}

QTEST_MAIN(tst_PendingOutputs)
#include "tst_pendingoutputs.moc"
