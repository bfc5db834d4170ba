#include "admin/frmConfigure.h"
#include "admin/frmPassword.h"
#include "core/Startup.h"
#include "download/SendFlow.h"
#include "download/frmsend.h"
#include "store/PasswordStore.h"
#include "tests/store/ScreenFaults.h"
#include "tests/support/FakeChannel.h"
#include "tests/support/MessageRecorder.h"
#include "tests/support/TestContext.h"
#include "widgets/ColourButton.h"
#include "widgets/MessageBoxMessenger.h"

#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QtTest>

using StoreFaults::Fault;

// The desktop program on a database in trouble: the start says what is
// wrong in a message box and ends cleanly; a screen whose save fails says
// so, reports no success and stays usable; the file is left as it was.
class tst_StoreFaultsScreens : public QObject
{
    Q_OBJECT

private slots:
    void startRefusesAFaultyFile_data();
    void startRefusesAFaultyFile();
    void startWhileAnotherProcessHoldsTheFile();
    void configurationSaveWhileAnotherProcessWrites();
    void passwordSaveOnAPageDamagedAfterTheStart();
    void configurationSaveOnAFullDisk();
    void sendStopsBeforeThePortOnAFullDisk();

private:
    // Starts the program's database as the desktop program does, answers
    // the message box it shows and returns the box's text.
    static QString startAndReadTheBox(const QString& dataDir, bool* opened);
};

QString tst_StoreFaultsScreens::startAndReadTheBox(const QString& dataDir, bool* opened)
{
    QString shown;
    QTimer answer;
    answer.setInterval(50);
    QObject::connect(&answer, &QTimer::timeout, [&] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            shown = box->text();
            QVERIFY(box->icon() == QMessageBox::Critical);
            box->accept();
        }
    });
    answer.start();
    SharedDatabase db;
    MessageBoxMessenger messenger;
    *opened = Startup::openDatabase(db, dataDir, messenger);
    return shown;
}

void tst_StoreFaultsScreens::startRefusesAFaultyFile_data()
{
    QTest::addColumn<int>("fault");
    StoreFaults::addFaultRows();
}

void tst_StoreFaultsScreens::startRefusesAFaultyFile()
{
    QFETCH(int, fault);
    QTemporaryDir dir;
    const QString file = dir.filePath("HandHeldData.db");
    QVERIFY(StoreFaults::make(Fault(fault), file, dir.path()));
    const QByteArray before = StoreFaults::hashOf(file);

    bool opened = true;
    const QString shown = startAndReadTheBox(dir.path(), &opened);
    QVERIFY(!opened);
    QVERIFY2(shown.contains(file), qPrintable(shown));
    QVERIFY2(shown.contains(StoreFaults::adviceFor(Fault(fault))), qPrintable(shown));
    QCOMPARE(StoreFaults::hashOf(file), before);
}

void tst_StoreFaultsScreens::startWhileAnotherProcessHoldsTheFile()
{
    QTemporaryDir dir;
    const QString file = dir.filePath("HandHeldData.db");
    QVERIFY(StoreFaults::makeOurDatabase(file, dir.path()));
    StoreFaults::LockHolder holder;
    QVERIFY(holder.start(file, "exclusive"));
    const QByteArray before = StoreFaults::hashOf(file);

    bool opened = true;
    const QString shown = startAndReadTheBox(dir.path(), &opened);
    QVERIFY(!opened);
    QVERIFY2(shown.contains(file), qPrintable(shown));
    QVERIFY2(shown.contains("in use by another program"), qPrintable(shown));
    QVERIFY2(shown.contains("Close the other program"), qPrintable(shown));
    QCOMPARE(StoreFaults::hashOf(file), before);
}

