#include "admin/DriveList.h"
#include "admin/frmConfigure.h"
#include "admin/frmDrive.h"
#include "app/frmPassEntry.h"
#include "store/PasswordStore.h"
#include "tests/store/ScreenFaults.h"
#include "tests/support/Controls.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"

#include <QDir>
#include <QFile>
#include <QFileSystemModel>
#include <QLabel>
#include <QLineEdit>
#include <QTreeView>
#include <QtTest>
#include <memory>

using ScreenFaults::Away;
using ScreenFaults::Fault;
using ScreenFaults::press;
using ScreenFaults::saysWhatToDo;

namespace {

void addFaultRows(bool withDiskFull)
{
    QTest::addColumn<int>("fault");
    QTest::newRow("locked by another process") << int(Fault::Locked);
    if (withDiskFull)
        QTest::newRow("disk full") << int(Fault::DiskFull);
    QTest::newRow("page damaged") << int(Fault::Damaged);
    QTest::newRow("deleted") << int(Fault::Deleted);
    QTest::newRow("renamed") << int(Fault::Renamed);
    QTest::newRow("overwritten with random bytes") << int(Fault::Overwritten);
    QTest::newRow("replaced by another program's file") << int(Fault::Replaced);
    QTest::newRow("truncated") << int(Fault::Truncated);
}

// A fault in place: a lock or a full disk lasts as long as this object or
// until lift().
class Applied
{
public:
    bool apply(Fault fault, const QString& file, const QString& table, const char* lockMode)
    {
        switch (fault) {
        case Fault::Locked:
            m_holder = std::make_unique<StoreFaults::LockHolder>();
            return m_holder->start(file, lockMode);
        case Fault::DiskFull:
            m_full = std::make_unique<ScreenFaults::FullDisk>(0);
            return true;
        case Fault::Damaged:
            return ScreenFaults::damageTableWhileOpen(file, table);
        case Fault::Deleted:
            return ScreenFaults::makeGoAway(Away::Deleted, file);
        case Fault::Renamed:
            return ScreenFaults::makeGoAway(Away::Renamed, file);
        case Fault::Overwritten:
            return ScreenFaults::makeGoAway(Away::OverwrittenWithGarbage, file);
        case Fault::Replaced:
            return ScreenFaults::makeGoAway(Away::ReplacedByAnotherFile, file);
        case Fault::Truncated:
            return ScreenFaults::makeGoAway(Away::Truncated, file);
        }
        return false;
    }
    // The other program lets go, or space is freed.
    void lift()
    {
        m_holder.reset();
        m_full.reset();
    }
    // Whether the same action can succeed once the fault is lifted.
    static bool liftable(Fault fault) { return fault == Fault::Locked || fault == Fault::DiskFull; }

private:
    std::unique_ptr<StoreFaults::LockHolder> m_holder;
    std::unique_ptr<ScreenFaults::FullDisk> m_full;
};

QString storedField(SharedDatabase& db, const QString& name)
{
    SharedRecordset& rs = db.openSharedRecordset("select * from Path where SNo=?", {"1"});
    const QString value = rs.eof() ? QStringLiteral("<no row>") : rs.text(name);
    db.closeSharedRecordset();
    return value;
}

} // namespace

// DRIVE SELECTION, CONFIGURE and the administrator's login on a database in
// trouble: an Update whose save fails, and a login whose password cannot be
// read, end in one message saying what to do; nothing is saved or let in,
// the file is not written, and the screen stays open and works again once
// the trouble is gone.
class tst_StoreFaultsAdmin : public QObject
{
    Q_OBJECT

private slots:
    void driveSelectionSave_data() { addFaultRows(true); }
    void driveSelectionSave();
    void configurationSaveAfterTheDatabaseWentAway_data();
    void configurationSaveAfterTheDatabaseWentAway();
    void loginReadingThePassword_data() { addFaultRows(false); }
    void loginReadingThePassword();

private:
    // The database as every start leaves it: passwords hashed, a settings row.
    static void asAfterTheStart(TestContext& t);
};

void tst_StoreFaultsAdmin::asAfterTheStart(TestContext& t)
{
    PasswordStore::load(t.db);
    t.db.execute("INSERT INTO Path (SNo, BankName, BranchName, \"Comm Port\", FontSize, BankInfoPath) VALUES ('1', "
                 "'OLD BANK', 'MAIN', '1', '0', ?)",
                 {t.path("bank")});
    t.ctx->settings.BankInfoPath = t.path("bank");
}

