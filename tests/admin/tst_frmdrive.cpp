#include "admin/DriveList.h"
#include "admin/frmDrive.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"

#include <QComboBox>
#include <QDir>
#include <QFileSystemModel>
#include <QLabel>
#include <QRadioButton>
#include <QTreeView>
#include <QtTest>

// Folder selection over three made-up drives: A and B with folders, and
// "nomedia", which cannot be read.
class tst_frmDrive : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void captionsAndNames();
    void bankInformationIsTheDefaultOption();
    void emptyTableSaveCreatesRowWithOnlyTheChosenPath_data();
    void emptyTableSaveCreatesRowWithOnlyTheChosenPath();
    void saveWithNeitherOptionStillSavesTheRow();
    void driveWithoutMediumKeepsTheFolderList();
    void storedBankFolderIsShownOnLoad();
    void focusShowsEachStoredFolder();
    void vanishedFolderIsIgnoredOnLoad_data();
    void vanishedFolderIsIgnoredOnLoad();
    void vanishedFolderIsIgnoredOnFocus();
    void folderClickSetsThePath();
    void folderGoneSinceItWasChosenIsNotSaved();
    void nothingChosenIsNotSaved();
    void driveOfAPath_data();
    void driveOfAPath();
    void systemDrivesHoldTheHomeFolder();

private:
    DriveList drives() const;
    QString driveA() const { return m_root.filePath("A"); }
    QString driveB() const { return m_root.filePath("B"); }
    QString noMedia() const { return m_root.filePath("nomedia"); }
    static void storePaths(TestContext& t, const QVariant& bank, const QVariant& report);
    static QVariant field(TestContext& t, const QString& name);
    static void focusOn(QWidget* w);

    QTemporaryDir m_root;
};

void tst_frmDrive::init()
{
    QVERIFY(QDir(m_root.path()).mkpath("A/Bank/DownLoadData"));
    QVERIFY(QDir(m_root.path()).mkpath("A/Reports"));
    QVERIFY(QDir(m_root.path()).mkpath("B/Other"));
    QVERIFY(QDir(m_root.path()).mkpath("nomedia"));
}

DriveList tst_frmDrive::drives() const
{
    const QStringList roots = {driveA(), driveB(), noMedia()};
    const QString unreadable = noMedia();
    return DriveList([roots] { return roots; }, [unreadable](const QString& root) { return root != unreadable; });
}

void tst_frmDrive::storePaths(TestContext& t, const QVariant& bank, const QVariant& report)
{
    t.db.execute("INSERT INTO Path (SNo, BankInfoPath, ReportPath) VALUES ('1', ?, ?)", {bank, report});
}

QVariant tst_frmDrive::field(TestContext& t, const QString& name)
{
    SharedRecordset& rs = t.db.openSharedRecordset("select * from Path where SNo=?", {"1"});
    const QVariant value = rs.eof() ? QVariant(QStringLiteral("<no row>")) : rs.value(name);
    t.db.closeSharedRecordset();
    return value;
}

void tst_frmDrive::focusOn(QWidget* w)
{
    w->setFocus(Qt::MouseFocusReason);
    QTRY_COMPARE(QApplication::focusWidget(), w);
}