namespace {

QString bankName(SharedDatabase& db)
{
    SharedRecordset& rs = db.openSharedRecordset("select * from Path where SNo=?", {"1"});
    const QString name = rs.eof() ? QStringLiteral("<no row>") : rs.text("BankName");
    db.closeSharedRecordset();
    return name;
}

void saveConfiguration(frmConfigure& w, const QString& bank)
{
    w.findChild<QLineEdit*>("txtBankName")->setText(bank);
    QTest::mouseClick(w.findChild<ColourButton*>("cmdUpdate"), Qt::LeftButton);
}

} // namespace

void tst_StoreFaultsScreens::configurationSaveWhileAnotherProcessWrites()
{
    TestContext t;
    t.db.execute("INSERT INTO Path (SNo, BankName, BranchName, \"Comm Port\", FontSize) VALUES ('1', 'OLD BANK', "
                 "'MAIN', '1', '0')");
    frmConfigure w(*t.ctx);
    w.show();
    w.Form_Load();
    t.messenger.clear();
    {
        StoreFaults::LockHolder holder;
        QVERIFY(holder.start(t.db.filePath(), "immediate"));
        saveConfiguration(w, "NEW BANK");
        QCOMPARE(t.messenger.count("Data Saved Successfully"), 0);
        QCOMPARE(t.messenger.entries().size(), 1);
        QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
        QVERIFY2(t.messenger.last().contains(t.db.filePath()), qPrintable(t.messenger.last()));
        QVERIFY2(t.messenger.last().contains("in use by another program"), qPrintable(t.messenger.last()));
        QVERIFY2(t.messenger.last().contains("try again"), qPrintable(t.messenger.last()));
    }
    QCOMPARE(bankName(t.db), QStringLiteral("OLD BANK"));
    // The screen stays usable: once the other program has let go, the same
    // Update saves.
    t.messenger.clear();
    saveConfiguration(w, "NEW BANK");
    QCOMPARE(t.messenger.count("Data Saved Successfully"), 1);
    QCOMPARE(bankName(t.db), QStringLiteral("NEW BANK"));
}

void tst_StoreFaultsScreens::passwordSaveOnAPageDamagedAfterTheStart()
{
    TestContext t;
    PasswordStore::load(t.db); // the start has turned the passwords into hashes
    frmPassword w(*t.ctx);
    w.show();
    w.Form_Load();
    t.messenger.clear();

    // The disk spoils the page of the password row while the program runs;
    // a changed file counter makes SQLite read the file again.
    const QString file = t.db.filePath();
    QByteArray bytes = StoreFaults::bytesOf(file);
    StoreFaults::overwritePage(bytes, StoreFaults::rootPage(file, "Password"));
    bytes[27] = static_cast<char>(bytes.at(27) + 1);
    QVERIFY(StoreFaults::writeBytes(file, bytes));
    const QByteArray before = StoreFaults::hashOf(file);

    w.findChild<QLineEdit*>("txtOldPass")->setText("admin");
    w.findChild<QLineEdit*>("txtNewPass")->setText("secret");
    w.findChild<QLineEdit*>("txtConfirmPass")->setText("secret");
    QTest::mouseClick(w.findChild<ColourButton*>("cmdSend"), Qt::LeftButton);

    QCOMPARE(t.messenger.count("Data Saved Successfully"), 0);
    QCOMPARE(t.messenger.entries().size(), 1);
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY2(t.messenger.last().contains(file), qPrintable(t.messenger.last()));
    QVERIFY2(t.messenger.last().contains("is damaged"), qPrintable(t.messenger.last()));
    QVERIFY2(t.messenger.last().contains("Restore the backup copy of HandHeldData.db"), qPrintable(t.messenger.last()));
    QCOMPARE(StoreFaults::hashOf(file), before);
    QVERIFY(w.isVisible());
}

using ScreenFaults::FullDisk;
using ScreenFaults::shimLoaded;

