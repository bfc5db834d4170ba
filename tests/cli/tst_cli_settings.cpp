#include "store/SharedDatabase.h"
#include "tests/support/TestTiming.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

// Runs tonvy-cli as a user would and checks what it prints and returns.
class tst_CliSettings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void helpExitsZero();
    void usageErrors_data();
    void usageErrors();
    void showWithoutRowIsARefusal();
    void setThenShowRoundTrips();
    void setTrimsNamesAndEditsTheSameRow();
    void setPartialKeepsOtherFields();
    void namesLimitedToTheHeaderFields_data();
    void namesLimitedToTheHeaderFields();
    void unopenableDatabase();
    void folderThatIsNotThereIsRefused_data();
    void folderThatIsNotThereIsRefused();
    void relativeFolderIsStoredInFull();
    void portMessageNamesWhereTheDeviceCameFrom_data();
    void portMessageNamesWhereTheDeviceCameFrom();
    void unreadablePortsIniLineKeepsThePortShut();

private:
    struct Result
    {
        int code;
        QString out;
        QString err;
    };
    Result run(const QStringList& args, const QString& dataDir, const QString& workingDir = {});

    QString m_cli;
    QTemporaryDir m_dir;
};

void tst_CliSettings::initTestCase()
{
    m_cli = qEnvironmentVariable("TONVY_BIN_DIR") + "/tonvy-cli";
    QVERIFY2(QFile::exists(m_cli), qPrintable(m_cli));
}

tst_CliSettings::Result tst_CliSettings::run(const QStringList& args, const QString& dataDir, const QString& workingDir)
{
    QProcess p;
    if (!workingDir.isEmpty())
        p.setWorkingDirectory(workingDir);
    QStringList all;
    if (!dataDir.isEmpty())
        all << "--data-dir" << dataDir;
    all << args;
    p.start(m_cli, all);
    p.closeWriteChannel();
    if (!p.waitForFinished(scaledMs(30000)))
        return {-1, {}, "timeout"};
    return {p.exitCode(), QString::fromLocal8Bit(p.readAllStandardOutput()),
            QString::fromLocal8Bit(p.readAllStandardError())};
}

void tst_CliSettings::helpExitsZero()
{
    const Result r = run({"--help"}, {});
    QCOMPARE(r.code, 0);
    QVERIFY(r.out.contains("--data-dir"));
    QVERIFY(r.out.contains("--port"));
    QVERIFY(r.out.contains("settings set"));
}

void tst_CliSettings::usageErrors_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::newRow("no command") << QStringList{};
    QTest::newRow("unknown command") << QStringList{"frobnicate"};
    QTest::newRow("settings without verb") << QStringList{"settings"};
    QTest::newRow("settings bad verb") << QStringList{"settings", "delete"};
    QTest::newRow("port 0") << QStringList{"settings", "set", "--comm-port", "0"};
    QTest::newRow("port 11") << QStringList{"settings", "set", "--comm-port", "11"};
    QTest::newRow("port text") << QStringList{"settings", "set", "--comm-port", "two"};
    QTest::newRow("font size") << QStringList{"settings", "set", "--font-size", "huge"};
    QTest::newRow("unknown option") << QStringList{"settings", "set", "--colour", "red"};
}

void tst_CliSettings::usageErrors()
{
    QFETCH(QStringList, args);
    QTemporaryDir dir;
    const Result r = run(args, dir.path());
    QCOMPARE(r.code, 2);
    QVERIFY(!r.err.isEmpty());
}

void tst_CliSettings::showWithoutRowIsARefusal()
{
    QTemporaryDir dir;
    const Result r = run({"settings", "show"}, dir.path());
    QCOMPARE(r.code, 1);
    QCOMPARE(r.err, QStringLiteral("Please Select CommPort and BankName\n"));
    QVERIFY(QFile::exists(dir.filePath("HandHeldData.db")));
}