void tst_StoreFaultsAdmin::driveSelectionSave()
{
    QFETCH(int, fault);
    if (Fault(fault) == Fault::DiskFull && !ScreenFaults::shimLoaded())
        QSKIP("needs the disk-full shim preloaded (ctest sets LD_PRELOAD)");
    TestContext t;
    QVERIFY(QDir(t.dir.path()).mkpath("bank"));
    QVERIFY(QDir(t.dir.path()).mkpath("newbank"));
    asAfterTheStart(t);
    const QString root = t.dir.path();
    frmDrive w(*t.ctx, DriveList([root] { return QStringList{root}; }, [](const QString&) { return true; }));
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    // The clerk picks another folder in the list.
    auto* dir = control<QTreeView>(&w, "Dir1");
    dir->setFocus();
    dir->setCurrentIndex(w.folderModel()->index(t.path("newbank")));
    QCOMPARE(control<QLabel>(&w, "lbFilePath")->text(), QDir::toNativeSeparators(t.path("newbank")));
    t.messenger.clear();

    const QString file = t.db.filePath();
    Applied applied;
    QVERIFY(applied.apply(Fault(fault), file, "Path", "immediate"));
    const ScreenFaults::Untouched untouched(file);
    press(&w, "cmdSend");
    CHECK_REFUSED_ONCE(t.messenger, Fault(fault), file);
    QCOMPARE(t.messenger.count("Data Saved Successfully"), 0);
    QCOMPARE(t.ctx->settings.BankInfoPath, t.path("bank"));
    CHECK_UNTOUCHED(untouched);
    QVERIFY(w.isVisible());
    if (Applied::liftable(Fault(fault))) {
        applied.lift();
        QCOMPARE(storedField(t.db, "BankInfoPath"), t.path("bank"));
        t.messenger.clear();
        press(&w, "cmdSend");
        QCOMPARE(t.messenger.count("Data Saved Successfully"), 1);
        QCOMPARE(storedField(t.db, "BankInfoPath"), QDir::toNativeSeparators(t.path("newbank")));
    }
}

void tst_StoreFaultsAdmin::configurationSaveAfterTheDatabaseWentAway_data()
{
    QTest::addColumn<int>("fault");
    QTest::newRow("deleted") << int(Fault::Deleted);
    QTest::newRow("renamed") << int(Fault::Renamed);
    QTest::newRow("overwritten with random bytes") << int(Fault::Overwritten);
    QTest::newRow("replaced by another program's file") << int(Fault::Replaced);
    QTest::newRow("truncated") << int(Fault::Truncated);
}

void tst_StoreFaultsAdmin::configurationSaveAfterTheDatabaseWentAway()
{
    QFETCH(int, fault);
    TestContext t;
    asAfterTheStart(t);
    frmConfigure w(*t.ctx);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    t.messenger.clear();
    const QString file = t.db.filePath();
    Applied applied;
    QVERIFY(applied.apply(Fault(fault), file, "Path", "immediate"));
    const ScreenFaults::Untouched untouched(file);
    auto* bank = control<QLineEdit>(&w, "txtBankName");
    bank->setFocus();
    bank->selectAll();
    QTest::keyClicks(bank, "NEW BANK");
    press(&w, "cmdUpdate");
    CHECK_REFUSED_ONCE(t.messenger, Fault(fault), file);
    CHECK_UNTOUCHED(untouched);
    if (Fault(fault) == Fault::Renamed) {
        // The file moved aside still holds the old settings.
        SharedDatabase moved;
        QString error;
        QVERIFY2(moved.open(ScreenFaults::movedPath(file), &error), qPrintable(error));
        QCOMPARE(storedField(moved, "BankName"), QStringLiteral("OLD BANK"));
    }
    QVERIFY(w.isVisible());
}

void tst_StoreFaultsAdmin::loginReadingThePassword()
{
    QFETCH(int, fault);
    TestContext t;
    asAfterTheStart(t);
    const QString file = t.db.filePath();
    Applied applied;
    QVERIFY(applied.apply(Fault(fault), file, "Password", "exclusive"));
    const ScreenFaults::Untouched untouched(file);

    // The menu opens the prompt: the password is read, and cannot be.
    frmPassEntry prompt(*t.ctx);
    QSignalSpy passed(&prompt, &frmPassEntry::loginSucceeded);
    prompt.show();
    QVERIFY(QTest::qWaitForWindowExposed(&prompt));
    CHECK_REFUSED_ONCE(t.messenger, Fault(fault), file);

    // Nothing typed lets the clerk in, an empty password or the right one;
    // the clerk is told again what is wrong, not that the password is.
    auto* box = control<QLineEdit>(&prompt, "txtNewPass");
    for (const QString& typed : {QString(), QStringLiteral("admin")}) {
        t.messenger.clear();
        box->setFocus();
        QTest::keyClicks(box, typed);
        QTest::keyClick(box, Qt::Key_Return);
        QCOMPARE(passed.count(), 0);
        QVERIFY(!t.ctx->LoginPassed);
        QCOMPARE(t.messenger.entries().size(), 1);
        QVERIFY2(saysWhatToDo(Fault(fault), t.messenger.last(), file), qPrintable(t.messenger.last()));
        QCOMPARE(t.messenger.count("Password entered is Incorrect"), 0);
        QVERIFY(prompt.isVisible());
        QVERIFY(box->text().isEmpty());
    }
    CHECK_UNTOUCHED(untouched);

    if (Applied::liftable(Fault(fault))) {
        // The other program has let go: the right password opens the screen.
        applied.lift();
        t.messenger.clear();
        QTest::keyClicks(box, "admin");
        QTest::keyClick(box, Qt::Key_Return);
        QCOMPARE(passed.count(), 1);
        QVERIFY(t.ctx->LoginPassed);
        QVERIFY(t.messenger.entries().isEmpty());
    }
}

QTEST_MAIN(tst_StoreFaultsAdmin)
#include "tst_storefaults_admin.moc"