void tst_StoreFaultsScreens::configurationSaveOnAFullDisk()
{
    if (!shimLoaded())
        QSKIP("needs the disk-full shim preloaded (ctest sets LD_PRELOAD)");
    TestContext t;
    PasswordStore::load(t.db);
    t.db.execute("INSERT INTO Path (SNo, BankName, BranchName, \"Comm Port\", FontSize) VALUES ('1', 'OLD BANK', "
                 "'MAIN', '1', '0')");
    frmConfigure w(*t.ctx);
    w.show();
    w.Form_Load();
    t.messenger.clear();
    const QByteArray before = StoreFaults::hashOf(t.db.filePath());
    {
        FullDisk full(0);
        saveConfiguration(w, "NEW BANK");
    }
    QCOMPARE(t.messenger.count("Data Saved Successfully"), 0);
    QCOMPARE(t.messenger.entries().size(), 1);
    QCOMPARE(t.messenger.lastIcon(), Messenger::Icon::Critical);
    QVERIFY2(t.messenger.last().contains(t.db.filePath()), qPrintable(t.messenger.last()));
    QVERIFY2(t.messenger.last().contains("no space left on the disk"), qPrintable(t.messenger.last()));
    QVERIFY2(t.messenger.last().contains("Free some space"), qPrintable(t.messenger.last()));
    QCOMPARE(bankName(t.db), QStringLiteral("OLD BANK"));
    QCOMPARE(StoreFaults::hashOf(t.db.filePath()), before);
    // Space freed: the same screen saves.
    t.messenger.clear();
    saveConfiguration(w, "NEW BANK");
    QCOMPARE(t.messenger.count("Data Saved Successfully"), 1);
}

void tst_StoreFaultsScreens::sendStopsBeforeThePortOnAFullDisk()
{
    if (!shimLoaded())
        QSKIP("needs the disk-full shim preloaded (ctest sets LD_PRELOAD)");
    TestContext t;
    PasswordStore::load(t.db);
    t.ctx->settings.BankInfoPath = t.path("bank");
    t.ctx->settings.FontSize = QStringLiteral("0");
    QVERIFY(QDir().mkpath(t.ctx->settings.BankInfoPath));
    QVERIFY(QFile::copy(QStringLiteral(DOWNLOAD_FIXTURES "/0051611d.txt"),
                        QDir(t.ctx->settings.BankInfoPath).filePath("0051611d.txt")));
    int channelsMade = 0;
    t.ctx->setChannelFactory([&channelsMade]() -> std::unique_ptr<LinkChannel> {
        ++channelsMade;
        return std::make_unique<FakeChannel>();
    });
    const QByteArray before = StoreFaults::hashOf(t.db.filePath());

    frmsend form(*t.ctx);
    MessageRecorder messages;
    messages.listen(&form.flow(), &SendFlow::message);
    form.show();
    QVERIFY(QTest::qWaitForWindowExposed(&form));
    QTest::keyClicks(form.findChild<QLineEdit*>("txtAgent"), "5");
    QTest::keyClicks(form.findChild<QLineEdit*>("txtDate"), "1611");
    {
        FullDisk full(20000);
        QTest::mouseClick(form.findChild<QPushButton*>("cmdSend"), Qt::LeftButton);
    }
    QVERIFY2(messages.last().contains(t.db.filePath()), qPrintable(messages.last()));
    QVERIFY2(messages.last().contains("no space left on the disk"), qPrintable(messages.last()));
    QCOMPARE(messages.lastIcon(), Messenger::Icon::Critical);
    // Stopped before the terminal: no port was opened, Send can be pressed again.
    QCOMPARE(channelsMade, 0);
    QVERIFY(form.findChild<QPushButton*>("cmdSend")->isEnabled());
    SharedRecordset& rs = t.db.openSharedRecordset("SELECT count(*) AS n FROM BankData");
    QCOMPARE(rs.text("n"), QStringLiteral("0"));
    t.db.closeSharedRecordset();
    QCOMPARE(StoreFaults::hashOf(t.db.filePath()), before);
}

QTEST_MAIN(tst_StoreFaultsScreens)
#include "tst_storefaults_screens.moc"