void tst_CliSettings::setThenShowRoundTrips()
{
    QTemporaryDir dir;
    const QString bank = dir.filePath("bank");
    const QString reports = dir.filePath("reports");
    QVERIFY(QDir().mkpath(bank) && QDir().mkpath(reports));
    const Result set =
        run({"settings", "set", "--bank-name", "Coastal Bank", "--branch-name", "Harbour Road", "--comm-port", "3",
             "--font-size", "big", "--bank-info-path", bank, "--report-path", reports},
            dir.path());
    QCOMPARE(set.code, 0);
    QCOMPARE(set.out, QStringLiteral("Data Saved Successfully\n"));
    const Result show = run({"settings", "show"}, dir.path());
    QCOMPARE(show.code, 0);
    const QStringList lines = show.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines, QStringList({"Bank Name: Coastal Bank", "Branch Name: Harbour Road", "Comm Port: 3",
                                 "Serial Device: /dev/ttyS2", "Font Size: Big", "Bank Info Path: " + bank,
                                 "Report Path: " + reports}));
}

void tst_CliSettings::setTrimsNamesAndEditsTheSameRow()
{
    QTemporaryDir dir;
    QCOMPARE(run({"settings", "set", "--bank-name", "  Spaced Bank  "}, dir.path()).code, 0);
    QCOMPARE(run({"settings", "set", "--bank-name", "Second"}, dir.path()).code, 0);
    SharedDatabase db;
    QString error;
    QVERIFY(db.open(dir.filePath("HandHeldData.db"), &error));
    SharedRecordset& rs = db.openSharedRecordset("select * from Path");
    QCOMPARE(rs.recordCount(), 1);
    QCOMPARE(rs.text("SNo"), QStringLiteral("1"));
    QCOMPARE(rs.text("BankName"), QStringLiteral("Second"));
    QCOMPARE(run({"settings", "set", "--bank-name", "  Spaced Bank  "}, dir.path()).code, 0);
    SharedRecordset& again = db.openSharedRecordset("select * from Path");
    QCOMPARE(again.text("BankName"), QStringLiteral("Spaced Bank"));
}

void tst_CliSettings::setPartialKeepsOtherFields()
{
    QTemporaryDir dir;
    QCOMPARE(run({"settings", "set", "--comm-port", "10", "--font-size", "small"}, dir.path()).code, 0);
    QCOMPARE(run({"settings", "set", "--branch-name", "North"}, dir.path()).code, 0);
    const Result show = run({"settings", "show"}, dir.path());
    QVERIFY(show.out.contains("Comm Port: 10\n"));
    QVERIFY(show.out.contains("Serial Device: /dev/ttyS9\n"));
    QVERIFY(show.out.contains("Font Size: Small\n"));
    QVERIFY(show.out.contains("Branch Name: North\n"));
}

void tst_CliSettings::namesLimitedToTheHeaderFields_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<QString>("value");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("stored"); // what settings show prints afterwards
    const QString bank48 = QString(48, 'B');
    const QString branch22 = QString(22, 'R');
    QTest::newRow("bank name of 48") << "--bank-name" << bank48 << 0 << "Bank Name: " + bank48;
    QTest::newRow("bank name of 48 with blanks around") << "--bank-name"
                                                        << "  " + bank48 + "  " << 0 << "Bank Name: " + bank48;
    QTest::newRow("bank name of 49") << "--bank-name" << bank48 + "X" << 2 << "Bank Name: Old Bank";
    QTest::newRow("bank name of 100000") << "--bank-name" << QString(100000, 'Y') << 2 << "Bank Name: Old Bank";
    QTest::newRow("branch name of 22") << "--branch-name" << branch22 << 0 << "Branch Name: " + branch22;
    QTest::newRow("branch name of 23") << "--branch-name" << branch22 + "X" << 2 << "Branch Name: Old Branch";
}

void tst_CliSettings::namesLimitedToTheHeaderFields()
{
    QFETCH(QString, option);
    QFETCH(QString, value);
    QFETCH(int, code);
    QFETCH(QString, stored);
    QTemporaryDir dir;
    QCOMPARE(run({"settings", "set", "--bank-name", "Old Bank", "--branch-name", "Old Branch"}, dir.path()).code, 0);
    const Result r = run({"settings", "set", option, value}, dir.path());
    QCOMPARE(r.code, code);
    if (code != 0) {
        QVERIFY2(r.err.contains(option + ": "), qPrintable(r.err));
        QVERIFY2(r.err.contains(option == "--bank-name" ? "at most 48" : "at most 22"), qPrintable(r.err));
        QVERIFY(r.out.isEmpty());
    }
    const Result show = run({"settings", "show"}, dir.path());
    QVERIFY2(show.out.split('\n').contains(stored), qPrintable(show.out));
}