void tst_frmDrive::captionsAndNames()
{
    TestContext t;
    frmDrive w(*t.ctx, drives());
    QCOMPARE(w.windowTitle(), QStringLiteral("Drive Selection"));
    QCOMPARE(w.findChild<QRadioButton*>("OpReport")->text(), QStringLiteral("Report Path"));
    QCOMPARE(w.findChild<QRadioButton*>("OpBank")->text(), QStringLiteral("Bank Information"));
    QCOMPARE(w.findChild<QLabel*>("Label4")->text(), QStringLiteral("Select Folder :"));
    QCOMPARE(w.findChild<QLabel*>("Label3")->text(), QStringLiteral("Select Drive :"));
    QCOMPARE(w.findChild<QLabel*>("Label1")->text(), QStringLiteral("Report Path :"));
    QCOMPARE(w.findChild<QLabel*>("Label2")->text(), QStringLiteral("Drive Selection"));
    QCOMPARE(w.findChild<ColourButton*>("cmdSend")->text(), QStringLiteral("&Update"));
    QCOMPARE(w.findChild<ColourButton*>("cmdexit")->text(), QStringLiteral("&Exit"));
    QVERIFY(w.findChild<QLabel*>("lbFilePath"));
    auto* drive = w.findChild<QComboBox*>("Drive1");
    QCOMPARE(drive->count(), 3);
    QCOMPARE(drive->itemData(1).toString(), driveB());
    auto* dir = w.findChild<QTreeView*>("Dir1");
    QCOMPARE(dir->model(), w.folderModel());
    QVERIFY(w.folderModel()->filter().testFlag(QDir::AllDirs));
    QVERIFY(!w.folderModel()->filter().testFlag(QDir::Files));
}

void tst_frmDrive::bankInformationIsTheDefaultOption()
{
    TestContext t;
    frmDrive w(*t.ctx, drives());
    QVERIFY(w.findChild<QRadioButton*>("OpBank")->isChecked());
    QVERIFY(!w.findChild<QRadioButton*>("OpReport")->isChecked());
    // No stored folder: the first drive, nothing chosen yet.
    QCOMPARE(w.findChild<QComboBox*>("Drive1")->currentIndex(), 0);
    QCOMPARE(w.dirPath(), QDir::toNativeSeparators(driveA()));
    QCOMPARE(w.findChild<QLabel*>("lbFilePath")->text(), QString());
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_frmDrive::emptyTableSaveCreatesRowWithOnlyTheChosenPath_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<QString>("written");
    QTest::addColumn<QString>("untouched");
    QTest::newRow("bank information") << "OpBank"
                                      << "BankInfoPath"
                                      << "ReportPath";
    QTest::newRow("report") << "OpReport"
                            << "ReportPath"
                            << "BankInfoPath";
}

void tst_frmDrive::emptyTableSaveCreatesRowWithOnlyTheChosenPath()
{
    QFETCH(QString, option);
    QFETCH(QString, written);
    QFETCH(QString, untouched);
    TestContext t;
    frmDrive w(*t.ctx, drives());
    w.show();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    auto* optionButton = w.findChild<QRadioButton*>(option);
    QTest::mouseClick(optionButton, Qt::LeftButton, {}, QPoint(6, optionButton->height() / 2));
    QVERIFY(optionButton->isChecked());
    w.findChild<QComboBox*>("Drive1")->setCurrentIndex(1);
    auto* dir = w.findChild<QTreeView*>("Dir1");
    dir->setCurrentIndex(w.folderModel()->index(m_root.filePath("B/Other")));
    const QString chosen = QDir::toNativeSeparators(m_root.filePath("B/Other"));
    QCOMPARE(w.findChild<QLabel*>("lbFilePath")->text(), chosen);

    QTest::mouseClick(w.findChild<ColourButton*>("cmdSend"), Qt::LeftButton);
    QCOMPARE(t.messenger.texts(), QStringList{"Data Saved Successfully"});
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Information);
    QCOMPARE(field(t, "SNo").toString(), QStringLiteral("1"));
    QCOMPARE(field(t, written).toString(), chosen);
    QVERIFY(field(t, untouched).isNull());
    QVERIFY(field(t, "BankName").isNull());
    QVERIFY(field(t, "Comm Port").isNull());
    QCOMPARE(written == "BankInfoPath" ? t.ctx->settings.BankInfoPath : t.ctx->settings.ReportPath, chosen);
    QVERIFY((written == "BankInfoPath" ? t.ctx->settings.ReportPath : t.ctx->settings.BankInfoPath).isEmpty());
    SharedRecordset& rs = t.db.openSharedRecordset("select * from Path");
    QCOMPARE(rs.recordCount(), 1);
}