void tst_CliSettings::unopenableDatabase()
{
    QTemporaryDir dir;
    QFile bad(dir.filePath("HandHeldData.db"));
    QVERIFY(bad.open(QIODevice::WriteOnly));
    bad.write(QByteArray(4096, 'q'));
    bad.close();
    const Result r = run({"settings", "show"}, dir.path());
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains(dir.filePath("HandHeldData.db")), qPrintable(r.err));
    QVERIFY(r.out.isEmpty());
}

// A folder setting must name a folder that exists: the message names the
// folder and what to do, exit status 1, and nothing of the command is saved,
// the other options included.
void tst_CliSettings::folderThatIsNotThereIsRefused_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<QString>("value"); // %1: the data folder
    QTest::addColumn<QString>("err");   // %1: the data folder
    QTest::newRow("bank folder missing")
        << "--bank-info-path"
        << "%1/nonexistent"
        << "The bank information folder %1/nonexistent does not exist. Create it, or connect the drive or network "
           "share it is on, and save again; nothing was saved.";
    QTest::newRow("report folder missing")
        << "--report-path"
        << "%1/gone/reports"
        << "The report folder %1/gone/reports does not exist. Create it, or connect the drive or network share it is "
           "on, and save again; nothing was saved.";
    QTest::newRow("bank folder is a file") << "--bank-info-path"
                                           << "%1/HandHeldData.db"
                                           << "The bank information folder %1/HandHeldData.db is a file, not a "
                                              "folder. Choose a folder and save again; nothing was saved.";
    QTest::newRow("bank folder empty") << "--bank-info-path"
                                       << ""
                                       << "No bank information folder is chosen. Choose a folder that exists and "
                                          "save again; nothing was saved.";
}

void tst_CliSettings::folderThatIsNotThereIsRefused()
{
    QFETCH(QString, option);
    QFETCH(QString, value);
    QFETCH(QString, err);
    QTemporaryDir dir;
    const QString bank = dir.filePath("bank");
    QVERIFY(QDir().mkpath(bank));
    QCOMPARE(run({"settings", "set", "--bank-name", "Old Bank", "--bank-info-path", bank}, dir.path()).code, 0);
    const Result before = run({"settings", "show"}, dir.path());

    const Result r = run({"settings", "set", "--bank-name", "New Bank", option, value.arg(dir.path())}, dir.path());
    QCOMPARE(r.code, 1);
    QCOMPARE(r.err, err.arg(dir.path()) + "\n");
    QCOMPARE(r.out, QString());
    const Result after = run({"settings", "show"}, dir.path());
    QCOMPARE(after.out, before.out);
    QVERIFY(after.out.contains("Bank Name: Old Bank\n"));
}

void tst_CliSettings::relativeFolderIsStoredInFull()
{
    QTemporaryDir dir;
    QVERIFY(QDir().mkpath(dir.filePath("work/bank")));
    const Result r =
        run({"settings", "set", "--bank-info-path", "bank/", "--report-path", "."}, dir.path(), dir.filePath("work"));
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out, QStringLiteral("Data Saved Successfully\n"));
    const Result show = run({"settings", "show"}, dir.path());
    QVERIFY2(show.out.contains("Bank Info Path: " + dir.filePath("work/bank") + "\n"), qPrintable(show.out));
    QVERIFY2(show.out.contains("Report Path: " + dir.filePath("work") + "\n"), qPrintable(show.out));
}