void tst_frmDrive::saveWithNeitherOptionStillSavesTheRow()
{
    TestContext t;
    frmDrive w(*t.ctx, drives());
    auto* bank = w.findChild<QRadioButton*>("OpBank");
    bank->setAutoExclusive(false);
    bank->setChecked(false);
    w.findChild<QComboBox*>("Drive1")->setCurrentIndex(1);
    QTest::mouseClick(w.findChild<ColourButton*>("cmdSend"), Qt::LeftButton);
    QCOMPARE(t.messenger.texts(), QStringList{"Data Saved Successfully"});
    QCOMPARE(field(t, "SNo").toString(), QStringLiteral("1"));
    QVERIFY(field(t, "BankInfoPath").isNull());
    QVERIFY(field(t, "ReportPath").isNull());
    QVERIFY(t.ctx->settings.BankInfoPath.isEmpty());
}

void tst_frmDrive::driveWithoutMediumKeepsTheFolderList()
{
    TestContext t;
    storePaths(t, m_root.filePath("A/Bank"), QVariant());
    frmDrive w(*t.ctx, drives());
    auto* dir = w.findChild<QTreeView*>("Dir1");
    const QString before = QDir::toNativeSeparators(m_root.filePath("A/Bank"));
    QCOMPARE(w.dirPath(), before);
    const QModelIndex rootBefore = dir->rootIndex();
    const QModelIndex currentBefore = dir->currentIndex();

    auto* drive = w.findChild<QComboBox*>("Drive1");
    drive->setCurrentIndex(2);
    QCOMPARE(t.messenger.texts(), QStringList{"Device Not Available"});
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QCOMPARE(w.dirPath(), before);
    QCOMPARE(w.findChild<QLabel*>("lbFilePath")->text(), before);
    QCOMPARE(dir->rootIndex(), rootBefore);
    QCOMPARE(dir->currentIndex(), currentBefore);
    QCOMPARE(w.folderModel()->filePath(dir->rootIndex()), driveA());
    // The drive list itself is not set back.
    QCOMPARE(drive->currentIndex(), 2);

    // A readable drive afterwards works as usual.
    drive->setCurrentIndex(1);
    QCOMPARE(w.dirPath(), QDir::toNativeSeparators(driveB()));
    QCOMPARE(t.messenger.entries().size(), 1);
}

void tst_frmDrive::storedBankFolderIsShownOnLoad()
{
    TestContext t;
    storePaths(t, m_root.filePath("B/Other"), m_root.filePath("A/Reports"));
    frmDrive w(*t.ctx, drives());
    const QString bank = QDir::toNativeSeparators(m_root.filePath("B/Other"));
    QCOMPARE(w.findChild<QComboBox*>("Drive1")->currentIndex(), 1);
    QCOMPARE(w.dirPath(), bank);
    QCOMPARE(w.findChild<QLabel*>("lbFilePath")->text(), bank);
    auto* dir = w.findChild<QTreeView*>("Dir1");
    QCOMPARE(w.folderModel()->filePath(dir->currentIndex()), m_root.filePath("B/Other"));
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_frmDrive::focusShowsEachStoredFolder()
{
    TestContext t;
    storePaths(t, m_root.filePath("A/Bank"), m_root.filePath("B/Other"));
    frmDrive w(*t.ctx, drives());
    w.show();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    auto* path = w.findChild<QLabel*>("lbFilePath");
    QCOMPARE(path->text(), QDir::toNativeSeparators(m_root.filePath("A/Bank")));

    auto* bank = w.findChild<QRadioButton*>("OpBank");
    auto* report = w.findChild<QRadioButton*>("OpReport");
    auto* drive = w.findChild<QComboBox*>("Drive1");

    // The focus alone on the option not chosen shows nothing of it: Update
    // would save the folder shown under the option that is checked.
    focusOn(report);
    QVERIFY(bank->isChecked());
    QCOMPARE(path->text(), QDir::toNativeSeparators(m_root.filePath("A/Bank")));

    // Moving onto it by the arrows chooses it and shows its folder.
    focusOn(bank);
    QTest::keyClick(bank, Qt::Key_Left);
    QTRY_COMPARE(QApplication::focusWidget(), report);
    QVERIFY(report->isChecked());
    QCOMPARE(path->text(), QDir::toNativeSeparators(m_root.filePath("B/Other")));
    QCOMPARE(drive->currentIndex(), 1);

    // Read afresh on each choice: a change made meanwhile is seen.
    t.db.execute("UPDATE Path SET BankInfoPath = ? WHERE SNo = '1'", {m_root.filePath("A/Reports")});
    QTest::keyClick(report, Qt::Key_Right);
    QTRY_COMPARE(QApplication::focusWidget(), bank);
    QCOMPARE(path->text(), QDir::toNativeSeparators(m_root.filePath("A/Reports")));
    QCOMPARE(drive->currentIndex(), 0);

    // And each time the focus enters the chosen option again.
    t.db.execute("UPDATE Path SET BankInfoPath = ? WHERE SNo = '1'", {m_root.filePath("A/Bank")});
    QTest::keyClick(bank, Qt::Key_Tab);
    QTRY_COMPARE(QApplication::focusWidget(), drive);
    QTest::keyClick(drive, Qt::Key_Backtab);
    QTRY_COMPARE(QApplication::focusWidget(), bank);
    QCOMPARE(path->text(), QDir::toNativeSeparators(m_root.filePath("A/Bank")));
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_frmDrive::vanishedFolderIsIgnoredOnLoad_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::newRow("folder removed") << QVariant(m_root.filePath("A/Gone"));
    QTest::newRow("empty") << QVariant(QString());
    QTest::newRow("never set") << QVariant();
}

void tst_frmDrive::vanishedFolderIsIgnoredOnLoad()
{
    QFETCH(QVariant, stored);
    TestContext t;
    frmDrive fresh(*t.ctx, drives());
    storePaths(t, stored, QVariant());
    frmDrive w(*t.ctx, drives());
    QCOMPARE(w.findChild<QComboBox*>("Drive1")->currentIndex(), fresh.findChild<QComboBox*>("Drive1")->currentIndex());
    QCOMPARE(w.dirPath(), fresh.dirPath());
    QCOMPARE(w.findChild<QLabel*>("lbFilePath")->text(), QString());
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_frmDrive::vanishedFolderIsIgnoredOnFocus()
{
    TestContext t;
    QVERIFY(QDir(m_root.path()).mkpath("B/Temporary"));
    storePaths(t, m_root.filePath("A/Bank"), m_root.filePath("B/Temporary"));
    QVERIFY(QDir(m_root.filePath("B/Temporary")).removeRecursively());
    frmDrive w(*t.ctx, drives());
    w.show();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    const QString bank = QDir::toNativeSeparators(m_root.filePath("A/Bank"));
    focusOn(w.findChild<QRadioButton*>("OpBank"));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Left);
    QTRY_COMPARE(QApplication::focusWidget(), w.findChild<QRadioButton*>("OpReport"));
    QVERIFY(w.findChild<QRadioButton*>("OpReport")->isChecked());
    QCOMPARE(w.findChild<QComboBox*>("Drive1")->currentIndex(), 0);
    QCOMPARE(w.dirPath(), bank);
    QCOMPARE(w.findChild<QLabel*>("lbFilePath")->text(), bank);
    QVERIFY(t.messenger.entries().isEmpty());
}

void tst_frmDrive::folderClickSetsThePath()
{
    TestContext t;
    frmDrive w(*t.ctx, drives());
    w.show();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    auto* dir = w.findChild<QTreeView*>("Dir1");
    const QModelIndex reports = w.folderModel()->index(m_root.filePath("A/Reports"));
    QTRY_VERIFY(dir->visualRect(reports).isValid());
    QTest::mouseClick(dir->viewport(), Qt::LeftButton, {}, dir->visualRect(reports).center());
    const QString expected = QDir::toNativeSeparators(m_root.filePath("A/Reports"));
    QTRY_COMPARE(w.findChild<QLabel*>("lbFilePath")->text(), expected);
    QCOMPARE(w.dirPath(), expected);
    QTest::mouseClick(w.findChild<ColourButton*>("cmdSend"), Qt::LeftButton);
    QCOMPARE(field(t, "BankInfoPath").toString(), expected);
    QCOMPARE(t.ctx->settings.BankInfoPath, expected);
}

// The list offers existing folders only; a folder whose drive went after it
// was chosen is named in the refusal, and the stored one stays.
void tst_frmDrive::folderGoneSinceItWasChosenIsNotSaved()
{
    TestContext t;
    storePaths(t, driveA() + "/Bank", QVariant());
    frmDrive w(*t.ctx, drives());
    w.findChild<QComboBox*>("Drive1")->setCurrentIndex(1);
    w.findChild<QTreeView*>("Dir1")->setCurrentIndex(w.folderModel()->index(m_root.filePath("B/Other")));
    const QString chosen = QDir::toNativeSeparators(m_root.filePath("B/Other"));
    QCOMPARE(w.findChild<QLabel*>("lbFilePath")->text(), chosen);
    QVERIFY(QDir(m_root.filePath("B/Other")).removeRecursively());

    QTest::mouseClick(w.findChild<ColourButton*>("cmdSend"), Qt::LeftButton);
    QCOMPARE(t.messenger.texts(),
             QStringList{"The bank information folder " + chosen +
                         " does not exist. Create it, or connect the drive or network share it is on, and save "
                         "again; nothing was saved."});
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QCOMPARE(field(t, "BankInfoPath").toString(), driveA() + "/Bank");
    QVERIFY(t.ctx->settings.BankInfoPath.isEmpty());
}

void tst_frmDrive::nothingChosenIsNotSaved()
{
    TestContext t;
    frmDrive w(*t.ctx, drives());
    QCOMPARE(w.findChild<QLabel*>("lbFilePath")->text(), QString());
    QTest::mouseClick(w.findChild<ColourButton*>("cmdSend"), Qt::LeftButton);
    QCOMPARE(t.messenger.texts(), QStringList{"No bank information folder is chosen. Choose a folder that exists and "
                                              "save again; nothing was saved."});
    QCOMPARE(field(t, "SNo").toString(), QStringLiteral("<no row>"));
}

void tst_frmDrive::driveOfAPath_data()
{
    QTest::addColumn<QStringList>("roots");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("index");
    const QStringList mounts = {"/", "/home/clerk", "/media/usb"};
    QTest::newRow("root") << mounts << "/srv/bank" << 0;
    QTest::newRow("home wins over root") << mounts << "/home/clerk/bank" << 1;
    QTest::newRow("the mount point itself") << mounts << "/media/usb" << 2;
    QTest::newRow("a look-alike prefix") << QStringList{"/media/usb"} << "/media/usb2/x" << -1;
    QTest::newRow("no drive") << QStringList{"/media/usb"} << "/srv" << -1;
}

void tst_frmDrive::driveOfAPath()
{
    QFETCH(QStringList, roots);
    QFETCH(QString, path);
    QFETCH(int, index);
    QCOMPARE(DriveList::indexFor(roots, path), index);
}

void tst_frmDrive::systemDrivesHoldTheHomeFolder()
{
    const DriveList system = DriveList::system();
    const QStringList roots = system.roots();
    QVERIFY(!roots.isEmpty());
#ifndef Q_OS_WIN
    QVERIFY(roots.contains(QDir::homePath()));
    for (const QString& root : roots) {
        QVERIFY2(!root.startsWith("/proc") && !root.startsWith("/sys"), qPrintable(root));
        QVERIFY2(QFileInfo(root).isDir(), qPrintable(root));
    }
    QVERIFY(system.isReadable(QDir::homePath()));
    QVERIFY(!system.isReadable(m_root.filePath("no such drive")));
#endif
}

QTEST_MAIN(tst_frmDrive)
#include "tst_frmdrive.moc"