// A port that cannot be opened is reported with where its device came
// from, and what to correct is that origin: --port, the ports.ini line, or
// the Comm Port of the settings.
void tst_CliSettings::portMessageNamesWhereTheDeviceCameFrom_data()
{
    QTest::addColumn<QStringList>("global"); // %1: the data folder
    QTest::addColumn<QString>("ini");
    QTest::addColumn<QString>("commPort");
    QTest::addColumn<QString>("err"); // %1: the data folder
    QTest::newRow("--port") << QStringList{"--port", "%1/ttyGone"} << ""
                            << "2"
                            << "The serial port %1/ttyGone (given with --port) does not exist. Check that the "
                               "terminal's cable or USB adapter is plugged in, and that --port names the terminal's "
                               "device.";
    QTest::newRow("--port wins over ports.ini")
        << QStringList{"--port", "%1/ttyGone"} << "2=%1/ttyOther\n"
        << "2"
        << "The serial port %1/ttyGone (given with --port) does not exist. Check that the terminal's cable or USB "
           "adapter is plugged in, and that --port names the terminal's device.";
    QTest::newRow("ports.ini") << QStringList{} << "# adapters\n1=/dev/ttyACM0\n2 = %1/ttyUSB7\n"
                               << "2"
                               << "The serial port %1/ttyUSB7 (from line 3 of %1/ports.ini) does not exist. Check that "
                                  "the terminal's cable or USB adapter is plugged in, and that line 3 of %1/ports.ini "
                                  "names the terminal's device.";
    if (!QFile::exists("/dev/ttyS9"))
        QTest::newRow("Comm Port") << QStringList{} << ""
                                   << "10"
                                   << "The serial port /dev/ttyS9 (Comm Port 10 of the settings) does not exist. Check "
                                      "that the terminal's cable or USB adapter is plugged in, and that the Comm Port "
                                      "chosen in CONFIGURE is the terminal's (or map Comm Port 10 to the terminal's "
                                      "device in ports.ini).";
}

void tst_CliSettings::portMessageNamesWhereTheDeviceCameFrom()
{
    QFETCH(QStringList, global);
    QFETCH(QString, ini);
    QFETCH(QString, commPort);
    QFETCH(QString, err);
    QTemporaryDir dir;
    QCOMPARE(run({"settings", "set", "--comm-port", commPort}, dir.path()).code, 0);
    if (!ini.isEmpty()) {
        QFile f(dir.filePath("ports.ini"));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(ini.arg(dir.path()).toUtf8());
    }
    for (QString& word : global)
        word = word.arg(dir.path());
    const Result r = run(global + QStringList{"receive"}, dir.path());
    QCOMPARE(r.code, 1);
    QCOMPARE(r.err, err.arg(dir.path()) + "\n");
    QCOMPARE(r.out, QString());
}

// A ports.ini line that cannot be read keeps the port shut: the Comm Port
// does not fall back to another device (here one whose other end the test
// holds and reads), and the message names the file and the line.
void tst_CliSettings::unreadablePortsIniLineKeepsThePortShut()
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    QVERIFY(master >= 0);
    QVERIFY(grantpt(master) == 0 && unlockpt(master) == 0);
    ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK);
    const QString device = QString::fromLocal8Bit(ptsname(master));

    QTemporaryDir dir;
    QCOMPARE(run({"settings", "set", "--comm-port", "1"}, dir.path()).code, 0);
    QFile f(dir.filePath("ports.ini"));
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(("1=" + device + "\n1 " + device + "\n").toUtf8());
    f.close();
    const QString problem = "Line 2 of " + f.fileName() + " cannot be read: \"1 " + device +
                            "\" has no \"=\" between a Comm Port number and a device. Correct the line (for example "
                            "1=/dev/ttyUSB0) or remove it; until then the terminal's port is not opened.\n";

    const Result received = run({"receive"}, dir.path());
    QCOMPARE(received.code, 1);
    QCOMPARE(received.err, problem);
    QCOMPARE(received.out, QString());
    char buf[256];
    QCOMPARE(::read(master, buf, sizeof buf), ssize_t(-1)); // nothing was written to the line
    ::close(master);

    const Result shown = run({"settings", "show"}, dir.path());
    QCOMPARE(shown.code, 0);
    QVERIFY2(shown.out.contains("\nSerial Device: none (ports.ini line 2 cannot be read)\n"), qPrintable(shown.out));
    QCOMPARE(shown.err, problem);
}

QTEST_GUILESS_MAIN(tst_CliSettings)
#include "tst_cli_settings.moc"
